# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT

find_package(GTest REQUIRED)
find_package(Qt5 5.7 REQUIRED COMPONENTS Test)
include(GoogleTest)

# The last guard of every test binary: the support kit answers what the code under test asks of the
# system (osa/OSA_System.h), and whatever gets past it to the machine's shell ends the binary.
set(KX_WRAPPED_CALLS -Wl,--wrap=system)

set(KX_TEST_ENVIRONMENT
  "LSAN_OPTIONS=suppressions=${CMAKE_SOURCE_DIR}/tests/support/lsan.supp:print_suppressions=0")

# An emulator takes many times as long: the keys of a passphrase alone take minutes.
set(KX_UNIT_SECONDS 300)
if(CMAKE_CROSSCOMPILING)
  set(KX_UNIT_SECONDS 1800)
endif()

# Every test of CTest leaves a report of its cases, KX_TEST_REPORTS/NAME.xml, from which the gate
# counts; it takes one that is missing for a failure.
set(KX_TEST_REPORTS "${CMAKE_BINARY_DIR}/reports")
file(MAKE_DIRECTORY "${KX_TEST_REPORTS}")

# kx_compile_tests(TARGET): what sanitizers watch is the product. Optimizing the tests themselves would
# take most of the build's time, and looking for undefined behaviour in them a third of the rest; their
# memory is watched.
function(kx_compile_tests target)
  if(KX_SANITIZE)
    target_compile_options(${target} PRIVATE -O0)
    set_target_properties(${target} PROPERTIES KX_WATCHES_ONLY_MEMORY ON)
  endif()
endfunction()

# kx_compile_together(NAME): the files of a test compile as a few ones where the build asks for it.
# Names that stand in several of them, or change what another one reads, keep a file apart: it has
# the property SKIP_UNITY_BUILD_INCLUSION.
function(kx_compile_together name)
  kx_compile_tests(${name})
  if(KX_UNITY)
    set_target_properties(${name} PROPERTIES UNITY_BUILD ON UNITY_BUILD_BATCH_SIZE 8)
    # A fixture's base in an unnamed namespace is harmless: there is one such file only.
    target_compile_options(${name} PRIVATE $<$<CXX_COMPILER_ID:GNU>:-Wno-subobject-linkage>)
  endif()
endfunction()

# kx_unit_tests: the tests that need nothing but their own binaries, which have the label unit: what
# was built for another processor runs with an emulator.
add_custom_target(kx_unit_tests)

# kx_is_unit_test(NAME): puts a test among them.
function(kx_is_unit_test name)
  add_dependencies(kx_unit_tests ${name})
  set_property(TEST ${name} APPEND PROPERTY LABELS unit)
endfunction()

# kx_add_test(NAME [ON_DEVICE] SOURCES file... [LIBRARIES target...]): a GoogleTest binary.
# ON_DEVICE tests write to the device's fixed paths and start on the sandboxed device.
function(kx_add_test name)
  cmake_parse_arguments(arg "ON_DEVICE" "" "SOURCES;LIBRARIES" ${ARGN})
  add_executable(${name} ${arg_SOURCES})
  target_link_libraries(${name} PRIVATE kx_test_support ${arg_LIBRARIES})
  kx_compile_together(${name})
  if(NOT arg_LIBRARIES MATCHES "kx_(ui|res)")
    # What needs Qt is compiled otherwise than the shared ones.
    target_precompile_headers(${name} REUSE_FROM kx_test_support)
  endif()
  set(report "--gtest_output=xml:${KX_TEST_REPORTS}/${name}.xml")
  if(arg_ON_DEVICE)
    add_test(NAME ${name}
      COMMAND "${CMAKE_SOURCE_DIR}/tests/support/on-device" $<TARGET_FILE:${name}> ${report})
    set_tests_properties(${name} PROPERTIES SKIP_RETURN_CODE 77)
  else()
    add_test(NAME ${name} COMMAND ${name} ${report})
    kx_is_unit_test(${name})
  endif()
  set_tests_properties(${name} PROPERTIES TIMEOUT ${KX_UNIT_SECONDS} ENVIRONMENT "${KX_TEST_ENVIRONMENT}")
endfunction()

