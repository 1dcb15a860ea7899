# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT

# kx_headers compiles every header on its own, twice in one file: it must include what it uses and
# guard itself.
file(GLOB_RECURSE headers CONFIGURE_DEPENDS RELATIVE "${CMAKE_SOURCE_DIR}/src"
  "${CMAKE_SOURCE_DIR}/src/*.h")
set(sources)
foreach(header ${headers})
  string(REPLACE "/" "_" name "${header}")
  set(source "${CMAKE_CURRENT_BINARY_DIR}/headers/${name}.cpp")
  file(CONFIGURE OUTPUT "${source}"
    CONTENT "#include \"${header}\"\n#include \"${header}\" // NOLINT\n")
  list(APPEND sources "${source}")
endforeach()
add_library(kx_headers OBJECT EXCLUDE_FROM_ALL ${sources})
target_link_libraries(kx_headers PRIVATE kx_ui)
