#!/usr/bin/env bats
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
#
# scripts/check-layers.py on small trees of sources: a file for each row of its tables, and the
# panel's names; and its answers to every include that the project's sources could have.

ROOT=$(cd "$BATS_TEST_DIRNAME/../.." && pwd)

setup() {
    cd "$BATS_TEST_TMPDIR" || return
    local place
    (cd "$ROOT" && printf '%s\n' src/*/ lib/*/ tools/kx-package/*/ device/kx*/*.py) >places
    while IFS= read -r place; do
        case $place in
            *.py) module_file "$place" 'import os' ;;
            *) source_file "${place}Room.cpp" '<string>' ;;
        esac
    done <places
    rm places
    source_file tools/kx-package/main.cpp '<string>'
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
    expect_verdict 0 "$(find . -type f | wc -l) files keep to their layers"
}

@test "a layer of the updater includes no layer above it" {
    source_file src/osa/OSA.cpp '"steps/SS.h"'

    expect_verdict 1 'src/osa/OSA.cpp: the layer osa must not include "steps/SS.h"'
}

@test "a shared room includes neither a program's folders nor a room above it" {
    source_file lib/io/Text.cpp '"format/Json.h"' '"trial/Places.h"'

    expect_verdict 1 'lib/io/Text.cpp: the layer io must not include "format/Json.h"
lib/io/Text.cpp: the layer io must not include "trial/Places.h"'
}

@test "a folder of the tool includes only the rooms that its line names" {
    source_file tools/kx-package/common/Output.cpp '"checks/Rules.h"'
    source_file tools/kx-package/main.cpp '"manifest/Glob.h"'

    expect_verdict 1 \
        'tools/kx-package/common/Output.cpp: the layer common must not include "checks/Rules.h"
tools/kx-package/main.cpp: the layer  must not include "manifest/Glob.h"'
}

@test "libraries stay where they are allowed" {
    source_file src/engine/UserPackageInstaller.cpp '<QString>' '<QtCore/QString>' '<vector>'
    source_file lib/io/Text.cpp '<zip.h>'
    source_file tools/kx-package/schema/Schema.cpp '<toml++/toml.h>'

    expect_verdict 1 \
        'src/engine/UserPackageInstaller.cpp: the layer engine is free of Qt, but includes <QString>
src/engine/UserPackageInstaller.cpp: the layer engine is free of Qt, but includes <QtCore/QString>
lib/io/Text.cpp: the layer io is free of zip.h, but includes <zip.h>
tools/kx-package/schema/Schema.cpp: the layer schema is free of toml++, but includes <toml++/toml.h>'
}

@test "a leaf header includes the standard library only" {
    source_file src/engine/ILogger.h '"osa/OSA.h"' '<string>' '<picojson.h>'

    expect_verdict 1 \
        'src/engine/ILogger.h: a leaf header includes only the standard library, not "osa/OSA.h"
src/engine/ILogger.h: a leaf header includes only the standard library, not <picojson.h>'
}

@test "a name of the panel is written once" {
    cat >src/osa/OSA.cpp <<'END'
#include "osa/kx_Updater"
// "kx_Updater"
const char* names[] = {"kx_Updater", "the kx_Updater", "%s/kx_Updater"};
const char* command = R"(/opt/kx_Updater)";
END

    expect_verdict 1 'src/osa/OSA.cpp: "kx_Updater" stands in src/osa/PanelNames.h
src/osa/OSA.cpp: "%s/kx_Updater" stands in src/osa/PanelNames.h
src/osa/OSA.cpp: "/opt/kx_Updater" stands in src/osa/PanelNames.h'
}

@test "a list of the panel's names without a name is an error" {
    echo '// "kx_Updater"' >src/osa/PanelNames.h

    expect_verdict 1 'src/osa/PanelNames.h: no name found'
}

@test "an include names its layer" {
    source_file lib/checks/Rules.cpp '"Rules.h"'

    expect_verdict 1 'lib/checks/Rules.cpp: write "Rules.h" with its layer'
}

@test "no other way of writing an include gets by" {
    source_file src/osa/OSA.cpp '<steps/SS.h>' '"osa/../steps/SS.h"'
    echo '  #  include "steps/SS.h"' >src/osa/OSA.hpp

    expect_verdict 1 'src/osa/OSA.cpp: write <steps/SS.h> in quotes
src/osa/OSA.cpp: write "osa/../steps/SS.h" without dots
src/osa/OSA.hpp: the layer osa must not include "steps/SS.h"'
}

@test "only one file of the application includes the window" {
    source_file src/app/RunModes.cpp '"gui/mainwindow.h"'
    source_file src/app/Console.cpp '"gui/mainwindow.h"'

    expect_verdict 1 'src/app/Console.cpp: the layer app must not include "gui/mainwindow.h"'
}

@test "a folder that no table knows is refused" {
    source_file lib/misc/Misc.cpp '<string>'

    expect_verdict 1 "lib/misc/Misc.cpp: the folder 'misc' is no known layer"
}

@test "a row of a table to which nothing belongs is an error" {
    rm -r lib/registry tools/kx-package/main.cpp device/kxdevice/ids.py

    expect_verdict 1 "lib: no sources of the layer 'registry'
tools/kx-package: no sources of the layer ''
device: no module kxdevice.ids"
}

@test "a tree without sources is an error, whichever of the three it is" {
    local top
    for top in src lib tools/kx-package; do
        mv "$top" away
        expect_verdict 1 "check-layers: no sources below $BATS_TEST_TMPDIR/$top"
        mkdir "$top"
        expect_verdict 1 "check-layers: no sources below $BATS_TEST_TMPDIR/$top"
        rmdir "$top"
        mv away "$top"
    done
    rm device/*/*.py
    expect_verdict 1 "check-layers: no modules below $BATS_TEST_TMPDIR/device"
}

@test "a module of the device imports only what stands below it" {
    module_file device/kxdevice/tools.py 'from kxdevice import (linux, supervisor)' \
        'from kxdevice.names import DRIVE_DEVICE' 'import kxoperate.screen' \
        'from . import keeper' 'from .front import run'

    expect_verdict 1 'device/kxdevice/tools.py: must not import kxdevice.supervisor
device/kxdevice/tools.py: must not import kxoperate.screen
device/kxdevice/tools.py: must not import kxdevice.keeper
device/kxdevice/tools.py: must not import kxdevice.front'
}

@test "a module of the device that nobody gave a place is found" {
    module_file device/kxdevice/helper.py 'import os'

    expect_verdict 1 "device/kxdevice/helper.py: the module 'kxdevice.helper' has no row"
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
