#!/usr/bin/env bats
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
#
# kx-package new-panel, as a user starts it.

load package

# values FILE: the file's values as JSON.
values() {
    /usr/bin/python3 -c 'import json, sys, tomllib
print(json.dumps(tomllib.load(open(sys.argv[1], "rb"))))' "$1"
}

@test "new-panel makes a description that says nothing yet" {
    kx new-panel
    expect 0 $'Made panel.toml. Change it, then name it in the manifest or with --panel.\n' ''

    [ "$(values panel.toml)" = '{"format": 1}' ]
}

@test "every line that is commented out may be taken in, and is known to the schema" {
    kx new-panel
    mkdir panel-root
    sed -i 's/^#\([a-z-]* = \|\[\|[A-Z][a-z]* = {\)/\1/' panel.toml
    kx schema panel -o schema.json

    values panel.toml >panel.json
    jq -e 'keys == (["c-library", "downgrade", "float-abi", "format", "interpreters", "libraries",
        "limits", "models", "os-versions", "places", "processor", "protected", "root", "settings",
        "shell", "signatures", "state", "updater", "users"])' panel.json
    /usr/bin/python3 -m jsonschema -i panel.json schema.json
    [ "$(jq -c '.properties | keys' schema.json)" = "$(jq -c keys panel.json)" ]
    [ "$(jq -c '.properties.limits.properties | map_values(.default)' schema.json)" = \
        "$(jq -c '.limits | to_entries | sort_by(.key) | from_entries' panel.json)" ]
    jq -e '[.signatures, .downgrade, .state, .updater] ==
        ["required", "refuse", "/var/lib/kx-panel", "/usr/bin/kx_Updater"]' panel.json
}

@test "new-panel fills in what a copy of a panel's files tells" {
    mkdir -p root/{bin,lib,etc}
    cp arm-updater root/bin/dash
    ln -s dash root/bin/sh
    touch root/lib/lib'"q".so' root/lib/libc.so.6 root/lib/ld-linux-armhf.so.3
    echo 'user:x:1:1::/:/bin/sh' >root/etc/passwd

    kx new-panel --root root -o -

    [ "$status" -eq 0 ]
    mv out panel.toml
    diff - <(values panel.toml) <<'END'
{"format": 1, "processor": "arm", "libraries": ["ld-linux-armhf.so.3", "lib\"q\".so", "libc.so.6"], "interpreters": ["/bin/dash", "/bin/sh", "/lib/ld-linux-armhf.so.3"], "shell": "dash", "users": ["user"]}
END
}

@test "new-panel overwrites nothing, and says what it made" {
    echo mine >panel.toml
    kx new-panel
    expect 3 '' $'kx-package: panel.toml: cannot write: File exists\n'
    [ "$(cat panel.toml)" = mine ]

    kx new-panel -o tp.toml --json
    expect 0 $'{\n  "file": "tp.toml",\n  "formatVersion": 1\n}\n' ''
    kx new-panel -o - --json
    [ "$status" -eq 2 ]
    kx new-panel --root none
    [ "$status" -eq 1 ]
}
