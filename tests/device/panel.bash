# shellcheck shell=bash
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
#
# The kit of the tests of kx-panel: a panel that decides on packages, with its keys, on the sandboxed
# device. All keys are made here and gone with the test.
#   KX_PANEL     the program (default: build/release/kx-panel)
#   KX_PACKAGE   makes and signs the packages
# The updater of the panel is that of build/release, whichever kx-panel starts it.
#
#   signed demo <<'END'               a package, /packages/demo.kx-update on the device, signed by release
#   copy_file(item("a", "/opt/a", "644", "A\n"))
#   END
#   on_panel 'verdict demo'           runs a shell script on the panel
#   expect_out <<<'demo: 0'

# shellcheck source=tests/device/device.bash
. "$BATS_TEST_DIRNAME/device.bash"

KX_PANEL=${KX_PANEL:-$ROOT/build/release/kx-panel}
PANEL_UPDATER=$ROOT/build/release/kx_Updater
# shellcheck disable=SC2034 # used by the tests
HELLO='copy_file(item("app", "/opt/demo/app", "755", "program\n"), record=True)'
# Before every script on the panel.
#   verdict PACKAGE...  what kx-panel check says of each: its exit status and the words of its reasons
#   installed PACKAGE   what kx-panel install says of one: the same, of an installation, and who says so
# shellcheck disable=SC2016 # for the shell on the device
PRELUDE='
told() { jq -r ".error.message // .reasons[].id" /root/told | uniq | paste -sd " "; }
verdict() {
    for one; do
        status=0
        kx-panel check --json "/packages/$one.kx-update" >/root/told 2>/root/errors || status=$?
        echo "$one: $status $(told)" | sed "s/ $//"
        cat /root/errors
    done
}
installed() {
    status=0
    kx-panel install --json "/packages/$1.kx-update" >/root/told 2>/root/errors || status=$?
    echo "$1: $status $(jq -r ".from // \"kx-panel\"" /root/told) $(told)" | sed "s/ $//"
    cat /root/errors
}
'

# panel_setup: what every test begins with.
panel_setup() {
    device_setup
    [ -x "$KX_PANEL" ] || fail "there is no kx-panel at $KX_PANEL"
    umask 022
    cd "$WORK" || return
    mkdir -p etc/keys secret
    panel_file
    key release
    trust release
}

# shellcheck disable=SC2120 # the tests give it lines
# panel_file [LINE...]: what the panel says of itself, with further lines; standard input has none.
panel_file() {
    printf '%s\n' 'format = 1' 'models = ["TP-0700"]' 'os-versions = ["2.1.0"]' \
        "processor = \"$(uname -m)\"" "$@" >etc/panel.toml
}

# key NAME [OPTION...]: makes a pair of keys.
key() {
    (cd secret && "$KX_PACKAGE" key new "$@") >key.log
}

# trust NAME...: the panel gets these public keys.
trust() {
    local name
    for name; do
        cp "secret/$name.pub.pem" etc/keys/
    done
}

# id NAME: the identifier of a key.
id_of() {
    openssl pkey -pubin -in "secret/$1.pub.pem" -outform DER | sha256sum | cut -d ' ' -f 1
}

# unsigned NAME <RECIPE: a package with its updater. Equal ones are made once for all tests of a file.
unsigned() {
    local recipe made
    recipe=$(cat && printf '\n%s\n' 'put("kx_Updater", "#!/bin/sh\ntouch /root/started\n", 0o755)')
    made=$MEMORY/made-$(sha256sum <<<"$recipe" | cut -d ' ' -f 1).kx-update
    [ -e "$made" ] || package_file "$made" <<<"$recipe"
    cp "$made" "$PACKAGES/$1.kx-update"
}

# sign NAME [KEY...]: signs a package.
sign() {
    local name=$1 one
    shift
    for one in "${@:-release}"; do
        "$KX_PACKAGE" sign --key "secret/$one.key.pem" "$PACKAGES/$name.kx-update" >sign.log
    done
}

# signed NAME [KEY...] <RECIPE
signed() {
    unsigned "$1"
    sign "$@"
}

# prepare_panel [OPTION...] SCRIPT: sets the array DEVICE (see prepare) to what runs a script on the
# panel.
prepare_panel() {
    prepare --put "$WORK/etc=/etc/kx_Updater" --put "$KX_PANEL=/usr/bin/kx-panel" \
        --put "$PANEL_UPDATER=/usr/bin/kx_Updater" "${@:1:$#-1}" -- \
        sh -c "$PRELUDE${*: -1}"
}

# on_panel [OPTION...] SCRIPT: runs a script on the panel, all of whose output stands in the file out.
on_panel() {
    prepare_panel "${@:1:$#-1}" "exec 2>&1; ${*: -1}"
    status=0
    "${DEVICE[@]}" </dev/null >"$OUT" 2>"$ERR" || status=$?
    finish
    expect_status 0
    expect_silence
}
