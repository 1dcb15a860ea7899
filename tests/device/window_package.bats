#!/usr/bin/env bats
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
#
# Drives, package files and descriptions that the window cannot use: what it says, and that it
# cleans up and unmounts once.

load window

REFUSED='
wait button OkButton
state
log
press OkButton
state
press tab Log
state'
AND_ON="$REMOVE
${REMOVE/Install/Log}"

# expect_refused MESSAGE: of a drive without a package to unpack.
expect_refused() {
    expect_status 0
    expect_transcript <<END
$1 | error | OkButton | Install | no package
$AND_ON
END
    expect_commands <<'END'
[sync]
[/usr/bin/kxsystem/usb_umount]
[sync]
END
}

# expect_unreadable <LOG: of a package that cannot be unpacked or read; what is left on the drive is
# the package file alone.
expect_unreadable() {
    expect_status 0
    {
        echo "$UNREADABLE"
        cat
        echo "$AND_ON"
    } | expect_transcript
    expect_window Foo </dev/null
    expect_drive <<<'./Foo.kx-update'
}

# expect_not_unpacked: of a package file that unzip refuses.
expect_not_unpacked() {
    expect_unreadable <<'END'
Unable to unpack /mnt/usb/Foo.kx-update file to /mnt/usb/Foo.temp.
END
}

# ---- the folder ----

@test "a drive without a package file: only the extension counts, letter for letter" {
    touch "$DRIVE/a.KX-UPDATE" "$DRIVE/b.kx-update.zip" "$DRIVE/kx-update"
    mkdir "$DRIVE/sub"
    touch "$DRIVE/sub/c.kx-update"

    window <<<"$REFUSED"

    expect_refused 'There is no installation software in the USB flash drive.'
}

@test "two package files: none is installed" {
    drive_package Foo </dev/null
    drive_package Bar </dev/null

    window <<<"$REFUSED"

    expect_refused 'Installation could not be started\nbecause multiple update files were found on the USB flash drive.\n'
}

@test "a folder that is not there, in English and Japanese" {
    window -- "$UPDATER" -upDir /mnt/usb/gone <<<"$REFUSED"

    expect_refused 'Unable to recognize the USB flash drive.'

    window --lang ja -- "$UPDATER" -upDir /mnt/usb/gone <<<'wait button OkButton
state'

    expect_transcript <<<'USBメモリを正しく認識できません。 | error | OkButton | Install | no package'
}

@test "a folder that cannot be read holds no package" {
    drive_package Foo </dev/null
    cat >"$PACKAGES/as-user" <<'END'
chmod 700 /mnt/usb
chmod 777 /run/operate/probe
exec setpriv --reuid=user --regid=user --clear-groups "$@"
END

    window -- sh /packages/as-user "$UPDATER" -upDir /mnt/usb <<<"$REFUSED"

    expect_refused 'There is no installation software in the USB flash drive.'

    window -- "$UPDATER" -upDir /mnt/usb/Foo.kx-update <<<"$REFUSED" # a file

    expect_refused 'There is no installation software in the USB flash drive.'
}

# ---- the package file ----

@test "a package file that is no archive" {
    seq 1000 >"$DRIVE/Foo.kx-update"

    window --keep <<<"$REFUSED"

    expect_not_unpacked
}

@test "a package file without a byte" {
    touch "$DRIVE/Foo.kx-update"

    window --keep <<<"$REFUSED"

    expect_not_unpacked
}

@test "an archive without a file" {
    printf 'PK\5\6\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0' >"$DRIVE/Foo.kx-update"

    window --keep <<<"$REFUSED"

    expect_not_unpacked
}

@test "a truncated archive" {
    drive_package Foo </dev/null
    truncate --size=-100000 "$DRIVE/Foo.kx-update"

    window --keep <<<"$REFUSED"

    expect_not_unpacked
}

@test "an archive with a damaged file in it" {
    package_file "$DRIVE/Foo.kx-update" <<<'put("0/0/big", os.urandom(100000))'
    printf 'damage' | dd of="$DRIVE/Foo.kx-update" bs=1 conv=notrunc status=none \
        seek=$(($(stat -c %s "$DRIVE/Foo.kx-update") - 50000))

    window --keep <<<"$REFUSED"

    expect_not_unpacked
    grep -q 'bad CRC' "$ERR"
}

@test "a package \"file\" that is a folder" {
    mkdir "$DRIVE/Foo.kx-update"

    window --keep <<<"$REFUSED"

    expect_not_unpacked
}

@test "a panel without unzip" {
    drive_package Foo </dev/null

    window --keep --missing unzip <<<"$REFUSED"

    expect_not_unpacked
    grep -q 'unzip: not found' "$ERR"
}

