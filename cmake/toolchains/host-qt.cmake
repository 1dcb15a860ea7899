# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT

# Defines Qt's programs of this machine, before Qt's own files would name those of the sysroot.
foreach(tool moc rcc uic)
  if(NOT TARGET Qt5::${tool})
    add_executable(Qt5::${tool} IMPORTED GLOBAL)
    set_target_properties(Qt5::${tool} PROPERTIES IMPORTED_LOCATION "${KX_HOST_QT}/${tool}")
  endif()
endforeach()
