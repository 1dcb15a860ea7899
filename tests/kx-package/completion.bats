#!/usr/bin/env bats
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
#
# What bash completes, whether help, completion and manual page tell the same, and mistaken words.

load package
load ../support/command_line
export PROGRAM=$KX_PACKAGE

@test "every command is offered where a command stands" {
    [ "$(commands | wc -l)" -ge 6 ]

    diff <(complete_words kx-package '' | sort) <({
        commands
        options
    } | sort)
    [ "$(complete_words kx-package bui)" = build ]
    [ "$(complete_words kx-package --v)" = --version ]
}

@test "every option of a command is offered, and no other" {
    local command
    for command in $(commands); do
        diff <(complete_words kx-package "$command" - | sort) <(options "$command" | sort)
    done
}

@test "packages are completed by package files, manifests and folders" {
    mkdir folder
    touch 'one two.kx-update' other.txt package.toml

    diff - <(complete_words kx-package check '' | sort) <<'END'
folder
one two.kx-update
package.toml
END
    diff - <(complete_words kx-package show 'one') <<'END'
one two.kx-update
END
    [ -z "$(complete_words kx-package show other)" ]
}

@test "manifests, files, folders and choices are completed by what they are" {
    mkdir folder
    touch package.toml other.txt

    [ "$(complete_words kx-package build '' | sort | xargs)" = 'folder package.toml' ]
    [ "$(complete_words kx-package build --updater o)" = other.txt ]
    [ "$(complete_words kx-package plan --root '')" = folder ]
    [ "$(complete_words kx-package check --processor i)" = i386 ]
    [ "$(complete_words kx-package check --processor = r)" = riscv64 ]
    [ "$(complete_words kx-package check --processor = | wc -l)" -eq 5 ]
    [ -z "$(complete_words kx-package plan --at /)" ]
    [ "$(complete_words kx-package schema '' | grep -v ^json- | xargs)" = 'description manifest panel' ]
    [ "$(complete_words kx-package schema json-v)" = json-verify ]
    diff <(complete_words kx-package help '') <(commands)
}

@test "the completion reads without complaint" {
    "$KX_PACKAGE" completion >words

    bash -n words
    shellcheck words
}

@test "bash itself completes with it" {
    "$KX_PACKAGE" completion >words

    mkdir recipes
    touch 'one two.kx-update'

    # A terminal, a person who types TAB, and what is then on the line.
    {
        printf 'PS1=ready; . ./words; enable -n help\n'
        printf 'kx-package %s\t\001echo \005\n' bui 'show one' 'new rec'
        printf 'exit\n'
    } | TERM=dumb script -qec 'bash --norc' typed >/dev/null

    grep -q 'kx-package build' typed
    grep -q '^kx-package show one two.kx-update' typed
    grep -q '^kx-package new recipes/' typed
}

@test "zsh itself completes with it, read as a whole and by its name" {
    "$KX_PACKAGE" completion zsh >words
    zsh -n words
    mkdir recipes functions
    cp words functions/_kx-package
    touch 'one two.kx-update' other.txt package.toml

    local way
    for way in '. ./words' 'compdef _kx-package kx-package; autoload -Uz _kx-package'; do
        {
            # shellcheck disable=SC2016 # for that zsh
            printf 'PS1=ready; fpath=($PWD/functions $fpath); autoload -Uz compinit; compinit -u -D; %s\n' \
                "$way"
            printf 'kx-package %s\t\001echo \005\n' bui 'show one' 'new rec' 'check --proc' \
                'check --processor ris' 'check --processor=aar' 'build pack' 'help verif' \
                'completion z' 'plan --root rec'
            printf 'exit\n'
        } | TERM=dumb script -qec 'zsh -f -i' typed >/dev/null

        # What echo wrote; what was typed ahead stands there, too, with its control characters.
        tr -d '\r' <typed | grep -aE '^kx-package ' | grep -vF '^A' | sed 's/ *$//' | diff - <(
            cat <<'END'
kx-package build
kx-package show one two.kx-update
kx-package new recipes
kx-package check --processor
kx-package check --processor riscv64
kx-package check --processor=aarch64
kx-package build package.toml
kx-package help verify
kx-package completion zsh
kx-package plan --root recipes
END
        )
    done
}

@test "zsh is offered what bash is offered" {
    "$KX_PACKAGE" completion zsh >of-zsh
    "$KX_PACKAGE" completion bash >of-bash
    # shellcheck disable=SC2016 # the text of the completion
    diff <(sed -n '/^    case "$command $before" in/,/^}/p' of-zsh) \
        <(sed -n '/^    case "$command $before" in/,/^}/p' of-bash)
    kx completion
    cmp out of-bash
    kx completion zhs
    expect 2 '' $'kx-package: completion: nothing is known of the shell \'zhs\'; did you mean \'zsh\'?\n'
}

