#!/usr/bin/env bats
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
#
# Objects of another class where one is expected: read, but never used.

# shellcheck disable=SC2016 # "$values" and the like are names of the format

load device

# patched NAME PATH EXPRESSION: a package with one step of each kind, whose object at PATH (below
# the root) is replaced by the value of EXPRESSION. Every step may be skipped; every item would
# leave a trace.
patched() {
    package "$1" <<END
copy_file(item("a", "/opt/done/copy"), item("b", "/opt/done/copy2"), skip=True)
copy_folder(folder("/opt/done/tree", {"f": "f"}), skip=True)
script("#!/bin/sh\ntouch /opt/done/script\n", skip=True)
hardware(setting("Sound", ("Volume", "5")), setting("AutoStartupMode", ("CustomScript", "x")),
         setting("Lan", ("Dhcp", "1"), ("Name", "panel")), skip=True)
def replace(project):
    *where, last = [int(part) if part.isdigit() else part for part in "$2".split()]
    for part in where:
        project = project[part]
    project[last] = $3
change(replace)
END
}

# What the steps run, one by one.
FIRST='[mkdir -p "/opt/done/"]
[cp -f "/packages/Foo/0/0/a" "/opt/done/copy" ]
[chmod 777 "/opt/done/copy" ]
[cp -f "/packages/Foo/0/1/b" "/opt/done/copy2" ]
[chmod 777 "/opt/done/copy2" ]'
SECOND='[mkdir -p "/opt/done/tree"]
[cp -f "/packages/Foo/1/0/f" "/opt/done/tree/f" ]'
THIRD='[mkdir -p "/tmp/Zt/"]
[chmod +x "/tmp/Zt/temp.sh"]
["/tmp/Zt/temp.sh"]'

# refused TYPE STEP [COMMANDS]: installs Foo, which stops in STEP after its line.
refused() {
    install Foo
    expect_status 101
    {
        local number
        for ((number = 1; number <= $2; number++)); do
            echo "**** Installation step $number/4"
        done
        echo "Unexpected $1 object in step $2."
        echo "Installation failed in step $2."
    } | expect_out
    expect_silence
    printf '%s' "${3:+$3$'\n'}" | expect_failing
    rm -r "$PACKAGES/Foo"
}

@test "the package of these tests is fine as long as nothing is replaced" {
    patched Foo Comment '"another text"'

    install Foo

    expect_status 0
    expect_installing Foo <<END
$FIRST
$SECOND
$THIRD
[chmod 777 "/mnt/user/startup.sh" ]
[kx-setting-cui set Volume=5 Dhcp=1 Name=panel ]
END
}

@test "a step list of another class stops step 1, before its line and every command" {
    patched Foo DB_StepSets 'listed("DB_HardwareItems", [])'

    install Foo

    expect_status 101
    expect_out <<'END'
Unexpected Zt.DB_HardwareItems, Drovic object in step 1.
Installation failed in step 1.
END
    expect_failing </dev/null

    rm -r "$PACKAGES/Foo"
    patched Foo DB_StepSets 'typed("DB_ScriptFunctionData", ScriptData="touch /opt/x")'
    install Foo
    expect_status 101
    expect_out <<'END'
Unexpected Zt.Plugins.DB_ScriptFunctionData, Plexa object in step 1.
Installation failed in step 1.
END
}

@test "an element that is no step stops its step before its line" {
    patched Foo 'DB_StepSets $values 1' \
        'typed("DB_CopyFunctionData", SourcePath="a", DestinationPath="/opt/b", Permissions="")'

    install Foo

    expect_status 101
    expect_out <<'END'
**** Installation step 1/4
Unexpected Zt.Plugins.DB_CopyFunctionData, Plexa object in step 2.
Installation failed in step 2.
END
    expect_silence
    expect_failing <<<"$FIRST"
}

@test "a list in place of a step, nested in itself, is an element that is no step" {
    patched Foo 'DB_StepSets $values 0' 'listed("DB_StepSets", [listed("DB_StepSets", [])])'

    install Foo

    expect_status 101
    expect_out <<'END'
Unexpected Zt.Plugins.DB_StepSets, Plexa object in step 1.
Installation failed in step 1.
END
    expect_failing </dev/null
}

