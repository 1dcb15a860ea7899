#!/usr/bin/env bats
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
#
# The command line of `kx-package check`, and its agreement with the sandboxed device.
#   KX_PACKAGE   the program (default: build/dev/kx-package)
#   KX_UPDATER   the updater (default: build/release/kx_Updater)
#   KX_SECOND    another build of the tool, which starts quickly (default: none)
#   KX_CORPUS    further options of corpus.py, for a larger run

bats_require_minimum_version 1.5.0

ROOT=$(cd "$BATS_TEST_DIRNAME/../.." && pwd)
KX_PACKAGE=${KX_PACKAGE:-$ROOT/build/dev/kx-package}
KX_UPDATER=${KX_UPDATER:-$ROOT/build/release/kx_Updater}

setup() {
    cd "$BATS_TEST_TMPDIR" || return 1
    unset NO_COLOR
    local work=$PWD
    (cd "$ROOT/scripts" && /usr/bin/python3 -B -m kxscripts.hello "$work/source")
    # A program that does nothing, and that the check takes for an updater.
    { cat /usr/bin/true && echo UserPackage.kx-project; } >updater
    "$KX_PACKAGE" build source -o built.kx-update --updater updater \
        --processor "$(uname -m)" >/dev/null
    unzip -q built.kx-update -d pkg
    rm built.kx-update
}

# pack: packs the folder pkg as hello.kx-update.
pack() {
    rm -f hello.kx-update
    (cd pkg && zip -q -X -r ../hello.kx-update .)
}

@test "a good package is clean, as a file and as a folder" {
    pack

    run --separate-stderr "$KX_PACKAGE" check --strict hello.kx-update
    [ "$status" -eq 0 ]
    # shellcheck disable=SC2154 # bats assigns it
    [ "$stderr" = "" ]
    [ "${lines[-1]}" = "hello.kx-update: 0 errors, 0 warnings, 1 note" ]

    run --separate-stderr "$KX_PACKAGE" check --strict pkg/
    [ "$status" -eq 0 ]
    [ "${lines[-1]}" = "pkg/: 0 errors, 0 warnings, 1 note" ]
}

@test "errors are problems, warnings only with --strict" {
    touch pkg/unused
    pack

    run "$KX_PACKAGE" check hello.kx-update
    [ "$status" -eq 0 ]
    run "$KX_PACKAGE" check --strict hello.kx-update
    [ "$status" -eq 1 ]
    run --separate-stderr "$KX_PACKAGE" check --strict --json hello.kx-update
    [ "$status" -eq 1 ]
    [ "$(jq -c '[.clean, .errors, .warnings]' <<<"$output")" = '[false,0,1]' ]
    run --separate-stderr "$KX_PACKAGE" check --json hello.kx-update
    [ "$(jq -c '[.clean, .errors, .warnings]' <<<"$output")" = '[true,0,1]' ]
    rm pkg/0/0/hello
    pack
    run "$KX_PACKAGE" check hello.kx-update
    [ "$status" -eq 1 ]
}

@test "the JSON tells the same, and nothing else is printed" {
    rm pkg/0/0/hello
    pack

    run --separate-stderr "$KX_PACKAGE" check --json hello.kx-update
    [ "$status" -eq 1 ]
    [ "$stderr" = "" ]
    [ "$(jq -r '.findings[] | "\(.severity) \(.id) \(.place.path)"' <<<"$output")" = \
        "error payload-missing DB_StepSets.\$values[0].PathSetDatas.\$values[0].SourcePath
note user-password DB_StepSets.\$values[3].HardSettingDatas.DB_HardwareConfigs.\$values[2].HardwareItems.\$values[1].Value" ]
    [ "$(jq -c '[.clean, .errors, .warnings, .notes, .package]' <<<"$output")" = \
        '[false,1,0,1,"hello.kx-update"]' ]
}

@test "the updater must be for the panel's processor when that is told" {
    pack
    run "$KX_PACKAGE" check --processor "$(uname -m)" hello.kx-update
    [ "$status" -eq 0 ]
    run "$KX_PACKAGE" check --processor riscv64 hello.kx-update
    [ "$status" -eq 1 ]
    [[ "$output" == *"error: updater-processor: kx_Updater"* ]]
    run --separate-stderr "$KX_PACKAGE" check --processor arn hello.kx-update
    [ "$status" -eq 2 ]
    [ "$output" = "" ]
    [ "$stderr" = "kx-package: --processor: 'arn' is not a known processor; did you mean 'arm'?" ]
}

@test "what cannot be read is told in one line" {
    run --separate-stderr "$KX_PACKAGE" check missing.kx-update
    [ "$status" -eq 1 ]
    [ "$output" = "" ]
    [ "$stderr" = "kx-package: missing.kx-update: cannot open: No such file or directory" ]

    run --separate-stderr "$KX_PACKAGE" check --json missing.kx-update
    [ "$status" -eq 1 ]
    [ "$stderr" = "" ]
    [ "$(jq -r .error.place <<<"$output")" = missing.kx-update ]

    run "$KX_PACKAGE" check
    [ "$status" -eq 2 ]
    mkfifo pipe.kx-update
    run timeout 10 "$KX_PACKAGE" check pipe.kx-update
    [ "$status" -eq 1 ]
}

@test "colour is for terminals, and never with NO_COLOR" {
    rm pkg/0/0/hello
    pack
    run "$KX_PACKAGE" check hello.kx-update
    [[ "$output" != *$'\e['* ]]
    run script -qec "$KX_PACKAGE check hello.kx-update" /dev/null
    [[ "$output" == *$'\e[31merror: payload-missing\e[0m'* ]]
    NO_COLOR=1 run script -qec "$KX_PACKAGE check hello.kx-update" /dev/null
    [[ "$output" != *$'\e['* ]]
    # An empty one asks for nothing.
    NO_COLOR='' run script -qec "$KX_PACKAGE check hello.kx-update" /dev/null
    [[ "$output" == *$'\e[31merror: payload-missing\e[0m'* ]]
}

@test "memory is bounded whatever the archive's size" {
    head -c 300M /dev/zero | tr '\0' 'x' >pkg/1/0/large
    head -c 40M /dev/urandom >pkg/1/0/random
    (cd pkg && zip -q -0 -X -r ../hello.kx-update .)

    # A sanitizer's own memory does not count.
    ASAN_OPTIONS=quarantine_size_mb=1 /usr/bin/python3 -c '
import resource, subprocess, sys
subprocess.run([sys.argv[1], "check", "hello.kx-update"], check=True)
peak = resource.getrusage(resource.RUSAGE_CHILDREN).ru_maxrss // 1024
print(f"{peak} MiB")
sys.exit(peak > 120)
' "$KX_PACKAGE"
}

@test "the verdict agrees with unzip and updater on the sandboxed device" {
    status=0
    # shellcheck disable=SC2086 # several options
    /usr/bin/python3 "$BATS_TEST_DIRNAME/corpus/corpus.py" --tool "$KX_PACKAGE" \
        --updater "$KX_UPDATER" --second "${KX_SECOND:-}" ${KX_CORPUS:-} >report || status=$?
    cat report
    if [ "$status" -eq 77 ] && [ "${CI:-}" != true ]; then
        skip "the sandboxed device cannot be made here"
    fi
    [ "$status" -eq 0 ]
}
