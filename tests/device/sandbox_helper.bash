# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
# shellcheck shell=bash
#
# Help for tests that use the sandboxed device.

bats_require_minimum_version 1.5.0

DEVICE_HOME=$(cd "$(dirname "${BASH_SOURCE[0]}")/../../device" && pwd -P)
export DEVICE_HOME

# Ends a test as skipped where the sandboxed device cannot be made; with CI=true that is a failure.
require_device() {
    local problem
    problem=$("$DEVICE_HOME/run" -- true 2>&1) && return 0
    if [ "${CI:-}" = true ]; then
        echo "$problem" >&2
        return 1
    fi
    skip "$problem"
}

# Runs a command on the sandboxed device: device [options] [--] COMMAND [ARG...]
device() {
    "$DEVICE_HOME/run" "$@"
}

# Makes a folder that every user of the host can enter, with a copy of the device in it.
make_public_copy() {
    PUBLIC=$(mktemp -d /tmp/kx-device-test-XXXXXX)
    chmod 755 "$PUBLIC"
    cp -R "$DEVICE_HOME" "$PUBLIC/device"
    chmod -R a+rX "$PUBLIC/device"
    mkdir -m 777 "$PUBLIC/open" # every user may write here
    export PUBLIC
}

# Runs a command of the host without root's rights, as some ordinary user.
as_ordinary_user() {
    if [ "$(id -u)" -eq 0 ]; then
        setpriv --reuid=65534 --regid=65534 --clear-groups "$@"
    else
        "$@"
    fi
}

# Starts the device as an ordinary user.
user_device() {
    as_ordinary_user "$PUBLIC/device/run" "$@"
}

# Waits up to ten seconds until a command succeeds.
wait_until() {
    local n
    for n in $(seq 100); do
        if "$@"; then
            return 0
        fi
        sleep 0.1
    done
    echo "gave up waiting after $n tries: $*" >&2
    return 1
}

# Tells whether a process with this command line is alive anywhere on the host.
host_has_process() {
    grep -qsaP "^${1// /\\x00}\\x00\$" /proc/[0-9]*/cmdline
}

host_lacks_process() {
    ! host_has_process "$1"
}

# Tells whether control groups of a device that was started as this process are left.
host_has_groups() {
    [ -n "$(find /sys/fs/cgroup -type d -name "kx-device-$1" 2>/dev/null)" ]
}

host_lacks_groups() {
    ! host_has_groups "$1"
}
