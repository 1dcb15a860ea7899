# shellcheck shell=bash
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
#
# The kit of the tests of kx-package plan.

# shellcheck source=tests/kx-package/package.bash
. "$BATS_TEST_DIRNAME/package.bash"

# make FOLDER|FILE <RECIPE: makes a package with an updater; the recipe is explained in
# make_package.py.
make() {
    local option=()
    [[ $1 != *.kx-update ]] || option=(--update)
    {
        echo 'put("kx_Updater", b"no program", 0o755)'
        cat
    } >recipe
    KX_PACKAGE=$KX_PACKAGE "$ROOT/tests/device/make_package.py" "${option[@]}" "$1" <recipe
}

# commands [FILTER]: the planned commands, each in brackets so that blanks at the end show; FILTER
# selects among them, in jq's language.
commands() {
    jq -r ".commands[] | select(${1:-true}) | \"[\" + .command + \"]\"" out
}

# expect_commands FILTER: compares them with standard input.
expect_commands() {
    diff - <(commands "$1") || {
        cat err >&2
        return 1
    }
}

# bounded ARGUMENT...: starts kx-package with 1 GiB of memory and 60 seconds; leaves what kx leaves.
bounded() {
    status=0
    (
        case ${ASAN_OPTIONS:-}$(nm -D "$KX_PACKAGE" 2>/dev/null | grep -m 1 __asan_init || true) in
            '') ulimit -v 1048576 ;;
        esac
        exec timeout 60 "$KX_PACKAGE" "$@"
    ) >out 2>err </dev/null || status=$?
}

# without_rights ARGUMENT...: starts kx-package without root's right to read everything.
without_rights() {
    local user=()
    [ "$(id -u)" -ne 0 ] || user=(setpriv '--bounding-set=-dac_override,-dac_read_search')
    status=0
    "${user[@]}" "$KX_PACKAGE" "$@" >out 2>err </dev/null || status=$?
}
