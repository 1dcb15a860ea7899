#!/usr/bin/env bats
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
#
# The sandboxed device takes no more of the machine than it was given.
#
# Every command here is bounded by itself, too: a limit that was lost must not cost the machine.
#
# Scripts in single quotes are for the shell inside; bats sets stderr.
# shellcheck disable=SC2016,SC2154

load sandbox

# crowd.py COUNT [USER...]: starts processes, told how many there can be beside itself, at most
# COUNT; they belong to the users in turns. All end with standard input, or after half a minute.
crowd() {
    cat >"$PUBLIC/crowd.py" <<'END'
import os, select, sys
users, count = [int(word) for word in sys.argv[2:]], 0
try:
    while count < int(sys.argv[1]):
        if os.fork() == 0:
            if users:
                os.setuid(users[count % len(users)])
            select.select([0], [], [], 30)
            os._exit(0)
        count += 1
except BlockingIOError:
    pass
print(count, flush=True)
select.select([0], [], [], 30)
END
}

# Root's own limit of processes does not bound root, but the unprivileged root of a panel.
bounded() {
    (ulimit -u 400 && "$@")
}

# -- processes -----------------------------------------------------------------------------------

@test "no process beyond the limit can be started" {
    local start limit
    crowd
    for start in device user_device; do
        for limit in 16 64; do
            run "$start" --processes $limit --share "$PUBLIC/crowd.py=/crowd.py" -- \
                python3 /crowd.py 120 </dev/null

            echo "$start, $limit: $output"
            [ "$output" -lt $limit ]
            [ "$output" -ge $((limit - 5)) ]
        done
    done
}

@test "the limit of processes is that of all users of the device together" {
    [ "$(id -u)" -eq 0 ] || skip "only root's panel has other users and control groups everywhere"
    crowd

    run device --processes 32 --share "$PUBLIC/crowd.py=/crowd.py" -- \
        python3 /crowd.py 120 0 1 2 1000 65534 </dev/null

    echo "$output"
    [ "$output" -lt 32 ]
    [ "$output" -ge 27 ]
}

@test "processes of the same user outside neither count nor are concerned" {
    crowd
    mkfifo outside inside
    exec 8<>outside 9<>inside
    as_ordinary_user /usr/bin/python3 "$PUBLIC/crowd.py" 40 <outside >others 3>&- 8>&- 9>&- &
    wait_until grep -qx 40 others

    user_device --processes 16 --share "$PUBLIC/crowd.py=/crowd.py" -- \
        python3 /crowd.py 120 <inside >seen 3>&- 8>&- 9>&- &
    wait_until test -s seen
    run as_ordinary_user sh -c 'for n in 1 2 3 4 5 6 7 8; do sleep 0 & done; wait; echo started'
    echo end >&8
    echo end >&9
    exec 8>&- 9>&-
    wait

    echo "inside: $(cat seen)"
    [ "$(cat seen)" -ge 11 ]
    [ "$output" = started ]
}

@test "a fork bomb is bounded and ends with the device" {
    local start
    for start in device user_device; do
        run bounded "$start" --processes 64 --seconds 2 -- \
            sh -c 'b() { b | b & }; b 2>/dev/null; sleep 41.75'

        [ "$status" -eq 124 ]
        host_lacks_process "sleep 41.75"
    done
    host_is_untouched
}

# -- memory --------------------------------------------------------------------------------------

# Prints MiB, once a command holds that much memory, and waits.
hold() {
    echo "import time; x = bytearray($1 << 20); print($1, flush=True); time.sleep($2)"
}

@test "memory is bounded by the machine's control groups or by the supervisor" {
    local start
    for start in device user_device; do
        run "$start" --memory 128 --seconds 20 -- python3 -c "$(hold 144 10)"
        [ "$status" -eq 137 ]
        [ "${lines[-1]}" = "device/run: the memory limit of 128 MiB was reached" ]

        run "$start" --memory 128 --seconds 20 -- python3 -c "$(hold 96 0.5)"
        [ "$status" -eq 0 ]
        [ "$output" = 96 ]
    done
}

@test "the memory of all processes counts together" {
    local start
    for start in device user_device; do
        run "$start" --memory 128 --seconds 20 -- bash -c \
            'for n in 1 2 3; do (python3 -c "$1" && echo kept) & done; wait' - "$(hold 50 3)"

        # The supervisor ends everything, a control group what asks for more.
        [ "$(grep -cx kept <<<"$output")" -lt 3 ]
        [ "${lines[-1]}" = "device/run: the memory limit of 128 MiB was reached" ]
    done
}

