#!/usr/bin/env bats
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
#
# kx-package try: the device, the updater, and the bounds of a trial.

# shellcheck disable=SC2154 # stderr is what run sets
load try

setup() {
    try_setup
}

# ---- device and updater ----

@test "without a device or an updater nothing is tried" {
    hello Foo.kx-update
    try --device nowhere Foo.kx-update
    expect_error 3 "nowhere/run: there is no sandboxed device; name the folder that holds its program 'run' with --device DIR or KX_DEVICE"
    KX_DEVICE=elsewhere try Foo.kx-update
    expect_error 3 "elsewhere/run: there is no sandboxed device; name the folder that holds its program 'run' with --device DIR or KX_DEVICE"
    KX_DEVICE=elsewhere try --device "$ROOT/device" Foo.kx-update
    expect_status 0
    KX_DEVICE=$ROOT/device try Foo.kx-update
    expect_status 0

    run --separate-stderr "$KX_PACKAGE" try --updater none Foo.kx-update
    [ "$status $stderr" = '1 kx-package: none: cannot open the updater: No such file or directory' ]
    echo text >text
    run --separate-stderr "$KX_PACKAGE" try --updater text Foo.kx-update
    [ "$status $stderr" = '3 kx-package: text: is not a program that can be started; name an updater with --updater PATH' ]
    printf '\x7fELF\x02\x01\x01\0\0\0\0\0\0\0\0\0\x03\0\xf3\0%044d' 0 >riscv
    chmod 755 riscv
    run --separate-stderr "$KX_PACKAGE" try --updater riscv Foo.kx-update
    [ "$status" -eq 3 ]
    [[ "$stderr" == "kx-package: riscv: is a program for riscv64, and this machine is "*"; name an updater for this machine with --updater PATH" ]]
}

@test "a panel that cannot be made is an error, and nothing is started elsewhere" {
    hello Foo.kx-update
    mkdir device
    cat >device/run <<'END'
#!/bin/sh
echo "$1" >>"${0%/*}/calls"
echo "device/run: cannot make the sandboxed device: this system gives no namespaces; allow them" >&2
exit 125
END
    chmod 755 device/run

    try --device device Foo.kx-update

    expect_error 3 "$WORK/device/run: cannot make the sandboxed device: this system gives no namespaces; allow them; without a sandboxed device nothing is installed"
    [ "$(cat device/calls)" = $'--state\n--erase' ]
    printf '#!/no/such/interpreter\n' >device/run
    try --device device Foo.kx-update
    expect_error 3 "$WORK/device/run: cannot start: No such file or directory"
    printf '#!/bin/sh\necho "{}" >device/changes; exit 0\n' >device/run
    try --device device Foo.kx-update
    expect_status 3
}

@test "it works from an installation, which can be moved" {
    hello Foo.kx-update
    cmake --install "$(dirname "$KX_PACKAGE")" --prefix "$WORK/first" >/dev/null
    [ ! -e first/lib/kx_Updater/device/probe ]
    [ -x first/lib/kx_Updater/device/drive ]
    mv first second
    local folder
    folder=$(cd second && pwd -P)
    ASAN=(--env ASAN_OPTIONS=detect_leaks=0)

    run --separate-stderr env PATH="$folder/bin:$PATH" kx-package try "${ASAN[@]}" --json Foo.kx-update

    [ "$status" -eq 0 ]
    [ "$(jq .installed <<<"$output")" = true ]
    nothing_is_left
    rm -r second/lib/kx_Updater/device
    run --separate-stderr second/bin/kx-package try Foo.kx-update
    [ "$status" -eq 3 ]
    [ "$stderr" = "kx-package: $folder/lib/kx_Updater/device/run: there is no sandboxed device; name the folder that holds its program 'run' with --device DIR or KX_DEVICE" ]
    rm second/bin/kx_Updater
    run --separate-stderr second/bin/kx-package try --device "$ROOT/device" Foo.kx-update
    [ "$status" -eq 3 ]
    [[ "$stderr" == "kx-package: $folder/lib/kx_Updater/"*"/kx_Updater: there is no updater for "* ]]
}

@test "an ordinary user tries packages, too" {
    make_public_copy
    hello "$PUBLIC/Foo.kx-update"
    cp "$KX_PACKAGE" "$KX_UPDATER" "$PUBLIC/"
    chmod -R a+rX "$PUBLIC"
    # A program built for coverage leaves its counts there.
    mkdir -m 777 "$PUBLIC/counts"
    export GCOV_PREFIX=$PUBLIC/counts
    cd "$PUBLIC/open"

    TMPDIR=$PUBLIC/open run --separate-stderr as_ordinary_user "$PUBLIC/kx-package" try --json \
        --device "$PUBLIC/device" --updater "$PUBLIC/kx_Updater" \
        --env ASAN_OPTIONS=detect_leaks=0 "$PUBLIC/Foo.kx-update"

    [ "$status" -eq 0 ]
    [ "$(jq -r '.installations[0].files[1] | .path + " " + .owner' <<<"$output")" = '/opt/demo/app root' ]
    [ -z "$(ls -A "$PUBLIC/open")" ]
    chmod 000 "$PUBLIC/Foo.kx-update"
    [ "$(id -u)" -ne 0 ] || chown 65534 "$PUBLIC/Foo.kx-update"
    run --separate-stderr as_ordinary_user "$PUBLIC/kx-package" try "$PUBLIC/Foo.kx-update"
    [ "$status" -eq 3 ]
    [ "$stderr" = "kx-package: $PUBLIC/Foo.kx-update: cannot open: Permission denied" ]
    cd "$WORK"
    rm -rf "$PUBLIC"
}

# ---- bounds ----

