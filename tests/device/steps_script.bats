#!/usr/bin/env bats
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
#
# The step that runs a script.

load device

@test "a script is written with line feeds, made executable and run; its file stays" {
    package Foo <<'END'
script("#!/bin/sh\r\necho one\r\n# a lone \r stays, \r\r\n# also before a pair\r\nexit 0")
END

    install Foo --look 'stat -c "%a %U:%G %s" /tmp/Zt/temp.sh; od -A n -c /tmp/Zt/temp.sh'

    expect_status 0
    expect_out <<'END'
**** Installation step 1/1
one
Installation succeeded.
END
    expect_silence
    expect_installing Foo <<'END'
[mkdir -p "/tmp/Zt/"]
[chmod +x "/tmp/Zt/temp.sh"]
["/tmp/Zt/temp.sh"]
END
    expect_panel <<'END'
755 root:root 66
   #   !   /   b   i   n   /   s   h  \n   e   c   h   o       o
   n   e  \n   #       a       l   o   n   e      \r       s   t
   a   y   s   ,      \r  \n   #       a   l   s   o       b   e
   f   o   r   e       a       p   a   i   r  \n   e   x   i   t
       0
END
}

@test "the output of a script stands between the updater's lines, in order" {
    package Foo <<'END'
script("#!/bin/sh\necho first; echo to standard error >&2; printf 'no line end'\n")
script("#!/bin/sh\necho second\n")
script("#!/bin/sh\nexit 7\n", skip=True)
END
    # Both streams in one, as the window's log shows them.
    prepare -- "$UPDATER" -unzipedDir /packages/Foo
    status=0
    "${DEVICE[@]}" </dev/null >"$OUT" 2>&1 || status=$?

    expect_status 0
    expect_out <<'END'
**** Installation step 1/3
first
to standard error
no line end**** Installation step 2/3
second
**** Installation step 3/3
Script execution returned an error(=1792) in step no 3
Installation succeeded.
END
}

@test "a failing script ends the installation with its raw status, and the exit code is 101" {
    package Foo <<'END'
script("#!/bin/sh\necho one\n")
script("#!/bin/sh\nexit 5\n")
script("#!/bin/sh\ntouch /root/third\n")
END

    install Foo --look 'ls /root /var/lib/KxUserPackages/Foo'

    expect_status 101
    expect_out <<'END'
**** Installation step 1/3
one
**** Installation step 2/3
Script execution returned an error(=1280) in step no 2
Installation failed in step 2.
END
    expect_failing <<'END'
[mkdir -p "/tmp/Zt/"]
[chmod +x "/tmp/Zt/temp.sh"]
["/tmp/Zt/temp.sh"]
[mkdir -p "/tmp/Zt/"]
[chmod +x "/tmp/Zt/temp.sh"]
["/tmp/Zt/temp.sh"]
END
    expect_panel <<'END'
ls: cannot access '/var/lib/KxUserPackages/Foo': No such file or directory
/root:
END
}

@test "exit statuses from 1 to 255 are shown times 256, and skipped with CanSkip" {
    package Foo <<'END'
for number in (1, 2, 3, 100, 126, 127, 255):
    script(f"#!/bin/sh\nexit {number}\n", skip=True)
END

    install Foo

    expect_status 0
    grep -v '^\*\*\*\*' "$OUT" >"$WORK/lines"
    same "$WORK/lines" 'the lines' <<'END'
Script execution returned an error(=256) in step no 1
Script execution returned an error(=512) in step no 2
Script execution returned an error(=768) in step no 3
Script execution returned an error(=25600) in step no 4
Script execution returned an error(=32256) in step no 5
Script execution returned an error(=32512) in step no 6
Script execution returned an error(=65280) in step no 7
Installation succeeded.
END
}

@test "a script killed by a signal is a failing one: the shell says 128 and the signal's number" {
    package Foo <<'END'
script("#!/bin/sh\nkill -KILL $$\n")
END

    install Foo

    expect_status 101
    expect_out <<'END'
**** Installation step 1/1
Script execution returned an error(=35072) in step no 1
Installation failed in step 1.
END
}

@test "a shell killed by a signal gives the bare number, which is the exit code too" {
    package Foo <<'END'
script("#!/bin/sh\nkill -KILL $PPID\n")
END

    install Foo

    expect_status 9
    expect_out <<'END'
**** Installation step 1/1
Script execution returned an error(=9) in step no 1
Installation failed in step 1.
END
    [ "$(commands | tail -n 1)" = '[sync]' ]
}

@test "an empty script, one without a first line for its interpreter, and one in Python run" {
    package Foo <<'END'
script("")
script("echo run by the shell itself\n")
script("#!/usr/bin/python3\nprint('run by', 'python')\n")
script("\n\n")
END

    install Foo

    expect_status 0
    expect_out <<'END'
**** Installation step 1/4
**** Installation step 2/4
run by the shell itself
**** Installation step 3/4
run by python
**** Installation step 4/4
Installation succeeded.
END
    expect_silence
}

@test "a missing interpreter is a failing script" {
    package Foo <<'END'
script("#!/opt/none\necho never\n")
END

    install Foo

    expect_status 101
    expect_out <<'END'
**** Installation step 1/1
Script execution returned an error(=32512) in step no 1
Installation failed in step 1.
END
    # The shell names the script, not the interpreter.
    grep -qF '/tmp/Zt/temp.sh: not found' "$ERR"
}

