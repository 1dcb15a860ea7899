#!/usr/bin/env bats
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
#
# What the caller of the sandboxed device has is not handed on, and changes nothing on the panel.
#
# Scripts in single quotes are for the shell inside; bats sets stderr.
# shellcheck disable=SC2016,SC2154

load sandbox

# -- keys ----------------------------------------------------------------------------------------

@test "the caller's session keyring is not on the panel" {
    local start
    for start in device user_device; do
        cat >"$PUBLIC/keys.sh" <<'END'
key=$(keyctl add user kx:secret payload @s)
[ "$(keyctl print "$(keyctl search @s user kx:secret)")" = payload ] && echo the caller has it
"$@" -- sh -c 'keyctl search @s user kx:secret || keyctl print "$1" || grep -c secret /proc/keys
    keyctl add user kx:own payload @s >/dev/null && keyctl print %user:kx:own' - "$key"
keyctl search @s user kx:own >/dev/null || echo no other one
END
        local words=("$DEVICE_HOME/run")
        [ "$start" = device ] ||
            words=(setpriv --reuid=65534 --regid=65534 --clear-groups "$PUBLIC/device/run")
        run --separate-stderr keyctl session - sh "$PUBLIC/keys.sh" "${words[@]}"

        echo "$output"
        # An ordinary user is root of the panel that it makes: its keys are listed there, no more.
        [ "$start" = user_device ] || [ "$(id -u)" -eq 0 ] || output=${output/$'\n1\n'/$'\n0\n'}
        [ "$output" = $'the caller has it\n0\npayload\nno other one' ]
    done
}

# -- rights --------------------------------------------------------------------------------------

@test "the groups of the caller are not on the panel" {
    [ "$(id -u)" -eq 0 ] || skip "only root can have other groups"

    run setpriv --groups 4,24,70000 "$DEVICE_HOME/run" -- sh -c 'grep ^Groups /proc/self/status'
    [ "$output" = $'Groups:\t ' ]

    # Those of an ordinary user's ranges, for a moment.
    echo "$(as_ordinary_user id -un):200000:65536" >sub
    chmod 644 sub
    run unshare --mount sh -c 'mount --bind sub /etc/subuid && mount --bind sub /etc/subgid &&
        exec setpriv --reuid=65534 --regid=65534 --groups 4,24,70000 "$@"' sh \
        "$PUBLIC/device/run" -- sh -c 'grep ^Groups /proc/self/status'
    [ "$output" = $'Groups:\t ' ]
}

@test "process 1 shows nothing of the caller's command line and environment" {
    run env SECRET=caller "$DEVICE_HOME/run" --env OWN=1 --share tree=/mnt/user/tree -- sh -c '
        tr "\0" "+" </proc/1/cmdline | sed "s/+*$/\n/"; cat /proc/1/environ | wc -c
        stat -c %u /proc/1/fd'

    # Its files in /proc belong to nobody: not even root of the panel may read them.
    [ "${lines[0]}" = kx-device ]
    [[ "$output" != *secret* && "$output" != *tree* ]]
    [ "${lines[-2]}" -eq 0 ]
    [ "${lines[-1]}" -eq 65534 ]
}

# -- processes and descriptors -------------------------------------------------------------------

@test "limits of the caller do not change those of the command" {
    # More than an ordinary user has elsewhere, whose processes there count, too.
    run bash -c 'ulimit -c unlimited; "$1" --processes 3000 -- bash -c "ulimit -c; ulimit -u"' - \
        "$DEVICE_HOME/run"

    [ "$output" = $'0\n3000' ]
}

@test "the caller's umask changes neither the panel's files nor the command" {
    local look='umask; cd /; find . /dev -xdev ! -path "./proc/*" -printf "%m %u %p\n" | sort'
    device --share tree/secret=/mnt/deep/er/secret --put tree=/opt/put/tree --usb tree \
        --full /opt/full -- sh -c "$look; touch /tmp/new; stat -c %a /tmp/new" >usual

    (umask 077 && device --share tree/secret=/mnt/deep/er/secret --put tree=/opt/put/tree \
        --usb tree --full /opt/full -- sh -c "$look; touch /tmp/new; stat -c %a /tmp/new") >careful

    diff usual careful
    [ "$(head -n 1 usual)" = 0022 ]
    [ "$(tail -n 1 usual)" = 644 ]
    [ "$(wc -l <usual)" -gt 50 ]
}

