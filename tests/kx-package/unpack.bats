#!/usr/bin/env bats
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
#
# kx-package unpack, as a user starts it: packages become sources, and these the same packages.
#
#   KX_SECOND    another build of the tool, which starts quickly (default: none)

load plan

# unpacks_to_same PACKAGE: it is unpacked and built again, which gives the same bytes.
unpacks_to_same() {
    rm -rf sources again
    mkdir again
    kx unpack "$1" -o sources
    [ "$status" -eq 0 ] || {
        cat err >&2
        return 1
    }
    kx build sources -o again/
    # What the check at the end finds wrong with it was so before.
    [[ $status -le 1 && -n $(ls again) ]]
    cmp "$1" "again/$(basename "$1")"
}

# unpacks_to_same_plan PACKAGE: it is unpacked and built again, and the plans are the same.
unpacks_to_same_plan() {
    rm -rf sources again
    mkdir again
    kx plan --show-secrets --json "$1"
    mv out plan.json
    kx unpack "$1" -o sources
    [ "$status" -eq 0 ] || {
        cat err >&2
        return 1
    }
    mv err remarks
    kx build sources -o again/
    # What the check at the end finds wrong with it was so before.
    [[ $status -le 1 && -n $(ls again) ]] || {
        cat err >&2
        return 1
    }
    kx plan --show-secrets --json "again/$(basename "$1")"
    diff plan.json out
}

# refused STATUS PATTERN PACKAGE: it is not unpacked, and nothing is left.
refused() {
    mkdir -p place
    kx unpack "$3" -o place/sources
    [ "$status" -eq "$1" ]
    # shellcheck disable=SC2053 # a pattern
    [[ $(<err) == $2 ]] || {
        cat err >&2
        return 1
    }
    [ -z "$(ls -A place)" ]
}

# unpacked_script PACKAGE STEP: the install script that a panel would get.
unpacked_script() {
    unzip -p "$1" UserPackage.kx-project | tail -c +4 | jq -j \
        ".DB_StepSets[\"\$values\"][$2].InstallScriptFunctionData.ScriptData"
}

@test "a package is unpacked to a manifest that reads like an author's" {
    demo pkg
    kx build pkg --updater arm-updater

    kx unpack demo.kx-update -o sources

    expect 0 'Unpacked to sources: package.toml, 3 payload files. To make the package again:
  kx-package build sources
' ''
    diff "$BATS_TEST_DIRNAME/golden/demo.unpacked.toml" sources/package.toml
    diff - <(cd sources && find . -mindepth 1 -printf '%P %y %m\n' | LC_ALL=C sort) <<'END'
bin d 755
bin/hello f 644
kx_Updater f 644
package.toml f 644
share d 755
share/deep d 755
share/deep/b.txt f 644
share/empty d 755
share/ä日本.txt f 644
END
    cmp arm-updater sources/kx_Updater
}

