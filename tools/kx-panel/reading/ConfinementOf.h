// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "confined/ConfinedProcess.h"
#include "policy/Policy.h"

namespace kx::guard
{

/// Returns what a process may use and say that reads packages under these limits: all that comes
/// out of the largest package, and no more.
[[nodiscard]] ConfinementLimits ConfinementOf(const Limits& limits);

} // namespace kx::guard
