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

# hello_source FOLDER: makes the sources of one package of the first two examples.
hello_source() {
    mkdir -p "$1"
    cp -r examples/settings/. examples/hello/. "$1"
    sed -n '/^\[\[steps]]/,$p' examples/settings/package.toml >>"$1/package.toml"
    sed -i 's/^comment = "Installs a greeting and its texts"$/comment = "Installs a greeting, its texts and a start-up script"/' \
        "$1/package.toml"
}

# pack_hello FILE: packs them with the updater of the release build, and with one more step that
# takes a few seconds, so that there is something to look at while it installs. The step lasts as
# long as the panel has a file /run/look.
pack_hello() {
    local folder
    folder=$(mktemp -d)
    hello_source "$folder"
    cat >>"$folder/package.toml" <<'END'

[[steps]]
kind = "script"
comment = "look around"
install = """
#!/bin/sh
for part in 1 2 3 4; do
    echo "Checking the panel, part $part of 4"
    sleep 0.5
done
while [ -e /run/look ]; do
    sleep 0.1
done
"""
END
    build/release/kx-package build "$folder" -o "$1" --processor "$(uname -m)"
    rm -r "$folder"
}

# The processes that `start` has started, each the first of a group of its own.
started=()

# start LOG COMMAND...: starts a command in the background; its process is $!. It ends when this
# script does, even by force.
start() {
    local log=$1
    shift
    setsid setpriv --pdeathsig TERM "$@" </dev/null >"$log" 2>&1 &
    started+=("$!")
}

# stop PROCESS: ends what `start` has started, and waits until it is gone.
stop() {
    local tries
    kill -TERM -- "-$1" 2>/dev/null || true
    for tries in $(seq 200); do
        kill -0 -- "-$1" 2>/dev/null || break
        [ "$tries" -ne 150 ] || kill -KILL -- "-$1" 2>/dev/null || true
        sleep 0.1
    done
    wait "$1" 2>/dev/null || true
}

# stop_all: ends all that `start` has started, the last one first.
stop_all() {
    local i
    for ((i = ${#started[@]} - 1; i >= 0; i--)); do
        stop "${started[i]}"
    done
    started=()
}
