#!/usr/bin/env bats
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
#
# What a state left behind by hostile commands, or prepared by somebody else, must not lead to.

load sandbox_helper

setup() {
    require_device
    cd "$BATS_TEST_TMPDIR" || return 1
}

# Fills a state with links to whatever the next run's processes may hold open.
lay_links() {
    # shellcheck disable=SC2016
    device --state s -- sh -c 'for n in $(seq 3 40); do
        ln -s /proc/self/fd/$n /mnt/user/self$n
        ln -s /proc/1/fd/$n /mnt/user/first$n
    done
    ln -s /proc/1/root /mnt/user/root
    ln -s /opt /mnt/user/folder'
}

@test "no link into /proc becomes the working folder of a command" {
    lay_links

    for n in $(seq 3 40); do
        for kind in self first; do
            run -125 device --state s --chdir "/mnt/user/$kind$n" -- true
            [ "$output" = "device/run: cannot make the sandboxed device: the panel has no folder \
/mnt/user/$kind$n to start in" ]
        done
    done
    run -125 device --state s --chdir /mnt/user/root -- true
}

@test "a link to a folder of the panel does become it" {
    lay_links

    run -0 device --state s --chdir /mnt/user/folder -- pwd

    [ "$output" = /opt ]
}

@test "no folder for trouble is made through a link into /proc" {
    lay_links

    for option in --full --read-only; do
        run -125 device --state s "$option" /mnt/user/self22/new -- true
        [[ "$output" == *"/mnt/user/self22/new cannot be a folder of the panel"* ]]
    done
    [ -z "$(find s -name new)" ]
}

@test "a state that others can change is refused" {
    device --state s -- true
    chmod 777 s

    run -125 device --state s -- true

    [[ "$output" == *"s belongs to somebody else, or somebody else can change it"* ]]
    chmod 700 s
    device --state s -- true
}

@test "a state that maps root inside to the machine's root is refused" {
    [ "$(id -u)" -eq 0 ] || skip "only root could be mapped"
    device --state s -- true
    /usr/bin/python3 - <<'END'
import json
record = json.load(open("s/kx-device-state"))
record["ids"] = {"users": [[0, 0, 65536]], "groups": [[0, 0, 65536]]}
json.dump(record, open("s/kx-device-state", "w"))
END

    run -125 device --state s -- cat /proc/self/uid_map

    [[ "$output" == *"s would make root inside the machine's root; erase it"* ]]
}
