// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "checks/Findings.h"
#include "package/ZipStructure.h"

/// How many bytes a package may unpack to.
constexpr std::uint64_t kMostUnpacked = std::uint64_t{8} << 30;

/// Checks what the device's unzip makes of an archive. Reads all contents, in pieces.
/// @throws Error when the source cannot be read
void CheckArchive(const ByteSource& source, const ZipStructure& zip, Findings& findings);
