// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "archive/ZipStructure.h"
#include "checks/Findings.h"
#include "format/Processor.h"

#include <string>

namespace kx::checks
{

/// Checks a package file or folder: its name, its bytes, its description and what its steps do.
/// Nothing is unpacked to disk, nothing is started.
/// @param processor  the panel's, or null when it is not known
/// @return all findings, sorted
/// @throws Error when the package cannot be read
[[nodiscard]] Findings CheckPackage(const std::string& path, const format::Processor* processor);

/// Checks an archive without its name.
/// @param path  for messages; also gives the package's name
void CheckArchivePackage(const std::string& path, const archive::ByteSource& source,
                         const format::Processor* processor, Findings& findings);

} // namespace kx::checks
