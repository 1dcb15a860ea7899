// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include <cstdlib>

/// Tells whether the test runs in an emulator for programs, which shows the panel's libraries in
/// the place of the root folder and answers for parts of /proc itself.
inline bool IsEmulated()
{
    return std::getenv("QEMU_LD_PREFIX") != nullptr;
}
