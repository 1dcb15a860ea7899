# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
# shellcheck shell=bash
#
# Help for tests that use the sandboxed device.

bats_require_minimum_version 1.5.0

DEVICE_HOME=$(cd "$(dirname "${BASH_SOURCE[0]}")/../../device" && pwd -P)
export DEVICE_HOME

# ask_for_device: asked once for all tests of a file; each test asks again only where the answer was
# no.
ask_for_device() {
    if "$DEVICE_HOME/run" -- true 2>/dev/null; then
        export KX_DEVICE_IS_THERE=1
    fi
}

# Ends a test as skipped where the sandboxed device cannot be made; with CI=true that is a failure.
require_device() {
    local problem
    [ -z "${KX_DEVICE_IS_THERE:-}" ] || return 0
    problem=$("$DEVICE_HOME/run" -- true 2>&1) && return 0
    if [ "${CI:-}" = true ]; then
        echo "$problem" >&2
        return 1
    fi
    skip "$problem"
}

# compile_device: spares every start of the device the compiling of its modules, a third of it. The
# device never writes into its own folder: root may start that of a user. What lies beside a module is
# used only when it was made of the very same text.
compile_device() {
    local module name made
    for module in "$DEVICE_HOME"/kx*/*.py; do
        name=${module##*/}
        made=("${module%/*}/__pycache__/${name%.py}".*.pyc)
        [ "${made[0]}" -nt "$module" ] && continue
        # A folder that cannot be written does no harm: the device starts all the same.
        /usr/bin/python3 -m compileall -q --invalidation-mode checked-hash "$DEVICE_HOME" \
            >/dev/null 2>&1 || true
        return
    done
}

# make_memory_folder: makes MEMORY, a new folder for panels and packages. It is in memory where that
# has room and programs may run there: a disk takes long to make and remove files by the hundred.
make_memory_folder() {
    local parent=${TMPDIR:-/tmp} kind options room
    if read -r kind options room < <(findmnt -n -b -o FSTYPE,OPTIONS,AVAIL /dev/shm) &&
        [ "$kind" = tmpfs ] && [[ ,$options, != *,noexec,* ]] &&
        [ "$room" -ge $((1 << 30)) ] && [ -w /dev/shm ]; then
        parent=/dev/shm
    fi
    MEMORY=$(mktemp -d "$parent/kx-device-test-XXXXXX")
    export MEMORY
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
