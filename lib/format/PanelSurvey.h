// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "format/Processor.h"
#include "io/RootedFolder.h"

#include <set>
#include <string>
#include <vector>

namespace kx::format
{

// What a copy of a panel's files tells about the panel. Only looks: nothing is started, and no link
// leads out of the copy.

/// Returns the names of the shared libraries in the folders in which the panel looks for them.
/// @throws Error when a folder cannot be listed
[[nodiscard]] std::set<std::string> LibrariesOf(const io::RootedFolder& root);

/// Returns the version of the panel's GNU C library: "2.31"; empty when it has another one.
/// @throws Error when it cannot be read
[[nodiscard]] std::string CLibraryOf(const io::RootedFolder& root);

/// What a panel's file may say about the panel.
struct PanelSurvey {
    const Processor* processor = nullptr; ///< null when it is none of the known ones
    FloatAbi floatAbi = FloatAbi::kUnknown;
    std::string cLibrary;
    std::string shell; ///< one of PanelShells(), or empty
    std::vector<std::string> libraries;
    std::vector<std::string> interpreters; ///< those that are usual, and the loaders
    std::vector<std::string> users;
};

/// Looks at all of it.
/// @throws Error when something cannot be read
[[nodiscard]] PanelSurvey SurveyPanel(const io::RootedFolder& root);

} // namespace kx::format
