#!/usr/bin/env bats
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
#
# The checks of the build, on a project of two small programs that is built with the options of this
# one.

ROOT=$(cd "$BATS_TEST_DIRNAME/../.." && pwd)
# The compiler's messages in plain letters.
export LC_ALL=C

setup() {
    cd "$BATS_TEST_TMPDIR" || return
    mkdir project && cd project || return
    git init -q
    echo /build/ >.gitignore
    cat >CMakeLists.txt <<END
cmake_minimum_required(VERSION 3.25)
project(small LANGUAGES CXX)
list(APPEND CMAKE_MODULE_PATH "$ROOT/cmake")
include(KxOptions)
option(KX_UPDATER "" ON)
option(KX_TOOLS "" OFF)
if(KX_UPDATER)
  find_package(Threads REQUIRED)
endif()
if(KX_TOOLS)
  add_subdirectory(lib)
endif()
add_library(room STATIC room.cpp)
target_link_libraries(room PUBLIC kx_options)
foreach(name kx_Updater kx-package kx-panel)
  add_executable(\${name} main.cpp)
  target_link_libraries(\${name} PRIVATE room)
endforeach()
END
    mkdir lib
    echo 'find_package(BZip2 REQUIRED)' >lib/CMakeLists.txt
    jq '.configurePresets |= map(select(.name | test("^(base|release|panel|tools|lto)$"))) |
        {version, configurePresets,
            buildPresets: [.configurePresets[1:][] | {name, configurePreset: .name}]}' \
        "$ROOT/CMakePresets.json" >CMakePresets.json
    cat >Pair.h <<'END'
struct Pair {
    int first;
    int second;
};
int Sum(const Pair& pair);
END
    cat >room.cpp <<'END'
#include "Pair.h"
int Sum(const Pair& pair)
{
    return pair.first + pair.second;
}
END
    cat >main.cpp <<'END'
#include "Pair.h"
int main(int argc, char**)
{
    return Sum({argc, 1});
}
END
}

# build PRESET [TARGET...]: as the scripts of the project build.
build() {
    PYTHONPATH=$ROOT/scripts /usr/bin/python3 -B -m kxscripts.common build "$@"
}

# check_reproducible: leaves $status and $output.
check_reproducible() {
    run "$ROOT/scripts/check-reproducible" .
    echo "$output"
}

# output_has TEXT
output_has() {
    [[ $output == *"$1"* ]]
}

# output_lacks TEXT
output_lacks() {
    [[ $output != *"$1"* ]]
}

@test "link-time optimisation passes where every type has one definition" {
    build lto

    build/lto/kx_Updater || [ "$?" -eq 2 ]
}

@test "link-time optimisation finds a type that two files define differently" {
    sed -i 's/second;/second;\n    int third;/' Pair.h
    sed -i 's/^#include.*//' main.cpp
    sed -i '1i struct Pair { int first; long second; };\nint Sum(const Pair\& pair);' main.cpp

    run build lto

    echo "$output"
    [ "$status" -eq 1 ]
    output_has "type 'struct Pair' violates the C++ One Definition Rule [-Werror=odr]"
}

@test "link-time optimisation finds a variable that two files declare differently" {
    echo 'long counter = 1;' >>room.cpp
    sed -i 's/argc, 1/argc, counter/; 1a extern int counter;' main.cpp

    run build lto

    echo "$output"
    [ "$status" -eq 1 ]
    output_has "type of 'counter' does not match original declaration [-Werror=lto-type-mismatch]"
}

@test "what the sanitizers find ends a program" {
    sed -i 's/    return Sum({argc, 1});/    return Sum({argc, 2147483647}) == 0 ? 1 : 0;/' main.cpp
    cmake -G Ninja -S . -B build/asan -DCMAKE_BUILD_TYPE=Debug -DKX_SANITIZE=address,undefined
    cmake --build build/asan --target kx_Updater

    run build/asan/kx_Updater

    echo "$output"
    [ "$status" -ne 0 ]
    output_has 'runtime error: signed integer overflow'
}

@test "programs that hold nothing of where they were built are the same" {
    # Names of files without their folders, from a macro.
    sed -i 's/int main/const char* volatile place = __FILE__;\nint main/' main.cpp

    check_reproducible

    [ "$status" -eq 0 ]
    [ "$output" = '' ]
}

