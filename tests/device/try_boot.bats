#!/usr/bin/env bats
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
#
# kx-package try --boot: the restart after the installation.

load try

setup() {
    try_setup
}

# starting NAME SCRIPT [MORE]: a package whose setting writes a start-up script, and more steps; all
# in Python's words.
starting() {
    hello "$1" "hardware(setting(\"AutoStartupMode\", (\"CustomScript\", $2)))"$'\n'"${3:-}"
}

# expect_restart: what people are told of the restart is standard input.
expect_restart() {
    sed -n '/^The restart/,$p' "$OUT" >restart
    same restart 'the restart'
}

@test "the start-up script runs on the restarted panel, and is told" {
    # shellcheck disable=SC2016 # expanded on the panel
    starting Foo.kx-update '"#!/bin/sh\nls -A /tmp /mnt/usb\nls /dev/sda1\necho $HOME >/opt/home\nexit 3\n"' \
        'script("#!/bin/sh\ntouch /tmp/gone\n")'

    try -v --boot Foo.kx-update

    expect_status 0
    expect_silence
    expect_restart <<'END'
The restart: the start-up script ended with exit status 3
  | /mnt/usb:
  | 
  | /tmp:
  | ls: cannot access '/dev/sda1': No such file or directory

What the start-up script changed
  added    -rw-r--r--  root:root  6  /opt/home
settings
  none
users
  none
records
  none
END
}

@test "programs that go on are told, whether the script waits for them or not" {
    starting Foo.kx-update '"#!/bin/sh\necho up\nexec sleep 95.125\n"'
    try --json --boot --boot-seconds 2 Foo.kx-update
    expect_status 0
    [ "$(told '.restart | [.script, .exitStatus, .seconds, .output, .remarks] | tostring')" = \
        '["running",null,2,["up"],[]]' ]
    host_lacks_process 'sleep 95.125'
    try --boot --boot-seconds 1 Foo.kx-update
    grep -qx 'The restart: the start-up script still ran after 1 second' "$OUT"

    starting Bar.kx-update '"#!/bin/sh\nsleep 95.25 &\n"'
    try --json --boot Bar.kx-update
    expect_status 0
    [ "$(told '.restart | [.script, .exitStatus, .remarks] | tostring')" = \
        '["ended",0,["still runs in the background: sleep 95.25"]]' ]
    host_lacks_process 'sleep 95.25'
}

@test "a panel without a start-up script, or with one that it does not start, is told so" {
    hello Foo.kx-update
    try --boot Foo.kx-update
    expect_restart <<<'The restart: there is no start-up script'
    try --json Foo.kx-update
    [ "$(told .restart)" = null ]

    hello Bar.kx-update 'copy_file(item("startup.sh", "/mnt/user/startup.sh", "644", "#!/bin/sh\ntouch /opt/x\n"))'
    try --boot Bar.kx-update
    expect_status 0
    expect_restart <<<'The restart: the start-up script is not executable: a panel does not start it'
}

@test "no exit status and no output of the script is taken for the device's" {
    local code
    for code in 2 124 125 126 127 143; do
        starting Foo.kx-update "\"#!/bin/sh\\necho 'device/run: no; see device/run --help' >&2\\nexit $code\\n\""
        try --json --boot Foo.kx-update
        expect_status 0
        [ "$(told '.restart | [.script, .exitStatus, .output[0]] | tostring')" = \
            "[\"ended\",$code,\"device/run: no; see device/run --help\"]" ]
    done
    starting Bar.kx-update '"#!/none\n"'
    try --json --boot Bar.kx-update
    [ "$(told '.restart | [.script, .exitStatus] | tostring')" = '["ended",127]' ]
}

@test "output without end is bounded" {
    starting Foo.kx-update '"#!/bin/sh\nexec yes 0123456789\n"'

    try --json --boot --boot-seconds 2 Foo.kx-update

    expect_status 0
    [ "$(told '.restart.script')" = running ]
    [ "$(told '.restart.outputOmitted > 0')" = true ]
    [ "$(stat -c %s "$OUT")" -lt 4000000 ]
}

@test "the restart comes after all installations, also failed ones, and before the panel is kept" {
    starting Foo.kx-update '"#!/bin/sh\necho start >>/opt/starts\n"' \
        'script("#!/bin/sh\ntouch /tmp/gone; [ ! -e /opt/starts ] || exit 1\nexit 3\n")'
    # shellcheck disable=SC2034 # removed with the other states
    STATE=$WORK/kept
    try --json --twice --boot --keep kept Foo.kx-update
    expect_status 1
    [ "$(told '.installations | map(.exitCode) | unique | length')" -eq 1 ]
    [ "$(told '.restart | [.script, .exitStatus] | tostring')" = '["ended",0]' ]
    "$RUN" --state kept -- sh -c 'cat /opt/starts; ls -A /tmp' >seen
    [ "$(cat seen)" = start ]
    cp Foo.kx-update Foo.zip
    try --json --boot Foo.zip
    expect_status 1
    [ "$(told .restart)" = null ]
}
