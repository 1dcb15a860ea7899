#!/usr/bin/env bats
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
#
# kx-package try: packages of any name, and what is no package.

# shellcheck disable=SC2154 # stderr is what run sets
load try

setup() {
    try_setup
}

# ---- names and places ----

@test "packages of any name are tried" {
    local names=('two words' "it's" 'a[b]*?' -- '-o' 'Länge日本' $'\xff\xfe' 'a=b' '.hidden'
        'dots.and.more' '&;|<>')
    hello plain.kx-update
    for name in "${names[@]}"; do
        cp plain.kx-update "./$name.kx-update"
        mkdir "./$name" && unzip -q plain.kx-update -d "./$name"

        try --json "./$name.kx-update"
        expect_status 0
        jq '.recordName, .installations[0].record' "$OUT" >archive
        try --json "./$name"
        expect_status 0

        diff archive <(jq '.recordName, .installations[0].record' "$OUT")
    done
    try --json ./Länge日本.kx-update
    [ "$(told .recordName)" = Länge日本 ]
    try $'./\xff\xfe.kx-update'
    head -n 1 "$OUT" >first
    same first 'the first line' <<<'./\xff\xfe.kx-update: installed'
}

@test "a name that the shell reads does so on the panel, and only there" {
    local name
    hello plain.kx-update
    # shellcheck disable=SC2016 # the names are to stay as they are
    for name in 'say "hi"' '$(touch x)' '`touch x`'; do
        cp plain.kx-update "./$name.kx-update"

        try --json "./$name.kx-update"

        expect_status 1
        [[ "$(told '.installations[0].remarks[0]')" == "the panel's shell interprets the "*" in the package's name; see kx-package check" ]]
        [ ! -e x ] || fail 'the shell of this machine read the name'
    done
}

@test "a package comes from standard input" {
    hello Foo.kx-update
    prepare_try --json -

    # shellcheck disable=SC2002 # a pipe is what is tried
    cat Foo.kx-update | "${TRY[@]}" >"$OUT"

    [ "$(told '.package + " " + .recordName + " " + (.installed | tostring)')" = '- package true' ]
    nothing_is_left
    try -
    expect_status 1
    prepare_try --json --disk 16 -
    head -c 17M /dev/zero | "${TRY[@]}" >"$OUT" || status=$?
    [ "$status" -eq 3 ]
    [ "$(told .error.message)" = 'is larger than 16.0 MiB' ]
    nothing_is_left
}

# source_of_package [LINE]: the folder src with a manifest, and with another line in its head.
source_of_package() {
    mkdir src
    echo program >src/app
    cat >src/package.toml <<END
[package]
name = "Foo"
title = "Demo"
version = "1.0"
model = "TP"
os-version = "2.0"
date = 2026-11-21
processor = "arm"
${1-}
[[steps]]
kind = "copy-files"
files = [{ source = "app", target = "/opt/demo/app", mode = "755" }]

[[steps]]
kind = "script"
install = "#!/bin/bash\necho done\n"
END
}

@test "a manifest is tried as the package that build makes" {
    source_of_package
    try src
    expect_status 0
    expect_silence
    head -n 2 "$OUT" >first
    same first 'the first lines' <<'END'
src: installed
  it was built without an updater: this machine has none for arm
END

    # The head of a program for arm, which nobody starts.
    printf '%b' "\x7fELF\x01\x01\x01\0\0\0\0\0\0\0\0\0\x03\0\x28\0" >src/updater
    head -c 32 /dev/zero >>src/updater
    sed -i 's/^processor.*/&\nupdater = "updater"/' src/package.toml
    "$KX_PACKAGE" build src >/dev/null
    try --json Foo.kx-update
    expect_status 0
    jq 'del(.package)' "$OUT" >built
    for source in src src/. src/package.toml; do
        try --json "$source"
        expect_status 0
        [ "$(told .package)" = "$source" ]
        diff built <(jq 'del(.package)' "$OUT")
    done
}

@test "a step of a manifest fails when it is to; mistakes in a manifest are told" {
    source_of_package
    try --json --twice --fail 2 src/package.toml
    expect_status 0
    [ "$(told '.installations | map(.installed) | tostring')" = '[false,true]' ]
    try --fail 3 src
    expect_error 2 '--fail: there is no step 3, the package has 2 steps'
    echo 'x = 1' >>src/package.toml
    try src
    expect_status 1
    grep -q '^kx-package: src/package.toml:[0-9]*:1: ' "$ERR"
    expect_out </dev/null
}

@test "the panel of a manifest counts, unless the command line names one" {
    source_of_package 'panel = "../panel.toml"'
    echo 'interpreters = []' >panel.toml
    : >any.toml

    try --json src
    expect_status 0
    [ "$(told '.installations[0].remarks[1]')" = "on the panel of src/../panel.toml: src/package.toml:16:11 there is no '/bin/bash' on the panel (script-missing)" ]
    try --json --panel any.toml src
    [ "$(told '.installations[0].remarks | length')" -eq 1 ]
    rm panel.toml
    try src
    expect_error 1 'src/../panel.toml: cannot open: No such file or directory'
}

