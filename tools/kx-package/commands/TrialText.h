// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "commands/TrialSubject.h"
#include "common/Output.h"

#include <string>

namespace kx::tool
{

/// Writes the result of a trial for people.
void WriteTrialText(const Output& output, const TrialSubject& subject, const TrialResult& result);

/// Returns the line that a shell on the panel begins with.
[[nodiscard]] std::string ShellGreeting(bool isInstalled);

} // namespace kx::tool
