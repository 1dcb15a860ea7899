#!/usr/bin/env bats
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
#
# The step that applies hardware settings.

load device

# How a look at the panel learns whether a password is the account's.
CHECK='check() { /usr/bin/python3 -W ignore -c "
import crypt, spwd, sys
user, password = sys.argv[1:]
stored = spwd.getspnam(user).sp_pwdp
print(user, password, crypt.crypt(password, stored) == stored)" "$@"; }
'

@test "the words of all seven collecting kinds go to the setting tool in one command, in order" {
    package Foo <<'END'
hardware(*(setting(kind, (kind + "1", "a"), (kind + "2", "b")) for kind in (
    "TouchBeep", "SStart", "Sound", "Lan", "Language", "Cursor", "Backlight")))
END

    install Foo --look 'kx-setting-cui list'

    expect_status 0
    expect_out <<'END'
**** Installation step 1/1
Installation succeeded.
END
    expect_silence
    local words='TouchBeep1=a TouchBeep2=b SStart1=a SStart2=b Sound1=a Sound2=b Lan1=a Lan2=b'
    words+=' Language1=a Language2=b Cursor1=a Cursor2=b Backlight1=a Backlight2=b'
    expect_installing Foo <<<"[kx-setting-cui set $words ]"
    expect_panel <<'END'
Backlight1=a
Backlight2=b
Cursor1=a
Cursor2=b
Lan1=a
Lan2=b
Language1=a
Language2=b
SStart1=a
SStart2=b
Sound1=a
Sound2=b
TouchBeep1=a
TouchBeep2=b
END
}

@test "every step runs the setting tool once for its own words" {
    package Foo <<'END'
hardware(setting("Backlight", ("Level", "1")))
hardware(setting("Backlight", ("Level", "2")), setting("Sound", ("Volume", "3")))
END

    install Foo

    expect_status 0
    expect_installing Foo <<'END'
[kx-setting-cui set Level=1 ]
[kx-setting-cui set Level=2 Volume=3 ]
END
}

@test "unused settings, whatever they hold, settings without items and empty steps run nothing" {
    package Foo <<'END'
hardware(setting("Backlight", ("Level", "8"), used=False),
         setting("User", ("User", "user"), ("Password", "x"), used=False),
         setting("no kind at all", ("A", "b"), used=False))
hardware(setting("Sound"), setting("AutoStartupMode"))
hardware()
END

    install Foo

    expect_status 0
    expect_out <<'END'
**** Installation step 1/3
**** Installation step 2/3
**** Installation step 3/3
Installation succeeded.
END
    expect_installing Foo </dev/null
}

@test "names and values reach the shell as they are" {
    package Foo <<'END'
hardware(setting("Lan", ("Quoted", "'two words'"), ("Home", "$HOME"), ("Twice", "a b=c"),
                        ("", "x=y"), ("Percent", "100%s%n"), ("Sum", "$((1+2))")))
END

    install Foo

    expect_status 0
    expect_installing Foo <<'END'
[kx-setting-cui set Quoted='two words' Home=$HOME Twice=a b=c =x=y Percent=100%s%n Sum=$((1+2)) ]
END
    # A word of its own where the value has a blank; the tool does not like one without a name.
    expect_tools <<'END'
wprotect_off
kx-setting-cui set Quoted=two words Home=/root Twice=a b=c =x=y Percent=100%s%n Sum=3
END
    [ -s "$ERR" ]
}

@test "a password is really changed, at once, and is the last one given" {
    package Foo <<'END'
hardware(setting("Sound", ("Volume", "5")),
         setting("User", ("User", "root"), ("user", "nobody"), ("Password", "first"),
                         ("Shell", "/bin/false"), ("User", "user"), ("password", "no"),
                         ("Password", "the second, with blanks")))
END

    install Foo --look "$CHECK check user 'the second, with blanks'; check user first
        check root 'the second, with blanks'; check root first"

    expect_status 0
    expect_installing Foo <<'END'
[echo 'user:the second, with blanks' | chpasswd]
[kx-setting-cui set Volume=5 ]
END
    expect_panel <<'END'
user the second, with blanks True
user first False
root the second, with blanks False
root first False
END
}

