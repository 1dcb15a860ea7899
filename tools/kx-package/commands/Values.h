// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/Values.h"
#include "format/PanelFile.h"

#include <string>

namespace CLI
{
class App;
} // namespace CLI

namespace kx::tool
{

using cli::ChoiceOf;
using cli::kFileValue;
using cli::kFolderValue;

// What values of options are, besides those of every program; see main.cpp for what completes them.

constexpr const char* kPackageValue = "PACKAGE";   ///< a package in any form, or its source
constexpr const char* kManifestValue = "MANIFEST"; ///< a manifest or its folder

/// Adds the argument that names a package to look into; see OpenAsPackage.
/// @param path  gets its value; lives as long as the program
void AddPackage(CLI::App& command, const std::string& name, std::string& path);

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
