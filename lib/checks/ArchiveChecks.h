// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "archive/ZipStructure.h"
#include "checks/Findings.h"

namespace kx::checks
{

/// How many bytes a package may unpack to.
constexpr std::uint64_t kMostUnpacked = std::uint64_t{8} << 30;

/// Checks what the device's unzip makes of an archive. Reads all contents, in pieces.
/// @throws Error when the source cannot be read
void CheckArchive(const archive::ByteSource& source, const archive::ZipStructure& zip,
                  Findings& findings);

} // namespace kx::checks
