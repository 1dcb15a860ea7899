#!/usr/bin/env bats
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
#
# The exit status of every cause, for every command that reads or writes what it is told: what is not
# there, what is something else, and what may not be read or written.

load plan

# ends STATUS WORD...: without the rights of root the words end with that status.
ends() {
    without_rights "${@:2}"
    [ "$status" -eq "$1" ]
}

# tell STATUS MESSAGE WORD...: the words end with that status, nothing on standard output, and an
# error that begins with the message; and the same as JSON.
tell() {
    if ! ends "$1" "${@:3}" || [ -s out ] || [[ $(head -n 1 err) != "kx-package: $2"* ]]; then
        echo "${*:3}: status $status, expected $1 and: $2" >&2
        cat out err >&2
        return 1
    fi
    if ! ends "$1" "${@:3}" --json || [ -s err ] || ! jq -e ".error.code == $1" out >/dev/null; then
        echo "${*:3} --json: status $status" >&2
        cat out err >&2
        return 1
    fi
}

# What can be wrong with a thing that is read: bad/CAUSE, and good things to say it of.
make_causes() {
    demo pkg
    "$KX_PACKAGE" build pkg --updater arm-updater >/dev/null
    mkdir -p bad/locked
    ln -s nowhere bad/dangling
    ln -s loop bad/loop
    : >bad/file
    echo x >bad/unreadable
    chmod 0 bad/unreadable
    echo x >bad/locked/inside
    chmod 0 bad/locked
}

teardown() {
    [ ! -d "$BATS_TEST_TMPDIR/bad" ] || chmod -R u+rwX "$BATS_TEST_TMPDIR/bad"
    [ ! -d "$BATS_TEST_TMPDIR/pkg" ] || chmod -R u+rwX "$BATS_TEST_TMPDIR/pkg"
}

# read_by WORD...: each cause for a command, with the path of what is read for @.
read_by() {
    local cause message long
    long=$(printf 'x%.0s' {1..300})
    while IFS='|' read -r code cause message; do
        tell "$code" "bad/$cause: cannot open$message" "${@/@/bad/$cause}"
    done <<END
1|none|: No such file or directory
1|dangling|: No such file or directory
1|loop|: Too many levels of symbolic links
1|file/x|: Not a directory
1|$long|: File name too long
3|unreadable|: Permission denied
3|locked/inside|: Permission denied
END
}

@test "packages: what is not there is 1, what may not be read is 3, for every command" {
    make_causes
    for command in check show plan try; do
        read_by "$command" @
    done
    read_by unpack @ -o new
    read_by diff @ demo.kx-update
    read_by diff demo.kx-update @
}

@test "manifests and descriptions of panels: the same" {
    make_causes
    read_by build @
    for command in build check; do
        read_by "$command" --panel @ pkg
    done
    for command in plan try; do
        read_by "$command" --panel @ demo.kx-update
    done
}

@test "updaters: the same" {
    make_causes
    local code cause
    while read -r code cause; do
        tell "$code" "bad/$cause: cannot open the updater: " build pkg --updater "bad/$cause"
        tell "$code" "bad/$cause: cannot open the updater: " try demo.kx-update --updater "bad/$cause"
        sed -i '/^updater/d; s|^processor|updater = "../bad/'"$cause"'"\n&|' pkg/package.toml
        tell "$code" "pkg/../bad/$cause: cannot open the updater: " build pkg
    done <<'END'
1 none
1 dangling
1 file/x
3 unreadable
3 locked/inside
END
}

@test "folders with the files of a panel: the same" {
    make_causes
    local words
    for words in 'installed' 'verify demo' 'plan demo.kx-update' 'new-panel -o new.toml'; do
        # shellcheck disable=SC2086 # words
        tell 1 'bad/none: cannot open: No such file' $words --root bad/none
        # shellcheck disable=SC2086
        tell 1 'bad/file: cannot open: Not a directory' $words --root bad/file
        # shellcheck disable=SC2086
        tell 3 'bad/locked/x: cannot open: Permission denied' $words --root bad/locked/x
    done
}

@test "a folder where a file is wanted, a file where a folder is, and things that are neither" {
    make_causes
    mkdir folder
    mkfifo pipe
    tell 1 'folder: there is no package.toml in the folder' build folder
    tell 1 'folder: is not a file' build pkg --panel folder
    for command in show plan; do
        tell 1 'pipe: is neither a file nor a folder' "$command" pipe
        tell 1 'bad/file: cannot open the archive' "$command" bad/file
    done
    tell 1 'pipe: is neither a file nor a folder' check pipe
    tell 1 'pipe: is neither a file nor a folder' try pipe
}

