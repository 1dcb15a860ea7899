#!/usr/bin/env bats
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
#
# However a run on the sandboxed device ends, it ends whole, says so, and the next one finds
# everything in order.
#
# Scripts in single quotes are for the shell inside; bats sets stderr.
# shellcheck disable=SC2016,SC2154

load sandbox

# started MARK [OPTION...]: starts a device whose command sleeps for MARK seconds; see follow.
started() {
    "$DEVICE_HOME/run" "${@:2}" -- sh -c "echo 1 >/opt/made; sleep $1" 3>&- 2>err &
    follow "$1" $!
}

# follow MARK PROCESS: waits until the command of a device that was started sleeps for MARK seconds;
# the device's process is in $STARTER, that of its keeper and process 1 in $KEEPER and $FIRST.
follow() {
    STARTER=$2
    HELPERS+=("$STARTER")
    wait_until host_has_process "sleep $1"
    KEEPER=$(pgrep -P "$STARTER")
    FIRST=$(pgrep -P "$KEEPER")
}

# ended STATUS MARK: the device has ended with this status and left nothing. One that was killed
# cannot wait for the end of its panel.
ended() {
    local status=0
    wait "$STARTER" || status=$?
    [ "$status" -eq "$1" ]
    [ "$1" -ne 137 ] || wait_until host_lacks_process "sleep $2"
    host_lacks_process "sleep $2"
    wait_until host_lacks_groups "$STARTER"
    wait_until test ! -e "/proc/$FIRST"
    wait_until test ! -e "/proc/$KEEPER"
}

# -- signals -------------------------------------------------------------------------------------

@test "a run that is asked to end by a signal still reports, and ends by that signal" {
    local signal
    for signal in 1 2 15; do
        # Commands in the background of a script ignore the interrupt key.
        env --default-signal=INT "$DEVICE_HOME/run" --summary=summary --trace trace --usb tree -- \
            sh -c 'trap "" HUP INT TERM; echo 1 >/opt/made; sleep 49.25' 3>&- &
        follow 49.25 $!

        kill -"$signal" "$STARTER"

        ended $((128 + signal)) 49.25
        grep -q '  /opt/made$' summary
        [ "$(cat trace)" = $'drive\tplug' ]
        rm summary trace
    done
}

@test "a signal that the caller ignores does not end the run" {
    env --ignore-signal=HUP,INT "$DEVICE_HOME/run" -- sleep 2.125 3>&- &
    follow 2.125 $!

    kill -HUP "$STARTER"
    kill -INT "$STARTER"

    wait "$STARTER"
}

@test "signals meant for the caller's terminal do not reach what keeps the panel" {
    "$DEVICE_HOME/run" -- sleep 2.375 3>&- &
    follow 2.375 $!
    local signal

    for signal in HUP INT QUIT TERM TSTP PIPE; do
        kill -"$signal" "$KEEPER" "$FIRST"
    done

    [ "$(ps -o sid= -p "$KEEPER" | tr -d ' ')" -eq "$KEEPER" ]
    [ "$(ps -o sid= -p "$FIRST" | tr -d ' ')" -eq "$FIRST" ]
    wait "$STARTER"
}

@test "nothing outlives a keeper that is killed" {
    started 49.5

    kill -9 "$KEEPER"

    ended 125 49.5
    [ "$(cat err)" = "device/run: cannot make the sandboxed device: the panel's supervisor was ended \
from outside" ]
}

@test "nothing outlives a process 1 that is killed" {
    [ "$(id -u)" -eq 0 ] || skip "process 1 of root's panel alone can be killed by root alone"
    started 49.75 --state state

    kill -9 "$FIRST"

    ended 125 49.75
    [ "$(cat err)" = "device/run: cannot make the sandboxed device: the panel's supervisor was ended \
from outside" ]
    [ "$(device --state state -- cat /opt/made)" = 1 ]
}

@test "a state whose run was killed is as it was for the next" {
    started 50.25 --state state --usb tree
    [ -S state/control ]

    kill -9 "$STARTER"
    ended 137 50.25

    [ -S state/control ]
    run "$DEVICE_HOME/drive" plug --state state
    [ "$output" = "device/drive: a drive is plugged in already; pull it first" ]
    run device --state state -- sh -c 'cat /opt/made; ls /mnt/usb'
    [ "$output" = $'1\nsecret' ]
    # Who asks the panel that runs must not find the address of one that ended.
    [ ! -e state/control ]
}

# -- reports that cannot be written --------------------------------------------------------------

@test "a report that cannot be written is told and makes a success a failure" {
    run -1 device --summary=/dev/full -- true
    [ "$output" = "device/run: the summary cannot be written (No space left on device)" ]
    run -1 device --summary-json /dev/full -- true
    [ "$output" = "device/run: the summary cannot be written (No space left on device)" ]
    run -1 device --trace /dev/full -- /usr/bin/kxsystem/wprotect_off
    [ "$output" = "device/run: the trace /dev/full is incomplete (No space left on device)" ]
    run -5 device --trace /dev/full --summary=/dev/full -- \
        sh -c '/usr/bin/kxsystem/wprotect_off; exit 5'
    [ "${#lines[@]}" -eq 2 ]
    run -125 device --trace /nowhere/trace -- true
    [ "$output" = "device/run: cannot make the sandboxed device: /nowhere/trace cannot be written \
(No such file or directory)" ]
}

