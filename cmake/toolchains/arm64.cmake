# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT

# Builds for a panel with Debian's processor arm64; panel.cmake tells what can be set.
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(KX_GNU_TRIPLE aarch64-linux-gnu)
set(KX_EMULATOR qemu-aarch64)
include("${CMAKE_CURRENT_LIST_DIR}/panel.cmake")
