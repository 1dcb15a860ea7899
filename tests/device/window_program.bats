#!/usr/bin/env bats
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
#
# What device/window and the user's player do with programs and helpers that behave oddly.

# shellcheck disable=SC2030,SC2031 # each test has options of its own
load window

# put_tool NAME <TEXT: makes a program that comes before the panel's own of that name, and adds the
# option that brings it to OPTIONS.
put_tool() {
    cat >"$WORK/$1"
    chmod 755 "$WORK/$1"
    OPTIONS+=(--put "$WORK/$1=/usr/local/bin/$1")
}

# show SCRIPT COMMAND...: plays a script in front of a command; output and status are for the test.
show() {
    printf '%s\n' "$1" >"$WORK/script"
    shift
    run "$WINDOW" --updater "$KX_UPDATER" --probe "$PROBE" --script "$WORK/script" \
        --out "$WORK/window" "${PANEL_SETTINGS[@]}" "${OPTIONS[@]}" -- "$@" </dev/null
}

setup() {
    window_setup
    OPTIONS=(--no-wm)
}

# A program that tells its observer a text, lets go of the line and sleeps before it ends.
TELLER='import os, socket, sys, time
link = socket.socket(socket.AF_UNIX)
link.connect(os.environ["KX_PROBE"])
link.sendall(sys.argv[1].encode())
link.close()
time.sleep(float(sys.argv[2]))
sys.exit(7)'

@test "a program that takes its time to end without windows has its own exit status" {
    show 'wait end' /usr/bin/python3 -c "$TELLER" '' 1.5

    [ "$status" -eq 7 ] || fail "ended with $status: $output"
    [ -z "$output" ]
}

@test "half a line of a program that ended is no word" {
    show 'wait end' /usr/bin/python3 -c "$TELLER" '{"front": "Ma' 0

    [ "$status" -eq 7 ] || fail "ended with $status: $output"
    [ -z "$output" ] || fail "$output"
}

@test "a tool of the screen that fails ends everything, and its last word is told" {
    put_tool xdotool <<'END'
#!/bin/sh
printf 'first\nno hand\n' >&2
exit 3
END

    show 'picture first' /bin/sleep 30

    [ "$status" -eq 4 ] || fail "ended with $status: $output"
    [ "$output" = 'operate: xdotool ended with 3: no hand' ]
}

@test "of a window manager that does not start the last word is told" {
    OPTIONS=()
    put_tool openbox <<'END'
#!/bin/sh
printf 'first\n(EE) the last word\n(EE)\n' >&2
exit 1
END

    show 'wait end' /bin/echo started

    [ "$status" -eq 4 ]
    [ "$output" = 'operate: openbox did not start: the last word' ]
}

@test "the transcript has all that a command of the script says, also of one that fails" {
    show "run sh -c 'echo out; echo err >&2'
run sh -c 'echo no >&2; exit 3'" /bin/sleep 30

    [ "$status" -eq 3 ]
    same <(echo "$output") 'the complaint' <<'END'
operate: line 2: run sh -c 'echo no >&2; exit 3': the command ended with 3; shown: nothing is shown
END
    printf '%s\n' out err no | same "$WORK/window/transcript" 'the transcript'
}

@test "a panel that is kept shows one window after the other" {
    OPTIONS+=(--state "$STATE")
    local time
    for time in first second; do
        show 'wait end' /bin/echo "$time"

        [ "$status" -eq 0 ] || fail "$time: $output"
        [ "$(cat "$WORK/window/updater.out")" = "$time" ]
    done
}

@test "the updater that is brought along comes before one that the panel has" {
    put_tool kx_Updater </dev/null

    show 'wait end' /bin/sh -c 'command -v kx_Updater'

    [ "$(cat "$WORK/window/updater.out")" = /opt/kx_Updater/kx_Updater ]
}
