#!/usr/bin/env bats
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
#
# The files in the page for integrators are as its readers will copy them.

load package

# page: writes the page's TOML texts to 1.toml, 2.toml …, in order.
page() {
    awk '/^```toml$/ { n++; on = 1; next } /^```$/ { on = 0 } on { print >(n ".toml") }' \
        "$ROOT/docs/panel.md"
}

# judged STATUS PACKAGE: what a panel with the keys, that asks for signatures, says to a package.
judged() {
    kx check --panel 2.toml --keys keys --require-signature "$2"
    [ "$status" -eq "$1" ] || {
        cat out err >&2
        return 1
    }
}

# makes FOLDER KEY...: builds and signs FOLDER/panel-keys.kx-update.
makes() {
    local folder=$1 key
    shift
    kx build "$folder" --updater arm-updater -o "$folder/panel-keys.kx-update"
    [ "$status" -eq 0 ]
    for key in "$@"; do
        kx sign --key "$key.key.pem" "$folder/panel-keys.kx-update"
        [ "$status" -eq 0 ]
    done
}

@test "the descriptions of a panel are taken, and say what holds without them" {
    page
    kx schema panel -o schema.json
    demo pkg
    sed -i 's/^processor.*/processor = "arm"/' pkg/package.toml
    for n in 1 2; do
        kx build pkg --panel "$n.toml" --updater arm-updater -o demo.kx-update
        [ "$status" -eq 0 ]
        /usr/bin/python3 -c 'import json, sys, tomllib
print(json.dumps(tomllib.load(open(sys.argv[1], "rb"))))' "$n.toml" >"$n.json"
        /usr/bin/python3 -m jsonschema -i "$n.json" schema.json
    done
    diff <(jq -S '[{signatures, downgrade, state, updater}, .limits]' 2.json) \
        <(jq -S '.properties | [{signatures: .signatures.default, downgrade: .downgrade.default,
            state: .state.default, updater: .updater.default},
            (.limits.properties | map_values(.default))]' schema.json)
    # Every limit of the table, with its bounds in words.
    diff <(jq -r '.properties.limits.properties | keys[]' schema.json) \
        <(sed -n '/^| Key of .*limits/,/^$/s/^| .\([a-z]*-[a-z-]*\|entries\). .*/\1/p' "$ROOT/docs/panel.md" | sort)
}

@test "keys are changed as the page tells" {
    page
    kx key new release-2026
    kx key new release-2028
    mkdir keys first second old
    cp release-2026.pub.pem keys
    mv 4.toml first/package.toml
    mv 5.toml second/package.toml
    mv 6.toml second/release-2026.toml
    cp release-2028.pub.pem first
    cp release-2028.pub.pem second

    makes first release-2026
    makes second release-2026 release-2028
    judged 0 first/panel-keys.kx-update
    # The second one also helps a panel that has missed the first.
    judged 0 second/panel-keys.kx-update

    # What the second one copies.
    cp release-2028.pub.pem second/release-2026.toml keys
    judged 1 first/panel-keys.kx-update
    grep -F "the key 'release-2026'" out
    grep -F 'is revoked' out
    judged 0 second/panel-keys.kx-update

    # What a power cut leaves of the file beside the key opens no door.
    : >keys/release-2026.toml
    judged 1 first/panel-keys.kx-update
    grep -F 'keys/release-2026.toml: says nothing' out
}

@test "the limits of a key are read as the page shows them" {
    page
    demo pkg
    kx build pkg --updater arm-updater -o recipes.kx-update
    kx key new build
    kx sign --key build.key.pem recipes.kx-update
    mkdir keys
    cp build.pub.pem keys
    cp 3.toml keys/build.toml
    judged 0 recipes.kx-update
    mv recipes.kx-update other.kx-update
    kx sign --remove other.kx-update
    kx sign --key build.key.pem other.kx-update
    judged 1 other.kx-update
}
