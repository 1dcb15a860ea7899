#!/usr/bin/env bats
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
#
# The pictures of every state. Builds the updater and the probe.

load sandbox_helper

setup() {
    require_device
    PICTURES=$(cd "$BATS_TEST_DIRNAME/../.." && pwd)/scripts/pictures
    OUT=$BATS_TEST_TMPDIR/pictures
}

@test "wrong options of scripts/pictures end with 2, before anything is done" {
    local words
    while read -r -a words; do
        run -2 "$PICTURES" "${words[@]}"
    done <<END
--lang fr $OUT
--size 80 $OUT
--state nonsense $OUT
--docs --lang en $OUT
$OUT $OUT
END
    [ ! -e "$OUT" ]
}

@test "every state gets a picture of its own, and what does not fit is told" {
    "$PICTURES" --lang en --size 480x272 "$OUT" >"$BATS_TEST_TMPDIR/told"

    local pictures
    pictures=$(printf 'en-480x272/%s.png\n' confirm error-broken-package error-no-drive error-no-package \
        error-two-packages failed failed-log finished installed-list installing installing-log \
        log reboot rebooting remove-drive | LC_ALL=C sort)
    [ "$(find "$OUT" -name '*.png' -printf '%P\n' | LC_ALL=C sort)" = "$pictures" ]
    [ "$(identify -format '%wx%h\n' "$OUT"/en-480x272/*.png | sort -u)" = 480x272 ]
    [ "$(identify -format '%#\n' "$OUT"/en-480x272/*.png | sort -u | wc -l)" -eq 15 ]
    # The caption is wider than its place, and the row of buttons begins below the tabs, which keep
    # their height on a low screen.
    tr -s ' ' <"$OUT/cut.txt" >"$BATS_TEST_TMPDIR/cut"
    grep -qx '480x272 labelComment cut text Comment en: confirm installing finished failed' \
        "$BATS_TEST_TMPDIR/cut"
    grep -qx '480x272 RebootButton off screen 3 pixels en: reboot' "$BATS_TEST_TMPDIR/cut"
    # Buttons and messages fit.
    run ! grep -E 'Button cut text|labelMsg' "$BATS_TEST_TMPDIR/cut"
    grep -q '^480x272 *appTitle' "$BATS_TEST_TMPDIR/told"
    [ "$(sed -n 's/.* src="\([^"]*\)".*/\1/p' "$OUT/index.html" | LC_ALL=C sort)" = "$pictures" ]
}

@test "only the states, languages and screens that are asked for" {
    "$PICTURES" --lang ja --size 640x480 --size 320x240 --state confirm --state error-no-drive \
        "$OUT"

    [ "$(find "$OUT" -name '*.png' -printf '%P\n' | LC_ALL=C sort)" = "$(printf '%s\n' \
        ja-320x240/confirm.png ja-320x240/error-no-drive.png \
        ja-640x480/confirm.png ja-640x480/error-no-drive.png)" ]
}
