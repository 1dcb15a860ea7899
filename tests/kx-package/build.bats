#!/usr/bin/env bats
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
#
# kx-package build, as a user starts it.

load package

@test "build makes a package that holds what the manifest says" {
    demo pkg

    kx build pkg --updater arm-updater

    expect 0 $'demo.kx-update: 1.3 KiB, 3 payload files\n' ''
    unzip -q demo.kx-update -d tree
    diff - <(cd tree && find . -mindepth 1 -printf '%P %y %m\n' | LC_ALL=C sort) <<'END'
0 d 755
0/0 d 755
0/0/hello f 755
1 d 755
1/0 d 755
1/0/deep d 755
1/0/deep/b.txt f 644
1/0/empty d 755
1/0/ä日本.txt f 644
UserPackage.kx-project f 644
kx_Updater f 755
END
    cmp arm-updater tree/kx_Updater
    cmp pkg/share/deep/b.txt tree/1/0/deep/b.txt
}

@test "the description is the golden one, byte for byte" {
    demo pkg
    kx build pkg --updater arm-updater

    unzip -p demo.kx-update UserPackage.kx-project | cmp - "$BATS_TEST_DIRNAME/golden/demo.kx-project"
}

@test "the entries of the archive are the golden ones, in their order" {
    demo pkg
    kx build pkg --updater arm-updater

    # Without the compressed sizes: those are the compressing library's.
    unzip -Z -s demo.kx-update | grep -E '^[-d]' | diff "$BATS_TEST_DIRNAME/golden/demo.list" -
}

@test "copies with other dates, modes, umask, locale, order and time zone give the same bytes" {
    demo one
    kx build one --updater arm-updater -o one.kx-update
    expect 0 $'one.kx-update: 1.3 KiB, 3 payload files\n' ''

    mkdir -p other/share # in another order
    cp one/share/ä日本.txt other/share
    cp -r one/share/{empty,deep} other/share
    cp -r one/bin one/package.toml other
    find other -exec touch -d 2001-02-03 {} +
    chmod -R go-rwx,u+x other
    (
        umask 077
        export TZ=Asia/Tokyo LC_ALL=C.UTF-8
        cd other
        "$KX_PACKAGE" build --updater ../arm-updater -o ../other.kx-update
    )

    cmp one.kx-update other.kx-update
}

@test "SOURCE_DATE_EPOCH dates the entries and nothing else" {
    demo pkg
    kx build pkg --updater arm-updater -o plain.kx-update
    SOURCE_DATE_EPOCH=1700000000 kx build pkg --updater arm-updater -o dated.kx-update

    TZ=UTC unzip -Z -T -s dated.kx-update | grep -c '20231114.221320' | grep -qx 6
    [ "$(stat -c %s plain.kx-update)" = "$(stat -c %s dated.kx-update)" ]
    SOURCE_DATE_EPOCH=yesterday kx build pkg --updater arm-updater -o x.kx-update
    expect 2 '' "kx-package: SOURCE_DATE_EPOCH: is 'yesterday', which is not a time from 1970 to \
2107; set it to seconds since 1970, or unset it"$'\n'
}

@test "unpacking gives the same tree in the C and in UTF-8 locales, without a warning" {
    demo pkg
    kx build pkg --updater arm-updater

    for locale in C C.UTF-8 POSIX; do
        LC_ALL=$locale unzip -o demo.kx-update -d "tree-$locale" >log 2>warnings
        [ ! -s warnings ]
        ls "tree-$locale/1/0/ä日本.txt"
        diff -r tree-C "tree-$locale"
    done
    unzip -t demo.kx-update | tail -1 | grep -x 'No errors detected in compressed data of demo.kx-update.'
}

@test "build takes the manifest, its folder or this folder, and writes where it is told" {
    demo pkg
    mkdir made

    kx build pkg/package.toml --updater arm-updater -o made
    expect 0 $'made/demo.kx-update: 1.3 KiB, 3 payload files\n' ''
    (
        cd pkg
        "$KX_PACKAGE" build --updater ../arm-updater -o ../other.kx-update
        "$KX_PACKAGE" build --updater ../arm-updater -o - >../piped
    )
    cmp made/demo.kx-update other.kx-update
    cmp made/demo.kx-update piped
}

@test "building in the manifest's own folder again gives the same bytes" {
    demo pkg
    sed -i 's|source = "share"|source = "."|' pkg/package.toml
    cd pkg
    "$KX_PACKAGE" build --updater ../arm-updater
    mv demo.kx-update ../first
    "$KX_PACKAGE" build --updater ../arm-updater
    "$KX_PACKAGE" build --updater ../arm-updater

    cmp ../first demo.kx-update
}

