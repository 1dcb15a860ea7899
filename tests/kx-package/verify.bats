#!/usr/bin/env bats
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
#
# kx-package verify, as a user starts it, on copies of a panel's files.

KX_PACKAGE=${KX_PACKAGE:-$(cd "$BATS_TEST_DIRNAME/../.." && pwd)/build/dev/kx-package}

load package
load records

@test "verify finds that all is there" {
    record demo 1.0 /mnt/user/share -- /mnt/user/share/a.txt
    mkdir -p panel/mnt/user/share
    touch panel/mnt/user/share/a.txt

    kx verify demo --root panel

    expect 0 'demo 1.0: T demo
demo: 2 of 2 folders and 3 of 3 files are there
' ''
}

@test "verify finds what is missing or something else" {
    record demo 1.0 /mnt/user/share /mnt/gone -- /mnt/user/share/a.txt /mnt/user/share/b.txt /dev/x
    mkdir -p panel/mnt/user/share/b.txt panel/dev
    mkfifo panel/dev/x
    touch panel/mnt/gone

    kx verify demo --root panel

    expect 1 'demo 1.0: T demo
  replaced:  /mnt/gone (folder, line 3) is a file
  missing:   /mnt/user/share/a.txt (file, line 6)
  replaced:  /mnt/user/share/b.txt (file, line 7) is a folder
  replaced:  /dev/x (file, line 8) is a device, a pipe or a socket
demo: 2 of 3 folders and 2 of 5 files are there
' ''
}

@test "verify tells programs the same" {
    record demo 1.0 /mnt -- /mnt/a $'/mnt/\xff'
    mkdir panel/mnt
    mkdir panel/mnt/a

    kx verify demo --root panel --json

    expect 1 '{
  "comment": "C",
  "date": "2026\/11\/21",
  "deviations": [
    {
      "found": "a folder",
      "kind": "file",
      "line": 5,
      "path": "\/mnt\/a",
      "state": "other-kind"
    },
    {
      "found": "No such file or directory",
      "kind": "file",
      "line": 6,
      "path": "\/mnt\/\\xff",
      "state": "missing"
    }
  ],
  "fastFolders": [],
  "files": {
    "missing": 1,
    "otherKind": 1,
    "present": 2,
    "recorded": 4,
    "unknown": 0
  },
  "folders": {
    "missing": 0,
    "otherKind": 0,
    "present": 2,
    "recorded": 2,
    "unknown": 0
  },
  "formatVersion": 1,
  "model": "TP",
  "name": "demo",
  "omittedDeviations": 0,
  "omittedProblems": 0,
  "osVersion": "2.0",
  "problems": [],
  "record": "\/var\/lib\/KxUserPackages\/demo",
  "root": "panel",
  "title": "T demo",
  "version": "1.0"
}
' ''
}

@test "a name that is not recorded is an error with the nearest one" {
    record demo 1.0
    record recipes 1.0

    kx verify recipe --root panel
    expect 2 '' "kx-package: recipe: there is no record of that name in panel/var/lib/KxUserPackages; did you mean 'recipes'?"$'\n'
    kx verify zzzz --root panel
    expect 2 '' $'kx-package: zzzz: there is no record of that name in panel/var/lib/KxUserPackages; there are demo and recipes\n'
    kx verify '' --root panel
    expect 2 '' $'kx-package: the name is empty; kx-package installed lists what there is\n'
    kx verify ../demo --root panel
    expect 2 '' $'kx-package: ../demo: is not the name of a record: it contains a \'/\'; kx-package installed lists what there is\n'
    kx verify .. --root panel
    expect 2 '' $'kx-package: ..: is not the name of a record; kx-package installed lists what there is\n'
    kx verify $'\xff\e' --root panel
    [ "$status" -eq 2 ]
    grep -qF 'kx-package: \xff\x1b: there is no record' err
    kx verify --json $'\xff' --root panel
    [ "$status" -eq 2 ]
    [ ! -s err ]
    jq -e '.error.place == "\\xff" and .error.remedy == "there are demo and recipes"' out
}

@test "verify says what it cannot follow or read" {
    kx verify
    [ "$status" -eq 2 ]
    kx verify a b
    [ "$status" -eq 2 ]
    kx verify demo --root none
    expect 1 '' $'kx-package: none: cannot open: No such file or directory\n'
    mkdir panel
    kx verify demo --root panel
    expect 2 '' $'kx-package: demo: there is no record of that name in panel/var/lib/KxUserPackages; no packages are recorded\n'
}

