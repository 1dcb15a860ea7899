#!/usr/bin/env bats
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
#
# scripts/check on a small project: each check finds what it is for, and none passes on nothing.
# Builds are played.
#
# shellcheck disable=SC2016 # what is written between these quotes are scripts

ROOT=$(cd "$BATS_TEST_DIRNAME/../.." && pwd)
WRONG='rec''ieve' # a misspelled word, but not here

setup() {
    TREE=$BATS_TEST_TMPDIR/tree
    STUB=$BATS_TEST_TMPDIR/stub
    export STUB
    mkdir -p "$TREE/scripts" "$TREE/src/osa" "$STUB"
    cp -R "$ROOT/scripts/kxscripts" "$ROOT/scripts/check" "$TREE/scripts"
    cp "$ROOT/.clang-format" "$TREE"
    cd "$TREE" || return
    echo /build/ >.gitignore
    printf '#pragma once\n\nint Sum(int first, int second);\n' >src/osa/Sum.h
    printf '#include "osa/Sum.h"\n' >src/osa/Sum.cpp
    printf '#!/bin/sh\necho "$1"\n' >scripts/run
    # Nobody's settings decide whom git trusts.
    export GIT_CONFIG_GLOBAL=/dev/null GIT_CONFIG_SYSTEM=/dev/null
    git init -q
    git add .
}

# stand_in NAME <SCRIPT: a program that is found before the real one.
stand_in() {
    mkdir -p "$STUB/bin"
    {
        printf '#!/bin/bash\n'
        cat
    } >"$STUB/bin/$1"
    chmod +x "$STUB/bin/$1"
    PATH=$STUB/bin:$PATH
}

# without TOOL...: the checks find none of them from here on.
without() {
    local tool
    mkdir "$STUB/few"
    for tool in bash dirname readlink git clang-format codespell shellcheck cmake ninja clang-tidy; do
        [[ " $* " == *" $tool "* ]] || ln -s "$(type -P "$tool")" "$STUB/few"
    done
    FEW=$STUB/few
}

# check NAME...: leaves $status and $output.
check() {
    run env PATH="${FEW:-$PATH}" "$TREE/scripts/check" "$@"
    echo "$output"
}

# expect_failed NAME... -- TEXT...: the checks that failed, and what was told.
expect_failed() {
    local names=()
    while [ "$1" != -- ]; do
        names+=("$1")
        shift
    done
    shift
    [ "$status" -eq 1 ]
    [ "${lines[-1]}" = "scripts/check: failed: ${names[*]}" ]
    output_has "$@"
}

# output_has TEXT...
output_has() {
    local text
    for text in "$@"; do
        [[ $output == *"$text"* ]] || { echo "not told: $text" && return 1; }
    done
}

@test "clean sources pass" {
    check format spelling shell

    [ "$status" -eq 0 ]
    [ "${lines[-1]}" = '== 3 checks passed' ]
}

@test "a badly formatted file is found, a new one and a header, too" {
    echo 'int  a;' >src/osa/New.h

    check format

    expect_failed format -- 'src/osa/New.h:1:' 'code should be clang-formatted'
}

@test "what is built or ignored is no source, and what was removed neither" {
    mkdir build
    echo 'int  a;' >build/Made.cpp
    rm src/osa/Sum.cpp

    check format

    [ "$status" -eq 0 ]
}

@test "a misspelled word is found" {
    echo "int $WRONG;" >>src/osa/Sum.cpp

    check spelling

    expect_failed spelling -- 'src/osa/Sum.cpp:2: '"$WRONG ==> "
}

@test "words are looked for everywhere but in translations, pictures and the inputs of fuzzers" {
    mkdir -p res tests/fuzz/corpus/reader
    echo "$WRONG" | tee res/a.ts res/a.png >tests/fuzz/corpus/reader/one
    check spelling
    [ "$status" -eq 0 ]

    echo "$WRONG" | tee res/a.txt tests/corpus.txt >tests/fuzz/one.txt
    check spelling
    expect_failed spelling -- "res/a.txt:1: $WRONG" "tests/corpus.txt:1: $WRONG" \
        "tests/fuzz/one.txt:1: $WRONG"
}

@test "a fault is found in a script of the shell and in a bats test, whatever they are called" {
    printf '#!/bin/sh\necho $1\n' >scripts/unquoted
    printf '#!/usr/bin/env bats\nsetup() { cd $X; }\n' >src/some.bats

    check shell

    expect_failed shell -- 'In scripts/unquoted line 2' 'In src/some.bats line 2'
}