@test "names and lines from the panel cannot play with the terminal" {
    # shellcheck disable=SC2016 # expanded on the panel
    hello Foo.kx-update 'script("#!/bin/sh\nprintf \"\\\\033[2Jx\\\\n\"; echo >\"/opt/$(printf \"a\\\\033\\\\377\")\"\n")'

    try -v Foo.kx-update

    expect_status 0
    grep -qF '/opt/a\x1b\xff' "$OUT"
    grep -qF '| \x1b[2Jx' "$OUT"
    [ "$(grep -c $'\x1b' "$OUT")" -eq 0 ]
    try --json Foo.kx-update
    # JSON has an escape of its own for what it can say; bytes that are no text are written out.
    [ "$(told '.installations[0].files[0].path')" = $'/opt/a\e\\xff' ]
    [ "$(grep -c $'\x1b' "$OUT")" -eq 0 ]
}

# ---- packages that are none ----

@test "a package that does not unpack is not installed" {
    echo text >text.kx-update
    : >empty.kx-update
    hello Foo.kx-update
    head -c 300 Foo.kx-update >cut.kx-update
    for name in text empty cut; do
        try --json --twice "$name.kx-update"

        expect_status 1
        [ "$(told '.installations | length')" -eq 1 ]
        [ "$(told '.installations[0] | .unpacked, .exitCode, .record, .files[]')" = \
            $'false\nnull\nnull' ]
        [ "$(told '.installations[0].remarks[0]')" = \
            'a panel cannot unpack the package: unzip ends with 9; see kx-package check' ]
    done
    try text.kx-update
    # The panel removes what an earlier attempt may have left, whether there is anything or not.
    [ "$(head -n 6 "$OUT")" = "text.kx-update: not installed
  a panel cannot unpack the package: unzip ends with 9; see kx-package check

What the unpacking printed
  | rm: cannot remove '/mnt/usb/text.temp': No such file or directory
  | Archive:  /mnt/usb/text.kx-update" ]
}

@test "a file that a panel does not take for a package is not installed" {
    hello Foo.zip

    try Foo.zip

    expect_status 1
    expect_out <<'END'
Foo.zip: not installed
  a panel finds no package: the file's name does not end in .kx-update
END
}

@test "a package without its description, or its updater, is told so" {
    hello Foo.kx-update
    zip -q -d Foo.kx-update UserPackage.kx-project
    try --json Foo.kx-update
    expect_status 1
    [ "$(told '.installations[0].remarks[0]')" = \
        'the package has no UserPackage.kx-project at its top level; see kx-package check' ]

    package_file Bar.kx-update <<<"$HELLO"
    try --json Bar.kx-update
    expect_status 0
    [ "$(told '.installations[0].remarks[0]')" = \
        'the package has no kx_Updater that a panel could start; see kx-package check' ]
    # Its steps can be made to fail all the same.
    try --json --fail 1 Bar.kx-update
    expect_status 1
    [ "$(told '.installations[0].remarks[1]')" = \
        'made to fail: step 1, cp -f "/mnt/usb/Bar.temp/0/0/app" "/opt/demo/app"' ]
}

@test "what try writes as JSON keeps to its schema" {
    hello Foo.kx-update
    "$KX_PACKAGE" schema json-try -o schema.json
    for words in '--twice' '--boot --fail 1'; do
        # shellcheck disable=SC2086 # words
        prepare_try --json $words Foo.kx-update
        "${TRY[@]}" >"$OUT" || true
        /usr/bin/python3 "$ROOT/tests/kx-package/json_document.py" schema.json "$OUT"
    done
}

@test "what cannot be read is told in one line" {
    local name
    for name in none none.toml none.kx-update; do
        try "$name"
        expect_error 1 "$name: cannot open: No such file or directory"
    done
    mkfifo pipe.kx-update pipe.toml
    for name in pipe.kx-update pipe.toml; do
        try "$name"
        expect_error 1 "$name: is neither a file nor a folder; name a package or the folder of an unpacked one"
    done
    try /
    expect_error 1 '/: is not a package; name a package or the folder of an unpacked one'
    try --json none.kx-update
    expect_status 1
    expect_silence
    [ "$(told '.error.place + ": " + .error.message')" = \
        'none.kx-update: cannot open: No such file or directory' ]
    hello Foo.kx-update
    TMPDIR=$WORK/nowhere run --separate-stderr "$KX_PACKAGE" try --updater "$KX_UPDATER" Foo.kx-update
    [ "$status" -eq 3 ]
    [ "$stderr" = "kx-package: $WORK/nowhere: cannot make a folder for the trial: No such file or directory" ]
}

@test "wrong use is told" {
    hello Foo.kx-update
    for arguments in "" "Foo.kx-update more" "--seconds 0 Foo.kx-update" "--disk x Foo.kx-update" \
        "--memory 1 Foo.kx-update" "--processes 1 Foo.kx-update" "--fail x Foo.kx-update"; do
        # shellcheck disable=SC2086
        try $arguments
        expect_status 2
        [ "$(wc -l <"$ERR")" -eq 1 ]
    done
}