@test "a step whose kind needs another record stops after its line, also with CanSkip" {
    # A kind's identity string stands in the record of another kind.
    patched Foo 'DB_StepSets $values 0 SS_StepSetId' 'STEPS["Script"]'
    refused 'Zt.Plugins.DB_CopyStepSet, Plexa' 1

    patched Foo 'DB_StepSets $values 1 SS_StepSetId' 'STEPS["HardSetting"]'
    refused 'Zt.Plugins.DB_CopyStepSet, Plexa' 2 "$FIRST"

    patched Foo 'DB_StepSets $values 2 SS_StepSetId' 'STEPS["CopyFile"]'
    refused 'Zt.Plugins.DB_ScriptStepSet, Plexa' 3 "$FIRST
$SECOND"

    patched Foo 'DB_StepSets $values 3 SS_StepSetId' 'STEPS["CopyFolder"]'
    refused 'Zt.Plugins.DB_HardSettingStepSet, Plexa' 4 "$FIRST
$SECOND
$THIRD"
}

@test "wrong objects in the copy steps: the list, and an item after the ones before it" {
    patched Foo 'DB_StepSets $values 1 PathSetDatas' 'typed("DB_ScriptFunctionData", ScriptData="")'
    refused 'Zt.Plugins.DB_ScriptFunctionData, Plexa' 2 "$FIRST"

    patched Foo 'DB_StepSets $values 0 PathSetDatas $values 1' \
        'typed("DB_HardwareItem", ItemName="a", Value="b")'
    refused 'Zt.DB_HardwareItem, Drovic' 1 "$(head -n 3 <<<"$FIRST")"

    patched Foo 'DB_StepSets $values 1 PathSetDatas $values 0' 'listed("DB_CopyFunctionDatas", [])'
    refused 'Zt.Plugins.DB_CopyFunctionDatas, Plexa' 2 "$FIRST"
}

@test "wrong objects in the script step: the script for the installation only" {
    patched Foo 'DB_StepSets $values 2 InstallScriptFunctionData' 'listed("DB_HardwareConfigs", [])'
    refused 'Zt.DB_HardwareConfigs, Ruvelo' 3 "$FIRST
$SECOND"

    patched Foo 'DB_StepSets $values 2 UninstallScriptFunctionData' 'listed("DB_HardwareItems", [])'
    install Foo
    expect_status 0
}

@test "wrong objects in the hardware step, from the outside in" {
    local before="$FIRST
$SECOND
$THIRD"
    local settings='DB_StepSets $values 3 HardSettingDatas'
    patched Foo "$settings" 'listed("DB_HardwareConfigs", [])'
    refused 'Zt.DB_HardwareConfigs, Ruvelo' 4 "$before"

    patched Foo "$settings DB_HardwareConfigs" 'listed("DB_HardwareItems", [])'
    refused 'Zt.DB_HardwareItems, Drovic' 4 "$before"

    # The settings before it were applied; what they collected is discarded.
    patched Foo "$settings DB_HardwareConfigs \$values 2" \
        'typed("DB_HardwareItem", ItemName="a", Value="b")'
    refused 'Zt.DB_HardwareItem, Drovic' 4 "$before
[chmod 777 \"/mnt/user/startup.sh\" ]"

    patched Foo "$settings DB_HardwareConfigs \$values 2 HardwareItems" \
        'typed("DB_ScriptFunctionData", ScriptData="")'
    refused 'Zt.Plugins.DB_ScriptFunctionData, Plexa' 4 "$before
[chmod 777 \"/mnt/user/startup.sh\" ]"

    # The items are looked at before any of them is applied.
    patched Foo "$settings DB_HardwareConfigs \$values 1 HardwareItems \$values" \
        '[typed("DB_HardwareItem", ItemName="CustomScript", Value="x"), listed("DB_HardwareItems", [])]'
    refused 'Zt.DB_HardwareItems, Drovic' 4 "$before"
}

@test "an unused setting may hold anything; an unknown kind is found before its items" {
    package Foo <<'END'
hardware(setting("Sound", ("Volume", "5"), used=False), setting("Lan", ("Name", "panel")),
         setting("no kind", ("a", "b")), skip=True)
def spoil(project):
    settings = project["DB_StepSets"]["$values"][0]["HardSettingDatas"]["DB_HardwareConfigs"]["$values"]
    for index in (0, 2):
        settings[index]["HardwareItems"] = typed("DB_ScriptFunctionData", ScriptData="")
change(spoil)
END

    install Foo

    expect_status 0
    expect_out <<'END'
**** Installation step 1/1
no kind is unknown class.
Installation succeeded.
END
    expect_installing Foo <<'END'
[kx-setting-cui set Name=panel ]
END
}

@test "after a wrong object nothing is recorded and the old record is gone" {
    patched Foo Comment '"fine"'
    install Foo --keep
    expect_status 0
    rm -r "$PACKAGES/Foo"
    patched Foo 'DB_StepSets $values 2 InstallScriptFunctionData' 'listed("DB_HardwareItems", [])'

    install Foo --keep --look 'ls -A /var/lib/KxUserPackages'

    expect_status 101
    expect_panel </dev/null
}
