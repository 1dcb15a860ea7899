#!/usr/bin/env bats
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
#
# kx-package plan: what cannot be planned, wrong use, and hostile packages.

# shellcheck disable=SC2030,SC2031 # every test is a shell of its own
load plan

# ---- what cannot be read, and wrong use ----

@test "plan says what it cannot read" {
    kx plan none.kx-update
    expect 1 '' $'kx-package: none.kx-update: cannot open: No such file or directory\n'
    echo text >x.kx-update
    kx plan x.kx-update
    expect 1 '' $'kx-package: x.kx-update: cannot open the archive: Not a zip archive\n'
    : >empty.kx-update
    kx plan empty.kx-update
    [ "$status" -eq 1 ]
    kx plan /dev/null
    expect 1 '' $'kx-package: /dev/null: is neither a file nor a folder; name a package or the folder of an unpacked one\n'
}

@test "a description that cannot be read is no plan" {
    make Foo </dev/null
    chmod 000 Foo/UserPackage.kx-project

    without_rights plan Foo
    expect 3 '' $'kx-package: Foo/UserPackage.kx-project: cannot read: Permission denied\n'
}

# refused FILE: expects the plan of an archive that unzip itself does not unpack without complaint.
refused() {
    local unzipped=0
    mkdir -p unzipped
    unzip -o "$1" -d unzipped >/dev/null 2>&1 </dev/null || unzipped=$?
    [ "$unzipped" -ne 0 ]
    kx plan --json "$1"
    expect_commands true <<END
[sync]
[rm -r "/mnt/usb/${1%.kx-update}.temp"]
[mkdir -p "/mnt/usb/${1%.kx-update}.temp"]
[unzip -o "/mnt/usb/$1" -d "/mnt/usb/${1%.kx-update}.temp" ]
[rm -r "/mnt/usb/${1%.kx-update}.temp"]
[/usr/bin/kxsystem/usb_umount]
[/sbin/reboot]
END
    [ "$(jq -r '.log[-1]' out)" = "Unable to unpack /mnt/usb/$1 file to /mnt/usb/${1%.kx-update}.temp." ]
    [ "$(jq '.shown' out)" = false ]
    rm -r unzipped
}

@test "what unzip refuses or warns of is not installed by the plan either" {
    make Foo <<'END'
copy_folder(folder("/opt/f", {"d": {"x": "x"}}))
END
    (cd Foo && zip -q -0 -r ../Good.kx-update .)
    kx plan Good.kx-update
    grep -qx 'The installation succeeds.' out

    sed 's/Test package/Best package/' Good.kx-update >Sum.kx-update
    (echo '#!/bin/sh' && cat Good.kx-update) >Leading.kx-update
    (cd Foo && zip -q -P secret -r ../Encrypted.kx-update .)
    (cd Foo && 7z a -tzip -bd -mm=LZMA ../Method.kx-update . >/dev/null)
    /usr/bin/python3 - <<'END'
import zipfile

def copy(name, rename=lambda name: name, system=3, more=()):
    with zipfile.ZipFile("Good.kx-update") as good, zipfile.ZipFile(name, "w") as archive:
        for old in good.infolist():
            info = zipfile.ZipInfo("x", (2026, 11, 21, 0, 0, 0))
            info.filename, info.create_system = rename(old.filename), system
            info.external_attr = old.external_attr
            archive.writestr(info, good.read(old))
        for path in more:
            archive.writestr(path, "more")

copy("Backslash.kx-update", lambda name: name.replace("/", "\\"), system=0)
copy("Absolute.kx-update", lambda name: "/" + name)
copy("Up.kx-update", lambda name: "../" + name)
copy("Conflict.kx-update", more=["a", "a-b", "a/c"])
END

    for name in Sum Leading Encrypted Method Backslash Absolute Up Conflict; do
        refused "$name.kx-update"
        [ "$status" -eq 1 ]
    done
}

@test "a description beyond all measure is no plan" {
    mkdir Foo
    truncate -s 1T Foo/UserPackage.kx-project

    bounded plan Foo

    expect 3 '' $'kx-package: Foo:UserPackage.kx-project: is larger than 256 MiB\n'
}

@test "wrong use of plan" {
    demo pkg
    kx build pkg --updater arm-updater

    kx plan
    expect 2 '' $'kx-package: package is required; see kx-package help plan\n'
    kx plan demo.kx-update --at mnt/usb
    expect 2 '' $'kx-package: --at: must be an absolute path; see kx-package help plan\n'
    kx plan demo.kx-update --at ''
    [ "$status" -eq 2 ]
    kx plan demo.kx-update --root none
    expect 1 '' $'kx-package: none: cannot open: No such file or directory\n'
    kx plan demo.kx-update --root ''
    expect 2 '' $'kx-package: --root: names no folder; see kx-package help plan\n'
    kx plan demo.kx-update --root demo.kx-update
    [ "$status" -eq 1 ]
    kx plan demo.kx-update other
    [ "$status" -eq 2 ]
    kx plan --json --what demo.kx-update
    [ "$status" -eq 2 ]
    jq -e '.error.code == 2' out
    [ ! -s err ]
    kx plan --help
    [ "$status" -eq 0 ]
    grep -q '^Examples:' out
}

