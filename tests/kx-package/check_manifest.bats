#!/usr/bin/env bats
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
#
# What an author gets wrong, planted in a package and seen before there is one: `kx-package check`
# on a manifest, and what `kx-package build` says at its end.

load package

# found: "severity id file:line:column", one a line, of the JSON in out.
found() {
    jq -r '.findings[] | "\(.severity) \(.id) \(.place.file):\(.place.line):\(.place.column)"' out
}

# line TEXT: where the text stands in pkg/package.toml, "line".
line() {
    grep -nF -- "$1" pkg/package.toml | head -n 1 | cut -d: -f1
}

@test "a manifest is checked without being built, by its name and by its folder" {
    demo pkg

    kx check pkg
    [ "$status" -eq 0 ]
    [ "$(tail -n 1 out)" = 'pkg: 0 errors, 0 warnings, 2 notes' ]
    kx check --strict pkg/package.toml
    [ "$status" -eq 0 ]
    [ "$(tail -n 1 out)" = 'pkg/package.toml: 0 errors, 0 warnings, 2 notes' ]
    [ -z "$(ls ./*.kx-update 2>/dev/null)" ]
}

@test "a script with Windows line ends and a program for another processor are told at their sources" {
    demo pkg
    printf '#!/bin/sh\r\necho\r\n' >pkg/bin/hello
    cp /bin/ls pkg/share/ls
    sed -i 's/folders = \[{ /&executable = ["ls"], /' pkg/package.toml

    kx check --json pkg

    [ "$status" -eq 1 ]
    found >seen
    grep -qx "error script-first-line pkg/package.toml:13:21" seen
    grep -qx "error program-processor pkg/package.toml:$(line 'source = "share"'):$(
        grep -o '^.*source = ' <<<"$(grep 'source = "share"' pkg/package.toml)" | awk '{ print length + 1 }')" seen
    jq -e '[.findings[].message] | any(. == "pkg/bin/hello: its first line ends in a carriage return")' out
    jq -e '[.findings[].message] | any(startswith("pkg/share/ls: is for "))' out
}

@test "settings, targets, scripts and identity are told where they are written" {
    cat >package.toml <<'END'
[package]
name = "m"
title = ""
version = "1.0"
model = "TP"
os-version = "2"
date = 2026-11-21
processor = "arm"

[[steps]]
kind = "copy-files"
files = [
  { source = "f", target = "/etc/shadow" },
  { source = "f", target = "/opt/../f" },
  { source = "f", target = "/mnt/user/startup.sh" },
]

[[steps]]
kind = "script"
install = "#!/bin/sh\nif true\n"

[[steps]]
kind = "settings"
[[steps.settings]]
kind = "backlight"
values = { Level = "" }
[[steps.settings]]
kind = "backlight"
values = { Level = "8" }
[[steps.settings]]
kind = "auto-start"
script = "#!/bin/sh\r"
END
    echo text >f

    kx check --json package.toml

    [ "$status" -eq 1 ]
    diff - <(found | sort) <<'END'
error script-first-line package.toml:32:10
warning identity-empty package.toml:3:9
warning script-syntax package.toml:20:11
warning setting-empty package.toml:26:20
warning setting-twice package.toml:29:20
warning startup-twice package.toml:15:28
warning target-system package.toml:13:28
warning target-up package.toml:14:28
END
}

@test "all mistakes of a manifest are told at once, by build and by check" {
    demo pkg
    sed -i 's/^title = .*/titles = "x"/; s/mode = "755"/mode = "999"/; s/"backlight"/"backlihgt"/' pkg/package.toml
    printf '\n[[steps]]\nkind = "copy-files"\nfiles = [{ source = "none", target = "/n" }]\n' >>pkg/package.toml

    kx build pkg --updater arm-updater
    [ "$status" -eq 1 ]
    [ ! -e demo.kx-update ]
    cut -d: -f2-4 err | diff - <(
        cat <<'END'
 pkg/package.toml:3:1
 pkg/package.toml:1:1
 pkg/package.toml:13:64
 pkg/package.toml:26:12
 pkg/package.toml:32:21
END
    )
    kx build pkg --updater arm-updater --json
    [ "$status" -eq 1 ]
    [ ! -s err ]
    jq -e '(.errors | length) == 5 and .error == .errors[0]' out

    kx check --json pkg
    [ "$status" -eq 1 ]
    [ "$(found | grep -c '^error manifest-mistake ')" -eq 5 ]
    # What is right is checked all the same.
    printf '#!/bin/sh\n' >pkg/share/run
    kx check --json pkg
    found | grep -q '^warning manifest-hint pkg/package.toml:17:'
}

@test "what is no TOML is one mistake" {
    printf '[package\n' >package.toml
    kx check --json package.toml
    [ "$status" -eq 1 ]
    [ "$(found)" = 'error manifest-mistake package.toml:1:9' ]
    kx check none.toml
    [ "$status" -eq 1 ]
}

