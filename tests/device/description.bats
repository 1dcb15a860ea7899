#!/usr/bin/env bats
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
#
# Package descriptions that cannot be read, and odd ones that can.

# shellcheck disable=SC2016 # "$values" and the like are names of the format

load device

# nothing_ran COUNT: so many updaters ran, and each ran "sync" twice and nothing else.
nothing_ran() {
    commands | sort | uniq -c | sed 's/^ *//' >"$WORK/counts"
    same "$WORK/counts" 'the commands' <<<"$((2 * $1)) [sync]"
}

@test "files that are missing, no files, or too short" {
    mkdir -p "$PACKAGES/missing" "$PACKAGES/folder/UserPackage.kx-project"
    package empty <<<'description(b"")'
    package three <<<'description(b"\xef\xbb\xbf")'
    package four <<<'description(b"\xef\xbb\xbf{")'

    install_each none missing folder empty three four

    expect_out <<'END'
== none
Unable to access /packages/none/UserPackage.kx-project file.
-- exit code 101
== missing
Unable to access /packages/missing/UserPackage.kx-project file.
-- exit code 101
== folder
Unable to access /packages/folder/UserPackage.kx-project file.
-- exit code 101
== empty
/packages/empty/UserPackage.kx-project file is corrupted.
-- exit code 101
== three
/packages/three/UserPackage.kx-project file is corrupted.
-- exit code 101
== four
 Unable to analyze the data in /packages/four/UserPackage.kx-project file.
-- exit code 101
END
    nothing_ran 6
}

@test "text that is no JSON, or JSON that is refused, is reported and ends with 101" {
    local mark='b"\xef\xbb\xbf"'
    package no-mark <<'END'
description(b'{"$type": "Zt.Plugins.DB_KxUserProject, Plexa"}')
END
    package word <<<"description($mark + b'package')"
    package open-list <<<"description($mark + b'{\"a\": [1, 2')"
    package comma <<<"description($mark + b'{\"a\": 1,}')"
    package zero-byte <<<"description($mark + b'{\"a\"\0: 1}')"
    package escape <<<"description($mark + b'{\"a\": \"\\\\x41\"}')"
    package short-escape <<<"description($mark + b'{\"a\": \"\\\\u12\"}')"
    package half-pair <<<"description($mark + b'{\"a\": \"\\\\ud800\"}')"
    package line-end <<<"description($mark + b'{\"a\": \"two\nlines\"}')"
    package too-large <<<"description($mark + b'{\"a\": 1e999}')"
    package lists <<<"description($mark + b'{\"a\": ' + b'[' * 101 + b']' * 101 + b'}')"
    package objects <<<"description($mark + b'{\"a\": ' * 50000 + b'1' + b'}' * 50000)"
    package endless <<<"description($mark + b'[' * 1000000)"

    local names=(no-mark word open-list comma zero-byte escape short-escape half-pair line-end
        too-large lists objects endless)
    install_each "${names[@]}"

    local name
    for name in "${names[@]}"; do
        echo "== $name"
        echo " Unable to analyze the data in /packages/$name/UserPackage.kx-project file."
        echo '-- exit code 101'
    done | expect_out
    nothing_ran 13
}

@test "a thousand objects, one in another, can be read" {
    package Foo <<'END'
deep = {}
for _ in range(998):
    deep = {"a": deep}
change(lambda project: project.update(Extra=deep))
END
    package Bar <<'END'
deep = {}
for _ in range(999):
    deep = {"a": deep}
change(lambda project: project.update(Extra=deep))
END

    install_each Foo Bar

    expect_out <<'END'
== Foo
Installation succeeded.
-- exit code 0
== Bar
 Unable to analyze the data in /packages/Bar/UserPackage.kx-project file.
-- exit code 101
END
}

