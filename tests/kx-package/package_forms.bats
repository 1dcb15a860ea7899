#!/usr/bin/env bats
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
#
# What show, plan, check and diff take for a package: archives, folders, manifests.

load plan

# forms: the folder pkg with the sources of demo.kx-update, its archive, and the folder of that one
# unpacked, all of them with the same updater.
forms() {
    demo pkg
    cp arm-updater pkg/kx_Updater
    sed -i 's/^processor = .*/&\nupdater = "kx_Updater"/' pkg/package.toml
    kx build pkg
    [ "$status" -eq 0 ]
    unzip -q demo.kx-update -d demo
}

# expect_same FILE: the last run printed what is in the file.
expect_same() {
    [ "$status" -eq 0 ]
    diff "$1" out
    diff err /dev/null
}

@test "a manifest and its folder are shown and planned as the package that build makes" {
    forms
    local command
    for command in show 'show --json' plan 'plan --json' 'plan --json --at /media/stick'; do
        # shellcheck disable=SC2086 # words
        kx $command demo.kx-update
        [ "$status" -eq 0 ]
        mv out built
        for source in pkg pkg/ pkg/package.toml; do
            # shellcheck disable=SC2086
            kx $command "$source"
            expect_same built
        done
    done
    [ "$(ls)" = $'arm-updater\nbuilt\ndemo\ndemo.kx-update\nerr\nout\npkg\nupdater' ]
    kx diff demo.kx-update pkg/package.toml
    expect 0 $'A panel makes no difference between them.\n' ''
}

@test "a manifest whose updater this machine does not have is taken to get one" {
    demo pkg
    kx show pkg
    [ "$status" -eq 0 ]
    grep -qxF '  updater:   none for arm on this machine' out
    grep -qxF '    /mnt/user/bin/hello' out
    kx plan --json pkg
    [ "$status" -eq 0 ]
    jq -e '.started and .installed' out
    # The updater that it names has to be there.
    sed -i 's/^processor = .*/&\nupdater = "none"/' pkg/package.toml
    for command in show plan; do
        kx "$command" pkg
        expect 1 '' $'kx-package: pkg/none: cannot open the updater: No such file or directory\n'
    done
}

@test "a folder with both is an unpacked package, its manifest is named by its own path" {
    forms
    sed 's/"1.0"/"9.9"/; s,"bin/\*","../pkg/bin/*",; s,"share","../pkg/share",; s,"kx_Upd,"../pkg/kx_Upd,
        ' pkg/package.toml >demo/package.toml
    for command in show 'check --json' 'plan --json'; do
        # shellcheck disable=SC2086
        kx $command demo
        [ "$status" -eq 0 ]
    done
    kx show --json demo
    [ "$(jq -c '[.version, .isArchive]' out)" = '["1.0",false]' ]
    kx show --json demo/package.toml
    [ "$(jq -c '[.version, .isArchive]' out)" = '["9.9",true]' ]
}

@test "an archive is one by its content, whatever its name" {
    forms
    local name
    for name in demo.zip demo.toml demo x.kx-update.bak; do
        rm -rf demo other
        mkdir other
        cp demo.kx-update "other/$name"

        kx show --json "other/$name"
        [ "$status" -eq 0 ]
        [ "$(jq -c '[.title, .isArchive, .recorded.why]' out)" = \
            '["Démo",true,"The window finds no package: the file'"'"'s name does not end in .kx-update."]' ]
        kx plan --json "other/$name"
        [ "$status" -eq 1 ]
        [ "$(jq .found out)" = false ]
        kx check --json "other/$name"
        [ "$status" -eq 1 ]
        [ "$(jq -r '.findings[] | select(.severity == "error").id' out)" = name-extension ]
        kx diff --json demo.kx-update "other/$name"
        jq -e '[.identity[].name] - ["record"] + .steps + .settings + .files + .unused + .kept == []' out
    done
}

@test "all mistakes of a manifest are told, with exit status 1" {
    demo pkg
    sed -i 's,"bin/\*","none/*",; s,^title,caption,' pkg/package.toml
    for command in show plan 'diff pkg'; do
        # shellcheck disable=SC2086
        kx $command pkg/package.toml
        [ "$status" -eq 1 ]
        [ ! -s out ]
        [ "$(wc -l <err)" -ge 3 ]
        grep -q '^kx-package: pkg/*package.toml:3:1: ' err
        grep -q "^kx-package: pkg/*package.toml:[0-9:]*: there is no folder 'none'" err
    done
    kx show --json pkg
    [ "$status" -eq 1 ]
    jq -e '.error.code == 1 and (.errors | length >= 3)' out
    : >empty.toml
    for command in show plan check; do
        kx "$command" empty.toml
        [ "$status" -eq 1 ]
        grep -q 'there is no \[package\]' out err
    done
}

