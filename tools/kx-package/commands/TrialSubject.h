// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "trial/Trial.h"

#include <string>
#include <vector>

namespace kx::tool
{

/// What is said of a trial besides its result.
struct TrialSubject {
    std::string package;        ///< as it was named
    std::size_t failedStep = 0; ///< step that was to fail; 0 for none
    std::string failedCommand;
    std::string keptAt = {};                    ///< where the panel was to be kept, as it was named
    std::string device = {};                    ///< folder of the sandboxed device
    std::vector<std::string> panelRemarks = {}; ///< what the described panel lacks for the package
};

/// Returns a command for people: without blanks at its end and the password in it.
[[nodiscard]] std::string ShownCommand(std::string command);

/// Returns "installed", "not installed" or "not judged".
[[nodiscard]] const char* VerdictText(Verdict verdict);

/// Returns the remarks on an installation, with that on the step that was to fail. A password in
/// the step's command is masked.
[[nodiscard]] std::vector<std::string> RemarksOn(const Installation& installation,
                                                 const TrialSubject& subject);

} // namespace kx::tool
