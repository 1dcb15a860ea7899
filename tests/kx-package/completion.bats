#!/usr/bin/env bats
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
#
# What bash completes, whether help, completion and manual page tell the same, and mistaken words.

load package

# complete_words WORD...: what bash would offer for the last word, one a line.
complete_words() {
    "$KX_PACKAGE" completion >words
    # shellcheck disable=SC2016 # expanded by that bash
    bash --norc -c '. ./words
        compopt() { :; } # only works while a person types
        COMP_WORDS=("$@")
        COMP_CWORD=$(($# - 1))
        _kx_package
        printf "%s\n" "${COMPREPLY[@]}"' - "$@"
}

# commands: the names of all commands, as the help lists them.
commands() {
    "$KX_PACKAGE" --help | sed -n '/^Subcommands:/,/^$/s/^  \([a-z-]\+\) .*/\1/p'
}

# options [COMMAND]: the options that its help lists.
options() {
    "$KX_PACKAGE" "$@" --help | sed -n '/^Options:/,/^$/s/^  \(-[^ ]*\).*/\1/p' | tr , '\n'
}

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
    [ "$(complete_words kx-package schema '' | xargs)" = 'description manifest panel' ]
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

@test "a mistyped command is told with the nearest one, also as JSON" {
    kx builx some
    expect 2 '' $'kx-package: \'builx\' is not a command; did you mean \'build\'?\n'
    kx --json builx
    [ "$status" -eq 2 ]
    [ "$(jq -r .error.remedy out)" = "did you mean 'build'?" ]
    kx
    expect 2 '' $'kx-package: A subcommand is required; see kx-package --help\n'
    kx check
    [ "$status" -eq 2 ]
}