@test "what processes share is not counted for each of them" {
    cat >"$PUBLIC/share.py" <<'END'
import mmap, os, time
memory = mmap.mmap(-1, 40 << 20)  # anonymous and shared
for offset in range(0, len(memory), 4096):
    memory[offset] = 1
children = []
for _ in range(4):
    if (child := os.fork()) == 0:
        sum(memory[::4096])
        time.sleep(0.5)
        os._exit(0)
    children.append(child)
print([os.waitpid(child, 0)[1] for child in children])
END
    local start
    for start in device user_device; do
        run "$start" --memory 128 --share "$PUBLIC/share.py=/share.py" -- python3 /share.py

        [ "$output" = "[0, 0, 0, 0]" ]
    done
}

@test "the control groups have the limits that were asked for, and the command's processes" {
    [ "$(id -u)" -eq 0 ] || skip "only root can make control groups everywhere"
    # Version 1 has the memory in a hierarchy of its own, version 2 all in one.
    local top=/sys/fs/cgroup own
    own=$(sed -n 's/^[0-9]*:memory:/memory/p' /proc/self/cgroup)
    mkdir "$top/$own/kx-test-$$" && rmdir "$top/$own/kx-test-$$" ||
        skip "this machine lets nobody make control groups"

    "$DEVICE_HOME/run" --memory 200 --processes 50 -- sh -c 'sleep 40.5 & sleep 40.25' 3>&- &
    local starter=$! group process
    wait_until host_has_process "sleep 40.5"
    find "$top" -type d -name "kx-device-$starter" >groups
    while read -r group; do
        for limit in memory.limit_in_bytes memory.max pids.max; do
            [ ! -e "$group/$limit" ] || echo "${limit%%.*} $(cat "$group/$limit")"
        done
        while read -r process; do
            tr '\0' ' ' <"/proc/$process/cmdline" | grep -x 'sleep [0-9.]* ' || true
        done <"$group/cgroup.procs"
    done <groups | LC_ALL=C sort -u >seen
    kill "$starter"
    wait "$starter" || true

    [ "$(cat seen)" = $'memory 209715200\npids 50\nsleep 40.25 \nsleep 40.5 ' ]
    [ "$(wc -l <groups)" -le 2 ]
    host_lacks_groups "$starter"
}

# -- files and time ------------------------------------------------------------------------------

@test "the files of a throw-away device are bounded" {
    run device --disk 32 -- sh -c '
        for folder in /tmp /usr/lib /dev/shm /dev; do
            dd if=/dev/zero of=$folder/x bs=1M count=64 2>/dev/null && echo fits in $folder
            rm -f $folder/x
        done
        for folder in /tmp /dev/shm; do
            dd if=/dev/zero of=$folder/x bs=1M count=24 2>/dev/null || echo no room in $folder
            rm -f $folder/x
        done; echo done'

    [ "$output" = "done" ]
}

@test "the time limit ends everything, also what runs in the background" {
    run device --seconds 1 -- sh -c 'setsid sleep 42.25 & sleep 42.25'

    [ "$status" -eq 124 ]
    [ "$output" = "device/run: ended after the time limit of 1 seconds" ]
    host_lacks_process "sleep 42.25"
}

@test "the time limit holds for the start-up script, behind which no command starts then" {
    printf '#!/bin/sh\nexec sleep 42.5\n' >startup.sh
    chmod 755 startup.sh
    device --state state --put startup.sh=/mnt/user/startup.sh -- true

    local begin=$SECONDS
    run device --state state --boot --seconds 1 --trace trace -- /usr/bin/kxsystem/wprotect_off

    [ "$status" -eq 124 ]
    [ $((SECONDS - begin)) -lt 20 ]
    [ ! -s trace ]
    host_lacks_process "sleep 42.5"
}

# -- calls of the supervisor ---------------------------------------------------------------------

@test "commands that keep the supervisor's lines busy are cut off, and others are served again" {
    cat >busy.py <<'END'
import socket, subprocess, time

def line():
    link = socket.socket(socket.AF_UNIX)
    link.settimeout(5)
    link.connect("\0kx-device")
    return link

def call():
    return subprocess.run(["/usr/bin/kxsystem/wprotect_off"], stderr=subprocess.DEVNULL).returncode

def wait_for_answer():
    begin = time.monotonic()
    while call() != 0 and time.monotonic() < begin + 30:
        time.sleep(0.2)
    return time.monotonic() - begin

long = line()
long.sendall((1 << 22).to_bytes(4, "big") + b"x")
longer = line()
longer.sendall(((1 << 22) + 1).to_bytes(4, "big") + b"x")
print("too long:", longer.recv(1))
long.setblocking(False)
try:
    long.recv(1)
except BlockingIOError:
    print("long enough: waits")
long.close()
held = [line() for _ in range(64)]
print("one too many:", line().recv(1), call())
held.pop().close()
print("one less:", wait_for_answer() < 5)
held.append(line())
print("in the end:", 1 < wait_for_answer() < 15, held[0].recv(1))
END
    run device --share busy.py=/busy.py -- python3 /busy.py

    [ "$output" = "too long: b''
long enough: waits
one too many: b'' 126
one less: True
in the end: True b''" ]
}
