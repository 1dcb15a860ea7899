#!/usr/bin/env bats
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
#
# kx-package installed, as a user starts it, on copies of a panel's files.

KX_PACKAGE=${KX_PACKAGE:-$(cd "$BATS_TEST_DIRNAME/../.." && pwd)/build/dev/kx-package}

load package
load records

@test "installed tells the packages that a panel has recorded" {
    record demo 1.0 /mnt/user/share -- /mnt/user/share/a.txt
    record 'two words' 2.5

    kx installed --root panel

    expect 0 'demo 1.0: T demo
  comment:   C
  for:       TP, system 2.0
  date:      2026/11/21
  recorded:  2 folders, 3 files
two words 2.5: T two words
  comment:   C
  for:       TP, system 2.0
  date:      2026/11/21
  recorded:  1 folder, 2 files
panel/var/lib/KxUserPackages: 2 packages
' ''
}

@test "installed tells programs the same" {
    record demo 1.0 /mnt/user/share -- /mnt/user/share/a.txt
    rm -r panel/var/lib/KxUserPackages/demo/UserPackage.kx-project
    touch panel/var/lib/KxUserPackages/stray

    kx installed --root panel --json

    expect 1 '{
  "foreign": [
    {
      "message": "is a file",
      "name": "stray"
    }
  ],
  "formatVersion": 1,
  "packages": [
    {
      "comment": null,
      "date": null,
      "fastFolders": [],
      "files": 3,
      "folders": 2,
      "model": null,
      "name": "demo",
      "omittedProblems": 0,
      "osVersion": null,
      "problems": [
        {
          "id": "description-missing",
          "message": "there is no UserPackage.kx-project: the updater'"'"'s list leaves the package out"
        }
      ],
      "title": null,
      "version": null
    }
  ],
  "registry": "\/var\/lib\/KxUserPackages",
  "root": "panel"
}
' ''
}

@test "damaged and foreign entries are told and do not stop the others" {
    record a 1.0
    rm panel/var/lib/KxUserPackages/a/installedFile.list
    record b 1.0
    : >panel/var/lib/KxUserPackages/b/installedFile.list
    record c 1.0
    printf '\xef\xbb\xbf"text"' >panel/var/lib/KxUserPackages/c/UserPackage.kx-project
    mkdir panel/var/lib/KxUserPackages/lost+found
    ln -s / panel/var/lib/KxUserPackages/circle
    mkfifo panel/var/lib/KxUserPackages/pipe
    record z 1.0

    kx installed --root panel

    [ "$status" -eq 1 ]
    [ ! -s err ]
    diff - <(grep -v '^  \(comment\|for\|date\):' out) <<'END'
a 1.0: T a
  problem:   there is no installedFile.list: the record was not written completely
b 1.0: T b
  recorded:  0 folders, 0 files
  problem:   installedFile.list is empty: it was not written completely
c
  recorded:  1 folder, 2 files
  problem:   UserPackage.kx-project is a text, not a JSON object: the updater's window ends when it shows its list
z 1.0: T z
  recorded:  1 folder, 2 files
circle
  no record: is a folder without a record's files
lost+found
  no record: is a folder without a record's files
pipe
  no record: is a device, a pipe or a socket
panel/var/lib/KxUserPackages: 4 packages
END
}

@test "no registry, or an empty one, is no package" {
    mkdir panel
    kx installed --root panel
    expect 0 $'panel/var/lib/KxUserPackages: no packages\n' ''
    mkdir -p panel/var/lib/KxUserPackages
    kx installed --root panel/
    expect 0 $'panel/var/lib/KxUserPackages: no packages\n' ''
    kx installed --root panel --json
    [ "$status" -eq 0 ]
    jq -e '.packages == [] and .foreign == []' out
}

@test "installed looks at this machine when no folder is named" {
    kx installed --help
    grep -q -- '--root DIR=/ ' out
    kx installed --json
    jq -e '.root == "/"' out
}

