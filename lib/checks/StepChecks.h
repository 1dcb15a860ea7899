// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "archive/Package.h"
#include "checks/Expected.h"
#include "checks/Findings.h"

#include <string>

namespace kx::checks
{

/// Checks what the steps of a description would do with the package.
/// @param root        the description's root, an object
/// @param recordName  the package's name, which stands in the commands
/// @throws Error when the package or the copy of a panel's files cannot be read
void CheckSteps(const format::JsonNode& root, const archive::Package& package,
                const std::string& recordName, const Expected& expected, Findings& findings);

} // namespace kx::checks
