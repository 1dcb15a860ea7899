# shellcheck shell=bash
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
#
# What the project's scripts share. Sourced with the project's root as working directory.

# say TEXT...: a headline on the terminal.
say() {
    printf '\n== %s\n' "$*"
}

# build PRESET [TARGET...]: configures and builds, quietly when all is well.
build() {
    PYTHONPATH=$(dirname "$(readlink -f "${BASH_SOURCE[0]}")") \
        /usr/bin/python3 -B -m kxscripts.common build "$@"
}
