// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "rehearsal/Rehearsal.h"

#include <string>
#include <vector>

namespace kx::tool
{

/// What a panel does with one package before its installer starts and after it has ended, in the
/// updater's own words. All paths are the panel's.
struct Road {
    bool isFound = false;             ///< the window takes the file for a package: by its name
    std::string archive;              ///< the package on the drive
    std::string folder;               ///< to which the window unpacks it
    std::string record;               ///< folder of the record
    std::vector<std::string> opening; ///< the window's commands up to its question
    std::vector<std::string> leaving; ///< the window's commands after the installation; the reboot,
                                      ///< which its user asks for, is not among them
};

/// Takes the road out of the plan for a package on a fresh panel.
[[nodiscard]] Road RoadOf(const rehearsal::Plan& plan);

} // namespace kx::tool
