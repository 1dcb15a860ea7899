#!/usr/bin/env bats
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
#
# The two version numbers, wherever a reader or a user sees them, are those of CMakeLists.txt.

ROOT=$(cd "$BATS_TEST_DIRNAME/../.." && pwd)
KX_PACKAGE=${KX_PACKAGE:-$ROOT/build/dev/kx-package}

setup() {
    cd "$ROOT" || return
    updater=$(sed -n 's/^project(kx_Updater VERSION \([0-9.]*\) .*/\1/p' CMakeLists.txt)
    companions=$(sed -n 's/^set(KX_COMPANION_VERSION \([0-9.]*\))$/\1/p' CMakeLists.txt)
    [[ $updater =~ ^[0-9]+\.[0-9]+\.[0-9]+$ && $companions =~ ^[0-9]+\.[0-9]+\.[0-9]+$ ]]
}

# expect_same EXPECTED: compares standard input with it.
expect_same() {
    diff <(printf '%s\n' "$1") -
}

@test "the companion program tells its version" {
    "$KX_PACKAGE" --version | expect_same "kx-package $companions"
}

@test "the usage texts that tests expect of the updater tell its version" {
    grep -hoE 'kx_Updater Ver\.[0-9.]+' tests/device/usage.bats tests/app/Options_test.cpp |
        sort -u | expect_same "kx_Updater Ver.$updater"
}

@test "every manual page is of its program's version" {
    local page pages=(docs/*.[18]) program version
    [ ${#pages[@]} -ge 3 ]
    for page in "${pages[@]}"; do
        program=$(basename "${page%.[18]}")
        version=$companions
        [ "$program" != kx_Updater ] || version=$updater
        sed -n 's/^\.TH .* "\([^"]*\)" "[A-Z][A-Za-z ]*"$/\1/p' "$page" |
            expect_same "$program $version"
    done
}

@test "the README tells both versions" {
    sed -n 's/^\*\*State:\*\* \(updater [0-9.]*, companion programs [0-9.]*\)\. .*/\1/p' README.md |
        expect_same "updater $updater, companion programs $companions"
}

@test "the newest section of the changelog tells both versions" {
    grep -A 2 -m 1 '^## ' CHANGELOG.md | tail -n 1 |
        expect_same "Updater $updater, companion programs $companions."
}

@test "the newest section of the changelog is unreleased, or the released version" {
    local heading
    heading=$(grep -m 1 '^## ' CHANGELOG.md)
    [[ $heading == '## Unreleased' ||
        $heading == "## $companions, "20[0-9][0-9]-[01][0-9]-[0-3][0-9] ]]
}

@test "the changelog of the Debian packages begins with the companion programs' number" {
    sed -n '1s/^kx-updater (\([^-+~)]*\).*/\1/p' packaging/debian/changelog | expect_same "$companions"
}

@test "the Debian package kx-panel asks for the updater's number" {
    grep -oE 'kx-updater \(>= [^)]*\)' packaging/debian/control | sort -u |
        expect_same "kx-updater (>= $updater)"
}

@test "neither number is written a second time where programs are built from" {
    PYTHONPATH=scripts /usr/bin/python3 -B -m kxscripts.common sources 'src/*' 'lib/*' 'tools/*' \
        'device/*' 'cmake/*' CMakeLists.txt '*/CMakeLists.txt' CMakePresets.json |
        xargs -d '\n' grep -nwF -e "$updater" -e "$companions" |
        grep -vE '(OpenSSL|libcrypto).* 1\.1\.1\>' | # which has the same number by chance
        expect_same "$(grep -HnE '^(project|set)\(.*VERSION ' CMakeLists.txt)"
}