@test "installed says what it cannot read" {
    kx installed --root none
    expect 1 '' $'kx-package: none: cannot open: No such file or directory\n'
    touch file
    kx installed --root file
    expect 1 '' $'kx-package: file: cannot open: Not a directory\n'
    kx installed --root ''
    expect 2 '' $'kx-package: --root: names no folder\n'
    kx installed --root
    [ "$status" -eq 2 ]
    kx installed demo
    [ "$status" -eq 2 ]

    mkdir -p panel/var/lib
    touch panel/var/lib/KxUserPackages
    kx installed --root panel --json
    [ "$status" -eq 1 ]
    [ ! -s err ]
    jq -e '.error.message == "is not a folder" and .error.code == 1' out
}

@test "nothing in a record can play with the terminal, and JSON stays JSON" {
    record $'\e[31m\xff' $'1\xff\\u001b[2J'

    kx installed --root panel
    [ "$status" -eq 0 ]
    grep -qxF '\x1b[31m\xff 1\xff\x1b[2J: T m' out
    [ "$(grep -c $'\e' out)" -eq 0 ]

    kx installed --root panel --json
    jq -e '.packages[0].name == "\u001b[31m\\xff" and .packages[0].version == "1\\xff\u001b[2J"' out
}

@test "no link leads out of the panel's folder" {
    mkdir outside
    record demo 1.0
    mv panel/var/lib/KxUserPackages/demo outside/
    ln -s "$PWD/outside/demo" panel/var/lib/KxUserPackages/absolute
    ln -s ../../../../outside/demo panel/var/lib/KxUserPackages/relative

    kx installed --root panel

    expect 1 'absolute
  no record: is a link that leads nowhere
relative
  no record: is a link that leads nowhere
panel/var/lib/KxUserPackages: no packages
' ''
}

@test "records without permission are told, and the others as well" {
    [ "$(id -u)" -eq 0 ] && command -v setpriv >/dev/null || [ "$(id -u)" -ne 0 ]
    record demo 1.0
    record other 1.0
    chmod 755 . panel
    chmod 000 panel/var/lib/KxUserPackages/demo/UserPackage.kx-project
    chmod 700 panel/var/lib/KxUserPackages/other
    drop=()
    [ "$(id -u)" -ne 0 ] || drop=(setpriv --reuid=65534 --regid=65534 --clear-groups)
    cp "$KX_PACKAGE" tool

    # The folders above may be closed to others; the panel is reached as the working folder.
    status=0
    "${drop[@]}" ./tool installed --root panel >out 2>err || status=$?

    [ "$status" -eq 1 ]
    grep -qx '  problem:   UserPackage.kx-project cannot open: Permission denied' out
}

@test "colour is for terminals, and never with NO_COLOR" {
    record demo 1.0
    kx installed --root panel
    [ "$(grep -c $'\e' out)" -eq 0 ]
    run script -qec "$KX_PACKAGE installed --root panel" /dev/null
    [[ "$output" == *$'\e[1mdemo 1.0: T demo\e[0m'* ]]
    NO_COLOR=1 run script -qec "$KX_PACKAGE installed --root panel" /dev/null
    [[ "$output" != *$'\e'* ]]
}

@test "installed tells how many lines of a damaged list it left out" {
    mapfile -t lines < <(seq 60)
    record demo 1.0 -- "${lines[@]}"

    kx installed --root panel
    [ "$status" -eq 1 ]
    [ "$(grep -c '^  problem:   ' out)" -eq 20 ]
    grep -Fx '  (40 more lines of the list are damaged)' out
    kx installed --root panel --json
    jq -e '.packages[0] | (.problems | length) == 20 and .omittedProblems == 40' out

    # One is told, too.
    record demo 1.0 -- "${lines[@]::21}"
    kx installed --root panel
    grep -Fx '  (1 more line of the list is damaged)' out
    record demo 1.0 -- "${lines[@]::20}"
    kx installed --root panel
    [ "$(grep -c '^  (' out)" -eq 0 ]
}
