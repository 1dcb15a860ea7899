# shellcheck shell=bash
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
#
# The kit of the whole-program tests: the real updater on the sandboxed device.
#
#   package Foo <<'END'         makes an unpacked package, /packages/Foo on the device; the recipe
#   script("exit 5\n")          is explained in make_package.py
#   END
#   install Foo [OPTION...]     installs it; options of device/run, and those of `device` below
#   expect_status 101           then one expectation after the other, whole texts every time
#   expect_out <<'END'
#   ...
#   END

# shellcheck source=tests/device/sandbox_helper.bash
. "$BATS_TEST_DIRNAME/sandbox_helper.bash"

ROOT=$(cd "$BATS_TEST_DIRNAME/../.." && pwd)
KX_UPDATER=${KX_UPDATER:-$ROOT/build/release/kx_Updater}
RUN=$ROOT/device/run
export KX_PACKAGE=${KX_PACKAGE:-$ROOT/build/release/kx-package}
# Inside: the updater and what the tests bring along.
KIT=/opt/kx_Updater
UPDATER=$KIT/kx_Updater
# What an updater built with sanitizers or for coverage reads from its environment.
KIT_SETTINGS=(
    "ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1}"
    "UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1}"
    "LSAN_OPTIONS=suppressions=$KIT/lsan.supp:print_suppressions=0"
    ${KX_COVERAGE_OUT:+GCOV_PREFIX=/var/gcov})

setup_file() {
    compile_device
    ask_for_device
    make_memory_folder
}

teardown_file() {
    rm -rf "${MEMORY:?}"
}

# device_setup: what every test begins with; files with a setup of their own call it first.
device_setup() {
    require_device
    [ -x "$KX_UPDATER" ] || fail "there is no updater at $KX_UPDATER"
    WORK=$MEMORY/$BATS_TEST_NUMBER
    PACKAGES=$WORK/packages
    OUT=$WORK/out     # standard output, byte for byte
    ERR=$WORK/err     # standard error
    TRACE=$WORK/trace # the panel's events
    PANEL=$WORK/panel # what --look found
    STATE=$WORK/state # the panel's files, with --keep
    mkdir -p "$PACKAGES"
    cp "$ROOT/tests/support/lsan.supp" "$WORK/"
}

setup() {
    device_setup
}

teardown() {
    local state
    for state in "${STATE:-/none}"*; do
        [ ! -d "$state" ] || "$RUN" --erase --state "$state"
    done
    rm -rf "${WORK:-/none}"
}

# fail TEXT: ends the test and shows what the last run left.
fail() {
    printf '%s\n' "$1" >&2
    local file
    for file in "${OUT:-}" "${ERR:-}" "${TRACE:-}" "${TRANSCRIPT:-}"; do
        [ ! -s "$file" ] || { printf -- '-- %s\n' "${file##*/}" && head -n 15 "$file"; } >&2
    done
    return 1
}

# ---- packages ----

# package NAME <RECIPE
package() {
    TMPDIR=$WORK "$ROOT/tests/device/make_package.py" "$PACKAGES/$1"
}

# package_file FILE <RECIPE: makes a .kx-update file.
package_file() {
    TMPDIR=$WORK "$ROOT/tests/device/make_package.py" --update "$1"
}

# ---- runs ----

# prepare [OPTION...] -- COMMAND...: sets the array DEVICE to the command line that runs COMMAND on
# the device, for tests with streams of their own; `finish` follows. Options of device/run, and
#
#   --keep         keep the panel's files for a further run
#   --look SCRIPT  run a shell script after COMMAND, on the same panel; see expect_panel
prepare() {
    local look='' keep=''
    local options=(
        --seconds 100 --processes 100 --memory 1024
        --share "$PACKAGES=/packages"
        --share "$KX_UPDATER=$UPDATER"
        --share "$WORK/lsan.supp=$KIT/lsan.supp"
        --share "$ROOT/tests/device/look=$KIT/look"
        --trace "$TRACE" --trace-shell)
    local setting
    for setting in "${KIT_SETTINGS[@]}"; do
        options+=(--env "$setting")
    done
    while [ "$1" != -- ]; do
        case $1 in
            --keep)
                keep=1
                shift
                ;;
            --look)
                look=$2
                shift 2
                ;;
            --boot | --ignore-sigchld | --no-wm)
                options+=("$1")
                shift
                ;;
            *)
                options+=("$1" "$2")
                shift 2
                ;;
        esac
    done
    shift
    if [ -n "${KX_COVERAGE_OUT:-}" ]; then
        # The counts of an instrumented updater add up in one folder, which goes in and comes out.
        [ ! -d "$KX_COVERAGE_OUT/bats" ] || options+=(--put "$KX_COVERAGE_OUT/bats=/var/gcov")
        COUNTED=$STATE
        [ -n "$keep" ] || COUNTED=$(mktemp -d "$STATE.XXXXXX")
        options+=(--state "$COUNTED")
    elif [ -n "$keep" ]; then
        options+=(--state "$STATE")
    fi
    DEVICE=(env -u LANG -u LC_ALL -u TERM "$RUN" "${options[@]}" -- ${look:+"$KIT/look" "$look"} "$@")
}

