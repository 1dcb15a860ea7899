#!/usr/bin/env bats
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
#
# What kx-panel's commands answer on the sandboxed device: texts whole, JSON by its schemas, exit
# statuses. The panel's updater is a stand-in that prints lines and ends as it is told.

load panel
# shellcheck source=tests/device/sandbox_helper.bash
. "$BATS_TEST_DIRNAME/../device/sandbox_helper.bash"

# What a kx-panel built with sanitizers or for coverage reads from its environment on the device.
SETTINGS=(--env "ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1}"
    --env "UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1}"
    --env GCOV_PREFIX=/tmp/gcov)

setup_file() {
    compile_device
    ask_for_device
    make_memory_folder
    make_panel "$MEMORY/made"
}

teardown_file() {
    rm -rf "${MEMORY:?}"
}

setup() {
    require_device
    work_here "$KX_PANEL" "$KX_PACKAGE"
    cp -R "$MEMORY/made/." .
}

# make_panel FOLDER: what is put on panels: /etc/kx_Updater, an updater, packages with and without a
# signature. The key is made for this run alone.
make_panel() {
    mkdir -p "$1"/{keys,pkg} && cd "$1" || return
    printf '%s\n' 'models = ["TP-0700"]' 'os-versions = ["2.1.0"]' \
        "processor = \"$(uname -m)\"" >panel.toml
    cat >updater <<'END'
#!/bin/sh
echo "installing ${2##*/}"
[ ! -e /mnt/user/slow ] || sleep 3
exit "$(cat /mnt/user/status 2>/dev/null || echo 0)"
END
    chmod 755 updater
    # A program for this machine, with what makes it an updater.
    cat /bin/true >packed
    printf 'UserPackage.kx-project' >>packed
    echo text >pkg/text
    cat >pkg/package.toml <<END
[package]
name = "demo"
title = "Demo"
version = "1.2"
model = "TP-0700"
os-version = "2.1.0"
date = 2026-11-21
processor = "$(uname -m)"

[[steps]]
kind = "copy-files"
files = [{ source = "text", target = "/mnt/user/text" }]
END
    "$KX_PACKAGE" build pkg --updater packed -o unsigned.kx-update
    cp unsigned.kx-update demo.kx-update
    "$KX_PACKAGE" key new factory
    "$KX_PACKAGE" sign demo.kx-update --key factory.key.pem
    cp factory.pub.pem keys/factory.pem
}

# on_panel [OPTION...] -- COMMAND...: runs a command on a panel with the packages.
on_panel() {
    device "${SETTINGS[@]}" --put "$KX_PANEL=/usr/sbin/kx-panel" --put panel.toml=/etc/kx_Updater/ \
        --put keys=/etc/kx_Updater/keys --put updater=/usr/bin/kx_Updater \
        --put demo.kx-update=/mnt/user/ --put unsigned.kx-update=/mnt/user/ "$@"
}

# kx ARGUMENT...: starts kx-panel on a panel that is kept from one call to the next; leaves $status,
# and the files out and err. OPTIONS holds further options of the device.
kx() {
    status=0
    on_panel --state state "${OPTIONS[@]}" -- kx-panel "$@" >out 2>err || status=$?
}

# told DOCUMENT STATUS WORD...: a command ends with the status, and what it writes with --json keeps to
# the schema of that document, which lists every field.
told() {
    kx "${@:3}" --json
    if [ "$status" -ne "$2" ] || [ -s err ]; then
        echo "${*:3}: status $status, expected $2" >&2
        cat out err >&2
        return 1
    fi
    "$KX_PANEL" schema "$1" >one.json
    /usr/bin/python3 "$ROOT/tests/kx-package/json_document.py" one.json out
}

@test "check tells that a package would be installed, and why not" {
    kx check /mnt/user/demo.kx-update
    expect 0 $'/mnt/user/demo.kx-update: would be installed: Demo 1.2 (demo), signed by factory\n' ''
    kx check /mnt/user/unsigned.kx-update
    expect 1 '/mnt/user/unsigned.kx-update: refused
1. The package is not signed, and this panel installs only signed ones.  [signature-missing]
   Get the signed package from its maker.
' ''
    told check 0 check /mnt/user/demo.kx-update
    jq -e '.accepted and .facts.name == "demo" and .facts.signer == "factory"' out
    told check 1 check /mnt/user/unsigned.kx-update
    kx check /mnt/user/none.kx-update
    [ "$status" -ne 0 ]
    grep -q '^kx-panel: /mnt/user/none.kx-update: ' err
    told error "$status" check /mnt/user/none.kx-update
}

