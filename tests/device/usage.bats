#!/usr/bin/env bats
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
#
# The command line and the exit codes that come before any installation.

load device

# usage_text HEAD: what a wrong command line prints.
usage_text() {
    printf '\nkx_Updater:%s\n\nkx_Updater Ver.1.1.1\n\n' "$1"
    printf '%s\n' 'Usage    : kx_Updater [[Option]..]' '' 'Options  :' '     -upDir <folder>' \
        '         The folder containing a .kx-update file.' \
        '         There must be only one .kx-update file in that folder.' \
        '         Updater asks if you want to start the update for that .kx-update ' '' ''
}

# refused HEAD ARGUMENT...: the updater refuses the arguments and does nothing else.
refused() {
    local head=$1
    shift
    device -- "$UPDATER" "$@"
    expect_status 100
    expect_out </dev/null
    usage_text "$head" | expect_err
    expect_commands </dev/null
}

@test "a command line without arguments is answered with the whole usage text" {
    device -- "$UPDATER"

    expect_status 100
    expect_out </dev/null
    expect_err <<'END'

kx_Updater:Either '-upDir or '-unzipedDir' option must be specified.

kx_Updater Ver.1.1.1

Usage    : kx_Updater [[Option]..]

Options  :
     -upDir <folder>
         The folder containing a .kx-update file.
         There must be only one .kx-update file in that folder.
         Updater asks if you want to start the update for that .kx-update 


END
    expect_commands </dev/null
}

@test "every option needs a value behind it" {
    refused 'Error option: -upDir' -upDir
    refused 'Error option: -unzipedDir' -unzipedDir
    refused 'Error option: -q_Updater' -unzipedDir /packages/Foo -q_Updater
}

@test "an unknown word is refused, the window system's own options and other cases included" {
    refused 'Invaild option : -x' -x
    refused 'Invaild option : -UPDIR' -UPDIR /mnt/usb
    refused 'Invaild option : -platform' -unzipedDir /packages/Foo -platform minimal
    refused 'Invaild option : 100%n %s' '100%n %s'
    refused 'Invaild option : ' ''
}

@test "exactly one of the two folders must be given, and an empty one counts as not given" {
    local head="Either '-upDir or '-unzipedDir' option must be specified."
    refused "$head" -upDir /mnt/usb -unzipedDir /packages/Foo
    refused "$head" -upDir ''
    refused "$head" -unzipedDir /packages/Foo -unzipedDir ''
    refused "$head" -q_Updater /bin/false
}

@test "an option given twice keeps its last value, and -q_Updater changes nothing here" {
    package Foo </dev/null

    device -- "$UPDATER" -unzipedDir /packages/None -q_Updater /bin/false -upDir /mnt/usb \
        -unzipedDir /packages/Foo -upDir ''

    expect_status 0
    expect_out <<<'Installation succeeded.'
    expect_silence
    expect_installing Foo </dev/null
}

@test "a value that looks like an option is a value" {
    device -- "$UPDATER" -unzipedDir -upDir

    expect_status 101
    expect_out <<<'Unable to access -upDir/UserPackage.kx-project file.'
    expect_silence
    expect_commands <<'END'
[sync]
[sync]
END
}

@test "without a usable display the window's mode ends with Qt's own message" {
    device --env QT_QPA_PLATFORM=nonexistent -- "$UPDATER" -upDir /mnt/usb

    expect_status 134
    expect_out </dev/null
    grep -F 'Could not find the Qt platform plugin "nonexistent"' "$ERR"
    grep -F 'This application failed to start because no Qt platform plugin could be' "$ERR"
    expect_commands </dev/null
}

@test "a wrong command line ends with 100 also when nobody can hear the reason" {
    prepare -- "$UPDATER" -x
    status=0
    "${DEVICE[@]}" <&- >&- 2>&- || status=$?
    expect_status 100

    status=0
    "${DEVICE[@]}" </dev/null >/dev/full 2>/dev/full || status=$?
    expect_status 100
}