@test "an installation without end is ended, and told as far as it came" {
    hello Foo.kx-update "$HELLO"$'\nscript("#!/bin/sh\\necho waiting\\nexec sleep 93.25\\n")'

    try --json --seconds 2 Foo.kx-update

    expect_status 1
    [ "$(told '.installed')" = false ]
    [ "$(told '.installations[0].remarks[0]')" = 'ended after the time limit of 2 seconds' ]
    [ "$(told '.installations[0].log[-1]')" = waiting ]
    [ "$(told '.installations[0].files[1].path')" = /opt/demo/app ]
    host_lacks_process 'sleep 93.25'
}

@test "a package that fills the disk, or takes all memory, is ended" {
    hello Disk.kx-update 'script("#!/bin/sh\nyes >/var/full; sleep 60\n")'
    try --json --disk 40 Disk.kx-update
    expect_status 1
    [ "$(told '.installations[0].remarks[0]')" = "ended because the panel's files take more than 40 MiB; see --disk" ]

    # shellcheck disable=SC2016 # expanded on the panel
    hello Memory.kx-update 'script("#!/bin/sh\nx=$(yes)\n")'
    try --json --memory 300 --seconds 60 Memory.kx-update
    expect_status 1
    [ "$(told '.installations[0].remarks[0]')" = 'the memory limit of 300 MiB was reached' ]
}

@test "endless output is kept in part" {
    hello Foo.kx-update 'script("#!/bin/sh\nseq 1000000; echo end\n")'

    try --json Foo.kx-update

    expect_status 0
    [ "$(told '.installations[0].log[1]')" = 1 ]
    [ "$(told '.installations[0].log[-2]')" = end ]
    [ "$(told '.installations[0].logOmitted > 3000000')" = true ]
    [ "$(stat -c %s "$OUT")" -lt 3000000 ]
}

@test "interrupting ends everything and leaves nothing" {
    hello Foo.kx-update 'script("#!/bin/sh\ntrap \"\" INT TERM HUP\nsleep 97.25 & sleep 97.25\n")'
    prepare_try Foo.kx-update
    local signal number begin
    for signal in INT TERM HUP; do
        # What whoever started the tests ignores, and a shell for its background jobs, is not ignored.
        env --default-signal=INT,TERM,HUP "${TRY[@]}" >"$OUT" 2>"$ERR" </dev/null &
        number=$!
        wait_until host_has_process 'sleep 97.25'
        begin=$SECONDS
        kill "-$signal" "$number"
        status=0
        wait "$number" || status=$?

        [ $((SECONDS - begin)) -lt 15 ] # and not at the end of the script, nor with a report
        expect_status "$((128 + $(kill -l "$signal")))"
        expect_out </dev/null
        expect_silence
        wait_until host_lacks_process 'sleep 97.25'
        nothing_is_left
    done
}

@test "interrupting is answered while a large package is unpacked, and while the panel is looked at" {
    head -c 150M /dev/urandom >big
    hello Large.kx-update 'copy_file(item("big", "/opt/big", "755", open("big", "rb").read()))'
    # shellcheck disable=SC2016 # expanded on the panel
    hello Many.kx-update 'script("#!/bin/sh\nmkdir /opt/many; cd /opt/many; seq 20000 | xargs touch\n")'
    local package phase number begin
    for package in Large Many; do
        for phase in 0.3 0.9 1.5; do
            prepare_try "$package.kx-update"
            env --default-signal=INT "${TRY[@]}" >"$OUT" 2>"$ERR" </dev/null &
            number=$!
            sleep "$phase"
            begin=$SECONDS
            kill -INT "$number" || break # it was faster
            status=0
            wait "$number" || status=$?

            [ $((SECONDS - begin)) -lt 15 ]
            [ "$status" -eq 0 ] || [ "$status" -eq 130 ]
            expect_silence
            nothing_is_left
            # Neither the device nor what keeps its panel: both were told the folder.
            ! grep -qsa "$TMPDIR/[k]x-package-try" /proc/[0-9]*/cmdline || fail 'a process is left'
        done
    done
}

@test "a person sees on the terminal how far it has come, and nobody else does" {
    hello Foo.kx-update 'script("#!/bin/sh\nsleep 1\n")
script("#!/bin/sh\nsleep 1\n")'
    prepare_try Foo.kx-update

    type_into

    [ "$status" -eq 0 ]
    grep -qF 'installing, step 2 of 2 [###############               ] 50 %' screen
    grep -qF 'Foo.kx-update: ' screen
    try Foo.kx-update
    expect_silence
}

@test "the panel ends with a tool that is killed" {
    hello Foo.kx-update 'script("#!/bin/sh\nexec sleep 98.25\n")'
    prepare_try Foo.kx-update
    "${TRY[@]}" >"$OUT" 2>"$ERR" </dev/null &
    local number=$!
    wait_until host_has_process 'sleep 98.25'

    kill -KILL "$number"

    wait_until host_lacks_process 'sleep 98.25'
    local folder
    for folder in "$TMPDIR"/*/panel; do
        wait_until "$RUN" --erase --state "$folder" 2>/dev/null
    done
}

@test "what a described panel lacks for a package stands among the remarks" {
    hello Foo.kx-update 'script("#!/bin/bash\ntrue\n")'
    echo 'interpreters = []' >panel.toml

    try --json --panel panel.toml Foo.kx-update

    expect_status 0
    jq -e '.installations[0].remarks == ["on the panel of panel.toml: DB_StepSets.$values[0].InstallScriptFunctionData.ScriptData there is no '"'/bin/bash'"' on the panel (script-missing)"]' "$OUT"
    echo 'users = []' >panel.toml
    try --json --panel panel.toml Foo.kx-update
    jq -e '.installations[0].remarks == []' "$OUT"
}
