// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "commands/TrialSubject.h"
#include "common/Output.h"

#include <string>

namespace kx::tool
{

/// Writes the result of a trial for people.
/// @param isVerbose  every file that changed or is recorded, once, and all that was printed,
/// instead
///                   of what matters
void WriteTrialText(const Output& output, const TrialSubject& subject, const TrialResult& result,
                    bool isVerbose);

/// Returns the line that a shell on the panel begins with.
[[nodiscard]] std::string ShellGreeting(bool isInstalled);

} // namespace kx::tool
