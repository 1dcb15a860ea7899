# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT

# What the toolchain files of this folder share: GCC of Debian's name, and a folder with the panel's
# headers and libraries, the sysroot.
#
#   KX_SYSROOT       the sysroot, an absolute path; where it is not set, that of the environment.
#                    scripts/cross makes one of Debian's packages
#   KX_GNU_TRIPLE    the processor and system in the names of compilers and libraries
#   KX_EMULATOR      the emulator that runs the panel's programs here
if(NOT KX_SYSROOT)
  set(KX_SYSROOT "$ENV{KX_SYSROOT}" CACHE PATH "The panel's headers and libraries" FORCE)
endif()
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES KX_SYSROOT)
if(NOT IS_ABSOLUTE "${KX_SYSROOT}" OR NOT IS_DIRECTORY "${KX_SYSROOT}/usr")
  message(FATAL_ERROR "KX_SYSROOT is \"${KX_SYSROOT}\"; name the absolute path of a folder with the "
    "panel's headers and libraries, or let scripts/cross make one and build")
endif()

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSROOT "${KX_SYSROOT}")
if(NOT CMAKE_CXX_COMPILER)
  set(CMAKE_CXX_COMPILER "${KX_GNU_TRIPLE}-g++")
endif()
# Programs are those of this machine; everything else is the panel's.
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

set(ENV{PKG_CONFIG_DIR} "")
set(ENV{PKG_CONFIG_SYSROOT_DIR} "${KX_SYSROOT}")
set(ENV{PKG_CONFIG_LIBDIR}
  "${KX_SYSROOT}/usr/lib/${KX_GNU_TRIPLE}/pkgconfig:${KX_SYSROOT}/usr/lib/pkgconfig:${KX_SYSROOT}/usr/share/pkgconfig")

# The sysroot's moc, rcc and uic are programs of the panel: Qt takes those of this machine instead.
set(KX_HOST_QT "/usr/lib/qt5/bin" CACHE PATH "The moc, rcc and uic of this machine, of the sysroot's Qt")
set(CMAKE_PROJECT_INCLUDE "${CMAKE_CURRENT_LIST_DIR}/host-qt.cmake")

find_program(KX_EMULATOR_PROGRAM "${KX_EMULATOR}")
if(KX_EMULATOR_PROGRAM AND NOT CMAKE_CROSSCOMPILING_EMULATOR)
  set(CMAKE_CROSSCOMPILING_EMULATOR "${KX_EMULATOR_PROGRAM};-L;${KX_SYSROOT}")
endif()