@test "a root without a usable type, or of another class, is no package" {
    local name names=(nothing number empty unknown case blanks other)
    package nothing <<<'description(b"\xef\xbb\xbf{}")'
    package number <<<'change(lambda p: p.update({"$type": 7}))'
    package empty <<<'change(lambda p: p.update({"$type": ""}))'
    package unknown <<<'change(lambda p: p.update({"$type": "100%s of %n"}))'
    package case <<<'change(lambda p: p.update({"$type": "zt.plugins.db_kxuserproject, plexa"}))'
    package blanks <<<'change(lambda p: p.update({"$type": "Zt.Plugins.DB_KxUserProject,  Plexa"}))'
    package other <<'END'
change(lambda p: (p.clear(), p.update(typed("DB_ScriptFunctionData", ScriptData="x"))))
END

    install_each "${names[@]}"

    for name in "${names[@]}"; do
        echo "== $name"
        case $name in
            nothing | number) echo '$type is nothing' ;;
            empty) echo '$type is empty' ;;
            unknown) echo '100%s of %n is unknown class.' ;;
            case) echo 'zt.plugins.db_kxuserproject, plexa is unknown class.' ;;
            blanks) echo 'Zt.Plugins.DB_KxUserProject,  Plexa is unknown class.' ;;
        esac
        echo "/packages/$name/UserPackage.kx-project file is not kx-package."
        echo ' Root object of this file is not DB_KxUserProject.'
        echo '-- exit code 101'
    done | expect_out
    nothing_ran 7
}

@test "a root that is no object ends the process by SIGABRT, without the second sync" {
    package array <<<'description(b"\xef\xbb\xbf[]")'
    package digit <<<'description(b"\xef\xbb\xbf7")'
    package string <<<'description(b"\xef\xbb\xbf\"text\"")'
    package null <<<'description(b"\xef\xbb\xbfnull")'

    install array

    expect_status 134
    expect_out </dev/null
    grep -q 'std::runtime_error' "$ERR"
    expect_commands <<<'[sync]'

    install_each digit string null
    [ "$(grep -c '^-- exit code 134$' "$OUT")" -eq 3 ]
    [ "$(commands)" = $'[sync]\n[sync]\n[sync]' ]
}

@test "every field of the root is needed, with its type" {
    local key
    for key in ModelName OsVersion PackageVersion Title Comment Date DB_StepSets; do
        package "no-$key" <<<"change(lambda p: p.pop('$key'))"
        package "bad-$key" <<<"change(lambda p: p.update($key=12))"
    done
    local names=()
    for key in ModelName OsVersion PackageVersion Title Comment Date DB_StepSets; do
        names+=("no-$key" "bad-$key")
    done

    install_each "${names[@]}"

    local name
    for name in "${names[@]}"; do
        echo "== $name"
        echo "No Zt.Plugins.DB_KxUserProject, Plexa.${name#*-} field specified in .kx-project ."
        echo 'Initialized error in Zt.Plugins.DB_KxUserProject, Plexa class.'
        echo "/packages/$name/UserPackage.kx-project file is not kx-package."
        echo ' Root object of this file is not DB_KxUserProject.'
        echo '-- exit code 101'
    done | expect_out
    nothing_ran 14
}

