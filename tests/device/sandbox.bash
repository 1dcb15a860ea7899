# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
# shellcheck shell=bash
#
# The kit of the tests of the sandboxed device itself: what happens around each of them, and whether
# the machine is as before.

# shellcheck source=tests/device/sandbox_helper.bash
. "$BATS_TEST_DIRNAME/sandbox_helper.bash"

setup_file() {
    compile_device
    ask_for_device
    make_public_copy
    sleep 3600 3>&- &
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

# Copies a file to where every user can read it; prints its name there.
readable() {
    cp "$1" "$PUBLIC/$1"
    chmod 644 "$PUBLIC/$1"
    echo "$PUBLIC/$1"
}
