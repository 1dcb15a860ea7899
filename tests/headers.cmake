# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT

# kx_headers compiles every header on its own, twice in one file: it must include what it uses and
# guard itself. It is no library itself, because one that depends on others does not build their
# object files.
add_custom_target(kx_headers)
function(kx_check_headers target folder library)
  file(GLOB_RECURSE headers CONFIGURE_DEPENDS RELATIVE "${folder}" "${folder}/*.h")
  if(NOT headers)
    message(FATAL_ERROR "no headers below ${folder}")
  endif()
  set(sources)
  foreach(header ${headers})
    string(REPLACE "/" "_" name "${header}")
    set(source "${CMAKE_CURRENT_BINARY_DIR}/headers/${target}_${name}.cpp")
    file(CONFIGURE OUTPUT "${source}"
      CONTENT "#include \"${header}\"\n#include \"${header}\" // NOLINT\n")
    list(APPEND sources "${source}")
  endforeach()
  add_library(${target} OBJECT EXCLUDE_FROM_ALL ${sources})
  target_link_libraries(${target} PRIVATE ${library})
  target_compile_options(${target} PRIVATE -g0) # nobody runs them
  add_dependencies(kx_headers ${target})
endfunction()

kx_check_headers(kx_updater_headers "${CMAKE_SOURCE_DIR}/src" kx_ui)
if(KX_TOOLS)
  kx_check_headers(kx_tool_headers "${CMAKE_SOURCE_DIR}/tools/kx-package" kx_package_tool)
  kx_check_headers(kx_panel_headers "${CMAKE_SOURCE_DIR}/tools/kx-panel" kx_panel_tool)
  kx_check_headers(kx_room_headers "${CMAKE_SOURCE_DIR}/lib" kx_package_tool)
endif()