@test "signals that the caller blocks or ignores are as usual for the command" {
    run timeout 60 env --block-signal=USR1,TERM,CHLD --ignore-signal=USR2,PIPE,QUIT \
        "$DEVICE_HOME/run" -- grep -E '^Sig(Blk|Ign)' /proc/self/status

    [ "$output" = $'SigBlk:\t0000000000000000\nSigIgn:\t0000000000000000' ]
}

@test "a caller that ignores or blocks the ends of its children has a panel and a drive all the same" {
    local trouble
    for trouble in --ignore-signal=CHLD --block-signal=CHLD; do
        run -7 timeout 60 env "$trouble" "$DEVICE_HOME/run" --state state --boot -- sh -c 'exit 7'
        [ "$output" = "" ]
        run -0 timeout 60 env "$trouble" "$DEVICE_HOME/drive" plug tree --state state
        run -0 timeout 60 env "$trouble" "$DEVICE_HOME/drive" pull --state state
        run -0 timeout 60 env "$trouble" "$DEVICE_HOME/run" --erase --state state
        [ ! -e state ]
    done
}

@test "the command leads a session of its own, without a terminal" {
    cat >session.py <<'END'
import os
print(os.getsid(0) == os.getpid() == os.getpgrp())
try:
    os.open("/dev/tty", os.O_RDWR)
except OSError as error:
    print(error.strerror)
END
    run device --share session.py=/s.py -- python3 /s.py

    [ "$output" = $'True\nNo such file or directory' ]
}

@test "no process of the panel holds a descriptor of the caller" {
    [ "$(id -u)" -eq 0 ] || skip "only root can look at what process 1 holds"
    exec 7<tree/secret
    "$DEVICE_HOME/run" -- sleep 48.25 3>&- &
    local starter=$! keeper first
    exec 7<&-
    wait_until host_has_process "sleep 48.25"

    keeper=$(pgrep -P "$starter")
    first=$(pgrep -P "$keeper")
    run find "/proc/$starter/fd" "/proc/$keeper/fd" "/proc/$first/fd" \
        "/proc/$(pgrep -P "$first")/fd" -lname '*/secret'
    kill "$starter"
    wait "$starter" || true

    # The process that was started is the caller's own.
    [ "$output" = "/proc/$starter/fd/7" ]
}

@test "closed standard streams stay closed" {
    # Opening anything would take the place of a closed one.
    local look='for n in 0 1 2; do [ -e /proc/$$/fd/$n ] || seen="$seen$n"; done; echo $seen >/tmp/seen'

    device --state state -- sh -c "$look" 2>&-
    [ "$(device --state state -- cat /tmp/seen)" = 2 ]
    device --state state -- sh -c "$look" <&- >&- 2>&-
    [ "$(device --state state -- cat /tmp/seen)" = 012 ]
}

@test "nothing starts with a folder as a standard stream" {
    local redirection
    # Opened for reading, a folder can be any stream.
    for redirection in '0<tree' '1<tree' '2<tree'; do
        run ! sh -c '"$1" --state state -- true '"$redirection" - "$DEVICE_HOME/run"
        [ ! -e state ]
    done
}

# -- how programs are found and started ----------------------------------------------------------

@test "programs are found and started as a shell does it" {
    device --state state -- sh -c 'cd /usr/local/bin
        printf "echo \"without interpreter:\" \"\$@\"\n" >plain
        printf "#!/no/such/interpreter\n" >lost
        printf "#!/bin/sh\n" >shut
        printf "#!/bin/sh\necho here\n" >/opt/here
        chmod 755 plain lost /opt/here'
    run -0 device --state state -- plain a 'b c'
    [ "$output" = "without interpreter: a b c" ]
    run -126 device --state state -- lost
    [ "$output" = "device/run: lost: cannot be executed (No such file or directory)" ]
    run -126 device --state state -- shut
    [ "$output" = "device/run: shut: cannot be executed (Permission denied)" ]
    run -126 device --state state -- /usr
    run -127 device --state state -- lost/x
    run -0 device --state state --env PATH=:/usr/bin --chdir /opt -- here
    [ "$output" = here ]
    run -127 device --state state --env PATH=/usr/bin --chdir /opt -- here
    [ "$output" = "device/run: here: not found on the panel" ]
}
