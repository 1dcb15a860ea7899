#!/usr/bin/env bats
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
#
# Parts of the demonstration by themselves: its start, its output, its processes and signals.

load sandbox_helper

setup() {
    ROOT=$(cd "$BATS_TEST_DIRNAME/../.." && pwd)
    cd "$BATS_TEST_TMPDIR" || return
}

# python [ENV-OPTION...] <PROGRAM: runs a program that knows the demonstration's processes.
python() {
    local program
    program=$(cat)
    PYTHONPATH=$ROOT/scripts timeout 30 env "$@" /usr/bin/python3 -B -c "
import os, signal, sys, time
from kxscripts.demo_processes import *
$program" 3>&-
}

# alive PROCESS: tells whether a process is there and not only waits for its parent to ask.
alive() {
    [ -d "/proc/$1" ] && ! grep -q '^State:.Z' "/proc/$1/status"
}

# on_fresh_panel STATUS [OPTION...]: starts scripts/demo --help where nothing is installed, on a panel
# whose package tools only say so; it must end with this status.
on_fresh_panel() {
    local status_wanted=$1
    shift
    mkdir -p bin
    printf '#!/bin/sh\necho not-installed\n' >bin/dpkg-query
    printf '#!/bin/sh\nexit 0\n' >bin/apt-get
    chmod +x bin/*
    run "-$status_wanted" device --share "$ROOT/scripts=/opt/kx/scripts" --share "$ROOT/device=/opt/kx/device" \
        --share "$PWD/bin=/opt/bin" --env PATH=/opt/bin:/usr/bin:/bin "$@" \
        -- /opt/kx/scripts/demo --help
    echo "$output"
}

@test "what scripts/demo itself needs is installed only where it is missing" {
    require_device

    on_fresh_panel 127 --missing python3
    local name
    for name in qtbase5-dev libzip-dev python3; do
        [[ ${lines[0]} == 'scripts/setup: installing '*" $name "* ]]
    done
    [ "${lines[1]}" = 'scripts/setup: done' ]

    on_fresh_panel 0
    [[ ${lines[0]} == 'Shows the main job: '* ]]
    [ "${lines[-1]}" = \
        'Exit status: 0 shown to the end, 1 not possible (one line says why), 2 wrong use.' ]
}

@test "nothing of the user's own Python gets into scripts/demo" {
    mkdir own
    printf 'raise SystemExit("a module of the user")\n' | tee own/argparse.py >own/usercustomize.py
    run -0 env PYTHONPATH="$PWD/own" PYTHONVERBOSE=1 "$ROOT/scripts/demo" --help
    [[ ${lines[0]} == 'Shows the main job: '* ]]
}

@test "output that nobody takes ends it with one line at most" {
    run -141 --separate-stderr /usr/bin/python3 -c 'import os, subprocess, sys
ours, theirs = os.pipe()
os.close(ours)
sys.exit(subprocess.call(sys.argv[1:], stdout=theirs))' "$ROOT/scripts/demo" --help
    # shellcheck disable=SC2154 # bats assigns it
    [ "$stderr" = '' ]

    "$ROOT/scripts/demo" --help >/dev/full 2>told || status=$?
    [ "$status" -eq 1 ]
    [ "$(cat told)" = 'scripts/demo: [Errno 28] No space left on device' ]
}

@test "what does not end when it is asked to is ended by force, with its children" {
    python <<'END'
processes = Processes(patience=0.5)
asked = processes.start("sh", "-c", "trap 'exit 7' TERM; echo >ready; while :; do sleep 0.1; done",
                        log="log")
deaf = processes.start("sh", "-c",
                       "trap '' TERM; sleep 3600 & { echo $$; echo $!; } >pids; wait", log="log")
while not all(os.path.exists(name) and os.path.getsize(name) for name in ("ready", "pids")):
    time.sleep(0.05)
begin = time.monotonic()
processes.stop_all()
assert time.monotonic() - begin > 0.5
print(asked.poll(), deaf.poll(), file=open("ends", "w"))
END
    [ "$(cat ends)" = '7 -9' ]
    local process
    while read -r process; do
        run ! alive "$process"
    done <pids
}

@test "what a command leaves in the background ends with it" {
    python <<'END'
processes = Processes(patience=5)
print(processes.run("sh", "-c", "sleep 3600 & echo $! >pid; exit 4"), file=open("end", "w"))
END
    [ "$(cat end)" = 4 ]
    run ! alive "$(cat pid)"
}

@test "the first signal ends, and is told; further ones do not count" {
    local signal
    for signal in INT TERM HUP; do
        python --default-signal=INT,TERM,HUP <<END
end_on_signals()
try:
    signal.raise_signal(signal.SIG$signal)
except Interrupted as error:
    for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
        signal.raise_signal(number)
    print(error.number, file=open("$signal", "w"))
END
    done
    [ "$(cat INT TERM HUP)" = "$(printf '%s\n' 2 15 1)" ]
}

@test "a signal that is ignored, as nohup makes it, stays so" {
    python --ignore-signal=HUP --default-signal=INT <<'END'
end_on_signals()
signal.raise_signal(signal.SIGHUP)
print("went on", file=open("told", "w"))
END
    [ "$(cat told)" = 'went on' ]
}

@test "processes end in the order in which they need each other: the last one first" {
    python <<'END'
processes = Processes(patience=5)
for name in ("first", "second"):
    processes.start("sh", "-c", f"trap 'echo {name} >>ends; exit' TERM; echo >{name}\n"
                    "while :; do sleep 0.05; done", log="log")
while not (os.path.exists("first") and os.path.exists("second")):
    time.sleep(0.05)
processes.stop_all()
END
    [ "$(cat ends)" = $'second\nfirst' ]
}

# on_stage OPTION... <PROGRAM: runs a program that knows the stage of a demonstration with these
# options; its panel is played.
on_stage() {
    python PYTHONPATH="$ROOT/scripts:$ROOT/device" OPTIONS="$*" <<END
import pathlib, socket
from kxscripts import demo, demo_headless, demo_served
from kxscripts.common import Failed
from kxscripts.demo_options import parse
from kxscripts.demo_stage import Stage
options = parse(os.environ["OPTIONS"].split())
stage = Stage(options, pathlib.Path.cwd())
$(cat)
END
}

@test "a window that does not get to its end fails the demonstration, and its complaint is shown" {
    mkdir demo

    run on_stage --dir demo <<'END'
def open_window(*_):
    stage.window = stage.processes.start("sh", "-c", "echo no screen; exit 3", log=stage.window_log())
stage.open_window = open_window
try:
    demo_headless.show(stage)
except Failed as failure:
    print(failure)
END

    echo "$output"
    [ "$status" -eq 0 ]
    [ "${lines[-2]}" = 'no screen' ]
    [ "${lines[-1]}" = "the window did not get to its end; what there is: $PWD/demo/panel" ]
}

@test "a link that the panel puts in the place of its screen is not served" {
    mkdir demo

    run on_stage --vnc 5901 --dir demo <<'END'
inside = stage.state / "root/run"
inside.mkdir(parents=True)
host = socket.socket(socket.AF_UNIX)
host.bind("host")
(inside / "screen").symlink_to(os.path.abspath("host"))
stage.open_window = lambda *_: setattr(stage, "window", stage.processes.start("sleep", "20"))
stage.short = lambda _: sys.exit("the link is served")
try:
    demo_served.serve(stage)
except Failed as failure:
    print(failure)
finally:
    stage.processes.stop_all()
END

    echo "$output"
    [ "$status" -eq 0 ]
    [ "${lines[-1]}" = "the panel's screen is no socket" ]
}

@test "how the panel is shown follows the options, then the display" {
    local display options expected
    while IFS='|' read -r display options expected; do
        run on_stage "$options" <<END
os.environ["DISPLAY"] = "$display"
print(demo._mode(options))
END
        echo "$output"
        [ "$status" -eq 0 ]
        [ "${lines[-1]}" = "$expected" ] || { echo "'$display' $options" && return 1; }
    done <<'END'
:0||display
:0|--headless|headless
:0|--web|served
||headless
|--vnc|served
END
}
