#!/usr/bin/env bats
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
#
# The demonstration: played by itself, and served to people. It builds the updater and the probe.

# shellcheck disable=SC2030,SC2031 # what a test sets is for this test
load sandbox_helper

# Places on a screen of 800x480; the buttons for OK and for the reboot share one.
INSTALL=298,428
OK=395,428

# What is missing takes the time that it takes; the tests then wait for the demonstration alone.
setup_file() {
    local root
    root=$(cd "$BATS_TEST_DIRNAME/../.." && pwd)
    "$DEVICE_HOME/run" -- true >/dev/null 2>&1 || return 0
    "$root/scripts/setup" build tools demo display web vnc 3>&-
    (cd "$root/scripts" && /usr/bin/python3 -B -c 'from kxscripts.common import build
build("release", "kx_Updater", "kx-package", "kx-panel", "kx_probe")') 3>&-
}

setup() {
    require_device
    ROOT=$(cd "$BATS_TEST_DIRNAME/../.." && pwd)
    WORK=$BATS_TEST_TMPDIR
    OUT=$WORK/out
    DIR=$WORK/demo
    OTHERS=()
    DEMO=''
    unset DISPLAY WAYLAND_DISPLAY
    export LANG=C.UTF-8
}

teardown() {
    local process
    # With a signal that they can catch, X servers take their sockets with them.
    for process in "${OTHERS[@]}"; do
        kill -TERM "$process" 2>/dev/null || true
        wait "$process" || true
    done
    # shellcheck disable=SC2046 # a list of numbers
    for process in $DEMO $([ -z "$DEMO" ] || family "$DEMO") ${MEMBERS:-}; do
        kill -KILL "$process" 2>/dev/null || true
    done
    [ ! -d "$DIR/state" ] || wait_until "$ROOT/device/run" --erase --state "$DIR/state"
}

fail() {
    printf '%s\n' "$1" >&2
    [ ! -s "$OUT" ] || tail -n 40 "$OUT" >&2
    return 1
}

# same FILE: compares a whole file with standard input.
same() {
    diff -u --label expected --label "${1##*/}" - "$1" >&2 || fail "$1 is not what was expected"
}

# family PROCESS: its descendants.
family() {
    local child
    for child in $(pgrep -P "$1"); do
        echo "$child"
        family "$child"
    done
}

# member NAME: the descendant of the demonstration that has this name.
member() {
    local process
    for process in $(family "$DEMO"); do
        if [ "$(cat "/proc/$process/comm" 2>/dev/null)" = "$1" ]; then
            echo "$process"
            return
        fi
    done
    return 1
}

# play OPTION...: runs the demonstration to its end.
play() {
    status=0
    timeout 120 "$ROOT/scripts/demo" --dir "$DIR" "$@" >"$OUT" 2>&1 3>&- </dev/null || status=$?
}

# serve OPTION...: starts the demonstration and waits until it has explained itself and the window
# is there.
serve() {
    # What an earlier one has said would count until the new one begins.
    : >"$OUT"
    env --default-signal=HUP,INT setsid "$ROOT/scripts/demo" --dir "$DIR" "$@" \
        >"$OUT" 2>&1 3>&- </dev/null &
    DEMO=$!
    local tries
    for tries in $(seq 300); do
        if grep -q 'Ctrl-C' "$OUT" && grep -q $'^shell\tunzip' "$DIR/trace"; then
            MEMBERS=$(family "$DEMO")
            [ -n "$MEMBERS" ] || fail 'the demonstration runs nothing'
            return 0
        fi
        kill -0 "$DEMO" 2>/dev/null || break
        sleep 0.1
    done
    fail "the demonstration did not start (tries: $tries)"
}

# ended: waits for the demonstration's end and for that of everything it had started; its exit
# status is in `status`.
ended() {
    status=0
    wait "$DEMO" || status=$?
    DEMO=''
    local process
    for process in $MEMBERS; do
        wait_until gone "$process" || fail "process $process is left"
    done
    local name
    for name in screen x11 cookie ready; do
        [ ! -e "$DIR/$name" ] || fail "$name is left"
    done
    ! grep -q "$DIR" /proc/self/mounts || fail 'a mount is left'
}

gone() {
    [ ! -d "/proc/$1" ]
}

traced() {
    grep -qP "$1" "$DIR/trace"
}

# free_port: a port of this machine that nobody uses.
free_port() {
    /usr/bin/python3 -c 'import socket
with socket.socket() as found:
    found.bind(("127.0.0.1", 0))
    print(found.getsockname()[1])'
}

# listening [PROCESS]: the TCP sockets that listen, as address:port in hexadecimal figures.
listening() {
    awk '$4 == "0A" { print $2 }' "/proc/${1:-self}/net/tcp" "/proc/${1:-self}/net/tcp6" | sort
}

# press_install COMMAND...: presses Install, which the window may not show yet.
press_install() {
    "$@" >/dev/null
    traced '^tool\twprotect_off'
}

# press_reboot COMMAND...: presses OK, or the button for the reboot which is at the same place.
press_reboot() {
    "$@" >/dev/null
    traced '^tool\treboot'
}

# shown_to_the_end: what the demonstration tells about an installation with a reboot.
shown_to_the_end() {
    [ "$status" -eq 0 ] || fail "exit status $status"
    grep -qx '  /usr/bin/kxsystem/usb_umount' "$OUT"
    grep -qx '  /sbin/reboot' "$OUT"
    grep -qx '  Hello: record added' "$OUT"
    grep -qx '/mnt/user/share/hello/greeting.txt' "$OUT"
    sed -n '/^== Rebooting/,/^== Signing/p' "$OUT" | grep -qx 'Hello from the panel\.'
    decided_without_a_window
    ! grep -q 'xkbcomp\|fontconfig' "$OUT" || fail 'it tells of the screen'
}

# decided_without_a_window: what it tells about the signed package: what was typed and how it ended,
# whatever language the panel speaks.
decided_without_a_window() {
    sed -n '/^\$ kx-panel/,/^== Pictures\|^The panel is kept/p' "$OUT" |
        grep -x '\$ kx-panel .*\|Hello from the panel\.\|.*\[signature-changed\]\|(exit status .*' |
        sed 's/.*\[/[/' >"$WORK/decided"
    same "$WORK/decided" <<'END'
$ kx-panel check Hello.kx-update
$ kx-panel install Hello.kx-update
Hello from the panel.
$ kx-panel install Changed.kx-update
[signature-changed]
(exit status 1)
$ kx-panel status
END
    [ -z "$(find "$DIR" -name '*.key.pem')" ] || fail 'a private key is left'
}

@test "wrong options end with 2 and one line, before anything is done" {
    local count
    while read -r -a words; do
        play "${words[@]}"
        [ "$status" -eq 2 ] || fail "${words[*]}: exit status $status"
        count=$(wc -l <"$OUT")
        [ "$count" -eq 1 ] || fail "${words[*]}: $count lines"
        [ ! -e "$DIR" ] || fail "${words[*]}: something was done"
    done <<'END'
--nonsense
word
--lang
--lang fr
--size 800
--size 0x480
--web 0
--web 65536
--web 99999999999999999999
--web 80x
--vnc 6080 6081
--headless --web
--vnc --headless
--web 7000 --vnc 7000
--dir
END
    play --help
    [ "$status" -eq 0 ]
    grep -q -- '--web \[PORT\]' "$OUT"
}

@test "without a display it presses the buttons and leaves pictures, transcript and log" {
    play --size 640x480

    [ "$(ls "$DIR/pictures")" = "$(printf '%s\n' 1-confirm.png 2-installing-log.png \
        3-installing.png 4-finished.png 5-installed-list.png 6-log.png 7-remove-the-drive.png \
        8-reboot.png 9-rebooting.png)" ] || fail 'other pictures'
    local picture
    for picture in "$DIR"/pictures/*.png; do
        [ "$(identify -format '%m %wx%h' "$picture")" = 'PNG 640x480' ] || fail "$picture"
        grep -qxF "  $picture" "$OUT" || fail "$picture is not named"
    done
    # Each is another picture: the states differ.
    [ "$(identify -format '%#\n' "$DIR"/pictures/*.png | sort -u | wc -l)" -eq 9 ]
    same "$DIR/transcript" <<'END'
Install the software on this device.\nAre you sure? | normal | InstallButton CancelButton | Install | package
Hello panel | 1.0.0 | Installs a greeting, its texts and a start-up script
 Start the installation.\nDo not turn off the power during the installation.\nIf you turn off the power, the files may be corrupted. | normal | no button | Log | package
 Start the installation.\nDo not turn off the power during the installation.\nIf you turn off the power, the files may be corrupted. | normal | no button | Install | package
The installation completed successfully. | normal | OkButton | Install | package
Hello panel | 1.0.0 | Installs a greeting, its texts and a start-up script
Remove the USB flash drive.\nIf you remove, this will reboot. | normal | no button | Install | no package
Remove the USB flash drive.\nIf you remove, this will reboot. | normal | RebootButton | Install | no package
Reboot.... | normal | no button | Install | no package
END
    # How many lines come at once decides where the log has empty ones.
    grep -v '^$' "$DIR/log" >"$WORK/log"
    same "$WORK/log" <<'END'
**** Installation step 1/5
**** Installation step 2/5
**** Installation step 3/5
Hello from the panel.
**** Installation step 4/5
**** Installation step 5/5
Checking the panel, part 1 of 4
Checking the panel, part 2 of 4
Checking the panel, part 3 of 4
Checking the panel, part 4 of 4
Installation succeeded.
END
    shown_to_the_end
}

@test "a display that cannot be reached is told, and none is needed; the panel speaks Japanese" {
    DISPLAY=:9999 play --lang ja

    grep -qxF 'No window can be opened on the display :9999. Going on without a display.' "$OUT"
    [ "$(head -n 1 "$DIR/transcript")" = \
        'この機器にソフトウェアをインストールします。\nよろしいですか？ | normal | InstallButton CancelButton | Install | package' ]
    [ "$(tail -n 1 "$DIR/transcript")" = '再起動.... | normal | no button | Install | no package' ]
    shown_to_the_end
}

@test "a folder with files of somebody else is left alone" {
    mkdir -p "$DIR/x11"
    # Names that a demonstration has for its own, too.
    echo mine | tee "$DIR/file" "$DIR/cookie" "$DIR/screen" >"$DIR/x11/file"

    play --headless

    [ "$status" -eq 1 ]
    [ "$(tail -n 1 "$OUT")" = \
        "scripts/demo: $DIR holds something else; name a new folder behind --dir" ]
    [ "$(cat "$DIR"/{file,cookie,screen,x11/file})" = "$(printf 'mine\n%.0s' 1 2 3 4)" ]
    [ "$(find "$DIR" | wc -l)" -eq 6 ]
}

@test "browser and viewer press the buttons; only the forwarders listen, on loopback" {
    local web vnc before inside
    web=$(free_port)
    vnc=$(free_port)
    # Longer than the name of a socket may be.
    DIR=$WORK/$(printf 'long%.0s' $(seq 40))/demo
    mkdir -p "${DIR%/*}"
    before=$(listening)

    serve --web "$web" --vnc "$vnc"

    grep -qxF "== The panel, in a browser: http://127.0.0.1:$web/vnc.html?autoconnect=true&resize=scale" "$OUT"
    grep -qxF "== The panel, in a VNC viewer: 127.0.0.1:$vnc" "$OUT"
    [ "$(comm -13 <(echo "$before") <(listening))" = \
        "$(printf '0100007F:%04X\n' "$web" "$vnc" | sort)" ] || fail 'other sockets listen'
    inside=$(member kx_Updater)
    [ "$(readlink "/proc/$inside/ns/net")" != "$(readlink /proc/self/ns/net)" ]
    [ -z "$(listening "$inside")" ] || fail 'something listens on the panel'

    run -0 /usr/bin/python3 -c 'import sys, urllib.request
with urllib.request.urlopen(sys.argv[1], timeout=10) as answer:
    print(answer.status, b"noVNC" in answer.read())' "http://127.0.0.1:$web/vnc.html"
    [ "$output" = '200 True' ]
    ! traced '^tool\twprotect_off' || fail 'it did not wait for the user'
    run -0 "$BATS_TEST_DIRNAME/demo_viewer.py" web "$web"
    [ "$output" = 800x480 ]
    wait_until press_install "$BATS_TEST_DIRNAME/demo_viewer.py" web "$web" "$INSTALL"
    wait_until traced '^drive\tunmount'
    run -0 "$BATS_TEST_DIRNAME/demo_viewer.py" vnc "$vnc"
    [ "$output" = 800x480 ]
    local commands
    commands=$(grep 'device/drive' "$OUT")
    [ "$(wc -l <<<"$commands")" -eq 2 ]
    bash -c "cd '$ROOT' && $(grep pull <<<"$commands")"
    traced '^drive\tpull'
    wait_until press_reboot "$BATS_TEST_DIRNAME/demo_viewer.py" vnc "$vnc" "$OK"

    ended
    shown_to_the_end
    [ "$(listening)" = "$before" ] || fail 'something still listens'
}

@test "Ctrl-C ends everything it has started, and so does its sudden death" {
    local port before
    port=$(free_port)
    before=$(listening)

    serve --web "$port"
    "$BATS_TEST_DIRNAME/demo_viewer.py" web "$port"
    kill -INT "$DEMO"
    ended
    [ "$status" -eq 130 ]
    [ "$(tail -n 1 "$OUT")" = Ended. ]

    serve --vnc "$port"
    kill -KILL "$DEMO"
    status=0
    wait "$DEMO" || status=$?
    DEMO=''
    local process
    for process in $MEMBERS; do
        wait_until gone "$process" || fail "process $process is left"
    done
    [ "$(listening)" = "$before" ]
}

@test "a request to end ends everything it has started, and so does a lost terminal" {
    local signal
    for signal in TERM HUP; do
        serve --vnc "$(free_port)"
        kill "-$signal" "$DEMO"
        ended
        [ "$status" -eq 143 ] || fail "$signal: exit status $status"
    done
}

@test "a port that is taken is told before anything is done" {
    local ready=$WORK/ready option
    mkfifo "$ready"
    /usr/bin/python3 -c 'import socket, sys, signal
taken = socket.create_server(("127.0.0.1", 0))
print(taken.getsockname()[1], file=open(sys.argv[1], "w"))
signal.pause()' "$ready" 3>&- &
    OTHERS+=("$!")
    local port
    read -r port <"$ready"
    for option in --web --vnc; do
        play "$option" "$port"
        [ "$status" -eq 1 ]
        [ "$(cat "$OUT")" = \
            "scripts/demo: port $port is taken; name another one behind --web or --vnc" ]
        [ ! -e "$DIR" ]
    done
}

# open_display: an X server that stands for the display of a person.
open_display() {
    mkfifo "$WORK/number"
    Xvfb -displayfd 9 -screen 0 1280x800x24 -nolisten tcp -noreset \
        9>"$WORK/number" >"$WORK/xvfb.log" 2>&1 3>&- &
    OTHERS+=("$!")
    local number
    read -r number <"$WORK/number"
    export DISPLAY=:$number
}

# press PLACE: presses in the window on the display.
press() {
    xdotool mousemove "${1%,*}" "${1#*,}" click 1
}

@test "on a display the panel opens in a window and gets that one socket" {
    open_display

    serve

    local nested inside
    nested=$(tr '\0' '\n' <"/proc/$(member socat)/cmdline" |
        sed -n 's,^UNIX-CONNECT:/tmp/.X11-unix/,,p')
    [[ $nested =~ ^X[0-9]+$ ]] || fail "forwards to $nested"
    # Without the secret nobody gets in, and nobody else can read it.
    [ "$(stat -c %a "$DIR/cookie")" = 600 ]
    XAUTHORITY=$DIR/cookie DISPLAY=:${nested#X} xdotool getdisplaygeometry |
        grep -qx '800 480'
    run ! env XAUTHORITY=/dev/null DISPLAY=":${nested#X}" xdotool getdisplaygeometry
    inside=$(member kx_Updater)
    [ "$(ls "/proc/$inside/root/tmp/.X11-unix")" = X1 ]

    wait_until press_install press "$INSTALL"
    wait_until traced '^drive\tunmount'
    "$ROOT/device/drive" pull --state "$DIR/state"
    wait_until press_reboot press "$OK"
    ended
    shown_to_the_end
    [ ! -e "/tmp/.X11-unix/$nested" ]
}

@test "closing the window on the display ends the demonstration" {
    open_display

    serve --size 480x272

    kill -TERM "$(member Xephyr)"
    ended
    [ "$status" -eq 0 ] || fail "exit status $status"
    grep -qx '== The window was closed' "$OUT"
    run ! grep -q Rebooting "$OUT"
}

@test "what serves the panel is installed only when it is asked for" {
    mkdir "$WORK/bin"
    printf '#!/bin/sh\necho not-installed\n' >"$WORK/bin/dpkg-query"
    printf '#!/bin/sh\nprintf "%%s\\n" "$@" >>"%s"\n' "$WORK/asked" >"$WORK/bin/apt-get"
    printf '#!/bin/sh\nexec "$@"\n' >"$WORK/bin/sudo"
    chmod +x "$WORK"/bin/*
    # asked GROUP...: what would be installed.
    asked() {
        rm -f "$WORK/asked"
        PATH=$WORK/bin:$PATH "$ROOT/scripts/setup" "$@" >"$OUT"
        sed '1,/^--no-install-recommends$/d' "$WORK/asked"
    }

    [ "$(asked web)" = "$(printf '%s\n' novnc tigervnc-standalone-server websockify)" ]
    [ "$(asked vnc)" = "$(printf '%s\n' socat tigervnc-standalone-server)" ]
    [ "$(asked display)" = "$(printf '%s\n' socat xserver-xephyr)" ]
    asked demo >"$WORK/demo"
    grep -qx xvfb "$WORK/demo"
    asked >"$WORK/all"
    grep -qx xvfb "$WORK/all"
    run ! grep -x 'novnc\|websockify\|tigervnc-standalone-server\|xserver-xephyr\|socat' "$WORK/all"
    run -2 "$ROOT/scripts/setup" nonsense
}
