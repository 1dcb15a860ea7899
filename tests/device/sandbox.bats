#!/usr/bin/env bats
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
#
# The sandboxed device keeps what runs in it away from the machine, and does what it was asked.
#
# Scripts in single quotes are for the shell inside; bats sets stderr.
# shellcheck disable=SC2016,SC2154

load sandbox_helper

setup_file() {
    make_public_copy
    sleep 300 3>&- &
    SENTINEL=$!
    export SENTINEL
}

teardown_file() {
    kill "$SENTINEL" || true
    rm -rf "$PUBLIC"
}

setup() {
    require_device
    cd "$BATS_TEST_TMPDIR" || return
    mkdir tree
    echo secret >tree/secret
    chmod 600 tree/secret
    BEFORE=$(host_facts)
    HELPERS=()
}

teardown() {
    local helper
    for helper in "${HELPERS[@]}"; do
        kill "$helper" 2>/dev/null || true
    done
    if [ -e state ]; then
        device --erase --state state
    fi
}

# Everything that no command on the device may change.
host_facts() {
    sha256sum /etc/passwd /etc/group tree/secret
    stat -c '%n %a %u %g %Y' /etc/passwd /etc/shadow /dev/null /usr/bin/env tree tree/secret /
    cat /proc/sys/kernel/hostname /proc/sys/kernel/core_pattern /proc/sys/vm/swappiness
    hostname
    if [ -r /etc/shadow ]; then
        sha256sum /etc/shadow
    fi
}

host_is_untouched() {
    diff <(echo "$BEFORE") <(host_facts)
    kill -0 "$SENTINEL"
}

# -- hostile commands ----------------------------------------------------------------------------

@test "killing everything ends only what runs on the device" {
    run device -- bash -c "kill -9 $SENTINEL; sleep 47.25 & kill -9 -1; echo still here"

    [[ "$output" == *"still here" ]]
    host_lacks_process "sleep 47.25"
    host_is_untouched
}

@test "removing everything removes only the device's own files" {
    run device --share tree=/mnt/user/tree -- rm -rf --no-preserve-root /

    [ "$status" -ne 0 ]
    [ "$(cat tree/secret)" = secret ]
    host_is_untouched
}

@test "an ordinary user's device that is removed leaves the host alone as well" {
    run user_device -- sh -c 'rm -rf /dev /etc /home /mnt /opt /proc /root /run /tmp /usr/bin /var'

    [ "$status" -ne 0 ]
    host_is_untouched
}

@test "kernel settings cannot be written" {
    run device -- sh -c '
        for name in kernel/hostname kernel/core_pattern kernel/sysrq vm/swappiness vm/drop_caches \
            user/max_user_namespaces net/ipv4/ip_forward; do
            if echo 1 >/proc/sys/$name; then echo "wrote $name"; fi
        done 2>/dev/null
        if echo h >/proc/sysrq-trigger; then echo "wrote sysrq"; fi 2>/dev/null
        echo done'

    [ "$output" = "done" ]
    host_is_untouched
}

@test "mounts, device nodes, namespaces, another root and another name are refused" {
    run --separate-stderr device -- sh -c '
        mount -t tmpfs tmpfs /opt && echo mounted
        mount --bind /etc /opt && echo bound
        mount -o remount,rw /proc/sys && echo remounted
        umount -l /proc && echo unmounted
        mknod /tmp/disk b 8 0 && echo made a node
        mknod /tmp/memory c 1 1 && echo made a node
        unshare -U true && echo new users
        unshare -m true && echo new mounts
        chroot / true && echo new root
        hostname other && echo new name
        date -s 2001-01-01 && echo new date
        nsenter -t 1 -m true && echo entered
        echo done'

    [ "${lines[-1]}" = "done" ]
    [[ "$output" != *mounted* && "$output" != *bound* && "$output" != *"made a node"* ]]
    [[ "$output" != *new* && "$output" != *entered* ]]
    host_is_untouched
}

@test "a chroot escape finds no way out" {
    cat >escape.py <<'END'
import ctypes, os
libc = ctypes.CDLL(None, use_errno=True)
os.makedirs("/tmp/jail", exist_ok=True)
folder = os.open("/", os.O_RDONLY)
try:
    os.chroot("/tmp/jail")
    print("changed the root")
except PermissionError:
    pass
os.fchdir(folder)
for _ in range(50):
    os.chdir("..")
print(os.path.exists(".kx-device"))
print(libc.open_by_handle_at(folder, b"\0" * 64, 0) == -1, libc.setns(folder, 0) == -1)
END
    run device --share escape.py=/escape.py -- python3 /escape.py

    [ "$output" = $'True\nTrue True' ]
    host_is_untouched
}