@test "build tells its result as JSON" {
    demo pkg
    printf '#!/bin/sh\n' >pkg/share/run

    kx build pkg --updater arm-updater --json

    [ "$status" -eq 0 ]
    [ ! -s err ]
    jq -e '.file == "demo.kx-update" and .payloadFiles == 4 and .updater == "arm-updater"
        and .remarks == ["pkg/package.toml:17:23: run looks like a program, but no pattern of '"'executable'"' matches it; it will not be executable"]
        and (keys == ["clean", "errors", "file", "findings", "formatVersion", "notes", "omitted", "payloadFiles", "remarks", "size", "unpackedSize", "updater", "warnings"])
        and .clean and .warnings == 1 and .findings[0].id == "manifest-hint"' out
    [ "$(jq .size out)" = "$(stat -c %s demo.kx-update)" ]
    [ "$(jq .unpackedSize out)" = "$(unzip -l demo.kx-update | awk 'END { print $1 }')" ]
}

@test "without an updater build says what to do" {
    demo pkg

    kx build pkg

    [ "$status" -eq 3 ]
    grep -qx 'kx-package: .*/lib/kx_Updater/arm/kx_Updater: there is no updater for arm; make one with '\''scripts/cross armhf'\'' in the sources, or take the one of the package kx-updater for armhf, and put it there or name it with --updater PATH' err
    [ ! -e demo.kx-update ]
}

@test "build takes the installed updater of the manifest's processor" {
    demo pkg
    mkdir -p usr/bin usr/lib/kx_Updater/arm
    cp "$KX_PACKAGE" usr/bin/
    cp arm-updater usr/lib/kx_Updater/arm/kx_Updater

    usr/bin/kx-package build pkg

    unzip -p demo.kx-update kx_Updater | cmp - arm-updater
}

@test "an updater for another processor is refused" {
    demo pkg
    sed -i 's/"arm"/"riscv64"/' pkg/package.toml

    kx build pkg --updater arm-updater

    expect 1 '' $'kx-package: arm-updater: is a program for arm, not for riscv64; name another one with --updater PATH, or correct \'package.processor\'\n'
}

@test "wrong uses are told in one line" {
    demo pkg

    kx build pkg --updater arm-updater -o demo.zip
    expect 2 '' $'kx-package: demo.zip: the name does not end in .kx-update; the panel would not find the package\n'
    kx build pkg --updater arm-updater -o .kx-update
    expect 2 '' $'kx-package: .kx-update: the name does not end in .kx-update; the panel would not find the package\n'
    kx build pkg --updater arm-updater -o 'a b.kx-update'
    expect 2 '' $'kx-package: a b.kx-update: the package\'s name \'a b\' contains characters other than letters, digits, \'-\', \'_\' and \'.\'; choose another one\n'
    kx build pkg --updater arm-updater -o - --json
    [ "$status" -eq 2 ]
    jq -e '.error.message == "--json and the package cannot share standard output"' out
    [ -z "$(ls ./*.kx-update 2>/dev/null)" ]
}

@test "a package is not written to a terminal" {
    demo pkg
    # shellcheck disable=SC2016 # expanded by the shell on the terminal
    command='"$KX_PACKAGE" build pkg --updater arm-updater -o -; echo "status $?"'

    KX_PACKAGE=$KX_PACKAGE script -qec "$command" /dev/null </dev/null | tr -d '\r' >seen

    diff seen - <<'END'
kx-package: a package cannot be written to a terminal; redirect standard output
status 2
END
    # What counts is where the package would go.
    KX_PACKAGE=$KX_PACKAGE script -qec "${command/;/ 2>told;}" /dev/null </dev/null >seen
    [ "$(tr -d '\r' <seen)" = 'status 2' ]
    KX_PACKAGE=$KX_PACKAGE script -qec "${command/;/ >piped;}" /dev/null </dev/null >seen
    [ "$(tr -d '\r' <seen)" = 'status 0' ]
    unzip -tq piped
}

@test "a folder that is not there yet is named by the slash at its end" {
    demo pkg

    kx build pkg --updater arm-updater -o none/

    expect 3 '' $'kx-package: none/demo.kx-update: cannot write: No such file or directory\n'
}

@test "the processor of the command line goes before the manifest's" {
    demo pkg
    sed -i 's/"arm"/"riscv64"/' pkg/package.toml

    kx build pkg --updater arm-updater --processor arm

    expect 0 $'demo.kx-update: 1.3 KiB, 3 payload files\n' ''
    kx build pkg --updater arm-updater --processor none
    [ "$status" -eq 2 ]
}

