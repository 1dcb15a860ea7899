// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

namespace CLI
{
class App;
class Option;
} // namespace CLI

namespace kx::cli
{

// What the values of options are. The name of an option's type says it: the help shows it, and the
// shell completes by it.

constexpr const char* kFileValue = "FILE";
constexpr const char* kFolderValue = "DIR";
constexpr const char* kCommandValue = "COMMAND"; ///< one of the program's commands

/// Returns the type's name of an option whose value is one of these words.
[[nodiscard]] std::string ChoiceOf(const std::vector<std::string>& words);

/// Returns the names of all commands, in the order of the help.
[[nodiscard]] std::vector<std::string> CommandNames(const CLI::App& program);

/// Finds a command by its name; null when there is none.
[[nodiscard]] const CLI::App* FindCommand(const CLI::App& program, const std::string& name);

/// Returns the names of an option as they are typed: "-o", "--output"; none for what is no option.
[[nodiscard]] std::vector<std::string> OptionWords(const CLI::Option& option);

} // namespace kx::cli