@test "names with blanks, leading hyphens and signs of the shell are names" {
    # shellcheck disable=SC2016 # the names are meant as they stand
    for name in 'two words' -x '$(touch x)' '"'; do
        record "$name" 1.0

        kx verify --root panel -- "$name"

        [ "$status" -eq 0 ]
        grep -qF -- "$name: 1 of 1 folder and 2 of 2 files are there" out
    done
    [ ! -e x ]
}

@test "a record without its list, or with a damaged one, is told" {
    record demo 1.0 -- /gone
    list=panel/var/lib/KxUserPackages/demo/installedFile.list
    head -c -20 $list >shortened
    : >empty

    cp shortened $list
    kx verify demo --root panel
    expect 1 "demo 1.0: T demo
  problem:   line 6 is cut off: the list was not written completely
  problem:   the list does not name itself: it was cut, or is another record's
  missing:   /gone (file, line 4)
demo: 1 of 1 folder and 1 of 2 files are there
" ''
    cp empty $list
    kx verify demo --root panel
    expect 1 'demo 1.0: T demo
  problem:   installedFile.list is empty: it was not written completely
demo: 0 of 0 folders and 0 of 0 files are there
' ''
    rm $list
    kx verify demo --root panel
    expect 1 'demo 1.0: T demo
  problem:   there is no installedFile.list: the record was not written completely
demo: 0 of 0 folders and 0 of 0 files are there
' ''
    rm -r panel/var/lib/KxUserPackages/demo
    touch panel/var/lib/KxUserPackages/demo
    kx verify demo --root panel
    expect 1 'demo
  problem:   is a file
demo: 0 of 0 folders and 0 of 0 files are there
' ''
}

@test "no link and no '..' leads out of the panel's folder" {
    mkdir outside
    touch outside/secret
    record demo 1.0 -- /out/secret /../outside/secret "$PWD/outside/secret" /inside/file
    ln -s "$PWD/outside" panel/out
    ln -s / panel/root
    mkdir panel/real
    touch panel/real/file
    ln -s /root/real panel/inside

    kx verify demo --root panel

    [ "$status" -eq 1 ]
    [ "$(grep -c '^  missing: ' out)" -eq 3 ]
    [ "$(tail -n 1 out)" = 'demo: 1 of 1 folder and 3 of 6 files are there' ]
}

@test "what may not be looked at is not known" {
    record demo 1.0 -- /closed/file
    record other 1.0 -- /closed/file /gone
    mkdir panel/closed
    touch panel/closed/file
    chmod 700 panel/closed
    chmod 755 . panel
    drop=()
    [ "$(id -u)" -ne 0 ] || drop=(setpriv --reuid=65534 --regid=65534 --clear-groups)
    [ "$(id -u)" -eq 0 ] || chmod 000 panel/closed
    cp "$KX_PACKAGE" tool

    # Built for coverage it leaves its counts there.
    mkdir -m 777 counts
    # What is known to be missing counts for more.
    status=0
    GCOV_PREFIX=counts "${drop[@]}" ./tool verify other --root panel >both 2>err || status=$?
    [ "$status" -eq 1 ]
    [ "$(grep -c '^  unknown: \|^  missing: ' both)" -eq 2 ]
    status=0
    GCOV_PREFIX=counts "${drop[@]}" ./tool verify demo --root panel >out 2>err || status=$?

    chmod 700 panel/closed
    expect 3 'demo 1.0: T demo
  unknown:   /closed/file (file, line 4): Permission denied
demo: 1 of 1 folder and 2 of 3 files are there
' ''
}

@test "200,000 lines take little memory and time" {
    record demo 1.0
    list=panel/var/lib/KxUserPackages/demo/installedFile.list
    {
        printf ' #dir\n'
        seq -f '/mnt/user/some/folder/of/the/panel/%.0f' 100000
        printf ' #file\n'
        seq -f '/mnt/user/some/folder/of/the/panel/file-%.0f' 100000
        printf '/var/lib/KxUserPackages/demo/installedFile.list\n'
    } >$list
    mkdir -p panel/mnt/user/some/folder/of/the/panel

    # KiB of address space; a program with sanitizers reserves terabytes.
    memory=65536
    ! grep -qa __asan_init "$KX_PACKAGE" || memory=unlimited
    status=0
    (ulimit -v $memory && exec timeout 60 "$KX_PACKAGE" verify demo --root panel) >out 2>err ||
        status=$?

    [ "$status" -eq 1 ]
    [ "$(wc -l <out)" -eq 10003 ]
    [ "$(tail -n 2 out)" = '  (190000 more are not listed)
demo: 0 of 100000 folders and 1 of 100001 files are there' ]
}
