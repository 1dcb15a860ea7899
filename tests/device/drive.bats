#!/usr/bin/env bats
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
#
# The USB drive of the sandboxed device: plugged in and pulled out, from outside and from inside.
#
# Scripts in single quotes are for the shell inside; bats sets stderr.
# shellcheck disable=SC2016,SC2154

load sandbox_helper

setup_file() {
    compile_device
    ask_for_device
    make_memory_folder
    make_public_copy
}

teardown_file() {
    rm -rf "$PUBLIC" "${MEMORY:?}"
}

setup() {
    require_device
    mkdir "$MEMORY/$BATS_TEST_NUMBER"
    cd "$MEMORY/$BATS_TEST_NUMBER" || return
    mkdir stick other
    echo one >stick/note
    chmod 640 stick/note
    echo two >other/word
    RUNNING=
}

teardown() {
    if [ -n "$RUNNING" ]; then
        kill "$RUNNING" 2>/dev/null || true
        wait "$RUNNING" || true
    fi
    if [ -e state ]; then
        device --erase --state state
    fi
}

# Moves the drive of the kept state from outside.
drive() {
    "$DEVICE_HOME/drive" "$@" --state state
}

# Keeps a panel running that says, whenever it changes, whether node and files are there.
watch_drive() {
    cat >watch.sh <<'END'
old=
while :; do
    new=
    [ ! -e /dev/sda1 ] || new="node"
    for file in /mnt/usb/*; do
        [ ! -e "$file" ] || new="$new ${file##*/}"
    done
    [ "$new" = "$old" ] || echo "now:$new"
    old=$new
    sleep 0.02
done
END
    "$DEVICE_HOME/run" --state state --share watch.sh=/watch.sh "$@" -- sh /watch.sh >seen 3>&- &
    RUNNING=$!
    wait_until test -S state/control
}

saw() {
    [ "$(tail -n 1 seen)" = "$1" ]
}

@test "a drive given for the start is a mounted copy with a node" {
    run device --usb stick -- sh -c 'cat /mnt/usb/note; stat -c "%U:%G %a" /mnt/usb/note
        test -e /dev/sda1 && echo node; grep -c " /mnt/usb " /proc/mounts
        echo new >/mnt/usb/note; touch /mnt/usb/more'

    [ "$output" = $'one\nroot:root 640\nnode\n1' ]
    [ "$(ls stick)" = note ]
    [ "$(cat stick/note)" = one ]
}

@test "without a drive there is neither node nor mount, but the folder" {
    run device -- sh -c 'ls -d /mnt/usb /dev/sda1; grep -c " /mnt/usb " /proc/mounts' 

    [[ "$output" == *"cannot access '/dev/sda1'"* ]]
    [[ "$output" == *$'/mnt/usb\n0' ]]
}

@test "the files of the drive can be looked at after the run" {
    device --state state --usb stick -- sh -c 'echo new >/mnt/usb/new; rm /mnt/usb/note'

    [ "$(ls state/drive)" = new ]
    [ "$(cat state/drive/new)" = new ]
}

@test "a drive can be plugged in and pulled out while a command runs" {
    watch_drive --trace trace

    drive plug stick
    wait_until saw "now:node note"
    drive pull
    wait_until saw "now:"
    drive plug
    wait_until saw "now:node note"
    drive pull
    drive plug other
    wait_until saw "now:node word"

    [ "$(cat trace)" = $'drive\tplug\ndrive\tpull\ndrive\tplug\ndrive\tpull\ndrive\tplug' ]
    [ "$(ls state/drive)" = word ]
}

@test "a drive plugged in between two runs is there at the next start" {
    device --state state -- true

    drive plug stick
    [ "$(device --state state -- sh -c 'cat /mnt/usb/note; ls /dev/sda1')" = $'one\n/dev/sda1' ]
    drive pull
    run device --state state -- sh -c 'ls /mnt/usb; test -e /dev/sda1'
    [ "$status" -eq 1 ]
    [ "$output" = "" ]
    drive plug
    [ "$(device --state state -- cat /mnt/usb/note)" = one ]
}

@test "a drive stays plugged in between two runs" {
    device --state state --usb stick -- true

    [ "$(device --state state -- cat /mnt/usb/note)" = one ]
}

