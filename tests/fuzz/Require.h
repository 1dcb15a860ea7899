// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include <cstdlib>

/// Ends the fuzzer with a finding where something does not hold.
inline void Require(bool holds)
{
    if (!holds) {
        std::abort();
    }
}
