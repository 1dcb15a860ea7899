# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT

# kx_options: what every target of the project is compiled with.
add_library(kx_options INTERFACE)
target_compile_features(kx_options INTERFACE cxx_std_17)
target_include_directories(kx_options INTERFACE "${CMAKE_SOURCE_DIR}/src")
# Files of any size and date can be examined on 32-bit panels, too.
target_compile_definitions(kx_options INTERFACE _FILE_OFFSET_BITS=64 _TIME_BITS=64)
target_compile_options(kx_options INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wold-style-cast -Woverloaded-virtual
  -Wnon-virtual-dtor -Wformat=2
  # Qt's generated code overrides without saying so when clang reads it.
  $<$<CXX_COMPILER_ID:GNU>:-Wsuggest-override>
  $<$<CXX_COMPILER_ID:Clang>:-Winconsistent-missing-override>)

if(KX_UNITY)
  # It has memory to spare, and a tenth of its time would go into making do with less. What is read
  # by tools of clang is built for debugging.
  target_compile_options(kx_options INTERFACE
    $<$<AND:$<CXX_COMPILER_ID:GNU>,$<NOT:$<CONFIG:Debug>>>:--param=ggc-min-heapsize=524288>)
endif()

if(KX_WARNINGS_AS_ERRORS)
  target_compile_options(kx_options INTERFACE -Werror)
endif()

if(KX_SANITIZE)
  target_compile_options(kx_options INTERFACE
    -fsanitize=${KX_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer
    # Here, because of two options that contradict each other the last one holds.
    $<$<BOOL:$<TARGET_PROPERTY:KX_WATCHES_ONLY_MEMORY>>:-fno-sanitize=undefined>)
  target_link_options(kx_options INTERFACE -fsanitize=${KX_SANITIZE}
    # Each check of a sanitizer notes its place in the program's data. Wherever else that is loaded, all
    # of it is changed at every start, which takes longer than most of what the tests start.
    $<$<STREQUAL:$<TARGET_PROPERTY:TYPE>,EXECUTABLE>:-no-pie>)
endif()

if(KX_FUZZ)
  # Every layer reports its coverage to the fuzzer.
  target_compile_options(kx_options INTERFACE -fsanitize=fuzzer-no-link)
endif()

# What is shipped is the same wherever it was built: it holds no path of that machine, nor of where
# the panel's headers lie there. The last prefix that fits is taken, which is the build folder's where
# that lies within the sources.
if(NOT KX_SANITIZE AND NOT KX_COVERAGE)
  target_compile_options(kx_options INTERFACE
    $<$<NOT:$<CONFIG:Debug>>:-ffile-prefix-map=${CMAKE_SOURCE_DIR}=.>
    $<$<NOT:$<CONFIG:Debug>>:-ffile-prefix-map=${CMAKE_BINARY_DIR}=build>)
  if(CMAKE_SYSROOT)
    target_compile_options(kx_options INTERFACE
      $<$<NOT:$<CONFIG:Debug>>:-ffile-prefix-map=${CMAKE_SYSROOT}=>)
  endif()
endif()

if(KX_COVERAGE)
  target_compile_options(kx_options INTERFACE --coverage -fprofile-update=atomic)
  target_link_options(kx_options INTERFACE --coverage)
endif()

if(KX_LTO)
  # The only moment at which all files of a program are seen together.
  set(CMAKE_INTERPROCEDURAL_OPTIMIZATION ON)
  target_link_options(kx_options INTERFACE -Werror=odr -Werror=lto-type-mismatch)
endif()

# kx_compile_folders_together(TARGET): the files of each of a target's folders compile as one where
# the build asks for it.
function(kx_compile_folders_together target)
  if(NOT KX_UNITY)
    return()
  endif()
  get_target_property(sources ${target} SOURCES)
  get_target_property(base ${target} SOURCE_DIR)
  foreach(source IN LISTS sources)
    get_filename_component(path "${source}" ABSOLUTE BASE_DIR "${base}")
    get_filename_component(folder "${path}" DIRECTORY)
    get_filename_component(group "${folder}" NAME)
    set_source_files_properties("${path}" TARGET_DIRECTORY ${target}
      PROPERTIES UNITY_GROUP "${group}")
  endforeach()
  set_target_properties(${target} PROPERTIES UNITY_BUILD ON UNITY_BUILD_MODE GROUP)
endfunction()

# kx_add_layer(NAME SOURCE...): one layer of the updater, as object files without Qt.
function(kx_add_layer name)
  add_library(${name} OBJECT ${ARGN})
  target_link_libraries(${name} PUBLIC kx_options)
  target_include_directories(${name} SYSTEM PUBLIC "${PICOJSON_INCLUDE_DIR}")
  kx_compile_folders_together(${name})
endfunction()

# kx_add_companion(PROGRAM FOLDER SECTION LIBRARY SOURCE...): a companion program, of the folder commands
# and main.cpp, with its own rooms in a library; it is installed in a folder, with its manual page of a
# section and what the shells complete. In the program its version is PROGRAM_VERSION, in capitals and
# with '_' for '-'.
function(kx_add_companion program folder section library)
  add_executable(${program} ${ARGN} main.cpp)
  kx_compile_folders_together(${program})
  # Most of its time goes into what the commands need, too.
  set_source_files_properties(main.cpp PROPERTIES UNITY_GROUP commands)
  if(KX_SANITIZE)
    # The library of the command line takes twice the time of all others to be optimised.
    target_compile_options(${program} PRIVATE -O0)
  endif()
  target_link_libraries(${program} PRIVATE kx_rehearsal_system ${library})
  string(MAKE_C_IDENTIFIER "${program}" name)
  string(TOUPPER "${name}" name)
  target_compile_definitions(${program} PRIVATE ${name}_VERSION="${KX_COMPANION_VERSION}")
  set_target_properties(${program} PROPERTIES RUNTIME_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}")
  install(TARGETS ${program} RUNTIME DESTINATION "${folder}")
  install(FILES "${CMAKE_SOURCE_DIR}/docs/${program}.${section}"
    DESTINATION "${CMAKE_INSTALL_MANDIR}/man${section}")
  kx_install_completion(${program})
endfunction()

# kx_install_completion(PROGRAM): what the shells complete comes from the program itself, which for
# another processor needs an emulator.
function(kx_install_completion program)
  if(CMAKE_CROSSCOMPILING AND NOT CMAKE_CROSSCOMPILING_EMULATOR)
    message(WARNING "Without an emulator for its processor, ${program} cannot tell what the shells "
      "complete; install qemu-user, or set CMAKE_CROSSCOMPILING_EMULATOR")
    return()
  endif()
  set(folder "${CMAKE_CURRENT_BINARY_DIR}/completion")
  add_custom_command(OUTPUT "${folder}/${program}" "${folder}/_${program}"
    COMMAND "${CMAKE_COMMAND}" -E make_directory "${folder}"
    COMMAND ${program} completion bash > "${folder}/${program}"
    COMMAND ${program} completion zsh > "${folder}/_${program}"
    DEPENDS ${program} VERBATIM)
  add_custom_target(${program}_completion ALL DEPENDS "${folder}/${program}" "${folder}/_${program}")
  install(FILES "${folder}/${program}"
    DESTINATION "${CMAKE_INSTALL_DATADIR}/bash-completion/completions")
  install(FILES "${folder}/_${program}"
    DESTINATION "${CMAKE_INSTALL_DATADIR}/zsh/site-functions")
endfunction()
