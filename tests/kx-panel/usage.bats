#!/usr/bin/env bats
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
#
# kx-panel's command line: help, completion and manual page tell the same, mistyped words are told,
# and the program asks for no library that a panel does not have for it.

bats_require_minimum_version 1.5.0
load panel
load ../support/command_line
export PROGRAM=$KX_PANEL

setup() {
    work_here "$KX_PANEL"
}

# kx ARGUMENT...: starts kx-panel with words by which it looks at nothing of this machine; leaves
# $status, and the files out and err.
kx() {
    status=0
    "$KX_PANEL" "$@" >out 2>err </dev/null || status=$?
}

@test "the help lists the commands" {
    commands | diff - <(printf '%s\n' check install status history schema completion help version)
}

@test "help tells what --help tells, of the program and of every command" {
    local command
    "$KX_PANEL" --help | diff - <("$KX_PANEL" help)
    for command in $(commands); do
        "$KX_PANEL" "$command" --help | diff - <("$KX_PANEL" help "$command")
    done
}

@test "the version is told in three ways, and is that of the companion programs" {
    local version words
    version=$(sed -n 's/^set(KX_COMPANION_VERSION \([0-9.]*\))$/\1/p' "$ROOT/CMakeLists.txt")
    for words in --version -V version; do
        kx "$words"
        expect 0 "kx-panel $version"$'\n' ''
    done
}

@test "commands, options and values are offered" {
    local command
    diff <(complete_words kx-panel '' | sort) <({
        commands
        options
    } | sort)
    for command in $(commands); do
        diff <(complete_words kx-panel "$command" - | sort) <(options "$command" | sort)
    done
    mkdir folder
    touch 'one two.kx-update' other.txt package.toml
    complete_words kx-panel install '' | sort | diff - <(printf '%s\n' folder 'one two.kx-update')
    complete_words kx-panel check one | diff - <(printf '%s\n' 'one two.kx-update')
    [ -z "$(complete_words kx-panel history '')" ]
    [ "$(complete_words kx-panel schema in)" = install ]
    diff <(complete_words kx-panel help '') <(commands)
}

@test "the completion of both shells reads without complaint" {
    "$KX_PANEL" completion bash >words
    bash -n words
    shellcheck words
    "$KX_PANEL" completion zsh >words
    zsh -n words
    grep -qx '#compdef kx-panel' words
}

@test "the manual page has every command, every option and every reason" {
    local page=$ROOT/docs/kx-panel.8 command option
    for command in $(commands); do
        grep -qxF ".SH \"COMMAND ${command^^}\"" "$page" || {
            echo "no section for $command" >&2
            return 1
        }
        grep -qE "^\.B \"?kx-panel $command\"?$" "$page"
        for option in $(options "$command"); do
            sed 's/\\-/-/g' "$page" | sed '/^\.SH OPTIONS/,/^\.SH/!d' | grep -qF -- "$option" || {
                echo "$command: nothing about $option" >&2
                return 1
            }
        done
    done
    sed -n '/^\.SH REASONS/,/^\.fi/p' "$page" | sed 's/\\-/-/g' | sed -n 's/^\([a-z-]\+\)  .*/\1/p' |
        diff - <("$KX_PANEL" schema check |
            jq -r '."$defs".reason.properties.id.enum[]')
}

@test "the manual page tells every field of every document" {
    local name field
    for name in check error history install status; do
        sed -n "/^\.SS \"JSON of $name\"/,/^\.S[SH] /p" "$ROOT/docs/kx-panel.8" >section
        "$KX_PANEL" schema "$name" |
            jq -r '[.. | .properties? // empty | keys[]] | unique - ["formatVersion"] | .[]' >fields
        [ -s fields ]
        while read -r field; do
            grep -qE "^\.BR $field \"" section || {
                echo "the manual does not tell of $field in $name" >&2
                return 1
            }
        done <fields
    done
}

@test "the manual page is set without a complaint" {
    man --warnings -E UTF-8 -l -Tutf8 -Z "$ROOT/docs/kx-panel.8" 2>&1 >/dev/null | diff - /dev/null
}

@test "words that cannot be followed are told, also as JSON" {
    kx lookk
    expect 2 '' $'kx-panel: \'lookk\' is not a command; there are check, install, status, history, schema, completion, help and version\n'
    kx check some --wrong
    expect 2 '' $'kx-panel: \'--wrong\' is not an option of check; see kx-panel help check\n'
    kx help stats
    expect 2 '' $'kx-panel: \'stats\' is not a command; did you mean \'status\'?\n'
    kx schema stat
    expect 2 '' $'kx-panel: schema: there is none of \'stat\'; did you mean \'status\'?\n'
    kx --json lookk
    [ "$status" -eq 2 ]
    jq -e '.error.code == 2 and .formatVersion == 1' out
}

@test "the schemas are schemas" {
    local name
    for name in check error history install status; do
        "$KX_PANEL" schema "$name" >one.json
        /usr/bin/python3 -c 'import json, jsonschema, sys
jsonschema.Draft202012Validator.check_schema(json.load(sys.stdin))' <one.json
    done
}

@test "it needs no library that writes archives, and none of a window" {
    readelf -d "$KX_PANEL" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' | sort >needed
    cat needed
    grep -q '^libcrypto\.' needed
    run -1 grep -E '^lib(archive|zip|Qt)' needed
    # Nor does what it needs ask for one.
    ldd "$KX_PANEL" >all
    grep -q libc.so all
    run -1 grep -E 'lib(archive|zip|Qt)' all
}