# named STATUS MESSAGE KEY VALUE: the manifest says that of its first step, or its script.
named() {
    rm -rf changed
    cp -a pkg changed
    case $3 in
        source) sed -i "0,/source = \"[^\"]*\"/s||source = \"$4\"|" changed/package.toml ;;
        folder) sed -i "s|source = \"share\"|source = \"$4\"|" changed/package.toml ;;
        script) sed -i "s|^install = .*|install-file = \"$4\"|" changed/package.toml ;;
        panel) sed -i "s|^processor|panel = \"$4\"\n&|" changed/package.toml ;;
    esac
    tell "$1" "$2" build changed --updater arm-updater
    # What a panel is like does not matter to a comparison.
    [ "$3" = panel ] || tell "$1" "$2" diff changed demo.kx-update
    [ ! -e changed.kx-update ]
    ends "$1" check changed
}

@test "what a manifest names: missing and of another kind is 1, unreadable is 3, by its own name" {
    make_causes
    cp -a bad pkg/bad
    local key
    named 1 "changed/package.toml:13:21: there is no file 'none'" source none
    named 1 "changed/package.toml:13:21: there is no file 'bad/dangling'" source bad/dangling
    named 1 "changed/package.toml:13:21: there is no file 'bad/file/x'" source bad/file/x
    named 1 "changed/package.toml:13:21: 'share' is not a file; copy a folder in" source share
    named 1 "changed/package.toml:13:21: there is no folder 'none'" source 'none/*'
    named 3 "changed/package.toml:13:21: cannot look at 'bad/locked/inside': Permission" source \
        bad/locked/inside
    named 3 'changed/bad/unreadable: cannot read: Permission denied' source bad/unreadable
    named 3 'changed/bad/locked: cannot list the folder: Permission denied' source 'bad/locked/*'
    named 1 "changed/package.toml:17:23: there is no folder 'none'" folder none
    named 1 "changed/package.toml:17:23: 'bad/file' is not a folder; copy a file in" folder bad/file
    named 1 "changed/package.toml:17:23: there is no folder 'bad/dangling'" folder bad/dangling
    for key in script panel; do
        named 1 "changed/" $key none
        named 1 "changed/" $key share
        named 3 "changed/" $key bad/unreadable
        named 3 "changed/" $key bad/locked/inside
    done
    mkdir pkg/share/locked
    chmod 0 pkg/share/locked
    named 3 'changed/share/locked: cannot list the folder: Permission denied' source 'bin/*'
    chmod 700 pkg/share/locked
    rmdir pkg/share/locked
    ln -s nowhere pkg/share/dangling
    named 1 'changed/share/dangling: is a link that leads nowhere' source 'bin/*'
}

@test "a folder of an unpacked package with a subfolder that may not be listed, by its own name" {
    make_causes
    unzip -q demo.kx-update -d tree
    chmod 0 tree/1/0/deep
    for command in check show plan; do
        tell 3 'tree/1/0/deep: cannot list the folder: Permission denied' "$command" tree
    done
    tell 3 'tree/1/0/deep: cannot list the folder: Permission denied' unpack tree -o new
    [ ! -e new ]
    chmod 700 tree/1/0/deep
}

@test "the nearest name that is there is told" {
    make_causes
    mkdir -p pkg/Files
    echo x >pkg/Files/App
    named 1 "changed/package.toml:13:21: there is no file 'files/app'; there is 'Files/App'" source \
        files/app
    named 1 "changed/package.toml:13:21: there is no file 'Files\\App'; there is 'Files/App'" source \
        'Files\\\\App'
    named 1 "changed/package.toml:17:23: there is no folder 'Share'; there is 'share'" folder Share
    named 1 "changed/package.toml:13:21: there is no folder 'fils'; there is 'Files'" source 'fils/*'
    echo '#!/bin/sh' >pkg/install_it.sh
    named 1 'changed/package.toml:21:16: changed/install-it.sh: cannot open: No such file or directory; there is '"'changed/install_it.sh'" \
        script install-it.sh
    tell 1 "Demo.kx-update: cannot open: No such file or directory; there is 'demo.kx-update'" \
        show Demo.kx-update
    tell 1 "pkg/Package.toml: cannot open: No such file or directory; there is 'pkg/package.toml'" \
        build pkg/Package.toml
}

@test "what cannot be written is 3 for every command" {
    make_causes
    mkdir locked
    chmod 500 locked
    tell 3 'locked/demo.kx-update: cannot write: Permission denied' build pkg \
        --updater arm-updater -o locked/
    tell 3 'none/x.kx-update: cannot write: No such file or directory' build pkg \
        --updater arm-updater -o none/x.kx-update
    tell 3 'locked/new: cannot make the folder: Permission denied' new locked/new
    tell 3 'locked/p.toml: cannot write: Permission denied' new-panel -o locked/p.toml
    tell 3 'locked/s.json: cannot write: Permission denied' schema -o locked/s.json
    tell 3 'locked/new: cannot make the folder: Permission denied' unpack demo.kx-update -o locked/new
    chmod 700 locked
}
