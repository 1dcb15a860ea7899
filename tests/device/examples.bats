#!/usr/bin/env bats
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
#
# The examples: built, checked, and installed on the sandboxed device with the updater that they
# bring.

load device

# example NAME PACKAGE: builds an example and finds nothing to say against it but notes.
example() {
    "$KX_PACKAGE" build "$ROOT/examples/$1" -o "$WORK/" --updater "$KX_UPDATER" \
        --processor "$(uname -m)" >"$OUT" 2>"$ERR"
    expect_silence
    "$KX_PACKAGE" check --strict --processor "$(uname -m)" "$WORK/$2.kx-update" >"$OUT" 2>"$ERR"
    expect_silence
    grep -q ': 0 errors, 0 warnings, ' "$OUT" || fail 'the check finds something'
    unzip -q "$WORK/$2.kx-update" -d "$PACKAGES/$2"
}

# install_example NAME [OPTION...]: installs it with its own updater.
install_example() {
    local name=$1
    shift
    device "$@" -- "/packages/$name/kx_Updater" -unzipedDir "/packages/$name"
    expect_status 0
    expect_silence
}

@test "hello copies a program and its texts, and tries them" {
    example hello hello

    install_example hello --look 'stat -c "%a %n" /mnt/user/bin/hello /mnt/user/share/hello/doc/*'

    expect_out <<'END'
**** Installation step 1/3
**** Installation step 2/3
**** Installation step 3/3
Hello from the panel.
Installation succeeded.
END
    expect_panel <<'END'
755 /mnt/user/bin/hello
644 /mnt/user/share/hello/doc/README.txt
END
}

@test "settings changes what it says, and leaves what is not used" {
    example settings settings

    install_example settings --look 'kx-setting-cui list; stat -c "%a %s %n" /mnt/user/startup.sh'

    expect_tools <<'END'
wprotect_off
kx-setting-cui set Level=8 Volume=5 Mute=off Mode=script
kx-setting-cui list
END
    expect_panel <<'END'
Level=8
Mode=script
Mute=off
Volume=5
777 30 /mnt/user/startup.sh
END
}

@test "application installs a recipe board that runs after a reboot" {
    example application recipe-board

    install_example recipe-board --keep
    grep -qxF '**** Installation step 7/7' "$OUT"
    device --keep --boot -- /bin/sh -c 'sed -i s/en/ja/ /mnt/user/recipe-board/etc/recipe-board.conf
        /mnt/user/recipe-board/bin/recipe-board; /mnt/user/recipe-board/share/tools/show-versions'
    expect_err <<<'Pancakes: flour, milk, eggs.' # what the start-up script shows
    expect_out <<'END'
パンケーキ：小麦粉、牛乳、卵。
2.4.0
END

    # A new version leaves the user's configuration.
    install_example recipe-board --keep
    device --keep -- cat /mnt/user/recipe-board/etc/recipe-board.conf
    expect_out <<<'language = ja'
    device --keep -- sh -c '! grep default.conf /var/lib/KxUserPackages/recipe-board/*.list &&
        ! ls /mnt/user/recipe-board/share/texts/*.draft 2>/dev/null'
    expect_status 0
}

@test "the examples can be installed twice, and say what is left when a step fails" {
    example application recipe-board
    local package=$WORK/recipe-board.kx-update
    [ "$(uname -m)" = x86_64 ] || [ "$(uname -m)" = aarch64 ]

    "$KX_PACKAGE" try --twice --updater "$KX_UPDATER" --env ASAN_OPTIONS=detect_leaks=0 \
        "$package" >"$OUT" 2>"$ERR" || fail 'twice'
    expect_silence
    grep -qx "$package, the second time: installed" "$OUT"

    status=0
    "$KX_PACKAGE" try --fail 3 --updater "$KX_UPDATER" --env ASAN_OPTIONS=detect_leaks=0 \
        "$package" >"$OUT" 2>"$ERR" || status=$?
    expect_status 1
    grep -qx '  | Installation failed in step 3.' "$OUT"
    grep -qx 'There is no record of it' "$OUT"
}
