# shellcheck shell=bash
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
#
# The kit of the tests that start kx-package as a user does. No updater is ever started: packages
# get a file that only has the first bytes of a program.

ROOT=$(cd "$BATS_TEST_DIRNAME/../.." && pwd)
KX_PACKAGE=${KX_PACKAGE:-$ROOT/build/dev/kx-package}
unset SOURCE_DATE_EPOCH NO_COLOR
export LC_ALL=C.UTF-8

setup() {
    [ -x "$KX_PACKAGE" ] || {
        echo "there is no kx-package at $KX_PACKAGE" >&2
        return 1
    }
    from_elsewhere || return
    cd "$BATS_TEST_TMPDIR" || return
    # The head of a program for arm, and of one for this machine.
    program 1 '\x28' >arm-updater
    case $(uname -m) in
        x86_64) program 2 '\x3e' >updater ;;
        aarch64) program 2 '\xb7' >updater ;;
    esac
}

# from_elsewhere: lets the tests start kx-package from a folder of its own, because where it was built
# it finds the updaters that scripts/cross may have built beside it. The sandboxed device is named.
from_elsewhere() {
    local folder=$BATS_FILE_TMPDIR/bin
    if [ ! -d "$folder" ]; then
        mkdir "$folder" && { ln "$KX_PACKAGE" "$folder/kx-package" 2>/dev/null ||
            cp "$KX_PACKAGE" "$folder/kx-package"; } || return
    fi
    KX_PACKAGE=$folder/kx-package
    export KX_DEVICE=$ROOT/device
}

# program WORDSIZE MACHINE: the first bytes of a program, in printf's spelling, and what makes it an
# updater.
program() {
    printf '%b' "\x7fELF\x0$1\x01\x01\0\0\0\0\0\0\0\0\0\x03\0$2\0"
    printf '\0%.0s' {1..44}
    printf 'UserPackage.kx-project'
}

# kx ARGUMENT...: starts kx-package; leaves $status, and the files out and err.
kx() {
    status=0
    "$KX_PACKAGE" "$@" >out 2>err </dev/null || status=$?
}

# expect STATUS OUT ERR: compares what kx left, whole texts.
expect() {
    if [ "$status" -ne "$1" ] || ! diff <(printf '%s' "$2") out || ! diff <(printf '%s' "$3") err; then
        echo "status $status, expected $1" >&2
        cat out err >&2
        return 1
    fi
}

# demo FOLDER: a small package with a file, a folder, a script and settings.
demo() {
    mkdir -p "$1"/{bin,share/deep,share/empty}
    cat >"$1/package.toml" <<'END'
[package]
name = "demo"
title = "Démo"
version = "1.0"
comment = "for tests"
model = "TP-0700"
os-version = "2.1.0"
date = 2026-11-21
processor = "arm"

[[steps]]
kind = "copy-files"
files = [{ source = "bin/*", target = "/mnt/user/bin/", mode = "755" }]

[[steps]]
kind = "copy-folder"
folders = [{ source = "share", target = "/mnt/user/share" }]

[[steps]]
kind = "script"
install = "#!/bin/sh\necho installed\n"

[[steps]]
kind = "settings"
settings = [
  { kind = "backlight", values = { Level = "8" } },
  { kind = "user", values = { User = "user", Password = "secret" } },
]
END
    printf '#!/bin/sh\n' >"$1/bin/hello"
    printf 'eins\n' >"$1/share/ä日本.txt"
    printf 'zwei\n' >"$1/share/deep/b.txt"
}
