#!/usr/bin/env bats
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
#
# scripts/setup where Debian's package tools are played: nothing is installed here.
#
#   $STUB/states     "PACKAGE STATE" for what dpkg knows, PACKAGE "*" for all; every other package
#                    is installed
#   $STUB/failures   how often apt-get install fails
#   $STUB/no-kernel  how often the kernel of the virtual machine cannot be fetched; without the file
#                    it is there
#   $STUB/log        what was asked of apt-get, and of scripts/vm

ROOT=$(cd "$BATS_TEST_DIRNAME/../.." && pwd)

bats_require_minimum_version 1.5.0

setup() {
    cd "$BATS_TEST_TMPDIR" || return
    export STUB=$PWD/stub
    mkdir -p "$STUB/bin"
    echo 0 >"$STUB/failures"
    touch "$STUB/states" "$STUB/log"
    stand_in dpkg-query <<'END'
while read -r name value; do
    [[ ${*: -1} != $name ]] || state=$value
done <"$STUB/states"
[ "$state" != unknown ] || { echo "no package ${*: -1}" >&2 && exit 1; }
printf '%s' "${state:-installed}"
END
    stand_in apt-get <<'END'
echo "$*" >>"$STUB/log"
[ "$DEBIAN_FRONTEND" = noninteractive ] || [ "$1" != install ] || echo "it asks" >>"$STUB/log"
echo "apt-get prints this"
read -r left <"$STUB/failures"
[ "$1" = install ] && [ "$left" -gt 0 ] || exit 0
echo $((left - 1)) >"$STUB/failures"
echo "apt-get: no luck" >&2
exit 100
END
    stand_in id <<<'echo 0'
    stand_in vm <<'END'
[ -e "$STUB/no-kernel" ] || exit 0
[ "$*" != 'kernel --there' ] || { echo "there is none" >&2 && exit 3; }
echo "vm $*" >>"$STUB/log"
read -r left <"$STUB/no-kernel"
[ "$left" -gt 0 ] || exit 0
echo $((left - 1)) >"$STUB/no-kernel"
echo "scripts/vm: no luck" >&2
exit 3
END
    mkdir scripts
    cp "$ROOT/scripts/setup" scripts
    mv "$STUB/bin/vm" scripts
}

# stand_in NAME <SCRIPT
stand_in() {
    {
        printf '#!/bin/bash\n'
        cat
    } >"$STUB/bin/$1"
    chmod +x "$STUB/bin/$1"
}

# set_up [GROUP...]: leaves $status and $output.
set_up() {
    run env PATH="$STUB/bin:/usr/bin:/bin" scripts/setup "$@"
    echo "$output"
}