@test "reports take the place of what was in their files" {
    head -c 100000 /dev/zero | tr '\0' 'x' | tee trace summary >json

    device --trace trace --summary=summary --summary-json json -- /usr/bin/kxsystem/wprotect_off

    [ "$(cat trace)" = $'tool\twprotect_off' ]
    [ "$(tail -n 1 summary)" = "  not asked for" ]
    run ! grep -q x json
}

# -- the next start ------------------------------------------------------------------------------

@test "the start-up script has no input and usual signals, and a reboot was done then" {
    # The shell itself changes what its children do with some signals.
    cat >startup.sh <<'END'
#!/usr/bin/python3 -IS
import os, signal, sys
print(signal.getsignal(signal.SIGCHLD).name, os.readlink("/proc/self/fd/0"), [sys.stdin.read()])
END
    chmod 755 startup.sh
    device --state state --put startup.sh=/mnt/user/startup.sh -- /sbin/reboot
    [ -e state/panel/reboot ]

    run --separate-stderr device --state state --boot --ignore-sigchld -- cat <<<typed

    [ "$stderr" = "SIG_DFL /dev/null ['']" ]
    [ "$output" = typed ]
    [ ! -e state/panel/reboot ]
}

@test "what stands in the way of the panel's own files is replaced" {
    device --state state -- sh -c 'rm /.kx-device; mkdir -p /.kx-device/folder; rmdir /mnt/usb'

    run -0 device --state state -- sh -c '/usr/bin/kxsystem/wprotect_off && stat -c "%F %a %U" /.kx-device'
    [ "$output" = "regular file 444 root" ]
}

@test "a state that was left unfinished is refused, and can be erased" {
    device --state state -- true
    rm state/panel/made.json

    run -125 device --state state -- true
    [ "$output" = "device/run: cannot make the sandboxed device: the state was left unfinished; \
erase it" ]
    device --erase --state state
    [ ! -e state ]
}

# -- trouble that cannot be made -----------------------------------------------------------------

@test "tools that the stand-ins need or that a run changed cannot be made to fail" {
    local python
    python=$(basename "$(readlink -f /usr/bin/python3)")
    run -125 device --fail "$python=1" -- true
    [ "$output" = "device/run: cannot make the sandboxed device: $python is needed by the stand-ins; \
choose another tool" ]

    device --state state -- sh -c 'echo "#!/bin/sh" >/usr/local/bin/own; chmod 755 /usr/local/bin/own
        cp -f /bin/false /usr/bin/true'
    for tool in own true; do
        for option in "--fail $tool=1" "--missing $tool"; do
            # shellcheck disable=SC2086
            run -125 device --state state $option -- sh -c 'exit 0'
            [ "$output" = "device/run: cannot make the sandboxed device: $tool was installed or \
changed by an earlier run on this panel; only tools that no run has touched can fail or be missing" ]
        done
    done
}

@test "a tool that may fail is otherwise the real one, to its signals" {
    run device --fail cat=3@9 -- bash -c 'cat /dev/zero | head -c 1 >/dev/null; echo ${PIPESTATUS[0]}
        echo text | cat'

    [ "$output" = $'141\ntext' ]
}

@test "a stand-in whose words cannot be written fails" {
    run device -- sh -c 'kx-setting-cui set A=1; kx-setting-cui list >/dev/full; echo $?
        kx-setting-cui 2>/dev/full; echo $?'

    [ "$output" = $'1\n2' ]
}

@test "settings have a bound, and beyond it nothing is changed" {
    run device -- bash -c 'long=$(printf "%0130000d" 0)
        for n in 1 2 3 4 5 6 7 8; do kx-setting-cui set L$n="$long" || exit 9; done
        kx-setting-cui set M=1 L9="$long"; echo $?; kx-setting-cui set M=2; kx-setting-cui list | cut -c 1-4'

    [ "${lines[0]}" = "kx-setting-cui: no room for more settings" ]
    [ "${lines[1]}" = 1 ]
    [ "${lines[2]}" = L1=0 ]
    [ "${lines[-1]}" = M=2 ]
    [ "${#lines[@]}" -eq 11 ]
}

@test "a shell that is started by its folder's descriptor is traced, too" {
    cat >execveat.py <<'END'
import ctypes, os
libc = ctypes.CDLL(None)
words = (ctypes.c_char_p * 4)(b"sh", b"-c", b"exit 3", None)
if os.fork() == 0:
    libc.execveat(-100, b"/bin/sh", words, (ctypes.c_char_p * 1)(None), 0)
    os._exit(99)
print(os.waitstatus_to_exitcode(os.wait()[1]))
END
    run device --share execveat.py=/e.py --trace trace --trace-shell -- python3 /e.py

    [ "$output" = 3 ]
    [ "$(cat trace)" = $'shell\texit 3' ]
}