@test "every field of every object below the root is needed: no step of such a package runs" {
    # The key to take away, and where it stands.
    local number=0 path names=()
    while read -r path; do
        number=$((number + 1))
        names+=("$number")
        package "$number" <<END
copy_file(item("a", "/opt/a"))
script("#!/bin/sh\n")
hardware(setting("Sound", ("Volume", "5")))
def take(project):
    *where, last = [int(p) if p.isdigit() else p for p in "$path".split()]
    for part in ["DB_StepSets", "\$values"] + where:
        project = project[part]
    del project[last]
change(take)
END
    done <<'END'
0 SS_StepSetId
0 Comment
0 CanSkip
0 IsRelativePath
0 IsRemove
0 PathSetDatas
0 PathSetDatas $values
0 PathSetDatas $values 0 SourcePath
0 PathSetDatas $values 0 DestinationPath
0 PathSetDatas $values 0 Permissions
1 InstallScriptFunctionData
1 UninstallScriptFunctionData
1 InstallScriptFunctionData ScriptData
1 UninstallScriptFunctionData ScriptData
2 HardSettingDatas
2 HardSettingDatas DB_HardwareConfigs
2 HardSettingDatas DB_HardwareConfigs $values
2 HardSettingDatas DB_HardwareConfigs $values 0 ConfigId
2 HardSettingDatas DB_HardwareConfigs $values 0 IsUsed
2 HardSettingDatas DB_HardwareConfigs $values 0 HardwareItems
2 HardSettingDatas DB_HardwareConfigs $values 0 HardwareItems $values
2 HardSettingDatas DB_HardwareConfigs $values 0 HardwareItems $values 0 ItemName
2 HardSettingDatas DB_HardwareConfigs $values 0 HardwareItems $values 0 Value
END

    install_each "${names[@]}"

    # The first line of each names what is missing; the last ones are those of any bad package.
    grep -A 1 '^==' "$OUT" | grep -vE '^(==|--)' >"$WORK/first"
    same "$WORK/first" 'the first lines' <<'END'
No Zt.Plugins.DB_CopyStepSet, Plexa.SS_StepSetId field specified in .kx-project .
No Zt.Plugins.DB_CopyStepSet, Plexa.Comment field specified in .kx-project .
No Zt.Plugins.DB_CopyStepSet, Plexa.CanSkip field specified in .kx-project .
No Zt.Plugins.DB_CopyStepSet, Plexa.IsRelativePath field specified in .kx-project .
No Zt.Plugins.DB_CopyStepSet, Plexa.IsRemove field specified in .kx-project .
No Zt.Plugins.DB_CopyStepSet, Plexa.PathSetDatas field specified in .kx-project .
Initialized array error in Zt.Plugins.DB_CopyFunctionDatas, Plexa class.
No Zt.Plugins.DB_CopyFunctionData, Plexa.SourcePath field specified in .kx-project .
No Zt.Plugins.DB_CopyFunctionData, Plexa.DestinationPath field specified in .kx-project .
No Zt.Plugins.DB_CopyFunctionData, Plexa.Permissions field specified in .kx-project .
No Zt.Plugins.DB_ScriptStepSet, Plexa.InstallScriptFunctionData field specified in .kx-project .
No Zt.Plugins.DB_ScriptStepSet, Plexa.UninstallScriptFunctionData field specified in .kx-project .
No Zt.Plugins.DB_ScriptFunctionData, Plexa.ScriptData field specified in .kx-project .
No Zt.Plugins.DB_ScriptFunctionData, Plexa.ScriptData field specified in .kx-project .
No Zt.Plugins.DB_HardSettingStepSet, Plexa.HardSettingDatas field specified in .kx-project .
No Zt.Plugins.DB_HardSettingFunctionData, Plexa.DB_HardwareConfigs field specified in .kx-project .
Initialized array error in Zt.DB_HardwareConfigs, Ruvelo class.
No Zt.DB_HardwareConfig, Ruvelo.ConfigId field specified in .kx-project .
No Zt.DB_HardwareConfig, Ruvelo.IsUsed field specified in .kx-project .
No Zt.DB_HardwareConfig, Ruvelo.HardwareItems field specified in .kx-project .
Initialized array error in Zt.DB_HardwareItems, Drovic class.
No Zt.DB_HardwareItem, Drovic.ItemName field specified in .kx-project .
No Zt.DB_HardwareItem, Drovic.Value field specified in .kx-project .
END
    [ "$(grep -c '^-- exit code 101$' "$OUT")" -eq 23 ]
    [ "$(grep -c '^ Root object of this file is not DB_KxUserProject.$' "$OUT")" -eq 23 ]
    nothing_ran 23
}

