// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "archive/Package.h"
#include "checks/Findings.h"

#include <string>

namespace kx::checks
{

/// Checks the name of the package's own file or folder.
/// @param isArchive  a file that the window unpacks; else a folder for console mode
void CheckPackageName(const std::string& path, bool isArchive, Findings& findings);

/// Checks what stands beside the package file: twins that desktop systems leave, other packages.
void CheckNeighbours(const std::string& path, Findings& findings);

/// Says that a package lacks a file at its top level, and where one of nearly that name stands.
[[nodiscard]] std::string MissingText(const archive::Package& package, const std::string& name);

} // namespace kx::checks