@test "what is missing or of another type is told the same by all, with exit status 1" {
    mkfifo pipe.kx-update pipe.toml
    ln -s nowhere link.toml
    local command name
    for command in show plan check 'diff pipe.toml' unpack' -o into'; do
        for name in none none.toml none.kx-update link.toml none/package.toml; do
            # shellcheck disable=SC2086
            timeout 10 "$KX_PACKAGE" ${command/pipe.toml/$name} "$name" >out 2>err && status=0 || status=$?
            expect 1 '' "kx-package: $name: cannot open: No such file or directory"$'\n'
        done
        for name in pipe.kx-update pipe.toml /dev/null; do
            # shellcheck disable=SC2086
            timeout 10 "$KX_PACKAGE" ${command/pipe.toml/$name} "$name" >out 2>err && status=0 || status=$?
            expect 1 '' "kx-package: $name: is neither a file nor a folder; name a package or the folder of an unpacked one"$'\n'
        done
    done
    echo text >text.kx-update
    for command in show plan 'diff text.kx-update'; do
        # shellcheck disable=SC2086
        kx $command text.kx-update
        expect 1 '' $'kx-package: text.kx-update: cannot open the archive: Not a zip archive\n'
    done
}

@test "what may not be read is told so, with exit status 3" {
    forms
    local command
    mkdir closed listed shut
    cp demo.kx-update closed.kx-update
    cp pkg/package.toml closed.toml
    cp pkg/package.toml listed/
    cp demo/* -rt shut
    chmod 0 closed closed.kx-update closed.toml shut/UserPackage.kx-project
    chmod 600 listed
    for command in show plan check; do
        without_rights "$command" closed.kx-update
        expect 3 '' $'kx-package: closed.kx-update: cannot open: Permission denied\n'
        without_rights "$command" closed.toml
        expect 3 '' $'kx-package: closed.toml: cannot open: Permission denied\n'
        without_rights "$command" closed
        expect 3 '' $'kx-package: closed: cannot list the folder: Permission denied\n'
        without_rights "$command" listed
        expect 3 '' $'kx-package: listed/package.toml: cannot look at: Permission denied\n'
        without_rights "$command" listed/package.toml
        expect 3 '' $'kx-package: listed/package.toml: cannot open: Permission denied\n'
        without_rights "$command" shut
        expect 3 '' $'kx-package: shut/UserPackage.kx-project: cannot read: Permission denied\n'
    done
    without_rights build listed
    expect 3 '' $'kx-package: listed/package.toml: cannot open: Permission denied\n'
    chmod 700 closed listed
}

@test "the panel that a manifest names counts, unless the command line names one" {
    forms
    mkdir -p root/mnt/user/share
    printf 'format = 1\nroot = "root"\n' >panel.toml
    printf 'format = 1\n' >fresh.toml
    sed -i 's,^name,panel = "../panel.toml"\n&,' pkg/package.toml

    kx plan --json pkg
    [ "$status" -eq 0 ]
    jq -r '.recordedFolders[]' out >named
    kx plan --json --panel panel.toml demo.kx-update
    jq -r '.recordedFolders[]' out | diff named -
    [ "$(grep -cx /mnt/user/share named)" -eq 0 ]
    for arguments in '--panel fresh.toml' "--root $(mktemp -d -p .)"; do
        # shellcheck disable=SC2086
        kx plan --json $arguments pkg
        [ "$(jq -r '.recordedFolders[]' out | grep -cx /mnt/user/share)" -eq 1 ]
    done
    rm panel.toml
    kx plan pkg
    expect 1 '' $'kx-package: pkg/../panel.toml: cannot open: No such file or directory\n'
}

@test "the source of a package is not unpacked" {
    demo pkg
    for source in pkg pkg/package.toml; do
        kx unpack "$source" -o into
        expect 2 '' "kx-package: $source: is the source of a package; there is nothing to unpack"$'\n'
        [ ! -e into ]
    done
}
