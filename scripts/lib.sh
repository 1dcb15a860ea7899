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
    local preset=$1 log
    shift
    mkdir -p build
    log=build/$preset.log
    local targets=()
    [ $# -eq 0 ] || targets=(--target "$@")
    if ! { cmake --preset "$preset" && cmake --build --preset "$preset" "${targets[@]}"; } \
        >"$log" 2>&1; then
        tail -n 60 "$log" >&2
        echo "building the preset $preset failed; all of it: $log" >&2
        return 1
    fi
}

# sources PATTERN...: the tracked and the new files that match.
sources() {
    git ls-files --cached --others --exclude-standard --deduplicate -- "$@"
}
