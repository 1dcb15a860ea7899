// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "archive/ZipStructure.h"
#include "checks/Expected.h"
#include "checks/Findings.h"

#include <cstddef>
#include <optional>
#include <string>

namespace kx::checks
{

/// Checks an archive's signatures as a panel with the expected keys would.
/// @param record  the name under which a panel records the file; empty when it has none
/// @return index of the fault that is but the gap of a sound block, among the structure's
[[nodiscard]] std::optional<std::size_t>
CheckSignatures(const archive::ByteSource& source, const archive::ZipStructure& zip,
                const std::string& record, const Expected& expected, Findings& findings);

/// Checks a package that is no archive, and so cannot be signed.
void CheckUnsignable(const Expected& expected, Findings& findings);

/// Tells of the files in the folder of keys that are none.
void CheckKeys(const Expected& expected, Findings& findings);

} // namespace kx::checks
