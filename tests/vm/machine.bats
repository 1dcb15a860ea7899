#!/usr/bin/env bats
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
#
# What scripts/vm promises of commands, one machine for all of them: exit status, outputs, what the
# machine has and what it lacks.

# shellcheck disable=SC2016 # much is for the machine's shell

load vm.bash

setup() {
    cd "$BATS_TEST_TMPDIR" || return
}

setup_file() {
    printf 'added\n' >"$BATS_FILE_TMPDIR/a file"
    mkdir "$BATS_FILE_TMPDIR/folder"
    printf '\0\377' >"$BATS_FILE_TMPDIR/folder/bytes"
    start_machine --drive 16 --add "$BATS_FILE_TMPDIR/a file:/root/a file" \
        --add "$BATS_FILE_TMPDIR/folder:/srv/folder" --add /usr/bin/env
}

teardown_file() {
    stop_machine
}

@test "a command's exit status comes through, and that of a signal as a shell tells it" {
    local number
    for number in 0 1 2 3 77 124 255; do
        run vm sh -c "exit $number"
        expect "$number" ''
    done
    run vm sh -c 'kill -9 $$'
    expect 137 ''
    run -127 vm no-such-program
    [[ $output == *'no-such-program: not found'* ]]
}

@test "both outputs come through byte for byte, whatever they look like" {
    local bytes='\0\377\n\r\nended 5\nready\n\033[2J{"return": {}}\n\r\004\003no end of line'
    # shellcheck disable=SC2059 # they are the format
    printf "$bytes" >expected

    vm sh -c "printf '$bytes'; printf 'other$bytes' >&2; exit 6" >out 2>err && status=0 || status=$?

    [ "$status" -eq 6 ]
    cmp out expected
    cmp err <(printf other && cat expected)
}

@test "a large output comes through whole" {
    vm sh -c 'head -c 20000000 /dev/zero | tr "\0" x; echo end' >out

    cmp out <(head -c 20000000 /dev/zero | tr '\0' x && echo end)
}

@test "arguments come through as they are" {
    vm printf '[%s]' '' ' a  b ' "it's" $'two\nlines' '$HOME' '*' '\n' 'ü' -- -x >out

    cmp out <(printf '[%s]' '' ' a  b ' "it's" $'two\nlines' '$HOME' '*' '\n' 'ü' -- -x)
}

@test "a command runs as root, in a folder of root's, without input, and the next one after it" {
    run vm sh -c 'id -u; pwd; cat; echo "$HOME $$"; [ -t 0 ] || [ -t 1 ] || echo no terminal'
    [[ ${lines[*]} =~ ^'0 /root /root '[0-9]+' no terminal'$ ]]

    vm sh -c 'echo kept >/tmp/kept'
    run vm cat /tmp/kept
    expect 0 kept
}

@test "what was added is there, with the libraries of its programs" {
    run vm sh -c 'cat "/root/a file"; od -An -tx1 /srv/folder/bytes; env -i A=b /usr/bin/env'
    expect 0 'added
 00 ff
A=b'
}

@test "the kernel is the machine's own, and none of this computer's folders is in it" {
    [ "$(vm uname -r)" != "$(uname -r)" ]
    run vm sh -c 'grep -vE " (rootfs|devtmpfs|proc|sysfs|tmpfs) " /proc/mounts; ls /home /work 2>&1'
    expect 1 'ls: /home: No such file or directory
ls: /work: No such file or directory'
}

@test "there is no network and no disk" {
    run vm sh -c 'ls /sys/class/net; ls /sys/block; grep -c : /proc/net/dev'
    expect 0 'lo
1'
}

@test "a drive is there from when it is plugged in until it is pulled out, with what it holds" {
    vm_sh <<'END'
drive=$(drive plug)
[ "$drive" = /dev/sda ]
[ "$(cat /sys/block/sda/size)" -eq 32768 ]
[ "$(cat /sys/block/sda/removable)" = 1 ]
readlink -f /sys/block/sda | grep -q /usb
printf 'on the drive' | dd of=/dev/sda conv=fsync 2>/dev/null
drive pull
[ ! -e /dev/sda ]
drive plug
[ "$(head -c 12 /dev/sda)" = 'on the drive' ]
END
    run vm drive plug
    expect 1 'drive: it is plugged in already'
    run vm drive pull
    expect 0 ''
    run vm drive pull
    expect 1 'drive: it is not plugged in'
    run vm drive push
    expect 1 'drive: drive plug and drive pull are what there is'
}

# The last one: it ends the machine of all.
@test "a command that nobody waits for any more ends the machine" {
    "$VM" exec "$SOCKET" -- sh -c 'echo begun; sleep 1000' >out 3>&- &
    local caller=$!
    until grep -q begun out; do sleep 0.1; done

    kill -9 "$caller"
    wait "$caller" || true

    expect_gone "$KEEPER"
    [ "$(cat "$SOCKET.log")" = 'scripts/vm: nobody waits for the command any more' ]
    [ ! -e "$SOCKET" ]
    run vm true
    expect 3 "scripts/vm: there is no virtual machine behind $SOCKET: [Errno 2] No such file or \
directory"
}
