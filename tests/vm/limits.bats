#!/usr/bin/env bats
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
#
# How a virtual machine ends that has to: each test has one of its own.

# shellcheck disable=SC2016 # some is for the machine's shell

load vm.bash

# What takes long begins before all tests, and the last one looks at it.
setup_file() {
    cd "$BATS_FILE_TMPDIR" || return
    {
        "$VM" run --seconds 40 -- sh -c 'echo begun; sleep 1000' >out || echo $?
    } 2>err >&2 3>&- &
    export LATE=$!
}

setup() {
    cd "$BATS_TEST_TMPDIR" || return
}

# children_of PID: the processes below one, with their names.
children_of() {
    ps -o pid=,comm= --ppid "$1"
}

# begin_command: starts a command that does not end; leaves its script in VM_PID and its qemu in
# QEMU_PID.
begin_command() {
    "$VM" run --seconds 100 -- sh -c 'echo begun; sleep 1000' >out 2>err 3>&- &
    VM_PID=$!
    until grep -q begun out; do
        kill -0 "$VM_PID"
        sleep 0.1
    done
    QEMU_PID=$(children_of "$VM_PID" | awk '/qemu/ {print $1}')
    [ -n "$QEMU_PID" ]
}

@test "a signal ends the script and its machine, and nothing is left" {
    mkdir tmp
    TMPDIR=$PWD/tmp begin_command

    kill "$VM_PID"
    wait "$VM_PID" && status=0 || status=$?

    expect_gone "$QEMU_PID"
    [ "$status" -eq 143 ]
    [ "$(cat out)" = begun ]
    [ "$(cat err)" = 'scripts/vm: interrupted by SIGTERM' ]
    [ -z "$(ls -A tmp)" ]
}

@test "the machine ends with its script even when that is killed" {
    TMPDIR=$PWD begin_command

    kill -9 "$VM_PID"

    expect_gone "$QEMU_PID"
}

@test "the time is over even during the start" {
    run "$VM" run --seconds 1 -- true
    expect 124 'scripts/vm: the time of the virtual machine, 1 seconds, is over'
}

@test "a panic of the kernel is told, with the end of the console" {
    run --separate-stderr "$VM" run -- sh -c 'echo begun; echo c >/proc/sysrq-trigger; sleep 100'

    expect 3 begun
    # shellcheck disable=SC2154 # bats sets it
    [ "${stderr%%$'\n'*}" = 'scripts/vm: the kernel of the virtual machine panicked:' ]
    [[ $stderr == *'Kernel panic - not syncing: sysrq triggered crash'* ]]
}

@test "a command has no more memory than the machine, and no processor of this computer's" {
    run --separate-stderr "$VM" run --memory 128 -- sh -c '
        awk "/MemTotal/ {print (\$2 < 128 * 1024)}" /proc/meminfo
        grep -c ^processor /proc/cpuinfo
        # It takes ever more.
        awk "BEGIN { a = \"0123456789abcdef\"; for (;;) a = a a }" 2>/dev/null
        echo $?'

    [ "${lines[*]:0:2}" = '1 1' ] || { echo "$output$stderr" && false; }
    # The kernel ended the command, or there was nobody to end but the first program.
    [ "${lines[2]}" = 137 ] || [[ $stderr == *'panicked'* ]]
}

@test "files that do not fit into the memory are refused, with what they need" {
    truncate -s 100M large
    run "$VM" run --memory 128 --add large:/large -- true
    [ "$status" -eq 3 ]
    local needed='scripts/vm: the files of the virtual machine need --memory 2[0-9][0-9]'
    [[ $output =~ ^$needed$ ]]
}

@test "a machine that cannot be made is an error, and no reason to go on without one" {
    run "$VM" run --add "$PWD/missing" -- true
    expect 3 "scripts/vm: $PWD/missing: there is no such file to add to the virtual machine"

    mkdir bin
    printf '#!/bin/sh\necho "no luck" >&2\nexit 1\n' >bin/qemu-system-x86_64
    chmod +x bin/qemu-system-x86_64
    PATH=$PWD/bin:$PATH run "$VM" run -- echo reached
    expect 3 'scripts/vm: qemu-system-x86_64 ended, or could not be started:
no luck'
}

@test "qemu is never asked to use this computer's processor, network, disks or screen" {
    mkdir bin
    cat >bin/qemu-system-x86_64 <<'END'
#!/bin/sh
printf '%s\n' "$@" >words
ulimit -v >limit
ulimit -c >>limit
END
    chmod +x bin/qemu-system-x86_64
    PATH=$PWD/bin:$PATH run "$VM" run --memory 200 --drive 30 -- true
    [ "$status" -eq 3 ]

    local words
    words=$(paste -sd ' ' words)
    [[ $words == '-accel tcg,tb-size=128 '* ]]
    [[ $words == *' -m 200 -nodefaults -no-user-config -nic none -display none -no-reboot '* ]]
    run -1 grep -e kvm -e netdev -e /dev/ -e virtfs \
        <(grep -v -x 'driver=file,node-name=stick,filename=/dev/fdset/1,locking=off' words)
    diff limit - <<<"$(((200 + 30 + 128 + 2048) * 1024))
0"
}

@test "the machine ends when its time is over, with what the command has written" {
    expect_gone "$LATE"

    cd "$BATS_FILE_TMPDIR"
    [ "$(cat out)" = begun ]
    [ "$(cat err)" = 'scripts/vm: the time of the virtual machine, 40 seconds, is over
124' ]
}