@test "output that cannot be written is told" {
    demo pkg
    kx build pkg --updater arm-updater

    status=0
    "$KX_PACKAGE" plan demo.kx-update >/dev/full 2>err || status=$?

    [ "$status" -eq 3 ]
    [ "$(cat err)" = 'kx-package: standard output: cannot be written' ]
}

# ---- hostile packages ----

@test "names of any bytes: the plan is still JSON, and nothing plays with the terminal" {
    make Foo <<'END'
copy_folder(folder("/opt", {raw(b"\xff\xfe"): "", "tab\there": "", "\x1b[31mred": "", "two\nlines": "", "日本": ""}),
            record=True)
END

    kx plan --json Foo
    [ "$status" -eq 0 ]
    iconv -f UTF-8 -t UTF-8 out >/dev/null
    [ "$(jq -r '.commands[] | select(.commandHex) | .command' out)" = 'cp -f "/mnt/usb/Foo.temp/0/0/\xff\xfe" "/opt/\xff\xfe" ' ]
    jq -r '.commands[].commandHex // empty' out | /usr/bin/python3 -c 'import sys
assert bytes.fromhex(sys.stdin.read()) == b"cp -f \"/mnt/usb/Foo.temp/0/0/\xff\xfe\" \"/opt/\xff\xfe\" "'
    jq -e '.recordedFiles | index("/opt/\\xff\\xfe") and index("/opt/tab\there")' out

    kx plan Foo
    [ "$(LC_ALL=C tr -d '\12\40-\176\200-\377' <out | wc -c)" -eq 0 ]
    grep -qF '"/opt/\x1b[31mred" ' out
    grep -qF '  /opt/two\nlines' out
    grep -qF '"/opt/日本" ' out
    grep -qxF '  /opt/\xff\xfe' out
}

@test "a package whose name plays with the terminal and the shell" {
    make Foo </dev/null
    mv Foo $'F\e[2J$HOME'

    kx plan $'F\e[2J$HOME'

    [ "$status" -eq 1 ]
    # shellcheck disable=SC2016 # the name
    grep -qxF '  mkdir -p "/mnt/usb/F\x1b[2J$HOME.temp"  [the shell reads this differently]' out
    [ "$(grep -c $'\e' out)" -eq 0 ]
}

@test "links in a payload are followed as on the panel" {
    make Foo <<'END'
copy_folder(folder("/opt/one", {"a": "a", "file": link("a"), "gone": link("nowhere")}), skip=True)
copy_folder(folder("/opt/two", {"d": {"x": "x"}, "folder": link("d"), "other": link("../../0/0/a")}))
copy_folder(folder("/opt/three", {"home": link("/home")}))
END
    (cd Foo && zip -q -r -y ../Foo.kx-update .)

    kx plan --json Foo
    mv out folder.json
    kx plan --json Foo.kx-update
    diff folder.json out

    expect_commands '.step != null' <<'END'
[mkdir -p "/opt/one"]
[cp -f "/mnt/usb/Foo.temp/0/0/a" "/opt/one/a" ]
[cp -f "/mnt/usb/Foo.temp/0/0/file" "/opt/one/file" ]
[cp -f "/mnt/usb/Foo.temp/0/0/gone" "/opt/one/gone" ]
[mkdir -p "/opt/two"]
[mkdir -p "/opt/two/d"]
[cp -f "/mnt/usb/Foo.temp/1/0/d/x" "/opt/two/d/x" ]
[mkdir -p "/opt/two/folder"]
[cp -f "/mnt/usb/Foo.temp/1/0/folder/x" "/opt/two/folder/x" ]
[cp -f "/mnt/usb/Foo.temp/1/0/other" "/opt/two/other" ]
[mkdir -p "/opt/three"]
[mkdir -p "/opt/three/home"]
[mkdir -p "/opt/three/home/user"]
END
}

@test "a description and an updater that are links are followed, and told where they lead to nothing" {
    make Foo <<'END'
copy_folder(folder("/opt/f", {"x": "x"}))
END
    kx plan Foo
    mv out files.plan
    mkdir Foo/real
    mv Foo/UserPackage.kx-project Foo/kx_Updater Foo/real
    ln -s real/UserPackage.kx-project real/kx_Updater Foo
    (cd Foo && zip -q -r -y ../Foo.kx-update .)

    for package in Foo Foo.kx-update; do
        kx plan "$package"
        diff files.plan out
        kx show "$package"
        [ "$status" -eq 0 ]
        grep -q '^  updater:   .*[KM]iB$\|^  updater:   .* bytes$' out
    done

    rm -r Foo/real
    (cd Foo && rm -f ../Foo.kx-update && zip -q -r -y ../Foo.kx-update .)
    kx plan Foo.kx-update
    [ "$status" -eq 1 ]
    grep -qxF "The window cannot load the package: Unable to access /mnt/usb/Foo.temp/UserPackage.kx-project file. UserPackage.kx-project is a link to 'real/UserPackage.kx-project'." out
    kx show Foo.kx-update
    expect 1 '' $'kx-package: Foo.kx-update:UserPackage.kx-project: is a link to \'real/UserPackage.kx-project\', which is not a file in the package; pack the file itself (zip without -y)\n'
}