@test "sockets of the host cannot be reached" {
    cat >listen.py <<'END'
import socket, sys, time
tcp = socket.socket()
tcp.bind(("127.0.0.1", 0))
tcp.listen()
unix = socket.socket(socket.AF_UNIX)
unix.bind("\0" + sys.argv[1])
unix.listen()
print(tcp.getsockname()[1], flush=True)
time.sleep(60)
END
    cat >connect.py <<'END'
import socket, sys
for family, address in ((socket.AF_INET, ("127.0.0.1", int(sys.argv[1]))),
                        (socket.AF_UNIX, "\0" + sys.argv[2])):
    try:
        socket.socket(family).connect(address)
        print("connected")
    except OSError:
        print("refused")
END
    /usr/bin/python3 listen.py "kx-test-$$" >port 3>&- &
    HELPERS+=($!)
    wait_until test -s port

    run /usr/bin/python3 connect.py "$(cat port)" "kx-test-$$"
    [ "$output" = $'connected\nconnected' ]

    run device --share connect.py=/connect.py -- python3 /connect.py "$(cat port)" "kx-test-$$"
    [ "$output" = $'refused\nrefused' ]
}

@test "processes of the host can be neither seen nor traced" {
    run device -- sh -c "kill -0 $SENTINEL || echo no signal
        test -e /proc/$SENTINEL || echo no entry
        gdb --version >/dev/null 2>&1
        ls /proc | grep -c '^[0-9]'"

    [[ "$output" == *"no signal"*"no entry"* ]]
    [ "${lines[-1]}" -lt 8 ]
    host_is_untouched
}

@test "the supervisor cannot be killed, traced or read from inside" {
    run device -- sh -c '
        kill -9 1; kill -INT 1; kill -TERM 1; kill -HUP 1; kill -USR1 1; kill -CHLD 1; kill -ALRM 1
        cat /proc/1/environ 2>/dev/null; cat /proc/1/mem 2>/dev/null; ls /proc/1/fd 2>/dev/null
        ls /proc/1/root/ 2>/dev/null
        /usr/bin/kxsystem/wprotect_off && echo alive'

    [ "$output" = alive ]
}

@test "files of the host are not there" {
    run --separate-stderr device -- sh -c "cat '$BATS_TEST_TMPDIR/tree/secret' '$DEVICE_HOME/run' /etc/fstab.host
        ls /sys /boot /srv; ls -A /root /run /opt /mnt/user /tmp; ls /home"

    [ "$output" = $'/mnt/user:\n\n/opt:\n\n/root:\n\n/run:\n\n/tmp:\nuser' ]
}

@test "only harmless device nodes exist" {
    run device -- sh -c 'find /dev ! -type d ! -type l | sort; ls -A /dev/shm'

    [ "$output" = $'/dev/full\n/dev/null\n/dev/random\n/dev/urandom\n/dev/zero' ]
}

@test "the mode of the host's null device stays as it is" {
    run device -- chmod 000 /dev/null

    [ "$status" -ne 0 ]
    host_is_untouched
}

@test "a fork bomb is bounded and ends with the device" {
    cat >bomb.py <<'END'
import os, time
count = 0
try:
    while count < 1000:
        if os.fork() == 0:
            time.sleep(41.5)
            os._exit(0)
        count += 1
except BlockingIOError:
    print(count < 64, flush=True)
END
    run device --processes 64 --share bomb.py=/bomb.py -- python3 /bomb.py
    [ "$output" = True ]

    run user_device --processes 64 --seconds 2 -- sh -c 'b() { b | b & }; b; sleep 41.75'
    [ "$status" -ne 0 ]
    host_lacks_process "sleep 41.75"
    host_is_untouched
}

@test "memory is bounded by the machine's control groups or by the supervisor" {
    local hog='x = bytearray(1 << 30); import time; time.sleep(20)'

    run device --memory 128 --seconds 20 -- python3 -c "$hog"
    [ "$status" -eq 137 ]
    [[ "$output" == *"the memory limit of 128 MiB was reached"* ]]

    run user_device --memory 128 --seconds 20 -- python3 -c "$hog"
    [ "$status" -eq 137 ]
    [[ "$output" == *"the memory limit of 128 MiB was reached"* ]]
}