@test "a single quote in a password ends the quoting: a syntax error, or a command of its own" {
    package Foo <<'END'
hardware(setting("User", ("User", "user"), ("Password", "it's")))
END
    package Bar <<'END'
hardware(setting("User", ("User", "user"), ("Password", "a' ; touch /root/was-here ; echo 'user:b")))
END

    install Foo

    expect_status 101
    expect_out <<'END'
**** Installation step 1/1
H/W setting failed in Zt.Plugins.HW_UserConfigSet,  Plexa in.
Installation failed in step 1.
END
    expect_failing <<'END'
[echo 'user:it's' | chpasswd]
END
    grep -q 'Unterminated quoted string' "$ERR"

    install Bar --look "$CHECK check user b; ls /root"

    expect_status 0
    expect_panel <<'END'
user b True
was-here
END
}

@test "a password that cannot be changed fails the step: unknown and empty user, no tool" {
    package Foo <<'END'
hardware(setting("Sound", ("Volume", "5")),
         setting("User", ("User", "nobody-here"), ("Password", "x")),
         setting("Backlight", ("Level", "8")))
END
    package Bar <<'END'
hardware(setting("User"), skip=True)
END

    install Foo

    expect_status 101
    expect_out <<'END'
**** Installation step 1/1
H/W setting failed in Zt.Plugins.HW_UserConfigSet,  Plexa in.
Installation failed in step 1.
END
    # The words collected so far are discarded.
    expect_failing <<'END'
[echo 'nobody-here:x' | chpasswd]
END

    install Bar

    expect_status 0
    expect_out <<'END'
**** Installation step 1/1
H/W setting failed in Zt.Plugins.HW_UserConfigSet,  Plexa in.
Installation succeeded.
END
    expect_installing Bar <<'END'
[echo ':' | chpasswd]
END

    install Foo --missing chpasswd
    expect_status 101
    grep -q 'chpasswd: not found' "$ERR"
}

@test "with CanSkip the settings behind a failing one are applied" {
    package Foo <<'END'
hardware(setting("Sound", ("Volume", "5")),
         setting("User", ("User", "nobody-here"), ("Password", "x")),
         setting("no kind at all", ("Lost", "1")),
         setting("Backlight", ("Level", "8")), skip=True)
END

    install Foo

    expect_status 0
    expect_out <<'END'
**** Installation step 1/1
H/W setting failed in Zt.Plugins.HW_UserConfigSet,  Plexa in.
no kind at all is unknown class.
Installation succeeded.
END
    expect_installing Foo <<'END'
[echo 'nobody-here:x' | chpasswd]
[kx-setting-cui set Volume=5 Level=8 ]
END
}

@test "a used setting of unknown kind fails the step with 2003, so 101" {
    package Foo <<'END'
hardware(setting("Sound", ("Volume", "5")),
         setting("Zt.Plugins.HW_BacklightConfigSet, Plexa", ("Level", "8")))
END

    install Foo

    expect_status 101
    expect_out <<'END'
**** Installation step 1/1
Zt.Plugins.HW_BacklightConfigSet, Plexa is unknown class.
Installation failed in step 1.
END
    expect_failing </dev/null
}

@test "the start-up script is written byte for byte with mode 777, other items are collected" {
    package Foo <<'END'
hardware(setting("AutoStartupMode", ("Mode", "script"),
                 ("CustomScript", "#!/bin/sh\r\necho 100%\r\nno line end"), ("Delay", "3"),
                 ("customscript", "x")),
         setting("Sound", ("Volume", "5")))
END

    install Foo --look 'stat -c "%a %U:%G" /mnt/user/startup.sh; cat -A /mnt/user/startup.sh; echo "|"'

    expect_status 0
    expect_installing Foo <<'END'
[chmod 777 "/mnt/user/startup.sh" ]
[kx-setting-cui set Mode=script Delay=3 customscript=x Volume=5 ]
END
    expect_panel <<'END'
777 root:root
#!/bin/sh^M$
echo 100%^M$
no line end|
END
}

@test "an empty start-up script is an empty file, the last of two stays, and it runs at the start" {
    package Foo <<'END'
hardware(setting("AutoStartupMode", ("CustomScript", "")))
END
    package Bar <<'END'
hardware(setting("AutoStartupMode", ("CustomScript", "first\n"),
                 ("CustomScript", "#!/bin/sh\necho started >/root/at-start\n")))
END

    install Foo --keep --look 'stat -c "%a %s" /mnt/user/startup.sh'
    expect_status 0
    expect_installing Foo <<'END'
[chmod 777 "/mnt/user/startup.sh" ]
END
    expect_panel <<<'777 0'

    install Bar --keep
    expect_status 0
    expect_installing Bar <<'END'
[chmod 777 "/mnt/user/startup.sh" ]
[chmod 777 "/mnt/user/startup.sh" ]
END

    device --keep --boot -- cat /root/at-start
    expect_out <<<started
}

@test "a start-up script that cannot be written: read-only, full and missing /mnt/user" {
    package Foo <<'END'
hardware(setting("AutoStartupMode", ("Mode", "script"), ("CustomScript", "exit 0\n"), ("Delay", "3")),
         setting("Sound", ("Volume", "5")))
END
    package Skipping <<'END'
hardware(setting("AutoStartupMode", ("Mode", "script"), ("CustomScript", "exit 0\n"), ("Delay", "3")),
         setting("Sound", ("Volume", "5")), skip=True)
END
    cat >"$WORK/expected" <<'END'
**** Installation step 1/1
H/W setting failed in Zt.Plugins.HW_AutoStartupModeConfigSet,  Plexa in.
Installation failed in step 1.
END

    install Foo --read-only /mnt/user
    expect_status 101
    expect_out <"$WORK/expected"
    expect_failing </dev/null

    install Foo --full /mnt/user
    expect_status 101
    expect_out <"$WORK/expected"
    expect_failing </dev/null

    device -- sh -c "rmdir /mnt/user && exec $UPDATER -unzipedDir /packages/Foo"
    expect_status 101
    expect_out <"$WORK/expected"
    expect_failing </dev/null

    install Skipping --read-only /mnt/user
    expect_status 0
    expect_installing Skipping <<'END'
[kx-setting-cui set Mode=script Delay=3 Volume=5 ]
END
}

@test "a start-up script whose mode cannot be changed fails the setting, a later success keeps it" {
    package Foo <<'END'
hardware(setting("AutoStartupMode", ("CustomScript", "one\n"), ("CustomScript", "two\n")))
END

    install Foo --fail chmod=4@1 --look 'cat /mnt/user/startup.sh'

    expect_status 101
    expect_out <<'END'
**** Installation step 1/1
H/W setting failed in Zt.Plugins.HW_AutoStartupModeConfigSet,  Plexa in.
Installation failed in step 1.
END
    expect_failing <<'END'
[chmod 777 "/mnt/user/startup.sh" ]
[chmod 777 "/mnt/user/startup.sh" ]
END
    expect_panel <<<two
}

@test "a missing or failing setting tool does not fail the step" {
    package Foo <<'END'
hardware(setting("Sound", ("Volume", "5")))
script("#!/bin/sh\necho after it\n")
END
    cat >"$WORK/expected" <<'END'
**** Installation step 1/2
**** Installation step 2/2
after it
Installation succeeded.
END

    install Foo --missing kx-setting-cui
    expect_status 0
    expect_out <"$WORK/expected"
    grep -q 'kx-setting-cui: not found' "$ERR"

    install Foo --fail kx-setting-cui=3
    expect_status 0
    expect_out <"$WORK/expected"
    expect_silence
}

@test "five hundred items make one command of many thousand bytes" {
    package Foo <<'END'
hardware(setting("Lan", *((f"Name{number}", "value" * 20) for number in range(500))))
END

    install Foo --look 'kx-setting-cui list | wc -l -c'

    expect_status 0
    local expected='[kx-setting-cui set ' number value
    printf -v value 'value%.0s' {1..20}
    for number in {0..499}; do
        expected+="Name$number=$value "
    done
    expect_installing Foo <<<"$expected]"
    expect_panel <<'END'
    500   54390
END
}