@test "a link that leads round is followed until Linux refuses" {
    make Foo <<'END'
copy_folder(folder("/opt/tree", {"a": "a", "round": link(".")}))
END

    kx plan --json Foo

    [ "$status" -eq 1 ]
    [ "$(commands | grep -c '^.mkdir -p "/opt/tree')" -eq 41 ]
    [ "$(jq -r '.log[-1]' out)" = 'Installation failed in step 1.' ]
}

# two_ways FOLDER LEVELS: folders of which each has two links to the next: 2^LEVELS ways to the last.
two_ways() {
    local level
    for ((level = 0; level < $2; ++level)); do
        mkdir -p "$1/$level"
        ln -s "../$((level + 1))" "$1/$level/a"
        ln -s "../$((level + 1))" "$1/$level/b"
    done
    mkdir "$1/$2"
}

@test "lists in lists that double what is read: no plan, at once, and show still tells the rest" {
    mkdir Foo
    /usr/bin/python3 - >Foo/UserPackage.kx-project <<'END'
TYPE = '"$type": "Zt.Plugins.DB_StepSets, Plexa", "$values": ['
print("\ufeff" + '{"$type": "Zt.Plugins.DB_KxUserProject, Plexa", "Title": "t", "DB_StepSets": ' +
      ("{" + TYPE) * 30 + "]}" * 30 + "}")
END

    bounded plan Foo
    [ "$status" -eq 1 ]
    [ "$(cat err)" = 'kx-package: Foo:UserPackage.kx-project: takes too long to read: there are too many objects in it, and each list doubles what stands in it; look for lists in lists' ]
    bounded show Foo
    [ "$status" -eq 0 ]
    grep -qxF '  title:     t' out
    grep -qF '  nothing. Foo:UserPackage.kx-project: takes too long to read' out
}

@test "links that multiply folders: no plan, in bounded time and memory" {
    make Foo <<'END'
copy_folder(folder("/opt/tree", {}))
END
    two_ways Foo/0/0 38

    bounded plan Foo

    expect 1 '' $'kx-package: Foo: its installation takes more commands than can be planned; look for links that multiply its folders: find . -type l\n'
}

@test "nor is there where all of these folders are on the panel already, and no command is needed" {
    make Foo <<'END'
copy_folder(folder("/opt/tree", {}))
END
    two_ways Foo/0/0 38
    two_ways root/opt/tree 38

    bounded plan --json --root root Foo

    [ "$status" -eq 1 ]
    [ "$(jq -r .error.message out)" = 'its installation takes more commands than can be planned' ]
}

@test "twenty thousand files and twenty thousand links, in an archive" {
    make Foo <<'END'
copy_folder(folder("/opt/many", {}), record=True)
END
    /usr/bin/python3 - <<'END'
import os
os.makedirs("Foo/0/0/links")
for i in range(20000):
    os.makedirs(f"Foo/0/0/{i % 100}/sub", exist_ok=True)
    open(f"Foo/0/0/{i % 100}/sub/{i}", "w").close()
    os.symlink(f"../{i % 100}/sub/{i}", f"Foo/0/0/links/{i}")
END
    (cd Foo && zip -q -0 -r -y ../Foo.kx-update .)

    ulimit -S -t 30 # of processor time: what else the machine does is no matter
    bounded plan --json Foo.kx-update

    [ "$status" -eq 0 ]
    [ "$(commands | grep -c '^.cp -f "/mnt/usb/Foo.temp/0/0/')" -eq 40000 ]
    [ "$(jq '.recordedFiles | length' out)" -eq 40002 ]
}

@test "names of more folders than there can be take no memory" {
    /usr/bin/python3 - <<'END'
import zipfile
with zipfile.ZipFile("Long.kx-update", "w") as archive:
    archive.writestr("a/" * 30000 + "f", "x")
with zipfile.ZipFile("Many.kx-update", "w") as archive:
    for i in range(300):
        archive.writestr(f"{i}/" + "a/" * 2000 + "f", "x")
END

    bounded plan Long.kx-update
    [ "$status" -eq 1 ]
    grep -q '^The window cannot load the package' out
    bounded plan Many.kx-update
    expect 3 '' $'kx-package: the package\'s names hold more folders than can be listed\n'
}