@test "without a repository every file outside of build is read, and that is told" {
    rm -rf .git
    mkdir build
    echo 'int  a;' >build/Made.cpp
    check format spelling shell
    [ "$status" -eq 0 ]
    output_has "No repository in $TREE: every file outside of build/ counts as a source."

    echo "int  $WRONG;" >src/osa/Bad.cpp
    printf '#!/bin/sh\necho $1\n' >scripts/unquoted
    check format spelling shell
    expect_failed format spelling shell -- 'src/osa/Bad.cpp:1:' "$WRONG ==>" 'In scripts/unquoted'
}

@test "a repository of an owner whom git does not trust passes no check, and the remedy is told" {
    export GIT_TEST_ASSUME_DIFFERENT_OWNER=1
    cp "$ROOT/scripts/check-reproducible" scripts
    stand_in cmake <<<'exit 0'

    check format spelling shell headers reproducible

    expect_failed format spelling shell headers reproducible -- \
        'check format: git cannot tell the files' 'check spelling: git cannot tell the files' \
        'check shell: git cannot tell the files' 'check headers: git cannot tell the files' \
        'check reproducible: git cannot tell the files' 'dubious ownership' \
        "git config --global --add safe.directory $TREE"
}

@test "a repository that git cannot read passes no check" {
    rm -rf .git
    mkdir .git

    check format spelling shell

    expect_failed format spelling shell -- 'not a git repository'
}

@test "a git that is missing, or fails without a word, passes no check" {
    stand_in git <<<'exit 3'
    check format spelling shell
    expect_failed format spelling shell -- 'git cannot tell the files of this folder'

    without git
    check format spelling shell
    expect_failed format spelling shell -- 'git is missing; scripts/setup installs it'
}

@test "nothing to read is an error" {
    rm -r src scripts/run scripts/kxscripts/*.sh
    sed -i '1s/bash/perl/' scripts/check
    cp "$TREE/scripts/check" "$STUB/check"
    git add -A

    run bash scripts/check format shell headers

    echo "$output"
    expect_failed format shell headers -- "check format: no source in $TREE *.cpp *.h" \
        'check shell: no script of the shell' "check headers: no source in $TREE src/*.h"
}

@test "an empty list of git is an error" {
    stand_in git <<<'exit 0'

    check format spelling shell headers

    expect_failed format spelling shell headers -- "check spelling: no source in $TREE"
}

@test "a tool that is missing is an error" {
    without clang-format codespell shellcheck cmake

    check format spelling shell headers odr tidy

    expect_failed format spelling shell headers odr tidy -- 'clang-format: not found' \
        'codespell: not found' 'shellcheck: not found' 'cmake: not found'
}

@test "an unknown check is refused before any other has begun" {
    check format wrong

    [ "$status" -eq 2 ]
    [ "${lines[-1]}" = "scripts/check: error: unknown check 'wrong'" ]

    check --fast
    [ "$status" -eq 2 ]

    check --help
    [ "$status" -eq 0 ]
    output=$(tr -s ' \n' ' ' <<<"$output")
    output_has 'format, layers, headers, spelling, shell, qt, needs, odr, reproducible, tidy'
}

@test "all checks are made by default, and the ones that fail are told" {
    stand_in cmake <<<'exit 1'
    printf 'import sys\nsys.exit("an arrow upwards")\n' >scripts/check-layers.py

    check

    expect_failed layers headers qt needs odr reproducible tidy -- 'an arrow upwards' \
        'check qt: building the preset tidy failed' \
        'check needs: building the preset release failed' \
        'check odr: building the preset lto failed' \
        'check reproducible: building the preset release failed'
    [ "$(grep -c '^== check ' <<<"$output")" -eq 10 ]
}

# compiled TARGET FILE...: the compilation database of a build.
compiled() {
    local file list=()
    for file in "${@:2}"; do
        list+=("{\"file\": \"$file\", \"command\": \"c++\", \"directory\": \"/\"}")
    done
    mkdir -p "build/$1"
    (IFS=, && echo "[${list[*]}]") >"build/$1/compile_commands.json"
}

@test "a header that nothing compiles alone is told, wherever it is" {
    local header
    stand_in cmake <<<'exit 0'
    mkdir -p lib/io tools/kx-package/common build/dev/tests/headers
    echo '#include "osa/Sum.h"' >build/dev/tests/headers/a.cpp
    compiled dev "$TREE/build/dev/tests/headers/a.cpp" "$TREE/src/osa/Sum.cpp"
    check headers
    [ "$status" -eq 0 ]

    for header in src/osa/Text.h lib/io/Text.h tools/kx-package/common/Text.h; do
        touch "$header"
        check headers
        expect_failed headers -- "check headers: tests/headers.cmake leaves out: $header"
        rm "$header"
    done
}

# tidy_tools: clang-tidy that refuses files called bad, and what it is started for.
tidy_tools() {
    stand_in cmake <<<'echo "$*" >>"$STUB/cmake"'
    stand_in ninja <<<'printf "%s: phony\n" gui_autogen CMakeFiles/x_autogen /abs_autogen; echo "a_autogen: CUSTOM"'
    stand_in clang-tidy <<'END'
echo "${*: -2}" >>"$STUB/tidy"
echo "12345 warnings generated."
[[ $* != */bad.cpp ]] || { echo "bad.cpp:1: a finding"; exit 1; }
END
}

