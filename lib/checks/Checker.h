// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "archive/Package.h"
#include "archive/ZipStructure.h"
#include "checks/Expected.h"
#include "checks/Findings.h"

#include <string>

namespace kx::checks
{

/// Checks a package file or folder: its name, its bytes, its description, its payload and what its
/// steps do. Nothing is unpacked to disk; nothing is started but what @p expected lets read
/// scripts.
/// @return all findings, sorted
/// @throws Error when the package or the copy of a panel's files cannot be read
[[nodiscard]] Findings CheckPackage(const std::string& path, const Expected& expected);

/// Checks an archive without its name.
/// @param path  for messages; also gives the package's name
void CheckArchivePackage(const std::string& path, const archive::ByteSource& source,
                         const Expected& expected, Findings& findings);

/// Checks what stands in a package, whatever it came as.
void CheckContents(const archive::Package& package, const Expected& expected, Findings& findings);

} // namespace kx::checks
