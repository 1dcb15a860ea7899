#!/usr/bin/env bats
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
#
# kx-package try: packages whose programs are for another processor.

load try

setup() {
    try_setup
}

# program PROCESSOR STATUS [--loader PATH]: a recipe that copies such a program to /opt/demo/app.
program() {
    local processor=$1 code=$2
    shift 2
    "$ROOT/tests/support/tiny_program.py" "$@" "$processor" "$code" "$WORK/app"
    echo "copy_file(item('app', '/opt/demo/app', '755', open('$WORK/app', 'rb').read()))"
}

# updater PROCESSOR: a recipe that puts in an updater for that processor.
updater() {
    "$ROOT/tests/support/tiny_program.py" "$1" 0 "$WORK/updater"
    echo "put('kx_Updater', open('$WORK/updater', 'rb').read(), 0o755)"
}

# start: a recipe with a script that starts the program, and whose end is the program's.
start() {
    printf '%s\n' 'script("#!/bin/sh\n/opt/demo/app\n")'
}

# without_emulators: sets the array LACKING to a device whose panel has none.
without_emulators() {
    mkdir "$WORK/device"
    cat >"$WORK/device/run" <<END
#!/bin/sh
case \$1 in --erase) exec "$RUN" "\$@" ;; esac
exec "$RUN" --missing qemu-arm --missing qemu-aarch64 "\$@"
END
    chmod 755 "$WORK/device/run"
    LACKING=(--device "$WORK/device")
}

# needs_emulators: this kernel registers emulators for one panel alone.
needs_emulators() {
    unshare -Umr sh -c 'mount -t binfmt_misc none /mnt' 2>/dev/null ||
        skip 'this kernel registers emulators for the whole machine only'
}

# registered: what the machine itself has registered.
registered() {
    ls /proc/sys/fs/binfmt_misc
}

