#!/usr/bin/env bats
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
#
# A package file on a USB flash drive, unpacked there by the window and installed by the updater that
# it brings along: everything that reaches the panel, and what a drive leaves that is pulled too early.

load window

@test "a package file is unpacked, installed by its own updater and recorded under its name" {
    drive_package Foo <<'END'
copy_file(item(r"C:\work\app.bin", "/opt/demo/app.bin", "755", "program\n"), record=True)
copy_folder(folder("/opt/demo/share", {
    "run": file("#!/bin/sh\n", 0o755), ".hidden": "h\n", "empty": {}, "日本語": {"two words": "t\n"},
    "1": {"2": {"3": "deep\n"}}}), record=True)
script("#!/bin/sh\nreadlink /proc/$(sed -n 's/^PPid:[^0-9]*//p' /proc/$PPID/status)/exe\n")
hardware(setting("Backlight", ("Level", "8")))
END
    echo 'another file' >"$DRIVE/readme.txt"

    window --keep --look 'find /opt/demo -printf "%y %m %u:%g %p\n" | LC_ALL=C sort -k 4
        cat /opt/demo/app.bin /opt/demo/share/1/2/3
        ls -A /var/lib/KxUserPackages; cat /var/lib/KxUserPackages/Foo/installedFile.list
        ls -A /mnt/usb; ls /dev/sda1' <<<"$TO_THE_END"

    expect_status 0
    expect_transcript <<END
$INSTALLED
**** Installation step 1/4
**** Installation step 2/4
**** Installation step 3/4
/mnt/usb/Foo.temp/kx_Updater
**** Installation step 4/4
Installation succeeded.
$REMOVE
END
    expect_window Foo <<'END'
[sync]
[/usr/bin/kxsystem/wprotect_off]
[mkdir -p "/opt/demo/"]
[cp -f "/mnt/usb/Foo.temp/0/0/app.bin" "/opt/demo/app.bin" ]
[chmod 755 "/opt/demo/app.bin" ]
[mkdir -p "/opt/demo/share"]
[cp -f "/mnt/usb/Foo.temp/1/0/.hidden" "/opt/demo/share/.hidden" ]
[mkdir -p "/opt/demo/share/1"]
[mkdir -p "/opt/demo/share/1/2"]
[cp -f "/mnt/usb/Foo.temp/1/0/1/2/3" "/opt/demo/share/1/2/3" ]
[mkdir -p "/opt/demo/share/empty"]
[cp -f "/mnt/usb/Foo.temp/1/0/run" "/opt/demo/share/run" ]
[mkdir -p "/opt/demo/share/日本語"]
[cp -f "/mnt/usb/Foo.temp/1/0/日本語/two words" "/opt/demo/share/日本語/two words" ]
[mkdir -p "/tmp/Zt/"]
[chmod +x "/tmp/Zt/temp.sh"]
["/tmp/Zt/temp.sh"]
[kx-setting-cui set Level=8 ]
[mkdir -p "/var/lib/KxUserPackages/Foo"]
[cp -f "/mnt/usb/Foo.temp/UserPackage.kx-project" "/var/lib/KxUserPackages/Foo/UserPackage.kx-project" ]
[sync]
END
    expect_panel <<'END'
d 755 root:root /opt/demo
f 755 root:root /opt/demo/app.bin
d 755 root:root /opt/demo/share
f 644 root:root /opt/demo/share/.hidden
d 755 root:root /opt/demo/share/1
d 755 root:root /opt/demo/share/1/2
f 644 root:root /opt/demo/share/1/2/3
d 755 root:root /opt/demo/share/empty
f 755 root:root /opt/demo/share/run
d 755 root:root /opt/demo/share/日本語
f 644 root:root /opt/demo/share/日本語/two words
program
deep
Foo
 #dir
/opt/demo/
/opt/demo/share
/opt/demo/share/1
/opt/demo/share/1/2
/opt/demo/share/empty
/opt/demo/share/日本語
/var/lib/KxUserPackages/Foo
 #file
/opt/demo/app.bin
/opt/demo/share/.hidden
/opt/demo/share/1/2/3
/opt/demo/share/run
/opt/demo/share/日本語/two words
/var/lib/KxUserPackages/Foo/UserPackage.kx-project
/var/lib/KxUserPackages/Foo/installedFile.list
/dev/sda1
END
    grep -x $'drive\t.*' "$TRACE" >"$WORK/events"
    same "$WORK/events" 'the events of the drive' <<END
$(printf 'drive\tplug\ndrive\tunmount')
END
    # The drive is as it was.
    ls -A "$STATE/drive" >"$WORK/files"
    same "$WORK/files" 'the files of the drive' <<'END'
Foo.kx-update
readme.txt
END
    cmp "$STATE/drive/Foo.kx-update" "$DRIVE/Foo.kx-update"
}

