#!/usr/bin/env bats
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
#
# kx-package try --keep: the panel stays, for a shell and for what looks at a panel's records.

load try

setup() {
    try_setup
    # shellcheck disable=SC2034 # removed with the other states
    STATE=$WORK/kept
}

@test "a kept panel is one for installed, verify and a shell, as the guide says" {
    hello recipes.kx-update "$HELLO"$'\ncopy_file(item("tool", "/usr/local/bin/tool", "755", "tool\\n"), record=True)'

    try --keep kept recipes.kx-update
    expect_status 0
    expect_silence
    sed -n '/^The panel is kept/,$p' "$OUT" >told
    same told 'how it goes on' <<END
The panel is kept in kept
  kx-package installed --root kept/root
  $ROOT/device/run --state kept -- sh
  $ROOT/device/run --erase --state kept
END

    "$KX_PACKAGE" installed --root kept/root >found
    grep -q '^recipes ' found
    # What lies below /usr is in a layer of its own: the panel shows it in its place.
    "$RUN" --state kept -- sh -c 'cat /opt/demo/app /usr/local/bin/tool; ls /mnt/usb; ls /dev/sda1' >shell 2>err || true
    same shell 'what the panel shows' <<'END'
program
tool
END
    grep -q '/dev/sda1.*No such file' err
    "$RUN" --state kept --env ASAN_OPTIONS=detect_leaks=0 --share "$KX_PACKAGE=/opt/kx-package" \
        -- /opt/kx-package verify recipes >verified
    grep -qx 'recipes: .* folders and 4 of 4 files are there' verified
    "$RUN" --state kept -- rm /opt/demo/app
    run "$KX_PACKAGE" verify --root kept/root recipes
    [ "$status" -eq 1 ]
    [[ $output == *'/opt/demo/app'* ]]

    # The drive was pulled out, and can be plugged in again.
    "$ROOT/device/drive" plug --state kept
    "$RUN" --state kept -- ls /mnt/usb >drive
    grep -qx recipes.kx-update drive
    "$RUN" --erase --state kept
    [ ! -e kept ]
}

@test "what is kept is for its owner alone, and nothing else is left" {
    hello Foo.kx-update 'script("#!/bin/sh\ncp /bin/true /opt/suid; chmod 4755 /opt/suid\n")'
    mkdir here
    try --json --twice --keep here/kept/ Foo.kx-update
    expect_status 0
    # shellcheck disable=SC2034 # removed with the other states
    STATE=$WORK/here/kept
    [ "$(told .kept)" = here/kept/ ]
    [ "$(ls -A here)" = kept ]
    [ "$(stat -c '%a %u' here/kept)" = "700 $(id -u)" ]
    # Nobody becomes the machine's root by it.
    [ "$(id -u)" -ne 0 ] || [ "$(stat -c %u here/kept/root/opt/suid)" -ne 0 ]
}

@test "a panel is also kept where the package is not installed" {
    hello Foo.kx-update "$HELLO"$'\nscript("#!/bin/sh\\nexit 3\\n")'
    try --json --keep kept Foo.kx-update
    expect_status 1
    [ "$(told .kept)" = kept ]
    "$RUN" --state kept -- cat /opt/demo/app >seen
    [ "$(cat seen)" = program ]

    head -c 300 Foo.kx-update >cut.kx-update
    try --json --keep kept2 cut.kx-update
    expect_status 1
    [ "$(told .kept)" = kept2 ]
    cp Foo.kx-update Foo.zip
    try --keep kept3 Foo.zip
    expect_status 1
    [ "$(tail -n 1 "$OUT")" = 'No panel is kept: none was started' ]
    [ ! -e kept3 ]
}

@test "a place that is taken, or lies in the package, is refused before anything is done" {
    hello Foo.kx-update
    mkdir Foo taken && unzip -q Foo.kx-update -d Foo
    ln -s nowhere link
    touch file
    local name
    for name in taken file link .; do
        try --keep "$name" Foo.kx-update
        expect_error 2 "$name: is there already; name a folder that is not there yet"
    done
    try --keep Foo/0/kept Foo
    expect_error 2 'Foo/0/kept: lies in Foo; name a folder elsewhere'
    try --keep none/kept Foo.kx-update
    expect_error 3 'none/kept: cannot make the folder: No such file or directory'
    try --keep= Foo.kx-update
    expect_status 2
    [ "$(ls -A taken)" = '' ]
    [ ! -e Foo/0/kept ]
}

@test "an interruption and an error keep nothing" {
    hello Foo.kx-update 'script("#!/bin/sh\ntouch /opt/started; exec sleep 96.5\n")'
    prepare_try --keep kept Foo.kx-update
    "${TRY[@]}" >"$OUT" 2>"$ERR" </dev/null &
    local trial=$! i
    for ((i = 0; i < 600; i++)); do
        [ -z "$(compgen -G '.kept.*/root/opt/started')" ] || break
        sleep 0.1
    done
    kill -TERM "$trial"
    status=0
    wait "$trial" || status=$?
    [ "$status" -eq 143 ]
    [ -z "$(compgen -G '.kept*')" ]
    [ ! -e kept ]
    nothing_is_left
    host_lacks_process 'sleep 96.5'

    hello Bar.kx-update
    try --keep kept --device "$WORK" Bar.kx-update
    expect_status 3
    [ -z "$(compgen -G '.kept*')" ]
    [ ! -e kept ]
}

@test "an ordinary user keeps a panel, too" {
    make_public_copy
    hello "$PUBLIC/Foo.kx-update"
    cp "$KX_PACKAGE" "$KX_UPDATER" "$PUBLIC/"
    chmod -R a+rX "$PUBLIC"
    # A program built for coverage leaves its counts there.
    mkdir -m 777 "$PUBLIC/counts"
    export GCOV_PREFIX=$PUBLIC/counts
    cd "$PUBLIC/open"

    TMPDIR=$PUBLIC/open run --separate-stderr as_ordinary_user "$PUBLIC/kx-package" try --json \
        --device "$PUBLIC/device" --updater "$PUBLIC/kx_Updater" --keep kept \
        --env ASAN_OPTIONS=detect_leaks=0 "$PUBLIC/Foo.kx-update"
    [ "$status" -eq 0 ]
    [ "$(jq -r .kept <<<"$output")" = kept ]
    [ "$(ls -A)" = kept ]

    run as_ordinary_user "$PUBLIC/kx-package" verify --root kept/root Foo
    [ "$status" -eq 0 ]
    run as_ordinary_user "$PUBLIC/device/run" --state kept -- cat /opt/demo/app
    [ "$output" = program ]
    as_ordinary_user "$PUBLIC/device/run" --erase --state kept
    [ -z "$(ls -A)" ]
    cd "$WORK"
    rm -rf "$PUBLIC"
}