@test "the help tells what options are without being given, and their bounds" {
    local command
    for command in $(commands); do
        "$KX_PACKAGE" "$command" --help | sed -n '/^Options:/,/^$/p' |
            grep -oE -- '--[a-z]+ [A-Z]+(:UINT in \[[^]]+\])?=[^ ]+' | sed "s/^/$command /" || true
    done | sort | diff - <(
        cat <<'END'
installed --root DIR=/
new-panel --output FILE=panel.toml
plan --at PATH=/mnt/usb
schema --output FILE=-
try --disk UINT:UINT in [16 - 1048576]=2048
try --memory UINT:UINT in [16 - 1048576]=4096
try --processes UINT:UINT in [4 - 30000]=256
try --seconds UINT:UINT in [1 - 1000000]=600
unpack --disk UINT:UINT in [1 - 1073741824]=2048
verify --root DIR=/
END
    )
}

@test "the manual page has every command and every option" {
    local page=$ROOT/docs/kx-package.1 command option
    for command in $(commands); do
        grep -qxF ".SH \"COMMAND ${command^^}\"" "$page" || {
            echo "no section for $command" >&2
            return 1
        }
        for option in $(options "$command"); do
            sed "/^\.SH \"COMMAND ${command^^}\"/,/^\.SH/!{/^\.SH OPTIONS/,/^\.SH/!d}" "$page" |
                sed 's/\\-/-/g' | grep -qF -- "$option" || {
                echo "$command: nothing about $option" >&2
                return 1
            }
        done
    done
}

@test "the manual page is set without a complaint" {
    man --warnings -E UTF-8 -l -Tutf8 -Z "$ROOT/docs/kx-package.1" 2>&1 >/dev/null | diff - /dev/null
}

@test "the help lists the commands in the order of an author's work" {
    diff - <(commands) <<'END'
new
new-panel
build
check
show
plan
try
key
sign
stick
diff
unpack
installed
verify
schema
completion
help
version
END
}

@test "help tells what --help tells, of the program and of every command" {
    local command
    "$KX_PACKAGE" --help | diff - <("$KX_PACKAGE" help)
    for command in $(commands); do
        "$KX_PACKAGE" "$command" --help | diff - <("$KX_PACKAGE" help "$command")
    done
    kx help bild
    expect 2 '' $'kx-package: \'bild\' is not a command; did you mean \'build\'?\n'
}

@test "the version is told in three ways" {
    kx --version
    [ "$status" -eq 0 ]
    grep -qxE 'kx-package [0-9]+\.[0-9]+\.[0-9]+' out
    cp out version
    for words in -V version; do
        kx "$words"
        expect 0 "$(cat version)"$'\n' ''
    done
}

@test "a mistyped command is told with the nearest one, also as JSON" {
    kx builx some
    expect 2 '' $'kx-package: \'builx\' is not a command; did you mean \'build\'?\n'
    kx --json builx
    [ "$status" -eq 2 ]
    [ "$(jq -r .error.remedy out)" = "did you mean 'build'?" ]
    kx
    expect 2 '' $'kx-package: A subcommand is required; see kx-package help\n'
    kx check
    expect 2 '' $'kx-package: package is required; see kx-package help check\n'
}

# refused WORD... MESSAGE: the words are wrong use, for which kx-package gives this message.
refused() {
    kx "${@:1:$#-1}"
    expect 2 '' "kx-package: ${*: -1}"$'\n'
}

@test "a mistyped option is told with the nearest one of its command" {
    refused check --jsno "'--jsno' is not an option of check; did you mean '--json'?"
    refused try --twcie pkg "'--twcie' is not an option of try; did you mean '--twice'?"
    refused check --proccesor=arm pkg \
        "'--proccesor' is not an option of check; did you mean '--processor'?"
    refused check --proc arm pkg "'--proc' is not an option of check; did you mean '--processor'?"
    refused show -json pkg "'-json' is not an option of show; did you mean '--json'?"
    refused --versoin "'--versoin' is not an option; did you mean '--version'?"
    refused --josn check "'--josn' is not an option of check; did you mean '--json'?"
    # Nothing is near: a letter is near every other.
    refused show --panel p.toml pkg "'--panel' is not an option of show; see kx-package help show"
    refused show -x pkg "'-x' is not an option of show; see kx-package help show"
    refused --frobnicate "'--frobnicate' is not an option; see kx-package help"
}

@test "an option before its command, and a word too many, are told" {
    refused --strict check pkg \
        "'--strict' stands before the command; write kx-package check --strict"
    kx --json show pkg
    [ "$status" -eq 2 ]
    [ "$(jq -r .error.remedy out)" = 'write kx-package show --json' ]
    refused show one two "'two' is one word too many for show; see kx-package help show"
}