@test "a temporary folder that cannot be made is not unpacked into" {
    drive_package Foo </dev/null

    window --fail mkdir=1 <<<"$REFUSED"

    expect_transcript <<END
$UNREADABLE
Unable to create folder of temporary to /mnt/usb/Foo.temp.
$AND_ON
END
    expect_commands <<'END'
[sync]
[rm -r "/mnt/usb/Foo.temp"]
[mkdir -p "/mnt/usb/Foo.temp"]
[rm -r "/mnt/usb/Foo.temp"]
[/usr/bin/kxsystem/usb_umount]
[sync]
END
}

@test "a drive without free space" {
    drive_package Foo <<<'put("0/0/big", os.urandom(100000))'
    # The folder to unpack into is one of a full disk.
    ln -s /full "$DRIVE/Foo.temp"

    window --full /full --fail rm=0@1 <<<"$REFUSED"

    expect_transcript <<END
$UNREADABLE
Unable to unpack /mnt/usb/Foo.kx-update file to /mnt/usb/Foo.temp.
$AND_ON
END
    expect_window Foo </dev/null
    grep -q 'disk full' "$ERR"
}

# ---- the description ----

# described TEXT: a package with this description, byte for byte.
described() {
    TEXT=$1 package_file "$DRIVE/Foo.kx-update" <<<'description(os.environ["TEXT"].encode())'
}

@test "a package without a description" {
    drive_package Foo </dev/null
    zip -q -d "$DRIVE/Foo.kx-update" UserPackage.kx-project

    window --keep <<<"$REFUSED"

    expect_unreadable <<'END'
Unable to access /mnt/usb/Foo.temp/UserPackage.kx-project file.
END
}

@test "a description of three bytes" {
    described $'\xef\xbb\xbf'

    window --keep <<<"$REFUSED"

    expect_unreadable <<'END'
/mnt/usb/Foo.temp/UserPackage.kx-project file is corrupted.
END
}

@test "a description that is no JSON" {
    described $'\xef\xbb\xbf{"$type": oops}'

    window --keep <<<"$REFUSED"

    expect_unreadable <<'END'
 Unable to analyze the data in /mnt/usb/Foo.temp/UserPackage.kx-project file.
END
}

@test "a description that lacks a field" {
    drive_package Foo <<<'root(Title=None)'

    window --keep <<<"$REFUSED"

    expect_unreadable <<'END'
No Zt.Plugins.DB_KxUserProject, Plexa.Title field specified in .kx-project .
Initialized error in Zt.Plugins.DB_KxUserProject, Plexa class.
/mnt/usb/Foo.temp/UserPackage.kx-project file is not kx-package.
 Root object of this file is not DB_KxUserProject.
END
}

@test "a description of something else" {
    drive_package Foo <<'END'
change(lambda project: (project.clear(), project.update(listed("DB_StepSets", []))))
END

    window --keep <<<"$REFUSED"

    expect_unreadable <<'END'
/mnt/usb/Foo.temp/UserPackage.kx-project file is not kx-package.
 Root object of this file is not DB_KxUserProject.
END
}

@test "a description whose root is no object ends the window, and nothing is cleaned up" {
    described $'\xef\xbb\xbf[1, 2]'

    window --keep <<<'wait end'

    expect_status 134
    expect_commands <<'END'
[sync]
[rm -r "/mnt/usb/Foo.temp"]
[mkdir -p "/mnt/usb/Foo.temp"]
[unzip -o "/mnt/usb/Foo.kx-update" -d "/mnt/usb/Foo.temp" ]
END
    grep -q 'std::runtime_error' "$ERR"
    expect_drive <<'END'
./Foo.kx-update
./Foo.temp
./Foo.temp/UserPackage.kx-project
END
}

@test "a description with broken steps is shown all the same, and the installation fails" {
    drive_package Foo <<'END'
root(Title="Broken", PackageVersion="7")
change(lambda project: project.update(DB_StepSets="none"))
END

    window --keep <<END
wait button InstallButton
texts
$TO_THE_END
END

    expect_transcript <<END
Broken | 7 | made by a test
$FAILED
No Zt.Plugins.DB_KxUserProject, Plexa.DB_StepSets field specified in .kx-project .
Initialized error in Zt.Plugins.DB_KxUserProject, Plexa class.
/mnt/usb/Foo.temp/UserPackage.kx-project file is not kx-package.
 Root object of this file is not DB_KxUserProject.
$REMOVE
END
    expect_window Foo <<'END'
[sync]
[sync]
END
    expect_children 'imp_proc_finished  exitCode = 101, ExitStatus=0'
    expect_drive <<<'./Foo.kx-update'
}