# finish: puts what a run left where the expectations look.
finish() {
    local mark='==== the panel'
    if grep -qxF "$mark" "$ERR"; then
        sed "0,/^$mark\$/d" "$ERR" >"$PANEL"
        sed -i "/^$mark\$/,\$d" "$ERR"
    fi
    if [ -n "${KX_COVERAGE_OUT:-}" ]; then
        # Where the panel's disk is full or the like, the counts cannot be kept.
        sed -i '/^profiling:/d' "$ERR"
        local counts=$COUNTED/root/var/gcov
        if [ -d "$counts" ]; then
            rm -rf "$KX_COVERAGE_OUT/bats"
            mv "$counts" "$KX_COVERAGE_OUT/bats"
        fi
        [ "$COUNTED" = "$STATE" ] || "$RUN" --erase --state "$COUNTED"
    fi
}

# device [OPTION...] -- COMMAND...: runs a command on the device (options: see prepare).
device() {
    prepare "$@"
    status=0
    "${DEVICE[@]}" </dev/null >"$OUT" 2>"$ERR" || status=$?
    finish
}

# install NAME [OPTION...]: installs a package. The commands that run must be those that kx-package
# plans for it, unless an option makes the panel another than a fresh one.
install() {
    local name=$1 option fresh=1
    shift
    for option; do
        case $option in
            --keep | --look | --env | --locale | --seconds | --put | --ignore-sigchld) ;;
            --*) fresh='' ;;
        esac
    done
    [ ! -e "$STATE" ] || fresh=''
    # Of such names the window would make others.
    [[ $name != *.temp* && $name != *[\\:/]* ]] || fresh=''
    device "$@" -- "$UPDATER" -unzipedDir "/packages/$name"
    # Some tests kill the updater; a description that is no object ends it by a signal, too.
    [ -z "$fresh" ] || [ "$status" -gt 134 ] || expect_plan "$name"
}

# expect_plan NAME: the last run ran what kx-package plans.
expect_plan() {
    local folder=$WORK/plan/$1 code=0
    mkdir -p "${folder%/*}"
    rm -rf "$folder"
    cp -R "$PACKAGES/$1" "$folder"
    # The packages of these tests are installed by an updater that they do not bring.
    : >"$folder/kx_Updater"
    chmod 755 "$folder/kx_Updater"
    "$KX_PACKAGE" plan --show-secrets --json --at /packages "$folder" >"$WORK/plan.json" || code=$?
    [ "$code" -le 1 ] || fail "no plan: $(cat "$WORK/plan.json")"
    "$ROOT/tests/device/compare_plan.py" "$WORK/plan.json" "$TRACE" "/packages/$1.temp" \
        "/packages/$1" >&2 || fail 'the plan is not what was run'
}

# install_each NAME...: installs one package after the other on the same panel; standard output has
# the lines of each, standard error among them, between its name and its exit code.
install_each() {
    # shellcheck disable=SC2016 # expanded inside
    device -- sh -c 'for name; do
        echo "== $name"
        "$0" -unzipedDir "/packages/$name" 2>&1
        echo "-- exit code $?"
    done' "$UPDATER" "$@"
}

# ---- expectations: whole texts; what was expected stands on standard input ----

# same FILE NAME: compares byte for byte.
same() {
    diff -a -u --label expected --label "$2" - "$1" >&2 || fail "$2 is not what was expected"
}

expect_status() {
    [ "$status" -eq "$1" ] || fail "exit status $status instead of $1"
}

expect_out() {
    same "$OUT" 'standard output'
}

expect_err() {
    same "$ERR" 'standard error'
}

expect_silence() {
    same "$ERR" 'standard error' </dev/null
}

# expect_panel: the output of --look.
expect_panel() {
    same "$PANEL" 'the look at the panel'
}

# commands: the command lines that were handed to the shell, each in brackets so that trailing
# blanks show; \\, \n and \t stand for themselves.
commands() {
    sed -n 's/^shell\t\(.*\)$/[\1]/p' "$TRACE"
}

expect_commands() {
    commands >"$WORK/commands"
    same "$WORK/commands" 'the list of commands'
}

# expect_installing NAME: all commands of an installation that succeeds; those of the steps stand on
# standard input.
expect_installing() {
    local record
    record=/var/lib/KxUserPackages/$1
    {
        printf '%s\n' '[sync]' '[/usr/bin/kxsystem/wprotect_off]'
        cat
        printf '%s\n' "[mkdir -p \"$record\"]" \
            "[cp -f \"/packages/$1/UserPackage.kx-project\" \"$record/UserPackage.kx-project\" ]" \
            '[sync]'
    } | expect_commands
}

# expect_failing: all commands of an installation that fails in its steps.
expect_failing() {
    { printf '%s\n' '[sync]' '[/usr/bin/kxsystem/wprotect_off]' && cat && echo '[sync]'; } |
        expect_commands
}

# expect_tools: the calls of the panel's own tools, words separated by blanks.
expect_tools() {
    sed -n 's/^tool\t\(.*\)$/\1/p' "$TRACE" | tr '\t' ' ' >"$WORK/tools"
    same "$WORK/tools" 'the list of tool calls'
}