@test "reasons are told in Japanese where the environment asks for it" {
    OPTIONS=(--env LC_ALL=ja_JP.UTF-8)
    kx check /mnt/user/unsigned.kx-update
    [ "$status" -eq 1 ]
    head -n 1 out | grep -qx '/mnt/user/unsigned.kx-update: インストールできません'
    grep -q '署名がありません.*\[signature-missing\]$' out
}

@test "an installation is told as it goes on, and remembered" {
    kx install /mnt/user/demo.kx-update
    expect 0 '== Looking for what an earlier installation left
== Looking at the package
== Copying the package
== Deciding
== Unpacking
== Installing
installing demo.temp
/mnt/user/demo.kx-update: installed: Demo 1.2 (demo), signed by factory
See "kx-panel history 1".
' ''
    told install 0 install /mnt/user/demo.kx-update
    jq -e '.result == "installed" and .from == "updater" and .historyId == 2' out
    kx history
    sed -i 's/  [0-9-]* [0-9:]* UTC  /  MOMENT  /' out
    expect 0 $'2  MOMENT  demo 1.2  installed\n1  MOMENT  demo 1.2  installed\n2 installations\n' ''
    told history 0 history
    told history 0 history 1
    jq -e '.entry.lines | map(.text) == ["installing demo.temp"]' out
    kx history 3
    expect 1 '' $'kx-panel: history: there is no installation 3; "kx-panel history" lists those that are remembered\n'
    told status 0 status
    jq -e '.open and .versions == {"demo": "1.2"} and .last.id == 2 and .keys[0].name == "factory"' out
    kx status
    [ "$status" -eq 0 ]
    head -n 1 out | grep -qx 'door:         open'
    grep -qx '  demo 1.2' out
}

@test "the updater's exit status passes through, and it is told whose it is" {
    local each
    for each in 101 1 4 255; do
        echo "$each" >number
        OPTIONS=(--put number=/mnt/user/status)
        told install "$each" install /mnt/user/demo.kx-update
        jq -e ".status == $each and .from == \"updater\" and .result == \"failed\"" out
    done
    kx history
    grep -q '  demo 1.2  failed, exit status 255 of the updater$' out
    # What failed is not the highest version that was installed.
    kx status --json
    jq -e '.versions == {}' out
}

@test "a refusal is told like the check's, and remembered" {
    kx install /mnt/user/unsigned.kx-update
    [ "$status" -eq 1 ]
    grep -qx '/mnt/user/unsigned.kx-update: refused' out
    grep -q '\[signature-missing\]$' out
    told install 1 install /mnt/user/unsigned.kx-update
    jq -e '.result == "refused" and .from == "kx-panel"' out
    told history 0 history 1
    jq -e '.entry.reasons[0].id == "signature-missing"' out
}

@test "a closed door refuses everything, and says why" {
    local command
    for command in 'check /mnt/user/demo.kx-update' 'install /mnt/user/demo.kx-update' status; do
        echo 'models = []' >panel.toml
        # shellcheck disable=SC2086 # words
        told "${command%% *}" 1 $command
        jq -e '.reasons | length > 1 and all(.id == "panel-file")' out
        [ "$(jq -c '.historyId' out)" = null ]
    done
    kx history
    [ "$status" -eq 1 ]
    grep -q '^kx-panel: /etc/kx_Updater/panel.toml' err
    cp "$MEMORY/made/panel.toml" .
    chmod 777 keys
    told check 1 check /mnt/user/demo.kx-update
    jq -e '.reasons | map(.id) == ["key-folder"]' out
}

@test "a second installation ends at once, and status tells of the first" {
    touch slow
    cat >both <<'END'
#!/bin/sh
kx-panel install /mnt/user/demo.kx-update >/mnt/user/first 2>&1 &
until grep -q installing /mnt/user/first; do sleep 0.1; done
kx-panel install /mnt/user/demo.kx-update --json
echo "second $?"
kx-panel status --json | grep -q '"atWork": true' && echo 'at work'
wait
tail -n 2 /mnt/user/first
END
    chmod 755 both
    on_panel --put slow=/mnt/user/ --put both=/usr/bin/ -- both >out
    cat out
    grep -qx 'second 4' out
    grep -qx 'at work' out
    grep -q ': installed: Demo 1.2 (demo), signed by factory$' out
    sed '/^second/,$d' out >document
    "$KX_PANEL" schema error >one.json
    /usr/bin/python3 "$ROOT/tests/kx-package/json_document.py" one.json document
    jq -e '.error.code == 4' document
}

@test "whoever listens may go away: the installation goes on" {
    cat >both <<'END'
#!/bin/sh
kx-panel install /mnt/user/demo.kx-update | head -n 1
sleep 1
kx-panel history
END
    chmod 755 both
    on_panel --put both=/usr/bin/ -- both >out
    cat out
    grep -q '^1  .*  demo 1.2  installed$' out
}