# kx_add_rehearsing_test(NAME SOURCES file... LIBRARIES target...): a GoogleTest binary that rehearses
# installations. It has the rehearsal's system in the place of the kit's, so of the kit only what asks
# nothing of the system.
function(kx_add_rehearsing_test name)
  cmake_parse_arguments(arg "" "" "SOURCES;LIBRARIES" ${ARGN})
  set(kit "${CMAKE_SOURCE_DIR}/tests/support")
  add_executable(${name} ${arg_SOURCES} "${kit}/TempDir.cpp" "${kit}/NoShell.cpp")
  target_include_directories(${name} PRIVATE "${CMAKE_SOURCE_DIR}/tests")
  target_link_libraries(${name} PRIVATE kx_rehearsal_system ${arg_LIBRARIES} GTest::gmock_main)
  target_link_options(${name} PRIVATE ${KX_WRAPPED_CALLS})
  kx_compile_together(${name})
  target_precompile_headers(${name} REUSE_FROM kx_test_support)
  add_test(NAME ${name} COMMAND ${name} "--gtest_output=xml:${KX_TEST_REPORTS}/${name}.xml")
  kx_is_unit_test(${name})
  set_tests_properties(${name} PROPERTIES TIMEOUT ${KX_UNIT_SECONDS} ENVIRONMENT "${KX_TEST_ENVIRONMENT}")
endfunction()

# kx_add_qt_test(NAME SOURCES file... [LIBRARIES target...]): a QtTest binary. It needs no display.
function(kx_add_qt_test name)
  cmake_parse_arguments(arg "" "" "SOURCES;LIBRARIES" ${ARGN})
  add_executable(${name} ${arg_SOURCES})
  target_link_libraries(${name} PRIVATE kx_test_support Qt5::Test ${arg_LIBRARIES})
  kx_compile_together(${name})
  set_target_properties(${name} PROPERTIES
    AUTOMOC ON
    AUTOGEN_BUILD_DIR "${CMAKE_BINARY_DIR}/autogen/${name}")
  kx_run_qt_test(${name} ${name})
  kx_is_unit_test(${name})
endfunction()

# kx_run_qt_test(NAME TEST [VARIABLE=value...]): one more run of a QtTest binary, with more in its
# environment.
function(kx_run_qt_test name test)
  # QtTest's JUnit report would not tell the rows of a table.
  add_test(NAME ${name} COMMAND ${test} -o "${KX_TEST_REPORTS}/${name}.xml,xml" -o -,txt)
  set_tests_properties(${name} PROPERTIES TIMEOUT ${KX_UNIT_SECONDS}
    ENVIRONMENT "${KX_TEST_ENVIRONMENT};QT_QPA_PLATFORM=offscreen;${ARGN}")
endfunction()

# kx_add_bats_test(NAME FILE TIMEOUT [VARIABLE=value...]): a file of bats tests of the folder, and
# what it reads from its environment.
function(kx_add_bats_test name file timeout)
  find_program(KX_BATS bats REQUIRED)
  add_test(NAME ${name}
    COMMAND "${KX_BATS}" --timing --formatter "${CMAKE_SOURCE_DIR}/tests/support/bats-report"
      "${CMAKE_CURRENT_SOURCE_DIR}/${file}")
  set_tests_properties(${name} PROPERTIES TIMEOUT ${timeout}
    ENVIRONMENT "KX_BATS_REPORT=${KX_TEST_REPORTS}/${name}.xml;${KX_TEST_ENVIRONMENT};${ARGN}")
endfunction()

# kx_add_python_test(NAME MODULE PATH): a module of unittest of the folder, and where what it is about
# is found; tests/support is found as well.
function(kx_add_python_test name module path)
  add_test(NAME ${name}
    COMMAND /usr/bin/python3 -B -m xmlrunner --output-file "${KX_TEST_REPORTS}/${name}.xml" ${module}
    WORKING_DIRECTORY "${CMAKE_CURRENT_SOURCE_DIR}")
  set_tests_properties(${name} PROPERTIES TIMEOUT 120 ENVIRONMENT
    "PYTHONPATH=${path}:${PROJECT_SOURCE_DIR}/tests/support")
endfunction()
