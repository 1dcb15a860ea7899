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

/// Checks the name of the package's record: it should be the same for all versions.
/// @param version  that the description says
/// @param own      the package's name by its manifest; empty when not known
void CheckRecordName(const std::string& record, const std::string& version, const std::string& own,
                     Findings& findings);

/// Checks what stands beside the package file: twins that desktop systems leave, other packages.
void CheckNeighbours(const std::string& path, Findings& findings);

/// Tells of a link in the place of a file that every package needs: an error when it leads to no
/// file of the package, otherwise a warning.
/// @param rule  the one about links of that file
/// @return what the link leads to; null when that is not a file in the package
const archive::PackageEntry* CheckLink(const archive::Package& package,
                                       const archive::PackageEntry& link, RuleId rule,
                                       Findings& findings);

/// Says that a package lacks a file at its top level, and where one of nearly that name stands.
[[nodiscard]] std::string MissingText(const archive::Package& package, const std::string& name);

} // namespace kx::checks