@test "remarks go to standard error, the package to standard output" {
    demo pkg
    printf '#!/bin/sh\n' >pkg/share/run

    kx build pkg --updater arm-updater -o -

    [ "$status" -eq 0 ]
    unzip -tq out
    diff err - <<'END'
warning: manifest-hint: pkg/package.toml:17:23
  run looks like a program, but no pattern of 'executable' matches it; it will not be executable
  On the panel: The package does what the manifest says.
  Remedy: Correct the manifest at that place, or leave it.
-: 0 errors, 1 warning, 2 notes
END
}

@test "a mistake in the manifest is told as JSON, and nothing but JSON" {
    demo pkg
    sed -i 's/^title/titlee/' pkg/package.toml

    kx build pkg --json

    [ "$status" -eq 1 ]
    [ ! -s err ]
    jq -e '.error == {code: 1, place: "pkg/package.toml:3:1",
        message: "'"'package.titlee'"' is not known here", remedy: "did you mean '"'title'"'?"}' out
}

@test "a build that is interrupted or killed leaves the older package and no litter" {
    demo pkg
    head -c 200000000 /dev/urandom >pkg/share/big
    mkdir out
    echo older >out/demo.kx-update

    for signal in INT TERM HUP KILL; do
        # What whoever started the tests ignores, and a shell for its background jobs, is not ignored.
        env --default-signal=INT,TERM,HUP "$KX_PACKAGE" build pkg --updater arm-updater -o out/ \
            >/dev/null 2>&1 3>&- &
        pid=$!
        sleep 0.5
        kill -0 "$pid"
        kill -"$signal" "$pid"
        status=0
        wait "$pid" || status=$?
        [ "$status" -eq $((128 + $(kill -l "$signal"))) ]
        [ "$(ls -A out)" = demo.kx-update ]
        [ "$(cat out/demo.kx-update)" = older ]
    done
}

@test "a build goes on where whoever started it wants it to outlive the terminal" {
    demo pkg
    head -c 60000000 /dev/urandom >pkg/share/big

    (trap '' HUP && exec "$KX_PACKAGE" build pkg --updater arm-updater) >/dev/null 2>&1 3>&- &
    pid=$!
    sleep 0.5
    kill -HUP "$pid"

    wait "$pid"
    unzip -tq demo.kx-update
}

# build_on_full_disk ARGUMENT...: builds where files take no more than 1,000 KiB; leaves what kx does.
build_on_full_disk() {
    status=0
    (
        ulimit -f 1000
        trap '' XFSZ
        exec timeout 60 "$KX_PACKAGE" build pkg --updater arm-updater "$@"
    ) >out 2>err </dev/null || status=$?
}

@test "a disk that is full in the middle of a build is told, and the older package stays" {
    demo pkg
    head -c 3000000 /dev/urandom >pkg/share/big
    mkdir made temporary
    echo older >made/demo.kx-update

    build_on_full_disk -o made/
    expect 3 '' $'kx-package: made/demo.kx-update: cannot write: File too large\n'
    TMPDIR=temporary build_on_full_disk -o -
    expect 3 '' $'kx-package: -: cannot write: File too large\n'
    build_on_full_disk -o made/ --json
    [ "$status" -eq 3 ]
    [ "$(jq -r .error.message out)" = 'cannot write: File too large' ]

    [ "$(ls -A made)" = demo.kx-update ]
    [ "$(cat made/demo.kx-update)" = older ]
    [ -z "$(ls -A temporary)" ]
}

@test "standard output that takes nothing is told" {
    demo pkg
    mkdir temporary
    export TMPDIR=$PWD/temporary

    for words in 'build pkg --updater arm-updater' 'new recipes' completion --version 'build --help'; do
        status=0
        # shellcheck disable=SC2086
        "$KX_PACKAGE" $words >/dev/full 2>err || status=$?
        : >out
        expect 3 '' $'kx-package: standard output: cannot be written\n'
    done
    status=0
    "$KX_PACKAGE" build pkg --updater arm-updater -o - >/dev/full 2>err || status=$?
    expect 3 '' $'kx-package: standard output: cannot write: No space left on device\n'
    status=0
    "$KX_PACKAGE" build pkg --updater arm-updater --json >/dev/full 2>err || status=$?
    [ "$status" -eq 3 ]
    [ -z "$(ls -A temporary)" ]
}

@test "a person sees a bar while a long build runs, and a pipe does not" {
    demo pkg
    head -c 60000000 /dev/urandom >pkg/share/big

    script -qec "'$KX_PACKAGE' build pkg --updater arm-updater" /dev/null >seen </dev/null
    grep -q 'packing \[#* *\] [0-9]* %' seen
    kx build pkg --updater arm-updater
    [ ! -s err ]
}

@test "help shows examples" {
    kx build --help

    [ "$status" -eq 0 ]
    grep -q 'kx-package build recipes -o /media/usb/' out
}
