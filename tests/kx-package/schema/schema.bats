#!/usr/bin/env bats
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
#
# kx-package schema, as a user starts it, and its agreement with the updater's reader.
#   KX_PACKAGE          the program (default: build/dev/kx-package)
#   KX_READER_VERDICT   asks the reader (default: that of build/dev)

SOURCES=$(cd "$BATS_TEST_DIRNAME/../../.." && pwd)
KX_PACKAGE=${KX_PACKAGE:-$SOURCES/build/dev/kx-package}
KX_READER_VERDICT=${KX_READER_VERDICT:-$SOURCES/build/dev/tests/kx-package/schema/kx_reader_verdict}

load ../package

# description FILE: builds the package of a folder and takes its description out.
description() {
    kx build "$1" --updater "$2" -o package.kx-update
    [ "$status" -eq 0 ]
    unzip -p package.kx-update UserPackage.kx-project >"$3"
    rm package.kx-update
}

@test "the schema takes what the reader takes, but for classes and kinds" {
    kx new recipes
    description recipes updater new.kx-project
    demo demo
    description demo arm-updater demo.kx-project
    local example
    for example in hello settings application; do
        description "$SOURCES/examples/$example" arm-updater "$example.kx-project"
    done
    kx schema -o schema.json

    # The updater's own classes are abandoned below damaged objects, which is no leak of the test.
    run /usr/bin/python3 "$BATS_TEST_DIRNAME/agreement.py" --schema schema.json \
        --reader "$KX_READER_VERDICT" --corpus "$SOURCES/tests/fuzz/corpus/reader" \
        new.kx-project demo.kx-project "$SOURCES"/tests/kx-package/golden/*.kx-project \
        hello.kx-project settings.kx-project application.kx-project

    echo "$output"
    [ "$status" -eq 0 ]
}

@test "schema writes to standard output what it writes to a file" {
    kx schema
    expect 0 "$(cat out)"$'\n' ''
    mv out first
    kx schema -o -
    cmp out first

    kx schema --output schema.json
    expect 0 '' ''
    cmp schema.json first

    kx schema -o schema.json --json
    expect 0 $'{\n  "file": "schema.json",\n  "formatVersion": 1\n}\n' ''
    cmp schema.json first
}

@test "schema knows no hosts but that of the draft" {
    kx schema

    [ "$(grep -o '[a-z]*://[^"]*' <(sed 's,\\/,/,g' out))" = \
        https://json-schema.org/draft/2020-12/schema ]
    jq -e '."$id" == "urn:kx-updater:package-description"' out
}

@test "the schemas of the TOML files take what their readers take" {
    kx schema panel -o panel.json
    kx schema manifest -o manifest.json

    run /usr/bin/python3 "$BATS_TEST_DIRNAME/toml_agreement.py" --tool "$KX_PACKAGE" \
        --panel panel.json --manifest manifest.json "$SOURCES"/examples/*/package.toml

    echo "$output"
    [ "$status" -eq 0 ]
}

@test "schema says what it cannot write" {
    kx schema -o none/schema.json
    [ "$status" -eq 3 ]
    [ ! -s out ]
    grep -q '^kx-package: none/schema.json: cannot .*: No such file or directory$' err

    kx schema -o none/schema.json --json
    [ "$status" -eq 3 ]
    [ ! -s err ]
    jq -e '.error.code == 3 and .error.place == "none/schema.json"' out

    mkdir folder
    kx schema -o folder
    [ "$status" -eq 3 ]
    [ -d folder ]

    kx schema -o ''
    expect 2 '' $'kx-package: --output: does not name a file; name one, or - for standard output\n'

    status=0
    "$KX_PACKAGE" schema >/dev/full 2>err || status=$?
    [ "$status" -eq 3 ]
    [ "$(cat err)" = 'kx-package: standard output: cannot be written' ]
}

@test "schema refuses what it does not know" {
    kx schema file.json
    [ "$status" -eq 2 ]
    [ ! -s out ]
    kx schema panle
    expect 2 '' $'kx-package: schema: there is none of \'panle\'; did you mean \'panel\'?\n'
    kx schema --strict
    [ "$status" -eq 2 ]
}

@test "schema keeps an older file when the disk is full" {
    echo old >schema.json
    # A limit of one block stands for the full disk.
    status=0
    (trap '' XFSZ && ulimit -f 1 && exec "$KX_PACKAGE" schema -o schema.json) >out 2>err || status=$?

    [ "$status" -eq 3 ]
    [ "$(cat schema.json)" = old ]
    [ "$(find . -name '*schema*')" = ./schema.json ]
    grep -q '^kx-package: schema.json: cannot write: ' err
}
