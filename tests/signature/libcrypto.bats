#!/usr/bin/env bats
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
#
# Panels have OpenSSL 1.1.1: of libcrypto nothing newer may be called. Its library does not tell what
# came when, so libcrypto-functions does: each function that is called, and a version that had it,
# whether as a function or as a macro. Who calls another one looks it up (HISTORY in its manual page),
# and adds it there.

# functions_of: the functions of libcrypto that the library of signatures calls.
functions_of() {
    comm -12 <(nm --undefined-only "$KX_SIGNATURE" | awk '{ print $2 }' | sort -u) \
        <(nm --dynamic --defined-only "$KX_LIBCRYPTO" | awk '{ sub(/@.*/, "", $3); print $3 }' |
            sort -u)
}

@test "only functions are called that are looked up" {
    export LC_ALL=C
    run diff <(cut -d ' ' -f 1 "$BATS_TEST_DIRNAME/libcrypto-functions") <(functions_of)
    echo "$output"
    [ "$status" -eq 0 ]
}

@test "OpenSSL 1.1.1 has them all" {
    run grep -vE '^[A-Za-z0-9_]+ 1\.1\.[01]$' "$BATS_TEST_DIRNAME/libcrypto-functions"
    [ "$output" = '' ]
    [ "$status" -eq 1 ]
}

@test "the list names what this machine's libcrypto has" {
    [ "$(functions_of | wc -l)" -gt 20 ]
}