@test "one bad leaf is reported from the inside out" {
    package Foo <<'END'
copy_file(item("a", "/opt/a"))
hardware(setting("Sound", ("Volume", "5")), setting("Backlight", ("Level", 8)))
END

    install Foo

    expect_status 101
    expect_out <<'END'
No Zt.DB_HardwareItem, Drovic.Value field specified in .kx-project .
Initialized error in Zt.DB_HardwareItem, Drovic class.
Initialized error in Zt.DB_HardwareItems, Drovic class.
No Zt.DB_HardwareConfig, Ruvelo.HardwareItems field specified in .kx-project .
Initialized error in Zt.DB_HardwareConfig, Ruvelo class.
Initialized error in Zt.DB_HardwareConfigs, Ruvelo class.
No Zt.Plugins.DB_HardSettingFunctionData, Plexa.DB_HardwareConfigs field specified in .kx-project .
Initialized error in Zt.Plugins.DB_HardSettingFunctionData, Plexa class.
No Zt.Plugins.DB_HardSettingStepSet, Plexa.HardSettingDatas field specified in .kx-project .
Initialized error in Zt.Plugins.DB_HardSettingStepSet, Plexa class.
Initialized error in Zt.Plugins.DB_StepSets, Plexa class.
No Zt.Plugins.DB_KxUserProject, Plexa.DB_StepSets field specified in .kx-project .
Initialized error in Zt.Plugins.DB_KxUserProject, Plexa class.
/packages/Foo/UserPackage.kx-project file is not kx-package.
 Root object of this file is not DB_KxUserProject.
END
    expect_silence
    nothing_ran 1
}

@test "lists that are none, and flags that are not true or false" {
    package zero <<<'copy_file(skip=0)'
    package text <<<'copy_file(skip="false")'
    package no-list <<<'change(lambda p: p["DB_StepSets"].update({"$values": {}}))'
    package no-object <<<'step("a step")'
    package null <<<'step(None)'

    install_each zero text no-list no-object null

    sed -n '/^==/p; /^Initialized array/p; /^No .*Plexa.CanSkip/p' "$OUT" >"$WORK/lines"
    same "$WORK/lines" 'the lines' <<'END'
== zero
No Zt.Plugins.DB_CopyStepSet, Plexa.CanSkip field specified in .kx-project .
== text
No Zt.Plugins.DB_CopyStepSet, Plexa.CanSkip field specified in .kx-project .
== no-list
Initialized array error in Zt.Plugins.DB_StepSets, Plexa class.
== no-object
Initialized array error in Zt.Plugins.DB_StepSets, Plexa class.
== null
Initialized array error in Zt.Plugins.DB_StepSets, Plexa class.
END
    nothing_ran 5
}

@test "unknown keys, another order, other white space and text behind the end are accepted" {
    package Foo <<'END'
import json
def shuffle(value):
    if isinstance(value, dict):
        return {key: shuffle(value[key]) for key in reversed(list(value))} | {"Extra": [1.5, None]}
    return [shuffle(entry) for entry in value] if isinstance(value, list) else value
tree = typed("DB_KxUserProject", ModelName="", OsVersion="", PackageVersion="", Title="",
             Comment="", Date="", DB_StepSets=listed("DB_StepSets", [typed(
                 "DB_ScriptStepSet", SS_StepSetId=STEPS["Script"], Comment="", CanSkip=False,
                 InstallScriptFunctionData=typed("DB_ScriptFunctionData",
                                                 ScriptData="#!/bin/sh\necho it runs\n"),
                 UninstallScriptFunctionData=typed("DB_ScriptFunctionData", ScriptData=""))]))
text = json.dumps(shuffle(tree), indent="\t").replace("\n", "\r\n")
description(b"xyz \r\n" + text.encode() + b"} and more [ \xff")
END

    install Foo

    expect_status 0
    expect_out <<'END'
**** Installation step 1/1
it runs
Installation succeeded.
END
}

@test "a step of unknown kind ends the installation before its step line, earlier steps stay" {
    package Foo <<'END'
copy_file(item("a", "/opt/a"))
script("#!/bin/sh\necho never\n", skip=True)
change(lambda p: p["DB_StepSets"]["$values"][1].update(
    SS_StepSetId="Zt.Plugins.SS_ScriptStepSet, Plexa"))
END

    install Foo --look 'cat /opt/a'

    expect_status 101
    expect_out <<'END'
**** Installation step 1/2
Zt.Plugins.SS_ScriptStepSet, Plexa is unknown class.
Zt.Plugins.SS_ScriptStepSet, Plexa is not support functon.
END
    expect_failing <<'END'
[cp -f "/packages/Foo/0/0/a" "/opt/a" ]
[chmod 777 "/opt/a" ]
END
    expect_panel <<<payload
}
