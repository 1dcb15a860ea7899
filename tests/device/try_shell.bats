#!/usr/bin/env bats
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
#
# kx-package try --shell: a shell on the panel after the installation.

load try

setup() {
    try_setup
}

@test "a shell shows the panel after the installation, and what it changed is told" {
    hello Foo.kx-update
    prepare_try -v --shell Foo.kx-update

    type_into $'cat /opt/demo/app; echo mine >/opt/mine\n' $'id -u; exit 3\n'

    expect_status 0
    grep -qF "The package is installed. This is a shell on the panel; leave it with 'exit'." screen
    grep -qx program screen
    sed -n 's/\x1b\[[0-9]*m//g; /^What the shell changed/,/^settings/p' screen >part
    same part 'what the shell changed' <<'END'
What the shell changed
  added    -rw-r--r--  root:root  5  /opt/mine
settings
END
    nothing_is_left
}

@test "keys such as Ctrl-C reach the shell's commands only" {
    hello Foo.kx-update 'script("#!/bin/sh\nexit 1\n")'
    prepare_try --shell Foo.kx-update

    # Said by the command that gets the key: the terminal is its own by then.
    type_into $'sh -c "echo STARTED; exec sleep 96.25"\n' $'echo status $?; exit\n'

    expect_status 1
    grep -qF 'The package is not installed.' screen
    grep -qx 'status 130' screen
    host_lacks_process 'sleep 96.25'
    nothing_is_left
}

@test "the shell's result goes to a file as JSON, what it shows to the terminal" {
    hello Foo.kx-update
    prepare_try --json --shell Foo.kx-update
    # shellcheck disable=SC2016 # expanded by the inner shell
    TRY=(sh -c 'exec "$@" >out.json' sh "${TRY[@]}")

    type_into $'echo x >/opt/x; exit 4\n'

    expect_status 0
    [ "$(jq -r '.shell | .exitStatus, .files[].path' out.json)" = $'4\n/opt/x' ]
}

@test "the panel is left as the window leaves it" {
    hello Foo.kx-update
    prepare_try --shell Foo.kx-update

    type_into $'ls -A /mnt/usb | sed s/^/left:/; echo seen $?; exit\n'

    expect_status 0
    grep -qx 'seen 0' screen
    [ "$(grep -c '^left:' screen)" -eq 0 ]
}

@test "the shell needs a terminal" {
    hello Foo.kx-update

    try --shell Foo.kx-update

    expect_error 2 '--shell: needs a terminal, and standard input is none; start it from a terminal, or leave --shell out'
}