@test "what build made becomes the same bytes again" {
    demo pkg
    kx build pkg --updater arm-updater
    unpacks_to_same demo.kx-update
    kx new recipes
    kx build recipes --updater updater
    unpacks_to_same recipes.kx-update
    rm ./*.kx-update
    local example
    for example in hello settings application; do
        kx build "$ROOT/examples/$example" --processor arm --updater arm-updater
        unpacks_to_same ./*.kx-update
        rm ./*.kx-update
    done
}

@test "dates of SOURCE_DATE_EPOCH come back" {
    demo pkg
    SOURCE_DATE_EPOCH=1700000001 kx build pkg --updater arm-updater
    unpacks_to_same demo.kx-update
    grep -qx 'timestamp = 2023-11-14T22:13:20Z' sources/package.toml
    # Also where another date is asked for: it is the package's own.
    SOURCE_DATE_EPOCH=1600000000 unpacks_to_same demo.kx-update
}

@test "sources at odd places, twice, and in each other come back" {
    mkdir -p pkg/a/b/.hidden pkg/a/empty other 'pkg/we\ird' pkg/C:
    echo one >pkg/a/one
    echo two >pkg/a/b/two
    echo hidden >pkg/a/b/.hidden/x
    echo star >'pkg/a/st*r'
    echo plain >pkg/a/star
    echo outside >other/outside
    echo 'colon' >'pkg/a/x:y'
    echo w >'pkg/we\ird/w'
    echo c >pkg/C:/c
    echo CASE >pkg/a/One
    cat >pkg/package.toml <<END
[package]
name = "odd"
title = "Odd"
version = "1"
model = ""
os-version = "\\u0001 \\u007f \\" \\\\ \\t"
date = "today"
processor = "arm"

[[steps]]
kind = "copy-files"
comment = """a
"comment" """
files = [
  { source = "a/one", target = "/opt/one" },
  { source = "a/one", target = "/opt/two", mode = "4755" },
  { source = "a/b/two", target = "/opt/three" },
  { source = "$PWD/other/outside", target = "/opt/four" },
  { source = "../other/outside", target = "/opt/five" },
  { source = "./a/one", target = "/opt/six" },
  { source = "we\\\\ird/w", target = "/opt/seven" },
  { source = "C:/c", target = "/opt/eight" },
  { source = "package.toml", target = "/opt/nine" },
]

[[steps]]
kind = "copy-folder"
skip = true
record = false
folders = [
  { source = "a", target = "/opt/a", executable = ["one", "st*"] },
  { source = "a", target = "/opt/b", executable = ["one", "st*"] },
  { source = "a", target = "/opt/c" },
  { source = "a", target = "/opt/d", exclude = ["b"] },
  { source = "a/b", target = "/opt/e" },
  { source = "../other/", target = "/" },
  { source = ".", target = "/opt/f", exclude = ["a", "we*"] },
]

[[steps]]
kind = "script"
install = ""
uninstall = "no \\"\\"\\" end\\\\\\u000c"

[[steps]]
kind = "settings"
[[steps.settings]]
kind = "auto-start"
script = "#!/bin/sh\\ntrue\\n"
values = { "a b" = "1", "" = "", z = "=" }
[[steps.settings]]
kind = "auto-start"
values = { CustomScript = "#!/bin/sh\\r\\n", Mode = "x" }
[[steps.settings]]
kind = "sound"
used = false
END
    kx build pkg --updater arm-updater
    cat err
    # The check at the end finds names that no setting has.
    [ "$status" -eq 1 ]

    unpacks_to_same odd.kx-update
}

@test "what other writers and other programs made has the same plan" {
    make Foo.kx-update <<'END'
copy_file(item(r"C:\work\a.bin", "/opt/demo/a", "755"), item(r"D:\a.bin", "/opt/b", "", "other"),
          item("b", "/top", "0644"), skip=True)
copy_folder(folder("/opt/tree", {"z": "", ".h": "", "sub": {"x y": file("", 0o600)}, "empty": {}},
                   "755"))
copy_folder(folder("/", {"etc": {"new": {"conf": file("", 0o775)}}}))
script("#!/bin/sh\r\necho \"x\"\r\n")
hardware(setting("Backlight", ("Level", "8")), setting("Sound", ("Volume", "5"), used=False),
         setting("User", ("User", "user"), ("Password", "pass word")),
         setting("AutoStartupMode", ("CustomScript", "#!/bin/sh\r\n"), ("Mode", "script")))
put("README", "what it is")
END

    unpacks_to_same_plan Foo.kx-update

    [ ! -s remarks ]
    [ ! -e sources/verbatim ]
    [ "$(<sources/extra/README)" = 'what it is' ]
    [ "$(cat sources/payload/a.bin)" = payload ]
    grep -qx 'origin = "C:\\\\work\\\\a.bin"' sources/package.toml
    unzip -Z -s again/Foo.kx-update | grep -q '^-rw------- .* 1/0/sub/x y$'
    unzip -Z -s again/Foo.kx-update | grep -q '^-rwxrwxr-x .* 2/0/etc/new/conf$'
    [ "$(unpacked_script again/Foo.kx-update 3)" = $'#!/bin/sh\necho "x"' ]
}

@test "what a manifest has no words for is taken as it is" {
    make Foo.kx-update <<'END'
copy_file(item("a", "/opt/dir/", "755"), item("a", "relative", "644"), item("c", "/opt/c", "u+x"))
copy_folder(folder("/opt/slash/", {"a$": "", "b\\c": "", "sub": {}}))
script("#!/bin/sh\necho a\0b\n")
script("#!/bin/sh\r\r\necho c\n")
script("#!/bin/sh\n", uninstall=raw(b"latin \xe4"))
hardware()
copy_file()
copy_file(item("gone", "/opt/gone", "644", None), skip=True)
hardware(setting("Zt.Plugins.HW_NewConfigSet,  Plexa", ("A", "1"), used=False))
hardware(setting("Sound", ("A", "1"), ("A", "2")), setting("Lan"))
script("#!/bin/sh\n")
change(lambda project: project["DB_StepSets"]["$values"][10].update(
    UninstallScriptFunctionData=typed("DB_HardwareItem", ItemName="", Value="")))
put("0/0/unused", "nobody copies it")
root(Title="nul\0 behind", Comment=raw(b"latin \xe4"))
END

    unpacks_to_same_plan Foo.kx-update

    cat remarks
    [ "$(grep -c 'is taken as it is: a manifest has no words for all that it says' remarks)" -eq 11 ]
    unpacked_script again/Foo.kx-update 2 | cmp - <(printf '#!/bin/sh\necho a\0b\n')
    unpacked_script again/Foo.kx-update 3 | cmp - <(printf '#!/bin/sh\r\r\necho c\n')
    unzip -p again/Foo.kx-update UserPackage.kx-project | grep -a -q $'latin \xe4'
    unzip -p again/Foo.kx-update UserPackage.kx-project | grep -q 'nul\\u0000 behind'
    unzip -Z -1 again/Foo.kx-update | grep -qx '0/0/unused'
    # Unpacking that once more comes to the same.
    mv again/Foo.kx-update Foo.kx-update
    unpacks_to_same Foo.kx-update
}

@test "a package is unpacked from a folder and from standard input, too" {
    demo pkg
    kx build pkg --updater arm-updater
    unzip -q demo.kx-update -d demo.temp

    kx unpack demo.temp -o one
    expect 0 $'Unpacked to one: package.toml, 3 payload files. To make the package again:
  kx-package build one\n' ''
    kx build one
    cmp demo.kx-update <(SOURCE_DATE_EPOCH='' "$KX_PACKAGE" build pkg --updater arm-updater -o -)

    status=0
    "$KX_PACKAGE" unpack - -o two <demo.kx-update >out 2>err || status=$?
    [ "$status" -eq 0 ]
    grep -qx 'name = "package"' two/package.toml
}

@test "names are made harmless, and come back" {
    make Foo.kx-update <<'END'
copy_folder(folder("/opt", {".git": {"config": "evil", "empty": {}}, "-rf": "", "A": {"x": "1"},
                            "a": {"x": "2"}, "con": "", "nul.txt": "", "b ": "", "c.": "", "q?": "",
                            "p|": file("", 0o755), ".hidden": ""}))
copy_file(item(".git/hooks/pre-commit", "/opt/hook", "755", "evil"),
          item(".bashrc", "/opt/rc", "644"), item("x*y", "/opt/star", "644", "mine"),
          item("payload/X_Y", "/opt/other", "644", "mine"))
END

    unpacks_to_same_plan Foo.kx-update

    [ "$(<remarks)" = "kx-package: 'payload/folder' has 10 files by other names than the package, \
which could do harm or clash: 'names' in package.toml brings them back" ]
    diff - <(cd sources && find . -type f | LC_ALL=C sort) <<'END'
./kx_Updater
./package.toml
./payload/.bashrc
./payload/X_Y~2
./payload/folder/.hidden
./payload/folder/A/x
./payload/folder/_con
./payload/folder/_git/config
./payload/folder/_nul.txt
./payload/folder/_rf
./payload/folder/a~2/x
./payload/folder/b_
./payload/folder/c_
./payload/folder/p_
./payload/folder/q_
./payload/pre-commit
./payload/x_y
END
}

# pack FILE ENTRY...: demo's package with more entries, each NAME MODE CONTENT in Python's spelling.
pack() {
    [ -e good.kx-update ] || {
        demo good
        kx build good --updater arm-updater -o good.kx-update
    }
    /usr/bin/python3 - "$@" <<'END'
import sys
import zipfile

with zipfile.ZipFile("good.kx-update") as good, zipfile.ZipFile(sys.argv[1], "w") as packed:
    for info in good.infolist():
        packed.writestr(info, good.read(info))
    for entry in sys.argv[2:]:
        name, mode, content = eval(entry)
        info = zipfile.ZipInfo("x")
        info.filename = name
        info.create_system = 3
        info.compress_type = zipfile.ZIP_DEFLATED
        info.external_attr = mode << 16
        packed.writestr(info, content)
END
}

@test "nothing is written outside, and no link, device or right comes along" {
    # What unzip warns of, no panel unpacks.
    pack up.kx-update '"../up", 0o100644, ""'
    refused 1 '*up.kx-update: no panel can unpack it; kx-package check tells why' up.kx-update
    pack root.kx-update '"/root", 0o100644, ""'
    refused 1 '*no panel can unpack it*' root.kx-update
    pack out.kx-update '"1/0/link", 0o120777, "/etc/passwd"'
    refused 1 "*out.kx-update:1/0/link: is a link to '/etc/passwd', which leads out of the package*" \
        out.kx-update
    pack through.kx-update '"1/0/link", 0o120777, "../../.."' '"9/link", 0o120777, "gone"'
    refused 1 "*1/0/link: is a link to '../../..', which leads out*" through.kx-update
    pack loop.kx-update '"1/0/loop", 0o120777, "../0"'
    refused 1 '*' loop.kx-update

    pack fine.kx-update '"1/0/link", 0o120777, "deep/b.txt"' '"1/0/folder", 0o120777, "deep"' \
        '"1/0/root", 0o106755, "x"' '"1/0/device", 0o060644, ""' '"lost", 0o120777, "/etc"' \
        '"more", 0o100600, "more"'
    unpacks_to_same_plan fine.kx-update
    [ "$(<remarks)" = "kx-package: 'lost' is left out: it is no file, and no step uses it" ]
    [ "$(<sources/share/link)$(<sources/share/folder/b.txt)$(<sources/share/root)" = zweizweix ]
    diff - <(find sources ! -type f ! -type d -o -perm /7000 -o -type f -perm /111) </dev/null
    unzip -Z -s again/fine.kx-update | grep -q '^-rw------- .* more$'

    mkdir folder
    unzip -q good.kx-update -d folder
    mkfifo folder/1/0/pipe
    refused 1 '*folder:1/0/pipe: is neither a file nor a folder*' folder
    rm folder/1/0/pipe
    touch folder/1/0/$'a\nb'
    refused 1 '*folder:1/0/a\\nb: its name holds control characters*' folder
    rm folder/1/0/a*
    touch folder/1/0/$'\xff'
    refused 1 '*folder:1/0/\\xff: its name is not UTF-8*' folder
}

@test "what no panel could install is told" {
    demo pkg
    kx build pkg --updater arm-updater
    unzip -q demo.kx-update -d demo
    chmod 644 demo/kx_Updater
    refused 1 '*there is no kx_Updater in it that a panel could start; no panel installs it' demo
    chmod 755 demo/kx_Updater
    sed -i 's/"Title"/"Titles"/' demo/UserPackage.kx-project
    refused 1 '*demo:UserPackage.kx-project:1:1: has no Title; no panel reads such a description' demo
    sed -i 's/"Titles": "[^"]*"/"Title": 8/' demo/UserPackage.kx-project
    refused 1 '*UserPackage.kx-project:6:12: is a number, which Title must not be; *' demo
    echo nothing >demo/UserPackage.kx-project
    refused 1 '*UserPackage.kx-project:*' demo
    rm demo/UserPackage.kx-project
    refused 1 '*' demo
    echo nothing >text
    refused 1 '*' text
    refused 1 '*' missing
}

@test "sizes are bounded, and the bound can be lifted" {
    pack large.kx-update '"1/0/large", 0o100644, bytes(2 << 20)'
    mkdir place
    kx unpack large.kx-update -o place/sources --disk 1
    expect 3 '' "kx-package: large.kx-update: unpacks to more than 1.0 MiB; allow more with --disk MiB
"
    [ -z "$(ls -A place)" ]
    kx unpack large.kx-update -o place/sources --disk 3
    [ "$status" -eq 0 ]

    # Links that multiply a file.
    pack links.kx-update '"1/0/large", 0o100644, bytes(1 << 19)' '"1/0/a", 0o120777, "large"' \
        '"1/0/b", 0o120777, "large"' '"1/0/c", 0o120777, "large"'
    kx unpack links.kx-update -o place/links --disk 1
    expect 3 '' "kx-package: links.kx-update: unpacks to more than 1.0 MiB; allow more with --disk MiB
"
    [ "$(ls -A place)" = sources ]
    kx unpack links.kx-update -o place/links --disk 0
    [ "$status" -eq 2 ]
}

@test "a folder must be new or empty" {
    demo pkg
    kx build pkg --updater arm-updater
    mkdir empty full
    touch full/file

    kx unpack demo.kx-update -o full
    expect 2 '' 'kx-package: full: is there already, and is no empty folder; name a folder that is not there yet
'
    [ "$(ls -A full)" = file ]
    kx unpack demo.kx-update -o pkg/package.toml
    [ "$status" -eq 2 ]
    kx unpack demo.kx-update -o none/new
    expect 3 '' 'kx-package: none/new: cannot make the folder: No such file or directory
'
    (
        cd empty
        "$KX_PACKAGE" unpack ../demo.kx-update -o . >../out
        "$KX_PACKAGE" build . -o ../again.kx-update >../out
    )
    cmp demo.kx-update again.kx-update
    kx unpack demo.kx-update
    [ "$status" -eq 2 ]
}

@test "an interruption leaves nothing" {
    pack large.kx-update '"1/0/large", 0o100644, bytes(600 << 20)'
    mkdir place
    local signal
    for signal in INT TERM HUP; do
        # A background process ignores INT, unless it is told otherwise.
        /usr/bin/python3 -c '
import os, signal, sys
signal.signal(signal.SIGINT, signal.SIG_DFL)
os.execv(sys.argv[1], sys.argv[1:])' "$KX_PACKAGE" unpack large.kx-update -o place/sources &
        for ((i = 0; i < 1000; i++)); do
            [ -z "$(ls -A place)" ] || break
            sleep 0.05
        done
        [ -n "$(ls -A place)" ]
        kill -s "$signal" $!
        status=0
        wait $! || status=$?
        [ "$status" -eq "$((128 + $(kill -l "$signal")))" ]
        [ -z "$(ls -A place)" ]
    done
}

@test "a full disk and a failing check of the result leave nothing" {
    pack large.kx-update '"1/0/large", 0o100644, bytes(2 << 20)'
    mkdir place
    status=0
    (
        trap '' XFSZ
        ulimit -f 1024
        exec "$KX_PACKAGE" unpack large.kx-update -o place/sources
    ) >out 2>err || status=$?
    expect 3 '' 'kx-package: share/large: cannot write: File too large
'
    [ -z "$(ls -A place)" ]
}

@test "a name that build does not give is told" {
    pack 'My (1).kx-update'
    kx unpack 'My (1).kx-update' -o sources
    [ "$status" -eq 0 ]
    [ "$(<err)" = "kx-package: the package's name 'My (1)' is none that build gives: it is now \
'My--1-', which a panel records as another package" ]
    grep -qx 'name = "My--1-"' sources/package.toml
}

@test "a program for a processor that nobody knows is packed again" {
    demo pkg
    kx build pkg --updater arm-updater
    unzip -q demo.kx-update -d folder
    printf '#!/bin/sh\n' >folder/kx_Updater
    (cd folder && zip -q -X -r ../demo.kx-update .)
    unpacks_to_same_plan demo.kx-update
    unzip -p again/demo.kx-update kx_Updater | cmp - <(printf '#!/bin/sh\n')
    grep -q '^# processor' sources/package.toml
    # Another one can be asked for.
    kx build sources --updater arm-updater --processor arm -o other.kx-update
    [ "$status" -eq 0 ]
}

@test "unpack's JSON tells what it did" {
    make Foo.kx-update <<'END'
copy_file(item("a", "/opt/dir/", "755"))
script("#!/bin/sh\n")
END
    kx unpack --json Foo.kx-update -o sources
    expect 0 '{
  "folder": "sources",
  "formatVersion": 1,
  "manifest": "package.toml",
  "payloadFiles": 1,
  "remarks": [],
  "size": '"$(find sources -type f -exec cat {} + | wc -c)"',
  "verbatimSteps": [
    1
  ]
}
' ''
    kx unpack --json Foo.kx-update -o sources
    [ "$status" -eq 2 ]
    jq -e '.error.code == 2' out
}

@test "every package of the corpus is unpacked to sources of the same, or told why not" {
    /usr/bin/python3 "$BATS_TEST_DIRNAME/corpus/unpacking.py" --tool "$KX_PACKAGE" \
        --second "${KX_SECOND:-}" \
        --fuzz "$ROOT/tests/fuzz/corpus" --archives 60 --descriptions 60
}
