// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "checks/Findings.h"

#include <string>

namespace kx::checks
{

/// How a script comes to run.
enum class ScriptUse {
    kStep,    ///< a script step: CR LF becomes LF
    kStartup, ///< the start-up script, written as it stands
};

/// Checks the text of a script.
/// @param failure  severity of what makes the script fail: a warning where the step may skip it
void CheckScript(const std::string& text, ScriptUse use, const Location& place, Severity failure,
                 Findings& findings);

} // namespace kx::checks
