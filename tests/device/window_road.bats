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

# expect_the_road: all that happens on the panel on the way, in order.
expect_the_road() {
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
}

@test "the whole road: plugged, unpacked, confirmed, installed, pulled, plugged, pulled, rebooted" {
    a_package
    echo other >"$DRIVE/readme.txt"

    window --keep --look 'find /opt/demo -printf "%y %m %u:%g %p\n" | LC_ALL=C sort -k 4
        cat /opt/demo/app.bin /opt/demo/share/sub/日本語
        cat /var/lib/KxUserPackages/Foo/installedFile.list; ls -A /mnt/usb' <<<"$ROAD"

    expect_status 0
    expect_transcript <<END
$ASKING
Pump control | 2.1 | fÃ¼r KÃ¤se
$LOGGING
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
    expect_the_road
    expect_panel <<'END'
d 755 root:root /opt/demo
f 755 root:root /opt/demo/app.bin
d 755 root:root /opt/demo/share
f 644 root:root /opt/demo/share/a b.txt
d 755 root:root /opt/demo/share/sub
f 644 root:root /opt/demo/share/sub/日本語
program
n
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

@test "the whole road in Japanese" {
    a_package

    window --lang ja <<<"$ROAD
log"

    expect_status 0
    expect_transcript <<'END'
この機器にソフトウェアをインストールします。\nよろしいですか？ | normal | InstallButton CancelButton | Install | package
Pump control | 2.1 | fÃ¼r KÃ¤se
 インストールを開始します。\n途中で電源を切らないでください。\n途中で切るとファイルが壊れる事があります。 | normal | no button | Log | package
インストールは正常に完了しました。 | normal | OkButton | Install | package
**** Installation step 1/4
**** Installation step 2/4
**** Installation step 3/4
  waiting for 客
**** Installation step 4/4
Installation succeeded.
USBメモリを抜いてください。\n再起動します | normal | no button | Install | no package
USBメモリを抜いてください。\n再起動します | normal | RebootButton | Install | no package
USBメモリを抜いてください。\n再起動します | normal | no button | Install | no package
再起動.... | normal | no button | Install | no package
**** Installation step 1/4
**** Installation step 2/4
**** Installation step 3/4
  waiting for 客
**** Installation step 4/4
Installation succeeded.
END
    expect_the_road
}

@test "any other LANG than exactly ja_JP.UTF-8 is English, and so is none" {
    a_package
    local setting
    for setting in LANG=ja_JP LANG=ja_JP.utf8 LC_ALL=ja_JP.UTF-8; do
        window --env "$setting" <<<'wait button InstallButton
state'
        echo "$setting: $(cut -d '|' -f 1 "$TRANSCRIPT")"
    done >"$WORK/languages"

    same "$WORK/languages" 'the list of questions' <<'END'
LANG=ja_JP: Install the software on this device.\nAre you sure? 
LANG=ja_JP.utf8: Install the software on this device.\nAre you sure? 
LC_ALL=ja_JP.UTF-8: Install the software on this device.\nAre you sure? 
END
}

@test "Cancel installs nothing, cleans up and leads to the reboot" {
    a_package

    window --keep --look 'ls -A /opt/demo /var/lib/KxUserPackages' <<END
wait button InstallButton
press CancelButton
state
log
$PULL
wait button RebootButton
state
press RebootButton
state
END

    expect_status 0
    expect_transcript <<END
$REMOVE
$REMOVED
$REBOOTING
END
    expect_trace <<'END'
drive	plug
shell	sync
shell	rm -r "/mnt/usb/Foo.temp"
shell	mkdir -p "/mnt/usb/Foo.temp"
shell	unzip -o "/mnt/usb/Foo.kx-update" -d "/mnt/usb/Foo.temp" 
shell	rm -r "/mnt/usb/Foo.temp"
shell	/usr/bin/kxsystem/usb_umount
tool	usb_umount
drive	unmount
tool	drive	pull
drive	pull
shell	/sbin/reboot
tool	reboot
shell	sync
END
    expect_panel <<'END'
ls: cannot access '/opt/demo': No such file or directory
ls: cannot access '/var/lib/KxUserPackages': No such file or directory
END
    expect_drive <<<'./Foo.kx-update'
}

# A tool that takes a picture of the screen before it plays a reboot, and the drive comes back.
REBOOT_WITH_PICTURE='#!/bin/sh
import -window root /var/screen.png
/usr/bin/kxsystem/drive plug
exec /var/stand-in/reboot'

@test "the reboot is asked for when the screen shows that it is" {
    local differing=0
    # shellcheck disable=SC2016 # expanded on the panel
    window --keep --env "REBOOT=$REBOOT_WITH_PICTURE" -- /bin/sh -c '
        mkdir /var/stand-in && mv /sbin/reboot /var/stand-in/ || exit
        printf "%s\n" "$REBOOT" >/sbin/reboot && chmod +x /sbin/reboot || exit
        exec "$0" -upDir /mnt/usb' "$UPDATER" <<END
wait button OkButton
press OkButton
$PULL
wait button RebootButton
press RebootButton
wait message Reboot....
wait no-button RebootButton
picture rebooting
END

    expect_status 0
    grep -qx $'tool\treboot' "$TRACE" || fail 'no reboot'
    compare -metric AE "$STATE/root/var/screen.png" "$WORK/window/rebooting.png" null: \
        2>"$WORK/problems" || differing=$?
    [ "$differing" -eq 0 ] || fail "another picture: $(cat "$WORK/problems") pixels differ"
}

@test "what an earlier attempt left in the temporary folder is gone before unpacking" {
    drive_package Foo <<<'copy_folder(folder("/opt/demo", {"new": ""}))'
    mkdir -p "$DRIVE/Foo.temp/0/0"
    touch "$DRIVE/Foo.temp/0/0/old" "$DRIVE/Foo.temp/left"

    window --keep --look 'ls -A /opt/demo' <<<"$TO_THE_END"

    expect_transcript <<END
$INSTALLED
**** Installation step 1/1
Installation succeeded.
$REMOVE
END
    expect_panel <<<new
    expect_drive <<<'./Foo.kx-update'
    [ ! -s "$ERR" ] || fail 'the old folder could not be removed'
}

@test "the updater of -q_Updater is started by its exact path instead of the package's own" {
    drive_package Foo </dev/null
    # shellcheck disable=SC2016 # expanded inside
    printf '%s\n' '#!/bin/sh' 'echo "$0|$#|$1|$2"' >"$PACKAGES/other updater"
    chmod +x "$PACKAGES/other updater"

    window -- "$UPDATER" -upDir /mnt/usb -q_Updater '/packages/other updater' <<<"$TO_THE_END"

    expect_transcript <<END
$INSTALLED
/packages/other updater|2|-unzipedDir|/mnt/usb/Foo.temp
$REMOVE
END
    expect_window Foo </dev/null

    window -- "$UPDATER" -q_Updater /packages -upDir /mnt/usb <<<"$TO_THE_END"

    expect_transcript <<END
$FAILED
$REMOVE
END
    expect_children
}

@test "a drive pulled at the question: the installation fails and the reboot is offered at once" {
    a_package

    window --look 'ls -A /opt/demo' <<END
wait button InstallButton
$PULL
state
press InstallButton
wait button OkButton
state
log
press OkButton
state
$PLUG
wait no-button RebootButton
state
END

    expect_transcript <<END
$ASKING
$FAILED
$REMOVED
$REMOVE
END
    expect_window Foo </dev/null
    expect_panel <<<"ls: cannot access '/opt/demo': No such file or directory"
}

@test "a drive pulled at the question and plugged in again can be installed from" {
    a_package

    window --look 'cat /opt/demo/app.bin' <<END
wait button InstallButton
$PULL
$PLUG
press InstallButton
wait log waiting
$LET_GO
wait button OkButton
state
END

    expect_transcript <<<"$INSTALLED"
    expect_panel <<<program
}

# A package whose script waits between two copies.
a_package_that_waits() {
    drive_package Foo <<'END'
copy_file(item("a", "/opt/demo/a"), record=True)
script("#!/bin/sh\nmkfifo /tmp/go\necho waiting\ncat /tmp/go\n")
copy_file(item("b", "/opt/demo/b"), record=True)
END
}

@test "a drive pulled during the installation: the next copy fails, the window says so" {
    a_package_that_waits

    window --keep --look 'ls -A /opt/demo; ls -A /var/lib/KxUserPackages' <<END
$INSTALL
wait log waiting
$PULL
state
$LET_GO
wait button OkButton
state
press OkButton
state
$PLUG
wait no-button RebootButton
state
END

    expect_transcript <<END
$LOGGING
$FAILED
$REMOVED
$REMOVE
END
    expect_window Foo <<'END'
[sync]
[/usr/bin/kxsystem/wprotect_off]
[mkdir -p "/opt/demo/"]
[cp -f "/mnt/usb/Foo.temp/0/0/a" "/opt/demo/a" ]
[chmod 777 "/opt/demo/a" ]
[mkdir -p "/tmp/Zt/"]
[chmod +x "/tmp/Zt/temp.sh"]
["/tmp/Zt/temp.sh"]
[cp -f "/mnt/usb/Foo.temp/2/0/b" "/opt/demo/b" ]
[sync]
END
    expect_children 'imp_proc_finished  exitCode = 101, ExitStatus=0'
    expect_panel <<'END'
a
ls: cannot access '/var/lib/KxUserPackages': No such file or directory
END
    # Nobody could clean up.
    [ -d "$STATE/drive/Foo.temp" ] || fail 'there is no unpacked folder on the drive'
}

# A cp that waits for the user when it has copied a file of the name "last", and keeps its complaints
# to itself, which come into the log at any place.
# shellcheck disable=SC2016 # expanded by the script
CP_THAT_WAITS='#!/bin/sh
/usr/bin/cp "$@" 2>/dev/null || exit
case $3 in */last) mkfifo /tmp/go && cat /tmp/go ;; esac'

