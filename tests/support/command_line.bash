# shellcheck shell=bash
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
#
# What the tests of a companion program's command line share. $PROGRAM is the program.

# complete_words WORD...: what bash would offer for the last word, one a line.
complete_words() {
    "$PROGRAM" completion >words
    # shellcheck disable=SC2016 # expanded by that bash
    bash --norc -c '. ./words
        compopt() { :; } # only works while a person types
        COMP_WORDS=("$@")
        COMP_CWORD=$(($# - 1))
        "_${1//-/_}"
        printf "%s\n" "${COMPREPLY[@]}"' - "$@"
}

# commands: the names of all commands, as the help lists them.
commands() {
    "$PROGRAM" --help | sed -n '/^Subcommands:/,/^$/s/^  \([a-z-]\+\) .*/\1/p'
}

# options [COMMAND]: the options that its help lists.
options() {
    "$PROGRAM" "$@" --help | sed -n '/^Options:/,/^$/s/^  \(-[^ ]*\).*/\1/p' | tr , '\n'
}