# expect_asked [LINE...]: all that apt-get was asked for.
expect_asked() {
    diff <([ $# -eq 0 ] || printf '%s\n' "$@") "$STUB/log"
}

# expect_group GROUP... -- PACKAGE...: what a machine that has none of it gets for the groups.
expect_group() {
    local groups=()
    while [ "$1" != -- ]; do
        groups+=("$1")
        shift
    done
    shift
    : >"$STUB/log"
    set_up "${groups[@]}"
    [ "$status" -eq 0 ]
    expect_asked "install -y -q --no-install-recommends $(printf '%s\n' "$@" | sort -u | paste -sd ' ')"
}

@test "nothing is asked for where nothing is missing" {
    set_up

    [ "$status" -eq 0 ]
    [ "$output" = '' ]
    expect_asked
}

@test "what is missing is installed: what is unknown, and what was removed but for its settings" {
    printf '%s\n' 'jq unknown' 'bats config-files' 'shellcheck half-installed' 'novnc unknown' \
        >"$STUB/states"

    set_up test demo

    [ "$status" -eq 0 ]
    [ "$output" = 'scripts/setup: installing bats jq shellcheck
scripts/setup: done' ]
    expect_asked 'install -y -q --no-install-recommends bats jq shellcheck'
}

@test "a list of packages that is too old is brought up to date, once" {
    echo 'jq unknown' >"$STUB/states"
    echo 1 >"$STUB/failures"
    set_up test
    [ "$status" -eq 0 ]
    expect_asked 'install -y -q --no-install-recommends jq' 'update -q' \
        'install -y -q --no-install-recommends jq'

    echo 2 >"$STUB/failures"
    set_up test
    [ "$status" -eq 100 ]
    [ "$output" = 'scripts/setup: installing jq
apt-get: no luck' ]
}

@test "a user needs sudo, and is told so" {
    echo 'jq unknown' >"$STUB/states"
    stand_in id <<<'echo 1000'
    stand_in sudo <<'END'
echo "sudo $*" >>"$STUB/log"
exec "$@"
END
    echo 1 >"$STUB/failures"
    local install='install -y -q --no-install-recommends jq'
    set_up test
    [ "$status" -eq 0 ]
    expect_asked "sudo env DEBIAN_FRONTEND=noninteractive apt-get $install" "$install" \
        'sudo apt-get update -q' 'update -q' \
        "sudo env DEBIAN_FRONTEND=noninteractive apt-get $install" "$install"

    rm "$STUB/bin/sudo"
    local tool
    for tool in bash env id sed sort; do
        [ -e "$STUB/bin/$tool" ] || ln -s "$(type -P "$tool")" "$STUB/bin"
    done
    run --separate-stderr env PATH="$STUB/bin" scripts/setup test
    [ "$status" -eq 1 ]
    # shellcheck disable=SC2154 # bats sets it
    [ "$stderr" = 'scripts/setup: missing jq; run it as root, or install sudo' ]

    rm "$STUB/bin/dpkg-query"
    run --separate-stderr env PATH="$STUB/bin" scripts/setup bench
    [ "$status" -eq 1 ]
    [ "$stderr" = 'scripts/setup: this machine has no dpkg; install by hand: python3 time' ]
}

@test "an unknown group is refused before anything is installed, and the help names all groups" {
    echo 'jq unknown' >"$STUB/states"
    set_up test nonsense
    [ "$status" -eq 2 ]
    [ "${lines[0]}" = "scripts/setup: unknown group 'nonsense'" ]
    expect_asked
    local usage=("${lines[@]:1}")

    local option group
    for option in --help -h; do
        run --separate-stderr env PATH="$STUB/bin:/usr/bin:/bin" scripts/setup test "$option"
        [ "$status" -eq 0 ]
        diff <(printf '%s\n' "${usage[@]}") <(printf '%s\n' "${lines[@]}")
    done
    [[ ${lines[0]} == 'Installs what the project needs'* ]]
    [[ ${lines[-1]} == *'older than 6.7' ]]
    for group in build tools demo test vm bench rivals display web vnc foreign; do
        grep -qw "$group" <<<"$output"
    done
    run --separate-stderr env PATH="$STUB/bin:/usr/bin:/bin" scripts/setup --nonsense
    [ "$output" = '' ]
}

@test "a bare machine gets what each group is for, and all but the displays by default" {
    echo '* unknown' >"$STUB/states"
    local compiler=(ca-certificates cmake g++ git ninja-build picojson-dev)
    local build=("${compiler[@]}" qtbase5-dev qttools5-dev-tools)
    local tools=("${compiler[@]}" libarchive-dev libbz2-dev libcli11-dev libdtl-dev libelf-dev libseccomp-dev libssl-dev
        libtomlplusplus-dev libutfcpp-dev libzip-dev pkg-config zlib1g-dev)
    local demo=(fonts-dejavu-core fonts-ipafont-gothic imagemagick openbox passwd python3 uidmap unzip
        util-linux xdotool xvfb zip)
    local tests=(bats busybox-static clang clang-format clang-tidy codespell gcovr groff-base jq keyutils
        libarchive-tools libclang-rt-14-dev libfaketime libgmock-dev libgtest-dev man-db opensc openssl p7zip-full
        procps python3 python3-clang python3-jsonschema python3-xmlrunner qemu-user shellcheck softhsm2 util-linux zsh)

    local machine=(busybox-static cpio dmsetup dosfstools e2fsprogs exfatprogs python3
        qemu-system-x86 util-linux)

    expect_group build -- "${build[@]}"
    expect_group vm -- "${machine[@]}"
    expect_group tools -- "${tools[@]}"
    expect_group demo -- "${demo[@]}"
    expect_group test -- "${tests[@]}"
    expect_group bench -- python3 time
    expect_group cross -- debian-archive-keyring g++-arm-linux-gnueabihf mmdebstrap qemu-user uidmap \
        util-linux
    expect_group arm64 -- g++-aarch64-linux-gnu
    expect_group packages -- "${build[@]}" "${tools[@]}" debhelper dpkg-dev lintian make python3 util-linux
    expect_group emulator -- arch-test busybox-static cpio debian-archive-keyring dosfstools dpkg \
        e2fsprogs fdisk imagemagick mmdebstrap mtools openssl python3 qemu-system-arm qemu-utils \
        tesseract-ocr tesseract-ocr-eng tesseract-ocr-jpn uidmap util-linux
    expect_group rivals -- cpio gzip openssl python3 rauc squashfs-tools swupdate tar
    expect_group display -- socat xserver-xephyr
    expect_group web -- novnc tigervnc-standalone-server websockify
    expect_group vnc -- socat tigervnc-standalone-server
    expect_group foreign -- binfmt-support qemu-user-static
    expect_group vnc bench display -- python3 socat tigervnc-standalone-server time \
        xserver-xephyr
    expect_group bench display vnc web build -- python3 time socat xserver-xephyr novnc \
        tigervnc-standalone-server websockify "${build[@]}"
    expect_group -- "${build[@]}" "${tools[@]}" "${demo[@]}" "${tests[@]}" "${machine[@]}" time
}

@test "the kernel of the virtual machine is fetched once, and not installed" {
    set_up
    [ "$output" = '' ]
    expect_asked

    echo 0 >"$STUB/no-kernel"
    set_up build tools demo test bench
    expect_asked
    set_up vm
    [ "$status" -eq 0 ]
    [ "$output" = 'scripts/setup: fetching the kernel of the virtual machine
scripts/setup: done' ]
    expect_asked 'vm kernel'
}

@test "a kernel that Debian has replaced is looked for again, with a list that is up to date" {
    echo 1 >"$STUB/no-kernel"
    set_up bench vm
    [ "$status" -eq 0 ]
    expect_asked 'vm kernel' 'update -q' 'vm kernel'

    echo 2 >"$STUB/no-kernel"
    set_up vm
    [ "$status" -eq 3 ]
    [ "$output" = 'scripts/setup: fetching the kernel of the virtual machine
scripts/vm: no luck' ]
}

@test "a user fetches the kernel of the virtual machine without root, whose word a new list needs" {
    echo 0 >"$STUB/no-kernel"
    stand_in id <<<'echo 1000'
    local tool
    for tool in bash dirname env readlink sed sort; do
        ln -s "$(type -P "$tool")" "$STUB/bin"
    done
    run env PATH="$STUB/bin" scripts/setup vm
    [ "$status" -eq 0 ]
    expect_asked 'vm kernel'

    echo 1 >"$STUB/no-kernel"
    run --separate-stderr env PATH="$STUB/bin" scripts/setup vm
    [ "$status" -eq 1 ]
    [ "$stderr" = 'scripts/setup: missing the kernel of the virtual machine; run it as root, or '\
'install sudo' ]
    expect_asked 'vm kernel' 'vm kernel'
}

@test "what changes the whole machine is told before it is installed, and only then" {
    echo 'binfmt-support unknown' >"$STUB/states"
    set_up foreign
    [ "$status" -eq 0 ]
    [[ ${lines[0]} == 'scripts/setup: this changes the whole machine: '* ]]
    [ "${lines[1]}" = 'scripts/setup: installing binfmt-support' ]

    echo 'jq unknown' >"$STUB/states"
    set_up foreign test
    [ "${lines[0]}" = 'scripts/setup: installing jq' ]
}

@test "a machine that lacks Python gets it before a script begins" {
    local name tool
    for tool in bash dirname readlink; do
        ln -s "$(type -P "$tool")" "$STUB/bin"
    done
    stand_in setup <<<'echo "setup $*" >&2; exit 5'
    cp "$STUB/bin/setup" scripts
    for name in check check-reproducible coverage fuzz test; do
        sed 's|/usr/bin/python3|/usr/bin/no-python3|g' "$ROOT/scripts/$name" >"scripts/$name"
        run env PATH="$STUB/bin" bash "scripts/$name"
        [ "$status" -eq 5 ]
        [ "$output" = 'setup test' ]
    done
    sed 's|/usr/bin/python3|/usr/bin/no-python3|g' "$ROOT/scripts/vm" >scripts/vm
    run env PATH="$STUB/bin" bash scripts/vm
    [ "$status" -eq 5 ]
    [ "$output" = 'setup vm' ]
}
