#!/usr/bin/env bats
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
#
# The sandboxed device keeps what runs in it away from the machine.
#
# Scripts in single quotes are for the shell inside; bats sets stderr.
# shellcheck disable=SC2016,SC2154

load sandbox

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

@test "what the command leaves in the background ends with it" {
    run device --seconds 20 -- sh -c 'setsid sleep 43.25 >/dev/null 2>&1 &'

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
