#!/usr/bin/env bats
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
#
# A run on the sandboxed device: its end, its streams, and the files that it finds and leaves.
#
# Scripts in single quotes are for the shell inside; bats sets stderr.
# shellcheck disable=SC2016,SC2154

load sandbox

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

@test "a reboot leaves the start-up script to the command when it is told to" {
    printf '#!/bin/sh\necho started; exit 3\n' >startup.sh
    chmod 755 startup.sh
    device --state state --put startup.sh=/mnt/user/startup.sh -- touch /tmp/x
    run -3 --separate-stderr device --state state --boot --no-startup -- \
        sh -c 'ls /tmp; exec /mnt/user/startup.sh'
    [ "$output" = started ]
    [ "$stderr" = '' ]
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

@test "every user of the panel may call a stand-in" {
    [ "$(id -u)" -eq 0 ] || skip "only root's panel has other users everywhere"
    run device -- sh -c 'kx-setting-cui set A=1
        setpriv --reuid=1000 --regid=1000 --clear-groups kx-setting-cui list'

    [ "$status" -eq 0 ]
    [ "$output" = A=1 ]
}

@test "the folders that are made above a copy belong to root of the panel" {
    run device --put tree=/opt/above/it/tree -- stat -c '%U:%G %a' /opt/above /opt/above/it

    [ "$status" -eq 0 ]
    [ "$output" = $'root:root 755\nroot:root 755' ]
}
