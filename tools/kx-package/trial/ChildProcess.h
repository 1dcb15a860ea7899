// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "trial/BoundedText.h"

#include <chrono>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace kx::tool
{

class ShellTerminal;

/// How a child process ended, and what it printed.
struct ChildResult {
    int status = 0;         ///< exit status; 128 plus the signal's number when one ended it
    bool isStopped = false; ///< it was told to end before it was done
    BoundedText out;
    BoundedText err;
};

/// What else belongs to the run of a child.
struct ChildTerms {
    ShellTerminal* terminal = nullptr; ///< serves as standard input and output instead, or null
    std::function<void(std::string_view)>
        onOutput; ///< gets standard output piece by piece, or none
    /// Tells how long a child that was told to end may take for that; without it 40 seconds.
    std::function<std::chrono::milliseconds()> patience;
};

/// Starts a program in a session of its own, so that keys of the terminal do not reach it, and
/// waits for its end. It ends with this process, too. Standard input is empty.
///
/// @param words     path of the program, and its arguments
/// @param mayGoOn   asked several times a second; when it says no, the child is told to end by
///                  SIGTERM, and killed when it does not in time
/// @throws Error when the program cannot be started
[[nodiscard]] ChildResult RunChild(const std::vector<std::string>& words,
                                   const std::function<bool()>& mayGoOn,
                                   const ChildTerms& terms = {});

} // namespace kx::tool