@test "the files of a throw-away device are bounded" {
    run device --disk 32 -- sh -c '
        for folder in /tmp /usr/lib /dev/shm /dev; do
            dd if=/dev/zero of=$folder/x bs=1M count=64 2>/dev/null && echo fits in $folder
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

@test "what the command leaves in the background ends with it" {
    run device -- sh -c 'setsid sleep 43.25 >/dev/null 2>&1 &'

    [ "$status" -eq 0 ]
    host_lacks_process "sleep 43.25"
}

# -- rights and namespaces -----------------------------------------------------------------------

@test "the command has few rights and can get no more" {
    run device -- grep -E '^(Cap|NoNewPrivs)' /proc/self/status

    [ "${lines[0]}" = $'CapInh:\t0000000000000000' ]
    [ "${lines[1]}" = $'CapPrm:\t00000000000000fb' ]
    [ "${lines[2]}" = $'CapEff:\t00000000000000fb' ]
    [ "${lines[3]}" = $'CapBnd:\t00000000000000fb' ]
    [ "${lines[4]}" = $'CapAmb:\t0000000000000000' ]
    [ "${lines[5]}" = $'NoNewPrivs:\t1' ]
}

@test "root inside is never root of the host" {
    run device -- sh -c 'id -u; cat /proc/self/uid_map'
    [ "${lines[0]}" -eq 0 ]
    read -r inside outside _ <<<"${lines[1]}"
    [ "$inside" -eq 0 ]
    [ "$outside" -ne 0 ]

    run user_device -- sh -c 'id -u; cat /proc/self/uid_map'
    read -r inside outside _ <<<"${lines[1]}"
    [ "$inside" -eq 0 ]
    [ "$outside" -ne 0 ]
}

@test "every namespace is the device's own" {
    local kind kinds="user mnt pid net ipc uts cgroup"
    run device -- sh -c "for kind in $kinds; do readlink /proc/self/ns/\$kind; done; hostname"

    [ "${#lines[@]}" -eq 8 ]
    for kind in $kinds; do
        [[ "$output" == *"$kind:"* ]]
        [[ "$output" != *"$(readlink "/proc/self/ns/$kind")"* ]]
    done
    [ "${lines[7]}" = panel ]
}

@test "descriptors, signals, limits and environment of the caller stay outside" {
    exec 7<tree/secret
    run env SECRET=1 LANG=C.UTF-8 TERM=dumb LC_ALL=C "$DEVICE_HOME/run" -- sh -c \
        'ls /proc/self/fd | tr "\n" " "; echo; env | sort; ulimit -c; umask; pwd
         grep -E "^Sig(Blk|Ign)" /proc/self/status'
    exec 7<&-

    [ "${lines[0]}" = "0 1 2 3 " ]
    [ "${lines[1]}" = HOME=/root ]
    [ "${lines[2]}" = LANG=C.UTF-8 ]
    [ "${lines[3]}" = LC_ALL=C ]
    [ "${lines[4]}" = PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin ]
    [ "${lines[5]}" = PWD=/ ]
    [ "${lines[6]}" = TERM=dumb ]
    [ "${lines[7]}" = 0 ]
    [ "${lines[8]}" = 0022 ]
    [ "${lines[9]}" = / ]
    [ "${lines[10]}" = $'SigBlk:\t0000000000000000' ]
    [ "${lines[11]}" = $'SigIgn:\t0000000000000000' ]
}

@test "the signal of ended children can be ignored from the start" {
    run device --ignore-sigchld -- grep '^SigIgn' /proc/self/status

    [ "$output" = $'SigIgn:\t0000000000010000' ]
}

@test "a variable can be given and the working directory chosen" {
    run device --env A='b c=d' --env HOME=/home/user --chdir /var/lib -- \
        sh -c 'echo "$A $HOME"; pwd'

    [ "$output" = $'b c=d /home/user\n/var/lib' ]
}

@test "where namespaces are forbidden nothing runs and one line says so" {
    cat >forbidden.sh <<'END'
set -eu
echo 0 >/proc/sys/user/max_user_namespaces
exec "$1" -- touch "$2"
END
    run as_ordinary_user unshare --user --map-root-user \
        sh "$(readable forbidden.sh)" "$PUBLIC/device/run" "$PUBLIC/ran"

    [ "$status" -eq 125 ]
    [ "${#lines[@]}" -eq 1 ]
    [[ "$output" == "device/run: cannot make the sandboxed device: "* ]]
    [ ! -e "$PUBLIC/ran" ]
}

# Copies a file to where every user can read it; prints its name there.
readable() {
    cp "$1" "$PUBLIC/$1"
    chmod 644 "$PUBLIC/$1"
    echo "$PUBLIC/$1"
}

@test "a device cannot be made on a device" {
    run device --share "$DEVICE_HOME=/kx" -- \
        sh -c '/kx/run -- touch /tmp/ran; echo $?; ls /tmp'

    [ "${#lines[@]}" -eq 2 ]
    [[ "${lines[0]}" == "device/run: cannot make the sandboxed device: "* ]]
    [ "${lines[1]}" -eq 125 ]
}

@test "a place that cannot be made ends with one line before anything runs" {
    run device --full /bin/sh/sub --share tree=/mnt/user -- sh -c 'echo ran'

    [ "$status" -eq 125 ]
    [ "${#lines[@]}" -eq 1 ]
    [[ "$output" == "device/run: cannot make the sandboxed device: /bin/sh/sub "* ]]
}

# -- its own end ---------------------------------------------------------------------------------

@test "everything ends when the device is killed" {
    "$DEVICE_HOME/run" -- sleep 44.25 3>&- &
    local starter=$!
    wait_until host_has_process "sleep 44.25"

    kill -9 "$starter"

    wait_until host_lacks_process "sleep 44.25"
    wait_until host_lacks_groups "$starter"
}

@test "an ordinary user's device ends when it is killed" {
    as_ordinary_user sh -c 'echo $$ >"$1/pid"; exec "$2" -- sleep 45.25' sh \
        "$PUBLIC/open" "$PUBLIC/device/run" 3>&- &
    wait_until host_has_process "sleep 45.25"

    kill -9 "$(cat "$PUBLIC/open/pid")"

    wait_until host_lacks_process "sleep 45.25"
}

@test "a request to end is obeyed and leaves nothing behind" {
    "$DEVICE_HOME/run" -- sh -c 'trap "" TERM; sleep 46.25' 3>&- &
    local starter=$!
    wait_until host_has_process "sleep 46.25"

    kill -TERM "$starter"
    local status=0
    wait "$starter" || status=$?

    [ "$status" -eq 143 ]
    host_lacks_process "sleep 46.25"
    host_lacks_groups "$starter"
    run ! grep -q kx-device /proc/self/mountinfo
}

@test "the exit status is the command's own" {
    run device -- sh -c 'exit 7'
    [ "$status" -eq 7 ]
    run device -- sh -c 'kill -15 $$'
    [ "$status" -eq 143 ]
    run -127 device -- /nowhere/tool
    [ "$output" = "device/run: /nowhere/tool: not found on the panel" ]
    run -127 device -- no-such-tool
    run device -- /etc/passwd
    [ "$status" -eq 126 ]
    run device -- true
    [ "$status" -eq 0 ]
    [ "$output" = "" ]
}

@test "wrong use is told in one line" {
    local arguments
    for arguments in "" "--" "--nonsense true" "--state" "--memory x true" "--fail a true" \
        "--fail a=1@0 true" "--full tmp true" "--share tree true" "--share /nowhere=/x true" \
        "--share tree=/proc/x true" "--env 1=2 true" "--erase true" "--trace-shell true" \
        "--usb /nowhere true" "--chdir x true" "--missing a/b true" "--seconds 0 true" \
        "--fail-shell sync true" "--fail-shell 0=sync true" "--fail-shell 1= true"; do
        # shellcheck disable=SC2086
        run device $arguments
        echo "device $arguments: $status $output"
        [ "$status" -eq 2 ]
        [ "${#lines[@]}" -eq 1 ]
        [[ "$output" == "device/run: "*"; see device/run --help" ]]
    done
}

@test "the help shows every option with examples" {
    run device --help

    [ "$status" -eq 0 ]
    [[ "$output" == *--ignore-sigchld*--read-only*--summary-json*Examples* ]]
}

@test "standard streams reach the command as they are" {
    [ "$(echo in | device -- cat)" = in ]
    [ "$(device -- sh -c 'echo err >&2; echo out' 2>/dev/null)" = out ]

    [ "$(device -- sh -c 'test -e /proc/$$/fd/0 || echo closed' <&-)" = closed ]
    status=0
    device -- sh -c 'echo x 2>/dev/null || exit 3' >/dev/full || status=$?
    [ "$status" -eq 3 ]
    status=0
    device -- sh -c 'echo x 2>/dev/null || exit 3' >&- || status=$?
    [ "$status" -eq 3 ]
}

@test "a folder as standard input is no way out" {
    run device -- python3 -c 'import os; print(os.listdir(0))' <tree

    [ "$status" -ne 0 ]
    [[ "$output" != *"['secret']"* ]]
}

# -- the panel's files ---------------------------------------------------------------------------

@test "a throw-away device forgets everything" {
    device -- sh -c 'echo 1 >/var/lib/kept; echo 1 >/usr/bin/kept'

    run device -- ls /var/lib/kept /usr/bin/kept
    [ "$status" -ne 0 ]
}

@test "a kept state holds the files and the settings of the run before" {
    device --state state -- sh -c 'echo 1 >/var/lib/kept; rm /usr/bin/wc; echo 2 >/usr/local/kept
        echo 3 >/tmp/kept; kx-setting-cui set A=1'

    run device --state state -- sh -c 'cat /var/lib/kept /usr/local/kept /tmp/kept
        test -e /usr/bin/wc || echo gone; kx-setting-cui list'
    [ "$output" = $'1\n2\n3\ngone\nA=1' ]
}

@test "a kept state can be erased, and only such a folder" {
    device --state state -- sh -c 'mkdir -m 0 /opt/closed; chown 1000:1000 /home 2>/dev/null; true'

    device --erase --state state
    [ ! -e state ]
    run device --erase --state tree
    [ "$status" -eq 125 ]
    [ "$(cat tree/secret)" = secret ]
    run device --state tree -- true
    [ "$status" -eq 125 ]
}

@test "an ordinary user keeps and erases a state of his own" {
    user_device --state "$PUBLIC/open/state" -- \
        sh -c 'echo 1 >/opt/kept; rm /usr/bin/wc; mkdir -m 0 /opt/closed; echo 2 >/usr/bin/kept'

    run user_device --state "$PUBLIC/open/state" -- \
        sh -c 'cat /opt/kept /usr/bin/kept; test -e /usr/bin/wc || echo gone'
    [ "$output" = $'1\n2\ngone' ]
    run user_device --erase --state "$PUBLIC/open/state"
    [ "$status" -eq 0 ]
    [ ! -e "$PUBLIC/open/state" ]
}

@test "two runs on one state at once are refused" {
    "$DEVICE_HOME/run" --state state -- sleep 30 3>&- &
    local starter=$!
    wait_until test -S state/control

    run device --state state -- true
    [ "$status" -eq 125 ]
    [[ "$output" == *"another panel is running in "*/state* ]]
    run device --erase --state state
    [ "$status" -eq 125 ]

    kill "$starter"
    wait "$starter" || true
    device --state state -- true
}

@test "links planted on a kept state lead nowhere but into the device" {
    mkdir outside
    device --state state -- sh -c "mv /etc /etc.old; ln -s '$PWD/outside' /etc
        rm -rf /mnt /opt; ln -s '$PWD/outside' /mnt; ln -s /../../../../.. /opt"

    run device --state state --put tree=/opt/tree --full /mnt/full -- ls /tree/secret
    [ -z "$(ls -A outside)" ]
    [ ! -e /tree ]
    host_is_untouched
}

@test "a reboot empties /tmp and /run and runs the start-up script" {
    device --state state -- sh -c 'touch /tmp/a /run/b /var/tmp/c
        printf "#!/bin/sh\ntouch /run/started; echo starting\n" >/mnt/user/startup.sh'
    run device --state state --boot -- ls /tmp /run /var/tmp
    [ "$output" = $'/run:\n\n/tmp:\n\n/var/tmp:\nc' ]

    device --state state -- chmod +x /mnt/user/startup.sh
    run --separate-stderr device --state state --boot -- ls /run
    [ "$output" = started ]
    [ "$stderr" = starting ]
}

@test "a package may write where the device keeps its programs" {
    for start in device user_device; do
        run "$start" -- sh -c 'set -e
            for folder in /usr/local/bin /usr/bin /usr/lib /usr/sbin /usr/share /usr/local/lib /lib; do
                cp /bin/true $folder/x.new
                mkdir -p $folder/d.new
            done
            cp -f /bin/false /usr/bin/true
            /usr/bin/true || echo replaced
            rm /usr/bin/wc
            wc </dev/null 2>/dev/null || echo gone'
        [ "$output" = $'replaced\ngone' ]
    done
}

@test "owners can be given away on the device" {
    run device -- sh -c 'touch /tmp/f; chown user:users /tmp/f; stat -c %U:%G /tmp/f
        su user -c id'

    if [ "$(id -u)" -eq 0 ] || grep -qs "^$(id -un):" /etc/subuid; then
        [ "${lines[0]}" = user:users ]
        [[ "${lines[1]}" == "uid=1000(user) gid=1000(user)"* ]]
    else
        # Without id ranges there is only root.
        [[ "${lines[0]}" == "chown: "* ]]
        [ "${lines[1]}" = root:root ]
    fi
}

@test "an ordinary user's panel has the id ranges that belong to the user" {
    cat >ranges.sh <<'END'
set -eu
run=$1
shift
"$@" "$run" --state "$OPEN/ranges" -- sh -c 'cat /proc/self/uid_map
    touch /home/user/f; chown -R user /home/user; chmod 700 /home/user; stat -c %U:%G /home/user/f
    echo user:x | chpasswd; stat -c %G /etc/shadow'
"$@" "$run" --erase --state "$OPEN/ranges"
test ! -e "$OPEN/ranges"
END
    local name
    name=$(as_ordinary_user id -un)
    if [ "$(id -u)" -eq 0 ]; then
        # Ranges for a moment: only this command and its children see the other files.
        echo "$name:200000:65536" >sub
        chmod 644 sub
        run env OPEN="$PUBLIC/open" unshare --mount sh -c 'mount --bind sub /etc/subuid &&
            mount --bind sub /etc/subgid && exec sh ranges.sh "$@"' sh \
            "$PUBLIC/device/run" setpriv --reuid=65534 --regid=65534 --clear-groups
    elif grep -qs "^$name:" /etc/subuid; then
        run env OPEN="$PUBLIC/open" sh ranges.sh "$PUBLIC/device/run" env
    else
        # A user without ranges gets no more than the one id.
        run device -- cat /proc/self/uid_map
        [ "${#lines[@]}" -eq 1 ]
        return
    fi

    [ "$status" -eq 0 ]
    read -r inside outside count <<<"${lines[1]}"
    [ "$inside" -eq 1 ]
    [ "$outside" -ne 0 ]
    [ "$count" -gt 1000 ]
    [ "${lines[2]}" = user:root ]
    [ "${lines[3]}" = shadow ]
}

@test "a changed password changes the device's users only" {
    local start
    for start in device user_device; do
        run "$start" -- sh -c 'cp /etc/shadow /tmp/old
            echo "user:new word" | chpasswd && ! cmp -s /tmp/old /etc/shadow && echo changed
            grep -c . /etc/shadow; echo "nobody-here:x" | chpasswd 2>/dev/null || echo refused'
        [ "$output" = $'changed\n5\nrefused' ]
    done
    host_is_untouched
}

@test "a shared folder is readable and cannot be changed" {
    chmod 700 tree
    mkdir -m 700 closed
    mv tree closed/tree
    run --separate-stderr device --share closed/tree=/mnt/user/tree --share closed/tree/secret=/etc/one -- sh -c '
        cat /mnt/user/tree/secret /etc/one
        echo x >>/mnt/user/tree/secret; touch /mnt/user/tree/new; rm -f /mnt/user/tree/secret
        chmod 777 /mnt/user/tree; echo x >/etc/one; true'
    mv closed/tree tree
    chmod 755 tree

    [ "${lines[0]}" = secret ]
    [ "${lines[1]}" = secret ]
    [ "$(ls -A tree)" = secret ]
    [ "$(cat tree/secret)" = secret ]
}

@test "put files belong to the device and keep their modes" {
    mkdir -m 700 closed
    mv tree closed/
    printf '#!/bin/sh\necho hello "$@"\n' >closed/tool
    chmod 750 closed/tool
    ln -s secret closed/tree/link
    run device --put closed/tree=/mnt/user/tree --put closed/tool=/usr/bin/hello \
        --put closed/tool=/opt/ -- sh -c 'hello you; stat -c "%U:%G %a %n" /usr/bin/hello /opt/tool
        cd /mnt/user/tree; stat -c "%U:%G %a %n" . secret; readlink link; cat link; echo x >secret'
    mv closed/tree tree

    [ "$output" = 'hello you
root:root 750 /usr/bin/hello
root:root 750 /opt/tool
root:root 755 .
root:root 600 secret
secret
secret' ]
    [ "$(cat tree/secret)" = secret ]
}

# -- trouble made to order -----------------------------------------------------------------------

@test "a tool can fail always or at one call, by every name it has" {
    run device --fail cp=3@2 --fail chmod=4 -- sh -c '
        cp /etc/passwd /tmp/1; echo $?; /bin/cp /etc/passwd /tmp/2; echo $?
        cp /etc/passwd /tmp/3; echo $?; /usr/bin/chmod 700 /tmp; echo $?; ls /tmp'

    [ "$output" = $'0\n3\n0\n4\n1\n3' ]
}

@test "stand-ins, linked tools and the shell itself can fail too" {
    run device --fail usb_umount=5 --fail reboot=6 --fail awk=7 --fail sh=8@2 -- bash -c '
        /usr/bin/kxsystem/usb_umount; echo $?; /sbin/reboot; echo $?; awk 1 </dev/null; echo $?
        sh -c "echo one"; sh -c "echo two"; echo $?; /bin/sh -c "echo three"'

    [ "$output" = $'5\n6\n7\none\n8\nthree' ]
}

@test "a tool can be missing" {
    run --separate-stderr device --missing cp --missing usb_umount --missing awk -- bash -c '
        cp; echo $?; /usr/bin/kxsystem/usb_umount; echo $?; ls /usr/bin/awk; awk; echo $?; mawk -W version >/dev/null 2>&1; true'

    [[ "$output" == *127*127*127* ]]
    run device --missing no-such-tool -- true
    [ "$status" -eq 125 ]
}

@test "a command's own shell can be kept from starting, whatever its scripts call" {
    cat >calls.py <<'END'
import os
for command in ("echo one", "sh -c 'echo one'", "exec sh -c 'echo one'", "echo one", "echo one",
                "a=b; echo $a"):
    print(os.system(command), flush=True)
END
    run device --share calls.py=/c.py --trace trace --fail-shell '2=echo one' \
        --fail-shell '1=a=b; echo $a' -- python3 /c.py

    [ "$output" = $'one\n0\none\n0\none\n0\n32512\none\n0\n32512' ]
    [ "$(cat trace)" = $'refused\techo one\nrefused\ta=b; echo $a' ]
}

@test "a refused shell is traced as well, and the start-up script is not concerned" {
    device --state state -- sh -c 'printf "#!/bin/sh\nsh -c true; echo \$?\n" >/mnt/user/startup.sh
        chmod 755 /mnt/user/startup.sh'

    run device --state state --boot --trace trace --trace-shell --fail-shell 1=true -- \
        python3 -c 'import os; print(os.system("true"))'

    [ "$output" = $'0\n32512' ]
    [ "$(cat trace)" = $'shell\ttrue\nshell\ttrue\nrefused\ttrue' ]
}

@test "trouble of one run is not kept" {
    device --state state --missing cp --fail chmod=3 --full /mnt/user --read-only /opt -- true

    run device --state state -- sh -c 'cp /etc/passwd /mnt/user/ && chmod 600 /mnt/user/passwd &&
        touch /opt/x && echo fine'
    [ "$output" = fine ]
}

@test "a full place takes no more bytes, not even after removing files" {
    run device --full /mnt/user -- bash -c '
        rm -rf /mnt/user/* /mnt/user/.[!.]*
        echo x >/mnt/user/a || echo failed
        cp /etc/passwd /mnt/user/b || echo failed'

    [ "$(grep -c '^failed$' <<<"$output")" -eq 2 ]
    [[ "$output" == *"No space left on device"* ]]
}

@test "a read-only place cannot be changed" {
    run device --read-only /var/lib --read-only /etc/passwd -- bash -c '
        touch /var/lib/x || echo failed; echo x >>/etc/passwd || echo failed
        rm -rf /var/lib || echo failed; touch /etc/x && echo fine'

    [ "$(grep -c '^failed$' <<<"$output")" -eq 3 ]
    [ "${lines[-1]}" = fine ]
}

# -- stand-ins -----------------------------------------------------------------------------------

@test "settings are kept, listed in order and checked" {
    run device -- bash -c 'kx-setting-cui set B=2 A=1 "C=x y=z" F=; kx-setting-cui set B=3
        kx-setting-cui list; kx-setting-cui; echo $?; kx-setting-cui set; echo $?
        kx-setting-cui set E=1 novalue; echo $?; kx-setting-cui set =1; echo $?
        kx-setting-cui list | grep -c E'

    [[ "$output" == *$'A=1\nB=3\nC=x y=z\nF=\n'* ]]
    [ "$(grep -c '^2$' <<<"$output")" -eq 4 ]
    [[ "$output" == *"usage: kx-setting-cui set NAME=VALUE... | list"* ]]
    [ "${lines[-1]}" = 0 ]
}

@test "stand-ins refuse to act on anything but the device" {
    run device -- sh -c 'rm /.kx-device
        for tool in /usr/bin/kxsystem/usb_umount /usr/bin/kxsystem/wprotect_off \
            /usr/bin/kx-setting-cui /sbin/reboot /usr/bin/kxsystem/drive; do
            $tool list; echo $?
        done'
    [ "${#lines[@]}" -eq 10 ]
    [ "$(grep -c '^126$' <<<"$output")" -eq 5 ]

    run "$DEVICE_HOME/bin/stand-in"
    [ "$status" -eq 126 ]
    [ "$output" = "stand-in: this is not the sandboxed device (/.kx-device is missing)" ]
}

@test "a reboot is only noted" {
    run device --state state --trace trace -- sh -c '/sbin/reboot -f; echo still here'

    [ "$output" = "still here" ]
    [ "$(cat trace)" = $'tool\treboot\t-f' ]
    [ -e state/panel/reboot ]
}

# -- reports -------------------------------------------------------------------------------------

@test "the trace holds every byte of every argument" {
    device --trace trace -- bash -c \
        $'kx-setting-cui set $\'A=\\\\ \\t \\n \\x01\\xff\\r\' B=; /usr/bin/kxsystem/wprotect_off'

    printf 'tool\tkx-setting-cui\tset\tA=\\\\ \\t \\n \001\377\r\tB=\ntool\twprotect_off\n' >expected
    cmp expected trace
}

@test "the trace of the shell holds each command string that is handed to it" {
    cat >calls.py <<'END'
import os, subprocess
os.system("true")
os.system("echo 'a\tb\\c\nd' >/dev/null; exit 3")
subprocess.call(["/bin/sh", "-c", "--", "exit 4"])
subprocess.call(["sh", "-c", "exit 5", "name", "arg"])
subprocess.call(["sh", "-ec", "exit 6"])
subprocess.call(["bash", "-c", "exit 7"])
os.system("kx-setting-cui set A=1")
os.system(": " + "x" * 100000)
END
    local start trace
    for start in device user_device; do
        trace=$PUBLIC/open/$start
        run "$start" --share "$(readable calls.py)=/calls.py" --trace "$trace" --trace-shell -- \
            python3 /calls.py
        [ "$status" -eq 0 ]

        {
            printf 'shell\ttrue\nshell\techo '"'"'a\\tb\\\\c\\nd'"'"' >/dev/null; exit 3\n'
            printf 'shell\texit 4\nshell\texit 5\nshell\tkx-setting-cui set A=1\n'
            printf 'tool\tkx-setting-cui\tset\tA=1\nshell\t: '
            printf 'x%.0s' $(seq 100000)
            echo
        } >expected
        cmp expected "$trace"
    done
}

@test "a traced shell behaves like an untraced one" {
    cat >behave.py <<'END'
import os, signal, subprocess
print(os.system("exit 3"), os.system("kill -9 $$"), os.system("no-such-tool 2>/dev/null"))
for words in (["sh", "-c", "echo $0 $#; env | sort | grep -v PWD; read x; echo got $x"],
              ["/bin/sh", "-c", "echo $0 $1", "zero", "one"],
              ["sh", "-c", "--", "echo $-; ls /proc/self/fd | wc -l"]):
    print(subprocess.run(words, input=b"line\n", capture_output=True).stdout)
child = subprocess.Popen(["sh", "-c", "kill -TERM $$"])
print(child.wait())
END
    device --share behave.py=/b.py -- python3 /b.py >plain
    device --share behave.py=/b.py --trace trace --trace-shell -- python3 /b.py >traced

    diff plain traced
    [ "$(grep -c '^shell' trace)" -eq 7 ]
}

@test "calls of failing and missing tools are traced" {
    device --fail cp=3@2 --missing usb_umount --trace trace -- sh -c \
        'cp /etc/passwd /tmp; cp -f a b; /usr/bin/kxsystem/usb_umount now' 2>/dev/null || true

    [ "$(cat trace)" = $'tool\tcp\t-f\ta\tb\ntool\tusb_umount\tnow' ]
}

@test "a traced start is fast enough for many commands" {
    cat >many.py <<'END'
import os
for number in range(2000):
    os.system("exit 0")
END
    local begin=$SECONDS
    device --share many.py=/many.py --trace trace --trace-shell -- python3 /many.py

    [ "$(wc -l <trace)" -eq 2000 ]
    [ $((SECONDS - begin)) -lt 20 ]
}

@test "the summary tells people what changed" {
    mkdir stick
    echo old >stick/note
    device --state state -- sh -c 'mkdir -p /opt/old /var/lib/KxUserPackages/Old; echo a >/opt/old/a
        echo b >/opt/old/b; kx-setting-cui set KEEP=1 CHANGE=1; echo x >/usr/local/bin/own'

    run device --state state --usb stick --summary -- sh -c '
        rm /opt/old/a; echo bb >/opt/old/b; chmod 600 /opt/old/b; mkdir -m 750 /opt/new
        printf 12345 >/opt/new/f; ln -s f /opt/new/l; kx-setting-cui set CHANGE=2 NEW=3 KEEP=1
        mkdir /var/lib/KxUserPackages/Demo; touch /var/lib/KxUserPackages/Demo/list
        rm -r /var/lib/KxUserPackages/Old; sed -i "/^user:/d" /etc/passwd
        echo "new:x:0:0::/:" >>/etc/passwd; sed -i "s/^root:[^:]*:/root:hash:/" /etc/shadow
        echo new >/mnt/usb/note; touch /tmp/.X1-lock /run/noise
        rm /usr/bin/wc; echo 1 >/usr/bin/tool; chmod 755 /usr/bin/tool; rm /usr/local/bin/own
        cp /bin/false /usr/bin/tac.new; mv /usr/bin/tac.new /usr/bin/tac; /sbin/reboot'
    [ "$status" -eq 0 ]

    local false_size passwd_size shadow_size
    false_size=$(stat -L -c %s /bin/false)
    passwd_size=$(device --state state -- stat -c %s /etc/passwd)
    shadow_size=$(device --state state -- stat -c %s /etc/shadow)
    local group=shadow
    device -- sh -c 'test "$(stat -c %G /etc/shadow)" = shadow' || group=root
    local width=${#group}
    cat >expected <<END
What the run changed on the panel

Files and folders
  changed  -rw-r--r--  $(printf "%-$((width + 5))s" root:root)  $(printf %5s "$passwd_size")  /etc/passwd
  changed  -rw-r-----  root:$group  $(printf %5s "$shadow_size")  /etc/shadow
  changed  -rw-r--r--  $(printf "%-$((width + 5))s" root:root)      4  /mnt/usb/note
  added    drwxr-x---  $(printf "%-$((width + 5))s" root:root)         /opt/new
  added    -rw-r--r--  $(printf "%-$((width + 5))s" root:root)      5  /opt/new/f
  added    lrwxrwxrwx  $(printf "%-$((width + 5))s" root:root)      1  /opt/new/l -> f
  removed  -rw-r--r--  $(printf "%-$((width + 5))s" root:root)      2  /opt/old/a
  changed  -rw-------  $(printf "%-$((width + 5))s" root:root)      3  /opt/old/b
  changed  -rwxr-xr-x  $(printf "%-$((width + 5))s" root:root)  $false_size  /usr/bin/tac
  added    -rwxr-xr-x  $(printf "%-$((width + 5))s" root:root)      2  /usr/bin/tool
  removed              $(printf "%-$((width + 5))s" "")         /usr/bin/wc
  removed  -rw-r--r--  $(printf "%-$((width + 5))s" root:root)      2  /usr/local/bin/own
  added    drwxr-xr-x  $(printf "%-$((width + 5))s" root:root)         /var/lib/KxUserPackages/Demo
  added    -rw-r--r--  $(printf "%-$((width + 5))s" root:root)      0  /var/lib/KxUserPackages/Demo/list
  removed  drwxr-xr-x  $(printf "%-$((width + 5))s" root:root)         /var/lib/KxUserPackages/Old

Settings
  CHANGE=2  (was 1)
  NEW=3

Users
  new: added
  root: password changed
  user: removed

Installed packages
  Demo: record added
  Old: record removed

Reboot
  asked for
END
    diff expected <(echo "$output")
}

@test "a summary of nothing says so" {
    run --separate-stderr device --summary -- true

    [ "$output" = "" ]
    [ "$stderr" = 'What the run changed on the panel

Files and folders
  none

Settings
  none

Users
  none

Installed packages
  none

Reboot
  not asked for' ]
}

@test "the summary can go to files, also as JSON" {
    device --summary=text --summary-json json -- sh -c 'printf 12 >/opt/f; kx-setting-cui set A=1'

    grep -q '  added    -rw-r--r--  root:root  2  /opt/f' text
    /usr/bin/python3 - <<'END'
import json
data = json.load(open("json"))
assert data == {
    "files": [{"change": "added", "group": "root", "kind": "-", "mode": "-rw-r--r--",
               "octal": "0644", "owner": "root", "path": "/opt/f", "size": 2}],
    "settings": [{"name": "A", "before": None, "after": "1"}],
    "users": [], "packages": [], "reboot": False}, data
END
}
