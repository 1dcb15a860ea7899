// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "format/PanelFile.h"

#include <string>
#include <vector>

namespace CLI
{
class App;
class Option;
} // namespace CLI

namespace kx::tool
{

// What the values of options are. The name of an option's type says it: the help shows it, and the
// shell completes by it.

constexpr const char* kFileValue = "FILE";
constexpr const char* kFolderValue = "DIR";
constexpr const char* kPackageValue = "PACKAGE";   ///< a package in any form, or its source
constexpr const char* kManifestValue = "MANIFEST"; ///< a manifest or its folder
constexpr const char* kCommandValue = "COMMAND";   ///< one of the program's commands

/// Adds the argument that names a package to look into; see OpenAsPackage.
/// @param path  gets its value; lives as long as the program
void AddPackage(CLI::App& command, const std::string& name, std::string& path);

/// Returns the type's name of an option whose value is one of these words.
[[nodiscard]] std::string ChoiceOf(const std::vector<std::string>& words);

/// Returns the names of all commands, in the order of the help.
[[nodiscard]] std::vector<std::string> CommandNames(const CLI::App& program);

/// Finds a command by its name; null when there is none.
[[nodiscard]] const CLI::App* FindCommand(const CLI::App& program, const std::string& name);

/// Returns the names of an option as they are typed: "-o", "--output"; none for what is no option.
[[nodiscard]] std::vector<std::string> OptionWords(const CLI::Option& option);

/// Returns the processor that the option --processor names, null for no word.
/// @throws Error when there is none of that name
[[nodiscard]] const format::Processor* ReadProcessor(const std::string& word);

/// Adds the option --panel.
/// @param file  gets its value; lives as long as the program
void AddPanelOption(CLI::App& command, std::string& file);

/// Tells what is wrong with an empty name of a folder; nothing of any other.
[[nodiscard]] std::string RefuseNoFolder(const std::string& folder);

/// Returns what the options --panel and --processor say about the panel; the processor counts where
/// both name one.
/// @param file  empty: nothing is known
/// @throws Error when the file cannot be read, or there is no such processor
[[nodiscard]] format::PanelModel PanelOf(const std::string& file, const std::string& processor);

} // namespace kx::tool
