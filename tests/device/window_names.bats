#!/usr/bin/env bats
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
#
# Package files and folders whose names mean something to the shell. Commands hold them in double
# quotes as they are: most names work, and with the others the user is told so.

# shellcheck disable=SC2016 # what is in single quotes is for the shell on the device

load window

# named NAME: a package file of this name.
named() {
    drive_package Foo <<<'copy_file(item("a", "/opt/demo/a"), record=True)'
    [ "$1" = Foo ] || mv "$DRIVE/Foo.kx-update" "$DRIVE/$1.kx-update"
    touch "$DRIVE/bystander"
}

# expect_installed_from FOLDER NAME RECORD: the whole installation, commands as the trace has them.
expect_installed_from() {
    expect_transcript <<END
$INSTALLED
**** Installation step 1/1
Installation succeeded.
$REMOVE
END
    expect_commands <<END
[sync]
[rm -r "$1/$2.temp"]
[mkdir -p "$1/$2.temp"]
[unzip -o "$1/$2.kx-update" -d "$1/$2.temp" ]
[sync]
[/usr/bin/kxsystem/wprotect_off]
[mkdir -p "/opt/demo/"]
[cp -f "$1/$2.temp/0/0/a" "/opt/demo/a" ]
[chmod 777 "/opt/demo/a" ]
[mkdir -p "/var/lib/KxUserPackages/$3"]
[cp -f "$1/$2.temp/UserPackage.kx-project" "/var/lib/KxUserPackages/$3/UserPackage.kx-project" ]
[sync]
[rm -r "$1/$2.temp"]
[/usr/bin/kxsystem/usb_umount]
[sync]
END
}

NOT_READ='
wait button OkButton
state
press OkButton
state'

expect_not_read() {
    expect_status 0
    expect_transcript <<END
$UNREADABLE
$REMOVE
END
}

@test "blanks, single quotes, leading dashes, semicolons, stars, percent signs and others work" {
    # The name of the record begins behind the last backslash.
    local record="my; #1 & [best] | 100%s * ? ! ~ (a) {b} <c>"
    local name="-it's  \\$record"
    named "$name"

    window --keep <<<"$TO_THE_END"

    expect_installed_from /mnt/usb "${name/\\/\\\\}" "$record"
    expect_drive <<END
./$name.kx-update
./bystander
END
}

@test "so they do in the name of the folder" {
    local name="-it's  my; #1 & [best] 100%s * ? (a)"
    named Foo
    mkdir "$DRIVE/$name"
    mv "$DRIVE/Foo.kx-update" "$DRIVE/$name"

    window --keep -- "$UPDATER" -upDir "/mnt/usb/$name" <<<"$TO_THE_END"

    expect_installed_from "/mnt/usb/$name" Foo Foo
    expect_drive <<END
./$name
./$name/Foo.kx-update
./bystander
END
}

@test "a folder named like an option is no place to unpack to" {
    named Foo
    mkdir "$DRIVE/-r"
    mv "$DRIVE/Foo.kx-update" "$DRIVE/-r"

    window --keep --chdir /mnt/usb -- "$UPDATER" -upDir -r <<<"$NOT_READ"

    expect_not_read
    expect_drive <<'END'
./-r
./-r/Foo.kx-update
./bystander
END
}

@test "a double quote leaves the commands without an end" {
    named 'a"b'

    window --keep <<<"$NOT_READ
log"

    expect_status 0
    expect_transcript <<END
$UNREADABLE
$REMOVE
Unable to create folder of temporary to /mnt/usb/a"b.temp.
END
    expect_commands <<'END'
[sync]
[rm -r "/mnt/usb/a"b.temp"]
[mkdir -p "/mnt/usb/a"b.temp"]
[rm -r "/mnt/usb/a"b.temp"]
[/usr/bin/kxsystem/usb_umount]
[sync]
END
    expect_drive <<'END'
./a"b.kx-update
./bystander
END
}

@test "two double quotes: the commands are about a file that is not there" {
    named 'a"b"c'

    window --keep <<<"$NOT_READ
log"

    expect_status 0
    expect_transcript <<END
$UNREADABLE
$REMOVE
Unable to unpack /mnt/usb/a"b"c.kx-update file to /mnt/usb/a"b"c.temp.
END
    expect_drive <<'END'
./a"b"c.kx-update
./bystander
END
}

@test "a dollar sign stands for a variable" {
    named 'a$KX_NONE'

    window --keep <<<"$NOT_READ
log"

    expect_status 0
    expect_transcript <<END
$UNREADABLE
$REMOVE
Unable to unpack /mnt/usb/a\$KX_NONE.kx-update file to /mnt/usb/a\$KX_NONE.temp.
END
    expect_commands <<'END'
[sync]
[rm -r "/mnt/usb/a$KX_NONE.temp"]
[mkdir -p "/mnt/usb/a$KX_NONE.temp"]
[unzip -o "/mnt/usb/a$KX_NONE.kx-update" -d "/mnt/usb/a$KX_NONE.temp" ]
[rm -r "/mnt/usb/a$KX_NONE.temp"]
[/usr/bin/kxsystem/usb_umount]
[sync]
END
    expect_drive <<'END'
./a$KX_NONE.kx-update
./bystander
END
}

@test "a name that is not ASCII is unpacked, but its child is not found" {
    named 'Ärger 日本語'

    window --keep --env LC_ALL=C.UTF-8 <<<"$TO_THE_END"

    expect_transcript <<END
$FAILED
$REMOVE
END
    expect_window 'Ärger 日本語' </dev/null
    expect_drive <<'END'
./bystander
./Ärger 日本語.kx-update
END
}

@test "so is one whose updater is named: it gets a folder that is not there" {
    named 'Ärger 日本語'
    local garbled
    garbled=$(iconv -f LATIN1 -t UTF-8 <<<'Ärger 日本語') # each byte as a letter of its own

    window --keep --env LC_ALL=C.UTF-8 -- "$UPDATER" -upDir /mnt/usb -q_Updater "$UPDATER" \
        <<<"$TO_THE_END"

    expect_transcript <<END
$FAILED
Unable to access /mnt/usb/$garbled.temp/UserPackage.kx-project file.
$REMOVE
END
    expect_children 'imp_proc_finished  exitCode = 101, ExitStatus=0'
    expect_window 'Ärger 日本語' <<'END'
[sync]
[sync]
END
    expect_drive <<'END'
./bystander
./Ärger 日本語.kx-update
END
}
