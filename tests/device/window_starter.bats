#!/usr/bin/env bats
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
#
# device/window itself: its command line, and what it brings back from the panel.

load window

# show [OPTION...] [-- COMMAND...]: starts device/window; output and status are for the test.
show() {
    # shellcheck disable=SC2153 # set by the kit
    run "$WINDOW" --updater "$KX_UPDATER" --probe "$PROBE" "${PANEL_SETTINGS[@]}" "$@" </dev/null
}

@test "the help tells every option of its own and of the user's player" {
    run "$WINDOW" --no-wm --help

    [ "$status" -eq 0 ]
    local option
    for option in script out size lang no-wm display serve patience updater probe; do
        grep -q "^  --$option " <<<"$output" || fail "no word of --$option"
    done
    grep -q '^COMMAND is "kx_Updater -upDir /mnt/usb" unless given' <<<"$output"
}

@test "wrong use is told in one line" {
    show --lang
    [ "$status" -eq 2 ]
    [ "$output" = 'device/window: --lang needs a value; see device/window --help' ]

    show --lang de
    [ "$status" -eq 2 ]
    [ "$output" = "device/window: --lang: 'de' is neither en nor ja" ]

    show --script none
    [ "$status" -eq 2 ]
    [ "$output" = 'device/window: there is no none; scripts/demo builds what is missing' ]

    show --probe "$WORK" # a folder without the probe
    [ "$status" -eq 2 ]
    [[ $output == "device/window: there is no $WORK/"*'; scripts/demo builds what is missing' ]]

    show --dance 1
    [ "$status" -eq 2 ]
    [ "$output" = 'device/run: unknown option --dance; see device/run --help' ]

    show --size small -- /bin/true
    [ "$status" -eq 2 ]
    [[ $output == *"'small' is no size; write for example 800x480" ]]
}

@test "what cannot be read or started is told in one line, too" {
    printf 'state \377\n' >"$WORK/script"
    show --script "$WORK/script" -- /bin/true
    [ "$status" -eq 2 ]
    [[ ${lines[-1]} == 'operate: error: argument --script: /opt/kx_Updater/script: '* ]]

    run -127 "$WINDOW" --updater "$KX_UPDATER" --probe "$PROBE" -- nosuch </dev/null
    [ "$output" = 'operate: nosuch: No such file or directory' ]
}

@test "a value can stand behind the option or behind an equals sign" {
    # shellcheck disable=SC2016 # expanded on the panel
    show --size=320x200 --env=A=b --lang=ja --out="$WORK/seen" --no-wm -- \
        /bin/sh -c 'echo "$A $LANG"; xdotool getdisplaygeometry'

    [ "$status" -eq 0 ]
    same "$WORK/seen/updater.out" 'the output' <<'END'
b ja_JP.UTF-8
320 200
END
}

@test "without a state everything but the reports is forgotten" {
    mkdir "$WORK/temporary" "$WORK/seen"
    chmod 700 "$WORK/seen"
    echo old >"$WORK/seen/updater.out"
    echo mine >"$WORK/seen/mine"

    TMPDIR=$WORK/temporary show --out "$WORK/seen" --no-wm -- \
        /bin/sh -c 'mkdir /var/log/operate/more; echo >/var/log/operate/more/x; echo new; exit 7'

    [ "$status" -eq 7 ]
    [ -z "$(ls -A "$WORK/temporary")" ]
    [ "$(stat -c %a "$WORK/seen")" = 700 ]
    (cd "$WORK/seen" && LC_ALL=C find . -type f | LC_ALL=C sort) >"$WORK/files"
    same "$WORK/files" 'the reports' <<'END'
./mine
./more/x
./transcript
./updater.err
./updater.out
END
    [ "$(cat "$WORK/seen/mine" "$WORK/seen/updater.out")" = $'mine\nnew' ]
}

@test "a link that the panel laid in the place of its reports is not followed" {
    show --out "$WORK/seen" --no-wm -- \
        /bin/sh -c 'mv /var/log/operate /opt; ln -s /etc /var/log/operate'

    [ "$status" -eq 1 ]
    [ "$output" = "device/window: $WORK/seen: operate: Not a directory" ]
    [ ! -e "$WORK/seen" ]
}

@test "a request to end ends the panel in one way and leaves nothing behind" {
    local signal window
    mkdir "$WORK/temporary"
    for signal in TERM INT HUP; do
        # Commands in the background of a script ignore the interrupt key.
        TMPDIR=$WORK/temporary env --default-signal=INT,HUP \
            "$WINDOW" --updater "$KX_UPDATER" --probe "$PROBE" --no-wm \
            "${PANEL_SETTINGS[@]}" --out "$WORK/$signal" -- /bin/sleep 291.5 </dev/null 3>&- &
        window=$!
        wait_until host_has_process '/bin/sleep 291.5'

        kill "-$signal" "$window"
        status=0
        wait "$window" || status=$?

        [ "$status" -eq 143 ] || fail "$signal: ended with $status"
        host_lacks_process '/bin/sleep 291.5'
        [ -z "$(ls -A "$WORK/temporary")" ]
        [ -e "$WORK/$signal/updater.out" ]
    done
}

@test "without a screen nothing is started, and a line says why" {
    show --display :77 -- /bin/echo started

    [ "$status" -eq 4 ]
    [[ $output == 'operate: openbox did not start: '*'Failed to open the display'* ]]

    show --missing Xvfb -- /bin/echo started

    [ "$status" -eq 4 ]
    [ "$output" = 'operate: Xvfb: No such file or directory; scripts/setup demo installs it' ]
}

@test "the panel brings what the machine knows of its fonts, and need not read them" {
    local cache=/var/cache/fontconfig
    [ -n "$(ls -A "$cache" 2>/dev/null)" ] || skip "this machine keeps no $cache"

    show --out "$WORK/seen" --no-wm -- /bin/sh -c "cd $cache && sha256sum -- *"

    [ "$status" -eq 0 ]
    (cd "$cache" && sha256sum -- *) >"$WORK/expected"
    cmp "$WORK/expected" "$WORK/seen/updater.out"
}

# Connects to a screen twice, as a viewer that wants it alone; prints a byte for each viewer that gets
# a pixel in the end.
TWO_VIEWERS='import socket, sys
def read(link, count):
    return link.recv(count, socket.MSG_WAITALL)
def viewer():
    link = socket.socket(socket.AF_UNIX)
    link.settimeout(10)
    link.connect(sys.argv[1])
    read(link, 12); link.sendall(b"RFB 003.008\n")
    read(link, read(link, 1)[0]); link.sendall(b"\1")
    read(link, 4); link.sendall(b"\0")  # nobody else may stay connected
    start = read(link, 24)
    read(link, int.from_bytes(start[20:], "big"))
    return link
viewers = [viewer(), viewer()]
for link in viewers:
    link.sendall(b"\3\0" + bytes(4) + b"\0\1\0\1")
print([len(read(link, 1)) for link in viewers])'

@test "several viewers see the screen, also when one wants it alone" {
    show --serve /tmp/screen --no-wm --out "$WORK/seen" -- \
        /usr/bin/python3 -c "$TWO_VIEWERS" /tmp/screen

    [ "$status" -eq 0 ] || fail "$output $(cat "$WORK/seen/updater.err")"
    [ "$(cat "$WORK/seen/updater.out")" = '[1, 1]' ]
}