@test "each script replaces the one before, whatever its length" {
    package Foo <<'END'
script("#!/bin/sh\necho a much longer script than the next one\n" + "# more\n" * 5000)
script("#!/bin/sh\necho two\n")
END

    install Foo --look 'cat /tmp/Zt/temp.sh'

    expect_status 0
    expect_panel <<'END'
#!/bin/sh
echo two
END
}

@test "the script for the uninstallation is never run" {
    package Foo <<'END'
script("#!/bin/sh\nexit 0\n", uninstall="#!/bin/sh\ntouch /root/uninstalled\n")
END

    install Foo --look 'ls -A /root'

    expect_status 0
    expect_panel </dev/null
}

@test "a script runs as root in the updater's folder, with its input, umask and no arguments" {
    package Foo <<'END'
script("#!/bin/sh\nid -un; pwd; umask; echo $# arguments; read -r line; echo \"read $line\"\n")
END
    prepare --chdir /opt -- "$UPDATER" -unzipedDir /packages/Foo
    status=0
    echo 'a line' | "${DEVICE[@]}" >"$OUT" 2>"$ERR" || status=$?
    finish

    expect_status 0
    expect_out <<'END'
**** Installation step 1/1
root
/opt
0022
0 arguments
read a line
Installation succeeded.
END
}

@test "percent signs, odd bytes and zero bytes of a script are written as they are" {
    package Foo <<'END'
script("#!/bin/sh\n# %s %n %d 100%\n# " + raw(b"\xff\xfe\x80") + "\nexit 0\n\0after\n")
END

    install Foo --look 'od -A n -t x1 /tmp/Zt/temp.sh; sed -n 2p /tmp/Zt/temp.sh'

    expect_status 0
    expect_out <<'END'
**** Installation step 1/1
Installation succeeded.
END
    expect_panel <<'END'
 23 21 2f 62 69 6e 2f 73 68 0a 23 20 25 73 20 25
 6e 20 25 64 20 31 30 30 25 0a 23 20 ff fe 80 0a
 65 78 69 74 20 30 0a 00 61 66 74 65 72 0a
# %s %n %d 100%
END
}

@test "a script that cannot be written: read-only and missing /tmp, a folder in its place" {
    package Foo <<'END'
script("#!/bin/sh\necho never\n")
END
    package Odd <<'END'
script("#!/bin/sh\nrm -r /tmp/Zt && mkdir -p /tmp/Zt/temp.sh\n")
script("#!/bin/sh\necho never\n", skip=True)
script("#!/bin/sh\necho never\n")
END

    install Foo --read-only /tmp

    expect_status 101
    expect_out <<'END'
**** Installation step 1/1
File write is corrupted. file=/tmp/Zt/temp.sh
Installation failed in step 1.
END
    expect_failing <<'END'
[mkdir -p "/tmp/Zt/"]
END

    device -- sh -c "rm -r /tmp && ln -s /nowhere/at/all /tmp && $UPDATER -unzipedDir /packages/Foo"
    expect_status 101
    sed -n 2p "$OUT" >"$WORK/line"
    same "$WORK/line" 'the message' <<<'File write is corrupted. file=/tmp/Zt/temp.sh'

    install Odd

    expect_status 101
    expect_out <<'END'
**** Installation step 1/3
**** Installation step 2/3
File write is corrupted. file=/tmp/Zt/temp.sh
**** Installation step 3/3
File write is corrupted. file=/tmp/Zt/temp.sh
Installation failed in step 3.
END
}

@test "a missing /tmp is made anew for the script" {
    package Foo <<'END'
script("#!/bin/sh\necho here\n")
END

    device -- sh -c "rm -r /tmp && exec $UPDATER -unzipedDir /packages/Foo"

    expect_status 0
    expect_out <<'END'
**** Installation step 1/1
here
Installation succeeded.
END
}

@test "a script that does not fit on the disk fails in its write" {
    package Foo <<'END'
script("#!/bin/sh\necho never\n")
END

    install Foo --full /tmp

    expect_status 101
    expect_out <<'END'
**** Installation step 1/1
File write is corrupted. file=/tmp/Zt/temp.sh
Installation failed in step 1.
END
}

@test "a script that cannot be made executable is not run" {
    package Foo <<'END'
script("#!/bin/sh\necho never\n")
script("#!/bin/sh\necho never\n", skip=True)
END

    install Foo --fail chmod=3

    expect_status 101
    expect_out <<'END'
**** Installation step 1/2
Script execution returned an error(=768) in step no 1
Installation failed in step 1.
END
    expect_failing <<'END'
[mkdir -p "/tmp/Zt/"]
[chmod +x "/tmp/Zt/temp.sh"]
END
}

@test "a script on a disk from which nothing may be executed is a failing script" {
    package Foo <<'END'
script("#!/bin/sh\necho never\n")
END

    # The panel executes nothing below /dev.
    device -- sh -c "ln -s /dev /tmp/Zt && exec $UPDATER -unzipedDir /packages/Foo"

    expect_status 101
    expect_out <<'END'
**** Installation step 1/1
Script execution returned an error(=32256) in step no 1
Installation failed in step 1.
END
    expect_err <<'END'
sh: 1: /tmp/Zt/temp.sh: Permission denied
END
}

@test "a script may leave processes behind, and the installation does not wait for them" {
    package Foo <<'END'
script("#!/bin/sh\nmkfifo /root/never\n(read -r line </root/never) >/dev/null 2>&1 &\necho started\n")
END

    install Foo

    expect_status 0
    expect_out <<'END'
**** Installation step 1/1
started
Installation succeeded.
END
}
