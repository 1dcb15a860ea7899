#!/usr/bin/env bats
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
#
# scripts/check-layers.py on a small tree of sources with a file for each row of its tables; and its
# answers to every include that the project's sources could have.

ROOT=$(cd "$BATS_TEST_DIRNAME/../.." && pwd)

# small_tree: makes it.
small_tree() {
    cd "$BATS_TEST_TMPDIR" || return
    local place
    (cd "$ROOT" && printf '%s\n' src/*/ lib/*/ tools/*/*/ device/kx*/*.py) >places
    while IFS= read -r place; do
        case $place in
            *.py) module_file "$place" 'import os' ;;
            *) source_file "${place}Room.cpp" '<string>' ;;
        esac
    done <places
    rm places
    source_file tools/kx-package/main.cpp '<string>'
    source_file tools/kx-panel/main.cpp '<string>'
    echo 'constexpr const char* kUpdater = "kx_Updater"; // "no name"' >src/osa/PanelNames.h
    source_file src/osa/PathList.h '<string>'
    source_file src/osa/PathList.cpp '"osa/PathList.h"' '<string>'
    source_file lib/checks/Targets.cpp '"checks/Targets.h"' '"io/Text.h"' '<picojson.h>'
    source_file tools/kx-package/common/Epoch.cpp '"common/Epoch.h"' '"io/Error.h"'
    module_file device/kxdevice/trees.py 'import os' 'from kxdevice import linux'
}

# module_file PATH LINE...
module_file() {
    local path=$1
    shift
    mkdir -p "${path%/*}"
    printf '%s\n' "$@" >"$path"
}

# source_file PATH INCLUDE...
source_file() {
    local path=$1
    shift
    mkdir -p "${path%/*}"
    printf '#include %s\n' "$@" >"$path"
}

# expect_verdict STATUS TEXT
expect_verdict() {
    run /usr/bin/python3 "$ROOT/scripts/check-layers.py" "$BATS_TEST_TMPDIR"
    echo "$output"
    [ "$status" -eq "$1" ]
    [ "$output" = "$2" ]
}

@test "sources that keep to their layers pass" {
    small_tree
    expect_verdict 0 "$(find . -type f | wc -l) files keep to their layers"
}

@test "a row of a table to which nothing belongs is an error" {
    small_tree
    rm -r lib/registry tools/kx-package/main.cpp device/kxdevice/ids.py

    expect_verdict 1 "lib: no sources of the layer 'registry'
tools/kx-package: no sources of the layer ''
device: no module kxdevice.ids"
}

@test "no room may include one that the architecture shows above or beside it" {
    "$BATS_TEST_DIRNAME/arrows.py" rooms
}

@test "the updater's layers may include what the architecture's table says, and nothing else" {
    "$BATS_TEST_DIRNAME/arrows.py" layers
}

@test "no room may include what none of its files needs" {
    "$BATS_TEST_DIRNAME/arrows.py" needed
}

@test "no module of the device may import one that the architecture shows above or beside it" {
    "$BATS_TEST_DIRNAME/arrows.py" modules
}