@test "a drive can be pulled while it is in use" {
    run device --usb stick -- sh -c 'exec 5<>/mnt/usb/note; cd /mnt/usb
        /usr/bin/kxsystem/drive pull || exit 9
        ls -A /mnt/usb; test -e /dev/sda1 || echo no node; cat <&5'

    [ "$output" = $'no node\none' ]
}

@test "unmounting leaves the node, and only what is not busy can be unmounted" {
    run device --usb stick --trace trace -- sh -c 'umount=/usr/bin/kxsystem/usb_umount
        (cd /mnt/usb; $umount); echo $?; cat /mnt/usb/note
        $umount; echo $?; ls -A /mnt/usb; ls /dev/sda1
        $umount; echo $?; $umount now; echo $?'

    [ "$output" = 'usb_umount: /mnt/usb is busy
1
one
0
/dev/sda1
usb_umount: /mnt/usb is not mounted
1
usage: usb_umount
2' ]
    [ "$(cat trace)" = $'drive\tplug\ntool\tusb_umount\ntool\tusb_umount\ndrive\tunmount
tool\tusb_umount\ntool\tusb_umount\tnow' ]
}

@test "an unmounted drive is mounted again by plugging it in or by a reboot" {
    device --state state --usb stick -- /usr/bin/kxsystem/usb_umount

    run device --state state -- sh -c 'ls /mnt/usb /dev/sda1'
    [ "$output" = $'/dev/sda1\n\n/mnt/usb:' ]
    [ "$(device --state state --boot -- ls /mnt/usb)" = note ]
    device --state state -- /usr/bin/kxsystem/usb_umount
    run device --state state -- sh -c '/usr/bin/kxsystem/drive pull; /usr/bin/kxsystem/drive plug
        ls /mnt/usb'
    [ "$output" = note ]
}

@test "the drive comes back from inside with its files as they were" {
    run device --usb stick --trace trace -- sh -c 'echo two >/mnt/usb/two
        for n in $(seq 20); do
            /usr/bin/kxsystem/drive pull && /usr/bin/kxsystem/drive plug || exit 9
        done
        ls /mnt/usb; grep -c " /mnt/usb " /proc/mounts'

    [ "$output" = $'note\ntwo\n1' ]
    [ "$(grep -c '^drive' trace)" -eq 41 ]
}

@test "a drive can be plugged in and pulled out once at a time from inside" {
    run device --usb stick -- sh -c 'tool=/usr/bin/kxsystem/drive
        $tool plug; echo $?; $tool pull; echo $?; $tool pull; echo $?; $tool plug; echo $?
        $tool plug; echo $?; grep -c " /mnt/usb " /proc/mounts'

    [ "$output" = 'drive: a drive is plugged in already; pull it first
1
0
drive: no drive is plugged in
1
0
drive: a drive is plugged in already; pull it first
1
1' ]
}

@test "the drive has the mode of its folder, and its node is nobody else's" {
    chmod 2750 stick
    chmod 711 other
    run device --state state --usb stick -- stat -c '%a %U:%G' /mnt/usb /mnt/usb/note /dev/sda1
    [ "$output" = $'2750 root:root\n640 root:root\n640 root:root' ]

    drive pull
    drive plug other
    run device --state state -- stat -c '%a %U:%G' /mnt/usb /mnt/usb/word /dev/sda1
    [ "$output" = $'711 root:root\n644 root:root\n640 root:root' ]
}

@test "a drive that cannot be copied is not plugged in, and nothing of it comes later" {
    mkfifo stick/pipe
    device --state state -- true

    run drive plug stick
    [ "$status" -eq 1 ]
    [ "$output" = "device: stick/pipe is neither a file, a folder nor a link
device/drive: the files of the panel cannot be changed" ]
    [ "$(device --state state -- sh -c 'ls /dev/sda1 2>/dev/null; ls -A /mnt/usb')" = "" ]
    drive plug other
    [ "$(device --state state -- ls /mnt/usb)" = word ]
}

@test "who moves the drive waits for its turn" {
    device --state state -- true

    exec 8>state/drive.lock
    flock 8
    run -124 timeout 1 "$DEVICE_HOME/drive" plug stick --state state 8>&-
    [ -z "$(ls state/drive)" ]
    exec 8>&-

    drive plug other
    [ "$(ls state/drive)" = word ]
}

@test "the files of a drive that is plugged in meanwhile are no change of the panel" {
    watch_drive --summary=summary
    drive plug stick
    wait_until saw "now:node note"

    kill "$RUNNING"
    wait "$RUNNING" || true

    [ -s summary ]
    run ! grep /mnt/usb summary
}

@test "what cannot be done is refused in one line" {
    run device -- sh -c 'tool=/usr/bin/kxsystem/drive
        $tool pull; echo $?; $tool plug; echo $?; $tool; echo $?; $tool plug /x; echo $?'
    [ "$output" = 'drive: no drive is plugged in
1
drive: there has been no drive yet; name a folder to plug in
1
usage: drive plug|pull
2
usage: drive plug|pull
2' ]

    device --state state -- true
    run drive pull
    [ "$status" -eq 1 ]
    [ "$output" = "device/drive: no drive is plugged in" ]
    run drive plug
    [ "$status" -eq 1 ]
    drive plug stick
    run drive plug other
    [ "$status" -eq 1 ]
    [ "$output" = "device/drive: a drive is plugged in already; pull it first" ]
    watch_drive
    run drive plug other
    [ "$status" -eq 1 ]
    [ "$output" = "device/drive: a drive is plugged in already; pull it first" ]
    [ "$(ls state/drive)" = note ]
}

@test "wrong use of the drive is told in one line" {
    local arguments
    for arguments in "" "plug" "pull" "plug stick" "eject --state state" "pull stick --state state" \
        "plug /nowhere --state state" "plug stick other --state state" "plug --state" "--x"; do
        # shellcheck disable=SC2086
        run "$DEVICE_HOME/drive" $arguments
        echo "drive $arguments: $status $output"
        [ "$status" -eq 2 ]
        [ "${#lines[@]}" -eq 1 ]
        [[ "$output" == "device/drive: "*"; see device/drive --help" ]]
    done
    run "$DEVICE_HOME/drive" pull --state stick
    [ "$status" -eq 1 ]
    [[ "$output" == *"is not the state of a panel"* ]]
    run "$DEVICE_HOME/drive" --help
    [ "$status" -eq 0 ]
}

@test "a mount point that was moved or replaced misleads nobody" {
    run device --usb stick -- sh -c 'tool=/usr/bin/kxsystem/drive
        mv /mnt /old; ln -s /etc /mnt; ls /old/usb; $tool pull; echo $?; ls /old/usb
        $tool plug >/dev/null 2>&1; echo $?; ls -d /etc/usb; grep -c " /etc" /proc/mounts'

    [ "${lines[0]}" = note ]
    [ "${lines[1]}" = 0 ]
    [ "${lines[2]}" = 1 ]
    [[ "${lines[3]}" == *"cannot access '/etc/usb'"* ]]
    [ "${lines[4]}" = 0 ]
}

@test "the drive is a folder of its own: links on it lead nowhere outside" {
    ln -s "$PWD/other/word" stick/link
    ln -s /etc/hostname stick/inside
    device --state state --usb stick -- sh -c 'cat /mnt/usb/inside; test ! -e /mnt/usb/link'

    drive pull
    rm -f state/drive/*
    ln -s "$PWD/other" state/drive/planted
    drive plug stick
    [ "$(cat other/word)" = two ]
    [ ! -L state/drive/planted ]
}

@test "an ordinary user's drive works alike" {
    local state=$PUBLIC/open/state stick=$PUBLIC/open/stick
    cp -R stick "$stick"
    chmod -R a+rX "$stick"
    user_device --state "$state" -- true

    as_ordinary_user "$PUBLIC/device/drive" plug "$stick" --state "$state"
    run user_device --state "$state" --trace "$PUBLIC/open/trace" -- sh -c 'cat /mnt/usb/note
        /usr/bin/kxsystem/drive pull; ls -A /mnt/usb; /usr/bin/kxsystem/drive plug
        /usr/bin/kxsystem/usb_umount; ls /dev/sda1'
    [ "$output" = $'one\n/dev/sda1' ]
    [ "$(grep -c '^drive' "$PUBLIC/open/trace")" -eq 3 ]
    as_ordinary_user "$PUBLIC/device/drive" pull --state "$state"
    user_device --erase --state "$state"
}
