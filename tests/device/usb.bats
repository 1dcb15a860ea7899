#!/usr/bin/env bats
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
#
# The whole road: a package file on a USB flash drive, unpacked there and installed by the updater
# that it brings along.

load device

setup() {
    device_setup
    export KX_UPDATER # for the recipes
    mkdir "$WORK/drive"
    # Does with Foo.kx-update what the window does.
    cat >"$PACKAGES/window.sh" <<'END'
rm -r "/mnt/usb/Foo.temp" 2>/dev/null
mkdir -p "/mnt/usb/Foo.temp"
unzip -q -o "/mnt/usb/Foo.kx-update" -d "/mnt/usb/Foo.temp" || exit 99
/mnt/usb/Foo.temp/kx_Updater -unzipedDir /mnt/usb/Foo.temp
status=$?
rm -r "/mnt/usb/Foo.temp"
/usr/bin/kxsystem/usb_umount
exit $status
END
}

# from_drive [OPTION...]: plugs the drive in and installs its package.
from_drive() {
    device --usb "$WORK/drive" "$@" -- sh /packages/window.sh
}

@test "a package file is unpacked, installed by its own updater and recorded under its name" {
    package_file "$WORK/drive/Foo.kx-update" <<'END'
put("kx_Updater", open(os.environ["KX_UPDATER"], "rb").read(), 0o755)
copy_file(item(r"C:\work\app.bin", "/opt/demo/app.bin", "755", "program\n"), record=True)
copy_folder(folder("/opt/demo/share", {
    "run": file("#!/bin/sh\n", 0o755), ".hidden": "h\n", "empty": {}, "日本語": {"two words": "t\n"},
    "1": {"2": {"3": "deep\n"}}}), record=True)
script("#!/bin/sh\nreadlink /proc/$(sed -n 's/^PPid:[^0-9]*//p' /proc/$PPID/status)/exe\n")
hardware(setting("Backlight", ("Level", "8")))
END
    echo 'another file' >"$WORK/drive/readme.txt"

    from_drive --keep --look 'find /opt/demo -printf "%y %m %u:%g %p\n" | LC_ALL=C sort -k 4
        cat /opt/demo/app.bin /opt/demo/share/1/2/3
        ls -A /var/lib/KxUserPackages; cat /var/lib/KxUserPackages/Foo/installedFile.list
        ls -A /mnt/usb; ls /dev/sda1'

    expect_status 0
    expect_out <<'END'
**** Installation step 1/4
**** Installation step 2/4
**** Installation step 3/4
/mnt/usb/Foo.temp/kx_Updater
**** Installation step 4/4
Installation succeeded.
END
    expect_silence
    expect_commands <<'END'
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
    cmp "$STATE/drive/Foo.kx-update" "$WORK/drive/Foo.kx-update"
}

@test "the drive is pulled during a step: the next copy fails, nothing is recorded" {
    package_file "$WORK/drive/Foo.kx-update" <<'END'
put("kx_Updater", open(os.environ["KX_UPDATER"], "rb").read(), 0o755)
copy_file(item("a", "/opt/demo/a"), record=True)
script("#!/bin/sh\n/usr/bin/kxsystem/drive pull\n")
copy_file(item("b", "/opt/demo/b"), record=True)
END

    from_drive --look 'ls /opt/demo; ls -A /var/lib/KxUserPackages'

    expect_status 101
    expect_out <<'END'
**** Installation step 1/3
**** Installation step 2/3
**** Installation step 3/3
File copy error(= 256) is corrupted. From /mnt/usb/Foo.temp/2/0/b to /opt/demo/b  (Permissions=)
Installation failed in step 3.
END
    [ "$(commands | tail -n 1)" = '[sync]' ]
    expect_panel <<'END'
a
ls: cannot access '/var/lib/KxUserPackages': No such file or directory
END
}

@test "the drive is pulled in the last step: the steps succeed, the record fails" {
    package_file "$WORK/drive/Foo.kx-update" <<'END'
put("kx_Updater", open(os.environ["KX_UPDATER"], "rb").read(), 0o755)
script("#!/bin/sh\n/usr/bin/kxsystem/drive pull\n")
END

    from_drive --look 'ls -A /var/lib/KxUserPackages/Foo'

    expect_status 101
    expect_out <<'END'
**** Installation step 1/1
Installation succeeded.
END
    expect_panel </dev/null
}

@test "the examples are installed from their package file, and the start-up script runs" {
    (cd "$ROOT" && . scripts/lib.sh && hello_source "$WORK/hello")
    "$KX_PACKAGE" build "$WORK/hello" -o "$WORK/drive/Foo.kx-update" --updater "$KX_UPDATER" \
        --processor "$(uname -m)"

    from_drive --keep --look 'kx-setting-cui list'

    expect_status 0
    expect_out <<'END'
**** Installation step 1/4
**** Installation step 2/4
**** Installation step 3/4
Hello from the panel.
**** Installation step 4/4
Installation succeeded.
END
    expect_panel <<'END'
Level=8
Mode=script
Mute=off
Volume=5
END

    device --keep --boot -- /mnt/user/bin/hello
    expect_out <<<'Hello from the panel.'
}