# pull_behind_last: installs the package of standard input, and pulls the drive when the file "last" is
# copied.
pull_behind_last() {
    drive_package Foo
    # shellcheck disable=SC2016 # expanded on the panel
    window --env "CP=$CP_THAT_WAITS" --look 'cd /opt/demo && find . -mindepth 1 | sort
        ls -A /var/lib/KxUserPackages/Foo' -- /bin/sh -c '
        mkdir /var/tools && printf "%s\n" "$CP" >/var/tools/cp && chmod +x /var/tools/cp || exit
        PATH=/var/tools:$PATH exec "$0" -upDir /mnt/usb' "$UPDATER" <<END
$INSTALL
run sh -c 'until [ -p /tmp/go ]; do sleep 0.1; done'
$PULL
$LET_GO
wait button OkButton
state
log
END
}

@test "a drive pulled between two folders: the missing one counts as empty, only the record fails" {
    pull_behind_last <<'END'
copy_folder(folder("/opt/demo/a", {"first": "", "last": ""}),
            folder("/opt/demo/b", {"lost": "", "sub": {"lost": ""}}), record=True)
END

    expect_transcript <<END
$FAILED
**** Installation step 1/1
Installation succeeded.
END
    expect_children 'imp_proc_finished  exitCode = 101, ExitStatus=0'
    expect_panel <<'END'
./a
./a/first
./a/last
./b
END
}

@test "a drive pulled in the middle of a folder: the next entry of the folder fails" {
    pull_behind_last <<'END'
copy_folder(folder("/opt/demo", {"a": {"first": "", "last": ""}, "b": {"lost": ""}}), record=True)
END

    expect_transcript <<END
$FAILED
**** Installation step 1/1
File copy error( = 256) is corrupted. From /mnt/usb/Foo.temp/0/0 to /opt/demo  (Permissions=)
Installation failed in step 1.
END
}

@test "a drive pulled and plugged in again during a script: the installation goes on" {
    a_package_that_waits

    window --keep --look 'ls -A /opt/demo; ls -A /var/lib/KxUserPackages' <<END
$INSTALL
wait log waiting
$PULL
$PLUG
$LET_GO
wait button OkButton
state
press OkButton
state
END

    expect_transcript <<END
$INSTALLED
$REMOVE
END
    expect_panel <<'END'
a
b
Foo
END
    expect_drive <<<'./Foo.kx-update'
}
