#!/usr/bin/env bats
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
#
# The window's whole road: drive, package, question, installation, drive pulled, reboot; and what
# leaves it early.

load window

ROAD="
wait button InstallButton
state
texts
press InstallButton
wait log waiting
state
$LET_GO
wait button OkButton
state
log
press OkButton
state
$PULL
wait button RebootButton
state
$PLUG
wait no-button RebootButton
state
$PULL
wait button RebootButton
press RebootButton
state"

# a_package: copies a file and a folder, runs a script that waits for the user, sets the backlight.
a_package() {
    drive_package Foo <<'END'
root(Title="Pump control", PackageVersion="2.1", Comment="für Käse")
copy_file(item(r"C:\work\app.bin", "/opt/demo/app.bin", "755", "program\n"), record=True)
copy_folder(folder("/opt/demo/share", {"a b.txt": "A\n", "sub": {"日本語": "n\n"}}), record=True)
script("#!/bin/sh\nmkfifo /tmp/go\necho '  waiting for 客'\ncat /tmp/go\n")
hardware(setting("Backlight", ("Level", "8")))
END
}

@test "the whole road: plugged, unpacked, confirmed, installed, pulled, plugged, pulled, rebooted" {
    a_package
    echo other >"$DRIVE/readme.txt"

    window --keep --look 'find /opt/demo -printf "%y %m %u:%g %p\n" | LC_ALL=C sort -k 4
        cat /opt/demo/app.bin /opt/demo/share/sub/日本語; kx-setting-cui list
        cat /var/lib/KxUserPackages/Foo/installedFile.list; ls -A /mnt/usb' <<<"$ROAD"

    expect_status 0
    expect_transcript <<END
$QUESTION | normal | InstallButton CancelButton | Install | package
Pump control | 2.1 | fÃ¼r KÃ¤se
$STARTED | normal | no button | Log | package
$INSTALLED
**** Installation step 1/4
**** Installation step 2/4
**** Installation step 3/4
  waiting for 客
**** Installation step 4/4
Installation succeeded.
$REMOVE
$REMOVED
$REMOVE
$REBOOTING
END
    expect_trace <<'END'
drive	plug
shell	sync
shell	rm -r "/mnt/usb/Foo.temp"
shell	mkdir -p "/mnt/usb/Foo.temp"
shell	unzip -o "/mnt/usb/Foo.kx-update" -d "/mnt/usb/Foo.temp" 
shell	sync
shell	/usr/bin/kxsystem/wprotect_off
tool	wprotect_off
shell	mkdir -p "/opt/demo/"
shell	cp -f "/mnt/usb/Foo.temp/0/0/app.bin" "/opt/demo/app.bin" 
shell	chmod 755 "/opt/demo/app.bin" 
shell	mkdir -p "/opt/demo/share"
shell	cp -f "/mnt/usb/Foo.temp/1/0/a b.txt" "/opt/demo/share/a b.txt" 
shell	mkdir -p "/opt/demo/share/sub"
shell	cp -f "/mnt/usb/Foo.temp/1/0/sub/日本語" "/opt/demo/share/sub/日本語" 
shell	mkdir -p "/tmp/Zt/"
shell	chmod +x "/tmp/Zt/temp.sh"
shell	"/tmp/Zt/temp.sh"
shell	kx-setting-cui set Level=8 
tool	kx-setting-cui	set	Level=8
shell	mkdir -p "/var/lib/KxUserPackages/Foo"
shell	cp -f "/mnt/usb/Foo.temp/UserPackage.kx-project" "/var/lib/KxUserPackages/Foo/UserPackage.kx-project" 
shell	sync
shell	rm -r "/mnt/usb/Foo.temp"
shell	/usr/bin/kxsystem/usb_umount
tool	usb_umount
drive	unmount
tool	drive	pull
drive	pull
tool	drive	plug
drive	plug
tool	drive	pull
drive	pull
shell	/sbin/reboot
tool	reboot
shell	sync
END
    expect_panel <<'END'
d 755 root:root /opt/demo
f 755 root:root /opt/demo/app.bin
d 755 root:root /opt/demo/share
f 644 root:root /opt/demo/share/a b.txt
d 755 root:root /opt/demo/share/sub
f 644 root:root /opt/demo/share/sub/日本語
program
n
Level=8
 #dir
/opt/demo/
/opt/demo/share
/opt/demo/share/sub
/var/lib/KxUserPackages/Foo
 #file
/opt/demo/app.bin
/opt/demo/share/a b.txt
/opt/demo/share/sub/日本語
/var/lib/KxUserPackages/Foo/UserPackage.kx-project
/var/lib/KxUserPackages/Foo/installedFile.list
END
    expect_children 'imp_proc_finished  exitCode = 0, ExitStatus=0'
    expect_drive <<'END'
./Foo.kx-update
./readme.txt
END
    cmp "$STATE/drive/Foo.kx-update" "$DRIVE/Foo.kx-update"
}