@test "a path of the sources in a program is found" {
    # shellcheck disable=SC2016 # expanded by CMake
    echo 'target_compile_definitions(kx-package PRIVATE PLACE="${CMAKE_SOURCE_DIR}/device")' \
        >>CMakeLists.txt
    sed -i 's/int main/#ifdef PLACE\nconst char* volatile place = PLACE;\n#endif\nint main/' main.cpp

    check_reproducible

    [ "$status" -eq 1 ]
    output_has "$PWD/device"
    output_has 'check-reproducible: kx-package depends on where or with what it is built'
    output_has 'check-reproducible: kx-package holds paths of the machine that built it'
    output_lacks 'check-reproducible: kx_Updater'
}

@test "a program that is another one beside others is found" {
    # shellcheck disable=SC2016 # expanded by CMake
    echo 'target_compile_definitions(kx_Updater PRIVATE $<$<BOOL:${KX_TOOLS}>:argc=extra>)' \
        >>CMakeLists.txt
    echo 'int argc = 4;' >>main.cpp

    check_reproducible

    [ "$status" -eq 1 ]
    output_has 'check-reproducible: kx_Updater depends on where or with what it is built'
    output_lacks 'holds paths'
}

@test "a companion program that asks for the updater's libraries is found" {
    echo 'find_package(Qt5 REQUIRED COMPONENTS Core)' >>CMakeLists.txt

    check_reproducible

    [ "$status" -eq 1 ]
    output_has 'check-reproducible: kx-package cannot be built alone'
    output_lacks 'check-reproducible: kx_Updater'
}

@test "an updater that asks for the companion programs' libraries is found" {
    sed -i 's/^if(KX_TOOLS)/if(TRUE)/' CMakeLists.txt

    check_reproducible

    [ "$status" -eq 1 ]
    output_has 'check-reproducible: kx_Updater cannot be built alone'
    output_lacks 'check-reproducible: kx-package'
}

@test "a check that would hide no library is none" {
    echo '# none' >lib/CMakeLists.txt

    check_reproducible

    [ "$status" -eq 1 ]
    output_has 'check-reproducible: no find_package in lib/ tools/: there is nothing to hide'
}

@test "programs are compared where there is no repository, too" {
    rm -rf .git
    sed -i "s|int main|const char* volatile place = \"$PWD/x\";\nint main|" main.cpp

    check_reproducible

    [ "$status" -eq 1 ]
    output_has "No repository in $PWD: every file outside of build/ counts as a source."
    output_has "check-reproducible: kx_Updater holds paths of the machine that built it: $PWD/x"
}

@test "a header that includes too little is found in every folder of headers" {
    local folder
    rm -r ./*
    mkdir -p src/osa lib/io tools/kx-package/common tools/kx-panel/policy
    cat >CMakeLists.txt <<END
cmake_minimum_required(VERSION 3.25)
project(small LANGUAGES CXX)
set(KX_TOOLS ON)
add_library(kx_ui INTERFACE)
add_library(kx_package_tool INTERFACE)
add_library(kx_panel_tool INTERFACE)
target_include_directories(kx_ui INTERFACE src)
target_include_directories(kx_package_tool INTERFACE lib tools/kx-package)
target_include_directories(kx_panel_tool INTERFACE lib tools/kx-panel)
include("$ROOT/tests/headers.cmake")
END
    for folder in src/osa lib/io tools/kx-package/common tools/kx-panel/policy; do
        printf '#pragma once\n#include <string>\nstd::string Text();\n' >"$folder/Text.h"
    done
    cmake -G Ninja -S . -B build
    cmake --build build --target kx_headers

    mv lib/io/Text.h .
    run cmake --build build --target kx_headers
    [ "$status" -ne 0 ]
    output_has "no headers below $PWD/lib"
    mv Text.h lib/io

    for folder in src/osa lib/io tools/kx-package/common tools/kx-panel/policy; do
        printf 'std::string Text();\n' >"$folder/Bad.h"
        run cmake --build build --target kx_headers
        echo "$output"
        [ "$status" -ne 0 ]
        output_has "$folder/Bad.h:1:"
        rm "$folder/Bad.h"
    done
}