@test "a signed package file is installed like any other" {
    drive_package Foo <<'END'
copy_file(item(r"C:\work\app.bin", "/opt/demo/app.bin", "755", "program\n"), record=True)
END
    (
        cd "$WORK"
        "$KX_PACKAGE" key new one
        "$KX_PACKAGE" key new --type p256 two
        "$KX_PACKAGE" sign --key one.key.pem "$DRIVE/Foo.kx-update"
        "$KX_PACKAGE" sign --key two.key.pem "$DRIVE/Foo.kx-update"
    ) >"$WORK/signed"

    window --keep --look 'cat /opt/demo/app.bin; ls -A /var/lib/KxUserPackages /mnt/usb' \
        <<<"$TO_THE_END"

    expect_status 0
    expect_transcript <<END
$INSTALLED
**** Installation step 1/1
Installation succeeded.
$REMOVE
END
    expect_window Foo <<'END'
[sync]
[/usr/bin/kxsystem/wprotect_off]
[mkdir -p "/opt/demo/"]
[cp -f "/mnt/usb/Foo.temp/0/0/app.bin" "/opt/demo/app.bin" ]
[chmod 755 "/opt/demo/app.bin" ]
[mkdir -p "/var/lib/KxUserPackages/Foo"]
[cp -f "/mnt/usb/Foo.temp/UserPackage.kx-project" "/var/lib/KxUserPackages/Foo/UserPackage.kx-project" ]
[sync]
END
    expect_panel <<'END'
program
/mnt/usb:

/var/lib/KxUserPackages:
Foo
END
    cmp "$STATE/drive/Foo.kx-update" "$DRIVE/Foo.kx-update"
    grep -c KX-SIGNATURES "$STATE/drive/Foo.kx-update"
}

# The drive is gone when OK is pressed.
PULLED="$INSTALL
wait button OkButton
state
log
press OkButton
wait button RebootButton
state"

# quiet_package <RECIPE: puts Foo.kx-update on the drive, whose updater keeps the tools' complaints to
# itself: in the log they come by a pipe of their own, piece by piece, anywhere between its lines.
quiet_package() {
    {
        cat <<'END' && cat
put("updater", open(os.environ["KX_UPDATER"], "rb").read(), 0o755)
put("kx_Updater", '#!/bin/sh\nexec "${0%/*}/updater" "$@" 2>/dev/null\n', 0o755)
END
    } | package_file "$DRIVE/Foo.kx-update"
}

@test "the drive is pulled during a step: the next copy fails, nothing is recorded" {
    quiet_package <<'END'
copy_file(item("a", "/opt/demo/a"), record=True)
script("#!/bin/sh\n/usr/bin/kxsystem/drive pull\n")
copy_file(item("b", "/opt/demo/b"), record=True)
END

    window --look 'ls /opt/demo; ls -A /var/lib/KxUserPackages' <<<"$PULLED"

    expect_transcript <<END
$FAILED
**** Installation step 1/3
**** Installation step 2/3
**** Installation step 3/3
File copy error(= 256) is corrupted. From /mnt/usb/Foo.temp/2/0/b to /opt/demo/b  (Permissions=)
Installation failed in step 3.
$REMOVED
END
    expect_children 'imp_proc_finished  exitCode = 101, ExitStatus=0'
    # Window and child each begin and end with one, also after a failure.
    [ "$(commands | grep -cx '\[sync\]')" -eq 4 ]
    expect_panel <<'END'
a
ls: cannot access '/var/lib/KxUserPackages': No such file or directory
END
}

@test "the drive is pulled in the last step: the steps succeed, the record fails" {
    quiet_package <<'END'
script("#!/bin/sh\n/usr/bin/kxsystem/drive pull\n")
END

    window --look 'ls -A /var/lib/KxUserPackages/Foo' <<<"$PULLED"

    expect_transcript <<END
$FAILED
**** Installation step 1/1
Installation succeeded.
$REMOVED
END
    expect_children 'imp_proc_finished  exitCode = 101, ExitStatus=0'
    expect_panel </dev/null
}

# hello FILE: makes the example package with the updater that is tested.
hello() {
    (cd "$ROOT/scripts" && /usr/bin/python3 -B -m kxscripts.hello "$WORK/hello")
    "$KX_PACKAGE" build "$WORK/hello" -o "$1" --updater "$KX_UPDATER" --processor "$(uname -m)"
}

HELLO_LINES='**** Installation step 1/4
**** Installation step 2/4
**** Installation step 3/4
Hello from the panel.
**** Installation step 4/4
Installation succeeded.'

# expect_hello: what the example leaves on the panel, and that its start-up script works.
expect_hello() {
    expect_panel <<'END'
Level=8
Mode=script
Mute=off
Volume=5
END

    device --keep --boot -- /mnt/user/bin/hello
    expect_out <<<'Hello from the panel.'
}

@test "the examples are installed from their package file, and the start-up script runs" {
    hello "$DRIVE/Foo.kx-update"

    window --keep --look 'kx-setting-cui list' <<<"$TO_THE_END"

    expect_status 0
    expect_transcript <<END
$INSTALLED
$HELLO_LINES
$REMOVE
END
    expect_hello
}

@test "without the window, the commands that integrators are told do the same" {
    hello "$DRIVE/Hello.kx-update"
    # shellcheck disable=SC2016 # backquotes of the page
    sed -n '/^## An unpacked package/,/^## /{/^```sh$/,/^```$/{/^```/d;p}}' \
        "$ROOT/docs/operating.md" >"$PACKAGES/install.sh"
    grep -q unzip "$PACKAGES/install.sh" || fail 'the page tells no commands'
    # shellcheck disable=SC2016 # for the shell on the panel
    echo 'exit $status' >>"$PACKAGES/install.sh"

    device --usb "$DRIVE" --keep --look 'kx-setting-cui list; ls -A /mnt/usb' -- \
        sh /packages/install.sh

    expect_status 0
    sed -i '/^Archive:\|^  *inflating:\|^  *creating:\|^ *extracting:/d' "$OUT"
    expect_out <<<"$HELLO_LINES"
    expect_silence
    grep -x $'drive\t.*' "$TRACE" >"$WORK/events"
    same "$WORK/events" 'the events of the drive' < <(printf 'drive\tplug\ndrive\tunmount\n')
    expect_hello
}
