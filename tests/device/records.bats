#!/usr/bin/env bats
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
#
# What kx-package installed and verify tell about the records of the real updater.

load device

TOOL=/opt/kx-package

# tool ARGUMENT...: starts kx-package on a copy of the panel's files; leaves $status and $OUT.
tool() {
    status=0
    "$KX_PACKAGE" "$@" --root "$STATE/root" >"$OUT" 2>"$ERR" || status=$?
}

# tool_inside ARGUMENT...: starts kx-package on the panel.
tool_inside() {
    device --keep --share "$KX_PACKAGE=$TOOL" -- "$TOOL" "$@"
}

@test "what the updater installed and recorded is found, on the panel and on a copy of its files" {
    package 'My Foo' <<'END'
copy_file(item(r"C:\work\app.bin", "/opt/demo/app.bin", "755", "program\n"),
          item("b/c.txt", "/mnt/user/c.txt", "", "text\n"), record=True)
copy_folder(folder("/opt/demo/share", {".hidden": "h\n", "empty": {}, "two words": "t\n",
    "1": {"2": {"3": "deep\n"}}}), record=True)
copy_folder(folder("/", {"opt": {"demo": {"more": "m\n"}}}), record=True)
script("#!/bin/sh\ntrue\n")
END
    install 'My Foo' --keep
    expect_status 0

    tool_inside verify 'My Foo'

    expect_status 0
    [ "$(tail -n 1 "$OUT")" = 'My Foo: 6 of 6 folders and 8 of 8 files are there' ]
    mv "$OUT" "$OUT.inside"
    tool verify 'My Foo'
    expect_status 0
    cmp "$OUT" "$OUT.inside"
    tool installed --json
    expect_status 0
    jq -e '[.packages[] | [.name, .folders, .files, .problems]] == [["My Foo", 6, 8, []]]' "$OUT"
    tool_inside installed
    expect_status 0
    [ "$(tail -n 1 "$OUT")" = '/var/lib/KxUserPackages: 1 package' ]
}

@test "what was removed or replaced since is found" {
    package Foo <<'END'
copy_file(item("a", "/opt/demo/a"), item("b", "/opt/demo/b"), record=True)
END
    install Foo --keep --look 'rm /opt/demo/a /opt/demo/b && mkdir /opt/demo/b'
    expect_status 0

    tool_inside verify Foo

    expect_status 1
    [ "$(tail -n 3 "$OUT")" = '  missing:   /opt/demo/a (file, line 5)
  replaced:  /opt/demo/b (file, line 6) is a folder
Foo: 2 of 2 folders and 2 of 4 files are there' ]
}

@test "a failed installation leaves no record to be found" {
    package Foo </dev/null
    install Foo --keep
    tool installed
    [ "$(tail -n 1 "$OUT" | sed 's/.*: //')" = '1 package' ]
    package Bar <<'END'
script("#!/bin/sh\nexit 3\n")
END
    rm -r "$PACKAGES/Foo"
    mv "$PACKAGES/Bar" "$PACKAGES/Foo"
    install Foo --keep
    expect_status 101

    tool_inside installed

    expect_status 0
    expect_out <<'END'
/var/lib/KxUserPackages: no packages
END
    tool_inside verify Foo
    expect_status 2
}

@test "a record that lost its list is told" {
    package Foo <<'END'
copy_file(item("a", "/opt/demo/a"), record=True)
END
    install Foo --keep --look 'cd /var/lib/KxUserPackages/Foo && rm installedFile.list'
    tool installed
    expect_status 1
    grep -q 'problem:   there is no installedFile.list' "$OUT"
}

@test "a package without a name leaves files among the records, which are told" {
    package .temp </dev/null
    install .temp --keep

    tool installed

    expect_status 1
    grep -v '/var/lib' "$OUT" >"$OUT.told"
    same "$OUT.told" 'what was told' <<'END'
UserPackage.kx-project
  no record: is a file of a package that was unpacked into a folder without a name
installedFile.list
  no record: is a file of a package that was unpacked into a folder without a name
END
}
