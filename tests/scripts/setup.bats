#!/usr/bin/env bats
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
#
# scripts/setup where Debian's package tools are played: nothing is installed here.
#
#   $STUB/states     "PACKAGE STATE" for what dpkg knows; every other package is installed
#   $STUB/failures   how often apt-get install fails
#   $STUB/log        what was asked of apt-get

ROOT=$(cd "$BATS_TEST_DIRNAME/../.." && pwd)

setup() {
    cd "$BATS_TEST_TMPDIR" || return
    export STUB=$PWD/stub
    mkdir -p "$STUB/bin"
    echo 0 >"$STUB/failures"
    touch "$STUB/states" "$STUB/log"
    stand_in dpkg-query <<'END'
state=$(sed -n "s/^${*: -1} //p" "$STUB/states")
[ "$state" != unknown ] || exit 1
printf '%s' "${state:-installed}"
END
    stand_in apt-get <<'END'
echo "$*" >>"$STUB/log"
left=$(cat "$STUB/failures")
[ "$1" = install ] && [ "$left" -gt 0 ] || exit 0
echo $((left - 1)) >"$STUB/failures"
exit 100
END
    stand_in id <<<'echo 0'
}

# stand_in NAME <SCRIPT
stand_in() {
    {
        printf '#!/bin/bash\n'
        cat
    } >"$STUB/bin/$1"
    chmod +x "$STUB/bin/$1"
}

# set_up [GROUP...]: leaves $status and $output.
set_up() {
    run env PATH="$STUB/bin:/usr/bin:/bin" "$ROOT/scripts/setup" "$@"
    echo "$output"
}

# expect_asked [LINE...]: all that apt-get was asked for.
expect_asked() {
    diff <([ $# -eq 0 ] || printf '%s\n' "$@") "$STUB/log"
}

@test "nothing is asked for where nothing is missing" {
    set_up

    [ "$status" -eq 0 ]
    [ "$output" = '' ]
    expect_asked
}

@test "what is missing is installed: what is unknown, and what was removed but for its settings" {
    printf '%s\n' 'jq unknown' 'bats config-files' 'shellcheck half-installed' 'novnc unknown' \
        >"$STUB/states"

    set_up test demo

    [ "$status" -eq 0 ]
    [ "$output" = 'scripts/setup: installing bats jq shellcheck
scripts/setup: done' ]
    expect_asked 'install -y -q --no-install-recommends bats jq shellcheck'
}

@test "a list of packages that is too old is brought up to date, once" {
    echo 'jq unknown' >"$STUB/states"
    echo 1 >"$STUB/failures"
    set_up test
    [ "$status" -eq 0 ]
    expect_asked 'install -y -q --no-install-recommends jq' 'update -q' \
        'install -y -q --no-install-recommends jq'

    echo 2 >"$STUB/failures"
    set_up test
    [ "$status" -eq 100 ]
    [ "$output" = 'scripts/setup: installing jq' ]
}

@test "a user needs sudo, and is told so" {
    echo 'jq unknown' >"$STUB/states"
    stand_in id <<<'echo 1000'
    stand_in sudo <<'END'
echo "sudo $*" >>"$STUB/log"
exec "$@"
END
    set_up test
    [ "$status" -eq 0 ]
    [ "$(head -n 1 "$STUB/log")" = \
        'sudo env DEBIAN_FRONTEND=noninteractive apt-get install -y -q --no-install-recommends jq' ]

    rm "$STUB/bin/sudo"
    local tool
    for tool in bash env id sed sort; do
        [ -e "$STUB/bin/$tool" ] || ln -s "$(type -P "$tool")" "$STUB/bin"
    done
    run env PATH="$STUB/bin" "$ROOT/scripts/setup" test
    [ "$status" -eq 1 ]
    [ "$output" = 'scripts/setup: missing jq; run it as root, or install sudo' ]

    rm "$STUB/bin/dpkg-query"
    run env PATH="$STUB/bin" "$ROOT/scripts/setup" bench
    [ "$status" -eq 1 ]
    [ "$output" = 'scripts/setup: this machine has no dpkg; install by hand: python3' ]
}

@test "an unknown group is refused before anything is installed, and the help names all groups" {
    echo 'jq unknown' >"$STUB/states"
    set_up test nonsense
    [ "$status" -eq 2 ]
    [ "${lines[0]}" = "scripts/setup: unknown group 'nonsense'" ]
    expect_asked

    set_up --help
    [ "$status" -eq 0 ]
    local group usage=$output
    for group in build tools demo test bench display web vnc; do
        grep -qw "$group" <<<"$usage"
        set_up "$group"
        [ "$status" -eq 0 ]
    done
}
