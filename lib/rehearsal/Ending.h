// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "rehearsal/Rehearsal.h"

#include <string>

namespace kx::rehearsal
{

/// Tells how a planned installation ends, in a sentence for people. It may hold any bytes of the
/// package.
[[nodiscard]] std::string EndOf(const Plan& plan);

} // namespace kx::rehearsal
