#!/usr/bin/env bats
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
#
# Scripts of the window's user that cannot be played: one line says where and why.

load window

# expect_refused LINE SCRIPT [OPTION...]: the script ends the window with this line.
expect_refused() {
    local line=$1 script=$2
    shift 2
    printf '%s\n' "$script" >"$WORK/script"

    run "$WINDOW" --updater "$KX_UPDATER" --probe "$PROBE" --usb "$DRIVE" \
        --script "$WORK/script" --out "$WORK/window" "${PANEL_SETTINGS[@]}" "$@" </dev/null

    [ "$status" -eq 3 ] || fail "ended with $status: $output"
    same <(echo "$output") 'the complaint' <<<"operate: $line"
}

@test "an action that cannot be read is told with its line" {
    local unknown='there is no such action; a text of several words needs quotes'
    unknown+='; see device/operate --help'

    expect_refused "line 3: wait message two words: $unknown" $'# a remark\n\nwait message two words'
    expect_refused "line 1: dance: $unknown" dance
    expect_refused "line 1: state again: $unknown" 'state again'
    expect_refused "line 1: picture: $unknown" picture
    expect_refused "line 1: wait log 'open: No closing quotation" "wait log 'open"
}

@test "what cannot be waited for or pressed is told with what is shown" {
    local shown='There is no installation software in the USB flash drive. | error | OkButton'
    shown+=' | Install | no package'

    expect_refused "line 2: wait for x: there is nothing like that to wait for; shown: $shown" \
        $'wait button OkButton\nwait for x'
    expect_refused "line 2: press tab None: there is no such tab; shown: $shown" \
        $'wait button OkButton\npress tab None'
    expect_refused "line 2: press OkButton x: a button is pressed by its NAME, a tab by 'tab' and its name; shown: $shown" \
        $'wait button OkButton\npress OkButton x'
    expect_refused "line 2: press RebootButton: still not so after 1 seconds; shown: $shown" \
        $'wait button OkButton\npress RebootButton' --patience 1
    [ -s "$WORK/window/failed.png" ]
}