@test "a program for another processor runs on the panel, and its result counts" {
    needs_emulators
    registered >before
    package_file Good.kx-update <<<"$(program arm 0; start; updater arm)"
    package_file Bad.kx-update <<<"$(program arm 7; start; updater arm)"

    try --json Good.kx-update
    expect_status 0
    [ "$(told '.verdict, .reason, .installed')" = $'installed\nnull\ntrue' ]
    [ "$(told '.installations[0].programs[0] | .path, .processor, .step, .canRun')" = \
        $'/opt/demo/app\narm\n2\ntrue' ]
    try Bad.kx-update
    expect_status 1
    [ "$(head -n 2 "$OUT")" = 'Bad.kx-update: not installed, exit code 101
  step 2 (script) failed: exit status 7: "/tmp/Zt/temp.sh"' ]

    registered | diff before -
}

@test "a program that cannot run here is not judged, whatever the installation came to" {
    without_emulators
    package_file Ends.kx-update <<<"$(program arm 0; start; updater arm)"
    package_file GoesOn.kx-update <<<"$(program arm 0; updater arm)"$'\nscript("/opt/demo/app || true\\n")'

    for name in Ends GoesOn; do
        try "${LACKING[@]}" "$name.kx-update"

        expect_status 4
        expect_silence
        [ "$(head -n 1 "$OUT")" = "$name.kx-update: not judged: step 2 starts programs for arm" ]
        grep -qx '  /opt/demo/app is a program for arm' "$OUT"
        grep -qF '  this machine cannot run it: with qemu-user installed' "$OUT"
    done
    try "${LACKING[@]}" --json GoesOn.kx-update
    expect_status 4
    [ "$(told '.verdict, .reason, .installed, .installations[0].exitCode')" = \
        $'not judged\nstep 2 starts programs for arm\nfalse\n0' ]
}

@test "a processor that nothing runs is not judged" {
    package_file Foo.kx-update <<<"$(program none 0; start)"

    try Foo.kx-update

    expect_status 4
    [ "$(head -n 2 "$OUT")" = 'Foo.kx-update: not judged: step 2 starts programs for another processor
  step 2 (script) failed: exit status 126: "/tmp/Zt/temp.sh"' ]
}

@test "a program that runs here and not on its panel is not called installed" {
    local here other=arm
    here=$(uname -m)
    [ "$here" != aarch64 ] || other=riscv64
    package_file Foo.kx-update <<<"$(program "$here" 0; start; updater "$other")"
    package_file Bare.kx-update <<<"$(program "$here" 0; start)"

    try Foo.kx-update
    expect_status 4
    [ "$(head -n 1 "$OUT")" = \
        "Foo.kx-update: not judged: step 2 starts programs for $here, the package is for $other" ]
    try Bare.kx-update
    expect_status 0
    echo "processor = \"$other\"" >panel.toml
    try --json --panel panel.toml Bare.kx-update
    expect_status 4
    [ "$(told .reason)" = "step 2 starts programs for $here, the package is for $other" ]
    prepare_try --json -
    "${TRY[@]}" <Foo.kx-update >"$OUT" || status=$?
    [ "$status $(told .verdict)" = '4 not judged' ]
}

@test "what the machine has of programs counts for none of the package's" {
    package_file Foo.kx-update <<<"$(updater arm)"$'\nscript("#!/bin/sh\\nls / >/dev/null; cp /etc/passwd /opt/p\\n")'

    try --json Foo.kx-update

    expect_status 0
    [ "$(told '.installations[0].programs | length')" -eq 0 ]
}

@test "a program that lacks its loader here is not judged" {
    needs_emulators
    package_file Foo.kx-update <<<"$(program arm 0 --loader /lib/ld-none.so.3; start; updater arm)"

    try Foo.kx-update

    expect_status 4
    [ "$(head -n 1 "$OUT")" = 'Foo.kx-update: not judged: step 2 starts programs for arm that need /lib/ld-none.so.3, which is not on this panel' ]
}

@test "programs are found behind links, relative names and as interpreters" {
    without_emulators
    package_file Foo.kx-update <<END
$(program arm 0; updater arm)
script("#!/bin/sh\ncd /opt/demo; ln -s app link\n./link\ntrue\n")
script("#!/bin/sh\nprintf '#!/opt/demo/app' >/opt/s; chmod 755 /opt/s; /opt/s\ntrue\n")
script("#!/bin/sh\ncp /opt/demo/app /usr/bin/mine; mine\ntrue\n")
END

    try --json "${LACKING[@]}" Foo.kx-update

    expect_status 4
    [ "$(told '.installations[0].programs[] | "\(.step) \(.path)"')" = '2 /opt/demo/app
3 /opt/demo/app
4 /usr/bin/mine' ]
}

@test "one installation that cannot be judged is enough" {
    without_emulators
    # shellcheck disable=SC2016 # expanded on the panel
    package_file Foo.kx-update <<<"$(program arm 0)"$'\nscript("#!/bin/sh\\n[ -e /opt/once ] || /opt/demo/app; touch /opt/once\\n")'

    try --json "${LACKING[@]}" --twice Foo.kx-update

    expect_status 4
    [ "$(told '.installations[].verdict')" = $'not judged\ninstalled' ]
    [ "$(told '.verdict')" = 'not judged' ]
}

@test "programs of the start-up script run, too, and are told where they cannot" {
    package_file Foo.kx-update <<END
$(program arm 7; updater arm)
copy_file(item('startup.sh', '/mnt/user/startup.sh', '755', '#!/bin/sh\\n/opt/demo/app\\n'))
END
    if unshare -Umr sh -c 'mount -t binfmt_misc none /mnt' 2>/dev/null; then
        try --json --boot Foo.kx-update
        expect_status 0
        [ "$(told '.restart | .script, .exitStatus, (.remarks | length)')" = $'ended\n7\n0' ]
    fi

    without_emulators
    try --json "${LACKING[@]}" --boot Foo.kx-update
    expect_status 0
    [ "$(told '.restart.remarks[0]')" = 'not judged: the start-up script starts programs for arm' ]
}

@test "an ordinary user's panel runs programs for another processor, too" {
    needs_emulators
    make_public_copy
    package_file "$PUBLIC/Foo.kx-update" <<<"$(program arm 7; start; updater arm)"
    cp "$KX_PACKAGE" "$KX_UPDATER" "$PUBLIC/"
    chmod -R a+rX "$PUBLIC"
    # A program built for coverage leaves its counts there.
    mkdir -m 777 "$PUBLIC/counts"
    export GCOV_PREFIX=$PUBLIC/counts
    cd "$PUBLIC/open"

    TMPDIR=$PUBLIC/open run --separate-stderr as_ordinary_user "$PUBLIC/kx-package" try --json \
        --device "$PUBLIC/device" --updater "$PUBLIC/kx_Updater" \
        --env ASAN_OPTIONS=detect_leaks=0 "$PUBLIC/Foo.kx-update"

    cd "$WORK"
    rm -rf "$PUBLIC"
    [ "$status" -eq 1 ]
    # shellcheck disable=SC2154 # what run sets
    [ "$(jq -r '.installations[0].failedSteps[0].why' <<<"$output")" = 'exit status 7' ]
}
