#!/usr/bin/env bats
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
#
# The JSON documents of all commands: each keeps to its schema, which allows no field that it does not
# list, and the manual tells every field. The document of try is looked at where a panel is: tests/device.

load stick
load records

# documents: the names of all documents.
documents() {
    "$KX_PACKAGE" schema --help | grep -oE 'json-[a-z-]+' | sed 's/^json-//' | sort -u
}

# keeps_to NAME FILE...: documents keep to the schema of that name.
keeps_to() {
    "$KX_PACKAGE" schema "json-$1" -o "$1.schema.json"
    /usr/bin/python3 "$BATS_TEST_DIRNAME/json_document.py" "$1.schema.json" "${@:2}"
}

# told NAME STATUS WORD...: a command ends with the status, and its document keeps to the schema.
told() {
    kx "${@:3}" --json
    if [ "$status" -ne "$2" ] || [ -s err ]; then
        echo "${*:3}: status $status, expected $2" >&2
        cat out err >&2
        return 1
    fi
    keeps_to "$1" out
}

@test "what the commands that make something write keeps to its schema" {
    demo pkg
    told build 0 build pkg --updater arm-updater
    printf '#!/no/such/interpreter\r\n' >pkg/bin/hello
    told build 1 build pkg --strict --updater arm-updater -o other.kx-update
    told unpack 0 unpack demo.kx-update -o sources
    told new 0 new recipes
    mkdir taken
    touch taken/file taken/.hidden
    told new 0 new taken
    told new-panel 0 new-panel
    told schema 0 schema manifest -o manifest.json
    told key 0 key new author
    told sign 0 sign demo.kx-update --key author.key.pem
    told sign 0 sign demo.kx-update --key author.key.pem
    told sign 0 sign demo.kx-update --remove
}

@test "what the commands that look at packages write keeps to its schema" {
    demo pkg
    kx build pkg --updater arm-updater
    unzip -q demo.kx-update -d tree
    rm tree/0/0/hello
    chmod 644 tree/kx_Updater
    sed -i 's/SS_HardSetting, Plexa/SS_Other, Plexa/' tree/UserPackage.kx-project
    local package
    for package in demo.kx-update pkg; do
        told check 0 check "$package"
        told show 0 show "$package"
        told plan 0 plan "$package"
    done
    told check 1 check tree
    told check 1 check tree demo.kx-update
    told show 0 show tree
    told plan 1 plan tree
    sed -i 's/"1.0"/"2.0"/; s/"8"/"9"/; s/installed\\n/again\\n/' pkg/package.toml
    rm pkg/share/deep/b.txt
    echo more >pkg/share/more
    chmod 755 pkg/bin/hello
    told diff 1 diff demo.kx-update pkg
    told diff 0 diff demo.kx-update demo.kx-update
    told diff 1 diff demo.kx-update tree
    sed -i 's,^folders = ,fast = true\n&,' pkg/package.toml
    told show 0 show pkg
    [ "$(jq '.fastFolders | length' out)" -eq 1 ]
    told plan 0 plan pkg
    [ "$(jq '.fastFolders | length' out)" -eq 1 ]
}

@test "what the commands that look at records write keeps to its schema" {
    record demo 1.0 /mnt/user -- /mnt/user/gone /mnt/user/folder
    mkdir -p panel/mnt/user/folder panel/var/lib/KxUserPackages/damaged
    told installed 1 installed --root panel
    touch panel/var/lib/KxUserPackages/foreign
    told installed 1 installed --root panel
    told verify 1 verify demo --root panel
    told verify 1 verify damaged --root panel
    rm -r panel/var/lib/KxUserPackages/{damaged,foreign}
    told installed 0 installed --root panel
}

@test "what stick writes keeps to its schema" {
    demo pkg
    kx build pkg --updater arm-updater
    "$KX_PACKAGE" schema json-stick -o stick.schema.json
    export BATS_TEST_DIRNAME
    on_drive size=16m <<'END'
        kx stick --json demo.kx-update drive
        cp out first.json
        touch drive/other.kx-update
        kx stick --json demo.kx-update drive
        cp out second.json
        kx stick --replace --json demo.kx-update drive
        cp out third.json
END
    keeps_to stick first.json second.json third.json
    jq -se 'map(.ready) | sort == [false, true, true]' first.json second.json third.json
}

@test "errors keep to their schema, whatever the command" {
    mkdir empty
    demo pkg
    sed -i 's/^title/name2/; s/"TP-0700"/8/' pkg/package.toml
    told error 1 build pkg
    [ "$(jq '.errors | length' out)" -ge 2 ]
    told error 1 check none
    told error 1 show none
    told error 1 plan none
    told error 1 try none
    told error 1 unpack none -o new
    told error 1 diff none none
    told error 3 new-panel -o none/panel.toml
    told error 3 schema -o none/schema
    told error 1 installed --root none
    told error 2 verify none --root empty
    told error 2 frobnicate
    told error 2 show
    told error 2 --strict
}

@test "a field that no schema lists is noticed" {
    demo pkg
    kx build pkg --updater arm-updater
    kx show --json demo.kx-update
    "$KX_PACKAGE" schema json-show -o show.schema.json
    jq '.steps[0].items[0].more = 1' out >more.json
    jq 'del(.steps[0].canSkip)' out >less.json
    jq '.steps[0].kind = "copyFiles"' out >other.json
    for name in more less other; do
        run /usr/bin/python3 "$BATS_TEST_DIRNAME/json_document.py" show.schema.json "$name.json"
        [ "$status" -eq 1 ]
    done
}

@test "the manual tells every field of every document" {
    local name field
    [ "$(documents | wc -l)" -ge 16 ]
    for name in $(documents); do
        sed -n "/^\.SS \"JSON of $name\"/,/^\.S[SH] /p" "$ROOT/docs/kx-package.1" >section
        for field in $("$KX_PACKAGE" schema "json-$name" |
            jq -r '[.. | .properties? // empty | keys[]] | unique - ["formatVersion"] | .[]'); do
            grep -qxE "\.B[RI]? $field( .*)?" section || {
                echo "the manual does not tell of $field in $name" >&2
                return 1
            }
        done
    done
    sed -n '/^\.SH "JSON DOCUMENTS"/,/^\.SS/p' "$ROOT/docs/kx-package.1" | grep -q formatVersion
}

@test "one spelling of all texts: bytes that are no UTF-8, and control characters" {
    demo pkg
    kx build pkg --updater arm-updater
    unzip -q demo.kx-update -d tree
    mv tree/1/0/deep/b.txt "$(printf 'tree/1/0/deep/b\xff\\\x1b\xc2\x9bx')"
    for words in 'check tree' 'show tree' 'plan tree' 'unpack tree -o new'; do
        # shellcheck disable=SC2086 # words
        kx $words --json
        jq -e . out >/dev/null
        # Neither C0 nor C1 controls, but for the line feeds between the lines.
        ! LC_ALL=C grep -qaP '[\x00-\x09\x0b-\x1f\x7f]|\xc2[\x80-\x9f]' out
    done
    kx show tree --json
    jq -e '.recorded.files[] | select(endswith("deep/b\\xff\\\u001b\u009bx"))' out
}
