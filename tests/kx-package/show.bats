#!/usr/bin/env bats
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
#
# kx-package show, as a user starts it.

load package

@test "show tells all about a package, with passwords masked" {
    demo pkg
    kx build pkg --updater arm-updater

    kx show demo.kx-update

    expect 0 "$(cat "$BATS_TEST_DIRNAME/golden/demo.show")"$'\n' ''
}

@test "show tells the same of the unpacked package" {
    demo pkg
    kx build pkg --updater arm-updater
    unzip -q demo.kx-update -d demo.temp

    kx show --json demo.kx-update
    mv out archive.json
    kx show --json demo.temp

    diff <(jq 'del(.package, .isArchive)' archive.json) <(jq 'del(.package, .isArchive)' out)
    jq -e '.isArchive' archive.json
    jq -e '.isArchive | not' out
}

@test "show's JSON is stable" {
    demo pkg
    kx build pkg --updater arm-updater

    kx show --json demo.kx-update

    expect 0 "$(cat "$BATS_TEST_DIRNAME/golden/demo.show.json")"$'\n' ''
    [ "$(grep -c secret out)" -eq 0 ]
}

@test "show tells as recorded what plan does, and what a panel would" {
    mkdir -p pkg/tree/etc
    : >pkg/app.bin
    : >pkg/tree/etc/conf
    cat >pkg/package.toml <<'END'
[package]
name = "app"
title = "App"
version = "1.0"
comment = ""
model = "TP-0700"
os-version = "2.1.0"
date = 2026-11-21
processor = "arm"

[[steps]]
kind = "copy-files"
files = [{ source = "app.bin", target = "/opt/app.bin", mode = "755" },
         { source = "app.bin", target = "/opt/new/app.bin", mode = "755" }]

[[steps]]
kind = "copy-folder"
folders = [{ source = "tree", target = "/" }]
END
    kx build pkg --updater arm-updater
    kx plan --json app.kx-update
    jq '[.recordedFolders, .recordedFiles]' out >plan.json

    kx show --json app.kx-update

    jq '[.recorded.folders, .recorded.files]' out | diff plan.json -
    # Only what has to be made: /opt and /etc are there.
    [ "$(jq -c .recorded.folders out)" = '["/opt/new/","/var/lib/KxUserPackages/app"]' ]
}

@test "show tells why nothing is recorded of a package that fails" {
    demo pkg
    kx build pkg --updater arm-updater
    unzip -q demo.kx-update -d demo.temp
    rm demo.temp/0/0/hello

    kx show demo.temp

    [ "$status" -eq 0 ]
    [ "$(tail -n 2 out)" = 'recorded on the panel
  nothing. The installation fails: Installation failed in step 1.' ]
    kx show --json demo.temp
    jq -e '.recorded == {"files": [], "folders": [],
        "why": "The installation fails: Installation failed in step 1."}' out
}

@test "show tells what is unusual about a package" {
    demo pkg
    kx build pkg --updater arm-updater
    unzip -q demo.kx-update -d demo.temp
    rm -r demo.temp/1
    chmod a-x demo.temp/kx_Updater
    cp demo.temp/UserPackage.kx-project usual
    {
        printf '\xef\xbb\xbf'
        # shellcheck disable=SC2016 # the $ of JSON keys
        tail -c +4 usual | jq '.DB_StepSets."$values" |= (
            .[0] += {"Comment": "the\ttools", "CanSkip": true, "IsRemove": false} |
            .[0].PathSetDatas."$values"[0].Permissions = "" |
            .[2].SS_StepSetId = "Odd\tkind" |
            .[3].HardSettingDatas.DB_HardwareConfigs."$values" |= (
                .[0].IsUsed = false | .[1].ConfigId = "N\tew"))'
    } >demo.temp/UserPackage.kx-project

    kx show demo.temp

    [ "$status" -eq 0 ]
    grep '^  updater\|^  payload' out >seen
    sed -n '/^step/,/^recorded/p' out >>seen
    diff - seen <<'END'
  updater:   for arm, 86 bytes, not executable
  payload:   1 file, 10 bytes
step 1 of 4: copy-files, may fail (the\x09tools)
  bin/hello -> /mnt/user/bin/hello, mode 777, 10 bytes

step 2 of 4: copy-folder, recorded
  share -> /mnt/user/share, 0 files, no payload

step 3 of 4: unknown kind Odd\x09kind

step 4 of 4: settings
  backlight (not used): Level=8
  N\x09ew (unknown kind): User=user Password=********

recorded on the panel
END
    echo text >demo.temp/kx_Updater
    kx show demo.temp
    grep -qx '  updater:   no program, 5 bytes, not executable' out
    rm demo.temp/kx_Updater
    kx show demo.temp
    grep -qx '  updater:   missing' out
}

@test "show says what it cannot read" {
    kx show none.kx-update
    expect 1 '' $'kx-package: none.kx-update: cannot open: No such file or directory\n'
    echo text >x.kx-update
    kx show x.kx-update
    expect 1 '' $'kx-package: x.kx-update: cannot open the archive: Not a zip archive\n'
    mkdir folder
    kx show folder --json
    [ "$status" -eq 1 ]
    jq -e '.error.message == "there is no UserPackage.kx-project at its top level"' out
    [ ! -s err ]
}

@test "nothing in a package can play with the terminal" {
    demo pkg
    sed -i 's/comment = "for tests"/comment = "\\u001b[31mred\\u009b"/' pkg/package.toml
    kx build pkg --updater arm-updater

    kx show demo.kx-update

    grep -qF '  comment:   \x1b[31mred\xc2\x9b' out
}

@test "a package is taken from standard input, too" {
    demo pkg
    kx build pkg --updater arm-updater

    for command in 'show --json' 'plan --json --at /media' 'check --json --processor arm'; do
        # shellcheck disable=SC2086 # words
        "$KX_PACKAGE" $command - <demo.kx-update >out 2>err
        diff err /dev/null
        # shellcheck disable=SC2086
        "$KX_PACKAGE" $command demo.kx-update >named
        diff <(sed 's/"package\.kx-update"/"demo.kx-update"/; s/"-"/"demo.kx-update"/
            s/package\.\(kx-update\|temp\)/demo.\1/g; s,UserPackages\\/package,UserPackages\\/demo,g
            s/"recordName": "package"/"recordName": "demo"/' out) named
    done
    "$KX_PACKAGE" build pkg --updater arm-updater -o - | "$KX_PACKAGE" check -
    status=0
    "$KX_PACKAGE" show - <&- >out 2>err || status=$?
    [ "$status" -eq 1 ]
    "$KX_PACKAGE" show - </dev/null >out 2>err || status=$?
    [ "$status" -eq 1 ]
    status=0
    script -qec "$KX_PACKAGE show -" /dev/null </dev/null >out || status=$?
    [ "$status" -eq 2 ]
    grep -q 'standard input is a terminal' out
    [ -z "$(find "${TMPDIR:-/tmp}" -maxdepth 1 -name 'kx-package.*' -newer pkg/package.toml)" ]
}