@test "build ends with what the check finds" {
    demo pkg
    sed -i 's/Level = "8"/Level = ""/' pkg/package.toml

    kx build pkg --updater arm-updater
    [ "$status" -eq 0 ]
    grep -q '^demo.kx-update: ' out
    diff err - <<'END'
warning: setting-empty: pkg/package.toml:26:44
  'Level' has no value
  On the panel: The setting tool gets a name without a value.
  Remedy: Write the value, or remove the setting.
demo.kx-update: 0 errors, 1 warning, 2 notes
END
    kx build pkg --updater arm-updater --strict
    [ "$status" -eq 1 ]
    [ -e demo.kx-update ]

    printf '#!/bin/sh\r\n' >pkg/bin/hello
    kx build pkg --updater arm-updater -o - --json
    [ "$status" -eq 2 ]
    kx build pkg --updater arm-updater -o -
    [ "$status" -eq 1 ]
    grep -q '^error: script-first-line: pkg/package.toml:' err
    unzip -tq out
    kx build pkg --updater arm-updater --json
    [ "$status" -eq 1 ]
    jq -e '.clean == false and .errors == 1 and .warnings == 1 and .file == "demo.kx-update"' out
}

@test "another program in the updater's place is told" {
    demo pkg
    head -c 64 arm-updater >other

    kx build pkg --updater other
    [ "$status" -eq 0 ]
    grep -qx 'warning: updater-other: pkg/package.toml:9:13' err
    grep -qx '  other is another program' err
}

@test "a name with the version behind makes a second record" {
    demo pkg
    kx build pkg --updater arm-updater -o demo-1.0.kx-update
    [ "$status" -eq 0 ]
    grep -qx 'warning: name-version: pkg/package.toml:2:8' err

    kx check demo-1.0.kx-update
    grep -qx 'warning: name-version: demo-1.0.kx-update' out
    mv demo-1.0.kx-update 'demo (1).kx-update'
    kx check 'demo (1).kx-update'
    grep -qx 'warning: name-copy: demo (1).kx-update' out
}

@test "a pattern that keeps nothing out is told, a library wants no right to be started" {
    demo pkg
    printf '\x7fELF' >pkg/share/libfoo.so
    sed -i 's/folders = \[{ /&exclude = ["*.bak", "deep"], /' pkg/package.toml

    kx build pkg --updater arm-updater

    [ "$status" -eq 0 ]
    grep -qx "  nothing in 'share' matches '\*.bak' of 'exclude'" err
    [ "$(grep -c "of 'exclude'" err)" -eq 1 ]
}

@test "the panel of the manifest counts, and that of the command line more" {
    demo pkg
    cat >pkg/panel.toml <<'END'
models = ["TP-0700"]
interpreters = []
[settings]
Level = { range = [0, 7] }
END
    sed -i 's/^name = "demo"/&\npanel = "panel.toml"/' pkg/package.toml
    printf '#!/usr/bin/perl\n' >pkg/bin/hello

    kx check --json pkg
    [ "$status" -eq 1 ]
    [ "$(jq -r '.findings[] | select(.severity == "error").message' out)" = \
        "is '8'; 'Level' takes a number from 0 to 7
pkg/bin/hello: there is no '/usr/bin/perl' on the panel" ]
    kx build pkg --updater arm-updater
    [ "$status" -eq 1 ]
    [ -e demo.kx-update ]

    echo 'models = ["TP-0800"]' >other.toml
    kx check --json --panel other.toml pkg
    [ "$status" -eq 0 ]
    [ "$(found | grep -v ^note)" = 'warning identity-panel pkg/package.toml:7:9' ]
    kx check --panel other.toml demo.kx-update
    grep -q '^warning: identity-panel: ' out

    echo 'processor = "x86_64"' >other.toml
    kx check --json --panel other.toml pkg
    [ "$status" -eq 1 ]
    jq -e '[.findings[].message] | any(startswith("'"'package.processor' is arm, and other.toml says x86_64"'"))' out
    echo 'models = 1' >other.toml
    kx build pkg --updater arm-updater --panel other.toml
    expect 1 '' $'kx-package: other.toml:1:10: \'models\' must be an array of texts, not a number; write an array of texts\n'
}

@test "several packages are checked in one call" {
    demo pkg
    kx build pkg --updater arm-updater
    cp -r pkg second
    printf '#!/bin/sh\r\n' >second/bin/hello

    kx check demo.kx-update pkg
    [ "$status" -eq 0 ]
    grep -q '^demo.kx-update: 0 errors' out
    grep -q '^pkg: 0 errors' out
    kx check demo.kx-update second --json
    [ "$status" -eq 1 ]
    jq -e '.clean == false and [.packages[] | .package, .clean] == ["demo.kx-update", true, "second", false]' out
}
