// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "io/Error.h"

#include <string>
#include <vector>

namespace CLI
{
class App;
} // namespace CLI

namespace kx::cli
{

/// Makes the error of a command line that was refused: a mistyped command or option is told by its
/// name, with the nearest one that there is.
/// @param program  that parsed the words, as far as it came
/// @param words    of the command line, without the program's name
/// @param what     why it was refused; told where neither a command nor an option is mistyped
[[nodiscard]] io::Error WrongUse(const CLI::App& program, const std::vector<std::string>& words,
                                 const std::string& what);

} // namespace kx::cli
