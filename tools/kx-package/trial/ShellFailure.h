// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "rehearsal/Rehearsal.h"

#include <string>

namespace kx::tool
{

/// A shell command of the updater that is to fail.
struct ShellFailure {
    std::string command; ///< letter for letter
    int number = 1;      ///< which of the commands of that text
    int step = 0;        ///< of the package, counted from 1
};

/// Chooses the command by whose failure a step fails: the first one of the step, but for the making
/// of folders, which may be there already.
///
/// @param plan       of the package on a fresh panel
/// @param stepCount  steps of the package
/// @param step       counted from 1
/// @throws Error when there is no such step, it is not reached, or runs no command
[[nodiscard]] ShellFailure FailureOfStep(const rehearsal::Plan& plan, std::size_t stepCount,
                                         std::size_t step);

} // namespace kx::tool
