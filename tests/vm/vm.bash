# shellcheck shell=bash
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
#
# The kit of the tests in the virtual machine. A file of tests has one machine, in which they run one
# after the other.

ROOT=$(cd "$BATS_TEST_DIRNAME/../.." && pwd)
VM=$ROOT/scripts/vm
SOCKET=$BATS_FILE_TMPDIR/machine

bats_require_minimum_version 1.5.0

# start_machine OPTION...: for setup_file; stop_machine is for teardown_file.
start_machine() {
    # It ends with this file's process, even when that is killed.
    setpriv --pdeathsig TERM "$VM" serve "$@" "$SOCKET" >"$SOCKET.log" 2>&1 3>&- &
    KEEPER=$!
    until [ -S "$SOCKET" ]; do
        if ! kill -0 "$KEEPER" 2>/dev/null; then
            cat "$SOCKET.log" >&2
            return 1
        fi
        sleep 0.1
    done
    export KEEPER
}

stop_machine() {
    [ -n "$KEEPER" ] || return 0
    kill "$KEEPER" 2>/dev/null || true
    expect_gone "$KEEPER"
}

# expect_gone PID: it ends soon.
expect_gone() {
    local i
    for i in {1..600}; do
        kill -0 "$1" 2>/dev/null || return 0
        sleep 0.1
    done
    echo "process $1 still runs after $((i / 10)) seconds" >&2
    kill -9 "$1"
    return 1
}

# vm COMMAND...: runs a command in the file's machine.
vm() {
    "$VM" exec "$SOCKET" -- "$@"
}

# vm_sh [ARGUMENT...] <SCRIPT: runs a script in it, which ends with the first command that fails.
vm_sh() {
    vm sh -euc "$(cat)" sh "$@"
}

# expect STATUS OUTPUT: compares what `run` left, whole texts.
expect() {
    # shellcheck disable=SC2154 # bats sets it
    if [ "$status" -ne "$1" ] || [ "$output" != "$2" ]; then
        diff <(printf '%s\n' "$2") <(printf '%s\n' "$output") >&2 || true
        echo "status $status, expected $1" >&2
        return 1
    fi
}
