# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT

# Builds for a panel with Debian's processor armhf; panel.cmake tells what can be set.
set(CMAKE_SYSTEM_PROCESSOR arm)
set(KX_GNU_TRIPLE arm-linux-gnueabihf)
set(KX_EMULATOR qemu-arm)
include("${CMAKE_CURRENT_LIST_DIR}/panel.cmake")
