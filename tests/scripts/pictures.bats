#!/usr/bin/env bats
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
#
# What scripts/pictures makes of what a window tells. The window is played.
#
#   $TOLD        the places of widgets, as the window tells them of each state
#   $WINDOW_END  the exit status of the window

ROOT=$(cd "$BATS_TEST_DIRNAME/../.." && pwd)

setup() {
    cd "$BATS_TEST_TMPDIR" || return
    mkdir -p tree/device tree/bin tree/build/release
    cp -R "$ROOT/scripts" "$ROOT/examples" tree
    export TOLD=$PWD/told WINDOW_END=0
    printf '#!/bin/sh\n' | tee tree/scripts/setup >tree/bin/cmake
    cat >tree/build/release/kx-package <<'END'
#!/usr/bin/python3
import sys, zipfile
with zipfile.ZipFile(sys.argv[sys.argv.index("-o") + 1], "w") as package:
    package.writestr("UserPackage.kx-project", "{}")
END
    cat >tree/device/window <<'END'
#!/bin/bash
while [ $# -gt 0 ]; do
    case $1 in
        --script) script=$2 ;;
        --out) out=$2 ;;
    esac
    shift
done
mkdir "$out"
while read -r word name; do
    [ "$word" = picture ] || continue
    echo "-- $name"
    cat "$TOLD"
    convert -size 2x2 xc:red "$out/$name.png"
done <"$script" >"$out/transcript"
echo 'the window complains'
exit "$WINDOW_END"
END
    chmod +x tree/{bin/cmake,build/release/kx-package,device/window,scripts/setup}
}

# pictures OPTION...: pictures on a screen of 100x50; leaves $status and $output.
pictures() {
    run env PATH="$PWD/tree/bin:$PATH" tree/scripts/pictures --size 100x50 "$@" out
    echo "$output"
}

@test "a widget that reaches one pixel beyond the screen is told, on each of its sides" {
    cat >"$TOLD" <<'END'
whole 0,0 100x50
left -1,0 10x10
top 0,-1 10x10
right 91,0 10x10
bottom 0,41 10x10
far 91,42 10x10
label is cut: some text
centralWidget 0,0 200x200
closeButton -5,0 10x10
END

    pictures --lang en --lang ja --state confirm --state finished

    [ "$status" -eq 0 ]
    tr -s ' ' <out/cut.txt | diff - <(
        cat <<'END'
screen widget what text language: states
100x50 left off screen 1 pixels en ja: confirm finished
100x50 top off screen 1 pixels en ja: confirm finished
100x50 right off screen 1 pixels en ja: confirm finished
100x50 bottom off screen 1 pixels en ja: confirm finished
100x50 far off screen 2 pixels en ja: confirm finished
100x50 label cut text some text en ja: confirm finished
END
    )
    [ "$(find out -name '*.png' -printf '%P\n' | LC_ALL=C sort)" = \
        "$(printf '%s-100x50/%s.png\n' en confirm en finished ja confirm ja finished)" ]
}

@test "of the list that covers the window only its own widgets are told" {
    printf '%s\n' 'closeButton -5,0 10x10' 'left -1,0 10x10' >"$TOLD"

    pictures --lang en --state installed-list

    [ "$status" -eq 0 ]
    [ "$(tail -n +2 out/cut.txt | tr -s ' ')" = \
        '100x50 closeButton off screen 5 pixels en: installed-list' ]
}

@test "a window that fails is told with its words, and there is no page" {
    touch "$TOLD"

    WINDOW_END=3 pictures --lang en --state failed

    [ "$status" -eq 1 ]
    [ "${lines[-1]}" = \
        'scripts/pictures: en 100x50 failure: ended with 3: the window complains' ]
    [ ! -e out/index.html ]
}

@test "the pictures of the documents go with no other choice" {
    local choice
    for choice in '--lang en' '--size 640x480' '--state confirm'; do
        # shellcheck disable=SC2086 # words
        run tree/scripts/pictures --docs $choice out
        echo "$output"
        [ "$status" -eq 2 ]
        [[ ${lines[-1]} == *'error: --docs goes with no other choice' ]]
    done
    [ ! -e out ]
}
