#!/usr/bin/env bats
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
#
# The package of the demonstration, which is made of two examples: on a copy of them, a change that
# it does not know is told.

ROOT=$(cd "$BATS_TEST_DIRNAME/../.." && pwd)

setup() {
    cd "$BATS_TEST_TMPDIR" || return
    mkdir -p tree/scripts
    cp -R "$ROOT/scripts/kxscripts" tree/scripts
    cp -R "$ROOT/examples" tree
}

# hello [FOLDER...]: leaves $status and $output.
hello() {
    run env PYTHONPATH=tree/scripts /usr/bin/python3 -B -m kxscripts.hello "$@"
    echo "$output"
}

# expect_refused: the examples are others than the module knows.
expect_refused() {
    hello out
    [ "$status" -eq 1 ]
    [ "$output" = 'hello: the examples hello and settings do not go together any more; see scripts/kxscripts/hello.py' ]
}

@test "the package has the files of both examples, and the steps of the first before the second's" {
    hello out

    [ "$status" -eq 0 ]
    [ "$output" = '' ]
    [ "$(cd out && find . -type f | LC_ALL=C sort)" = \
        "$(cd tree/examples && (cd hello && find . -type f && cd ../settings && find . -type f) |
            LC_ALL=C sort -u)" ]
    [ "$(grep '^kind = ' out/package.toml | head -n 4)" = 'kind = "copy-files"
kind = "copy-folder"
kind = "script"
kind = "settings"' ]
    grep -qx 'comment = "Installs a greeting, its texts and a start-up script"' out/package.toml
    [ "$(grep -cx '\[package\]' out/package.toml)" -eq 1 ]
}

@test "examples that do not go together any more are refused" {
    local manifest=tree/examples/hello/package.toml
    sed -i.kept 's/^comment = "Installs a greeting and/comment = "Installs/' "$manifest"
    expect_refused

    sed '/^comment = "Installs/p' "$manifest.kept" >"$manifest"
    expect_refused

    mv "$manifest.kept" "$manifest"
    sed -i '/^\[\[steps\]\]/,$d' tree/examples/settings/package.toml
    expect_refused

    rm -r tree/examples/settings
    hello out
    [ "$status" -eq 1 ]
    [[ $output == 'hello: '*"tree/examples/settings'"* ]]
}

@test "it needs one folder" {
    hello
    [ "$status" -eq 2 ]
    [ "$output" = 'hello: needs one FOLDER' ]

    hello one two
    [ "$status" -eq 2 ]
    [ ! -e one ]
}
