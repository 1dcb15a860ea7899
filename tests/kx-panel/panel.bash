# shellcheck shell=bash
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
#
# The kit of the tests that start kx-panel. On the machine itself only what looks at nothing of it is
# started: help, version, completion, schemas, and words that cannot be followed.

ROOT=$(cd "$BATS_TEST_DIRNAME/../.." && pwd)
KX_PANEL=${KX_PANEL:-$ROOT/build/dev/kx-panel}
KX_PACKAGE=${KX_PACKAGE:-$ROOT/build/dev/kx-package}
KX_UPDATER=${KX_UPDATER:-$ROOT/build/dev/kx_Updater}
unset NO_COLOR
export LC_ALL=C.UTF-8
status=0 # of the program that was started last

# work_here: goes into the test's own folder.
work_here() {
    local program
    for program in "$@"; do
        [ -x "$program" ] || {
            echo "there is no $program" >&2
            return 1
        }
    done
    cd "$BATS_TEST_TMPDIR" || return
}

# expect STATUS OUT ERR: compares what was left in $status, and in the files out and err, whole texts.
expect() {
    if [ "$status" -ne "$1" ] || ! diff <(printf '%s' "$2") out || ! diff <(printf '%s' "$3") err; then
        echo "status $status, expected $1" >&2
        cat out err >&2
        return 1
    fi
}
