// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/Command.h"

#include <functional>

namespace kx::cli
{

/// What a program says about itself.
struct ProgramText {
    const char* name;    ///< as it is typed
    const char* version; ///< number alone
    const char* about;   ///< a sentence
    const char* ending;  ///< of its help
};

/// Adds the commands of a program, in the order of the help.
using CommandAdder = std::function<void(CLI::App& program, Invocation& invocation)>;

/// Does what a command line asks for, and tells what went wrong: a mistyped word, an error of the
/// command, output that could not be written.
/// @return the status to end with
[[nodiscard]] int RunProgram(const ProgramText& text, const CommandAdder& addCommands, int argc,
                             char** argv);

} // namespace kx::cli
