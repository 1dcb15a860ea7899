// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "checks/Findings.h"

#include <string>

namespace kx::checks
{

/// Tells whether the panel itself needs the file: for its start, its shell, its users.
/// @param path  plain
[[nodiscard]] bool IsSystemFile(const std::string& path);

/// Tells whether the panel itself needs what the folder holds.
/// @param path  plain
[[nodiscard]] bool IsSystemFolder(const std::string& path);

/// Checks the target of an item of a copy step by itself, without what else is on the panel.
/// @param isFolder  the item is a folder: names follow the target in the commands
/// @param failure   severity of what makes the step fail
/// @return false when the target says nothing about where things arrive, or is too long
[[nodiscard]] bool CheckTarget(const std::string& target, bool isFolder, const Location& place,
                               Severity failure, Findings& findings);

} // namespace kx::checks