@test "clang-tidy reads every compiled file once, the product and its tests each for its checks" {
    tidy_tools
    compiled tidy /x/src/a.cpp /x/src/a.cpp /x/tests/b.cpp /x/mocs_compilation.cpp \
        /x/tests/headers/c.cpp /x/qrc_d.cpp

    check tidy

    [ "$status" -eq 0 ]
    sort "$STUB/tidy" | diff - <(sort <<'END'
--checks=-bugprone-suspicious-include /x/src/a.cpp
--checks=-clang-analyzer-*,-bugprone-exception-escape,-bugprone-reserved-identifier,-bugprone-suspicious-include,-readability-convert-member-functions-to-static /x/tests/b.cpp
END
    )
    grep -qx -- '--build --preset tidy --target gui_autogen' "$STUB/cmake"
}

@test "a finding of clang-tidy is told, and the other files are read" {
    tidy_tools
    compiled tidy /x/src/bad.cpp /x/src/a.cpp /x/src/z.cpp

    check tidy

    expect_failed tidy -- 'bad.cpp:1: a finding' 'clang-tidy refuses 1 of 3 files'
    [ "$(wc -l <"$STUB/tidy")" -eq 3 ]
    [[ $output != *'warnings generated'* ]]
}

@test "a compilation database that is empty, or missing, is an error" {
    tidy_tools
    compiled tidy /x/mocs_compilation.cpp
    check tidy
    expect_failed tidy -- 'no file in build/tidy/compile_commands.json'

    rm build/tidy/compile_commands.json
    check tidy
    expect_failed tidy -- 'compile_commands.json'
}

@test "files that clang-tidy has not begun to read are left alone after an interrupt" {
    local check process tries left='' status=0
    tidy_tools
    # shellcheck disable=SC2046 # words
    compiled tidy $(seq -f '/x/src/%g.cpp' $(($(nproc) * 3)))
    touch "$STUB/tidy"
    stand_in clang-tidy <<'END'
echo $$ >>"$STUB/tidy"
exec sleep 77777
END
    "$TREE/scripts/check" tidy >out 2>&1 &
    check=$!
    for tries in {1..300}; do
        [ "$(grep -c . "$STUB/tidy")" != "$(nproc)" ] || break
        sleep 0.1
    done

    kill -TERM "$check"
    for tries in {1..150}; do
        kill -0 "$check" 2>/dev/null || break
        sleep 0.1
    done
    kill -KILL "$check" 2>/dev/null || true
    wait "$check" || status=$?

    echo "$tries"
    cat out
    while read -r process; do
        [ "$(cat "/proc/$process/comm" 2>/dev/null)" != sleep ] || { left+=" $process" && kill -KILL "$process"; }
    done <"$STUB/tidy"
    [ "$left" = '' ]
    [ "$status" -eq 143 ]
    [ "$(wc -l <"$STUB/tidy")" -eq "$(nproc)" ]
}

@test "checks that are interrupted end what they have started" {
    local check tries status=0
    stand_in clang-format <<<'echo $$ >"$STUB/hung"; sleep 77777'
    "$TREE/scripts/check" format spelling >out 2>&1 &
    check=$!
    for tries in {1..300}; do
        [ ! -s "$STUB/hung" ] || break
        sleep 0.1
    done

    kill -TERM "$check"
    wait "$check" || status=$?

    echo "$tries"
    cat out
    [ "$status" -eq 143 ]
    run kill -0 "$(cat "$STUB/hung")"
    [ "$status" -ne 0 ]
}
