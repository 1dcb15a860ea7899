// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "trial/RunTrace.h"

#include <string>
#include <vector>

namespace kx::tool
{

/// Tells why an installation here says nothing about one on the panel: it started programs that
/// cannot run here, or such as run here and not on the panel.
///
/// @param processor  name of the panel's, or empty when it is not known
/// @param who        what starts the programs whose step is not known
/// @return reasons, "step 3 starts programs for arm", each once; none when all is well
[[nodiscard]] std::vector<std::string> DoubtsOf(const std::vector<StartedProgram>& programs,
                                                const std::string& processor,
                                                const std::string& who = "the installation");

/// Returns what is to be said about the programs that raise these doubts: which they are, and what
/// would let them run.
[[nodiscard]] std::vector<std::string> RemarksOnDoubts(const std::vector<StartedProgram>& programs,
                                                       const std::string& processor);

} // namespace kx::tool
