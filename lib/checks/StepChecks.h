// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "archive/Package.h"
#include "checks/Findings.h"

#include <string>

namespace kx::checks
{

/// Checks what the steps of a description would do with the package.
/// @param root        the description's root, an object
/// @param recordName  the package's name, which stands in the commands
void CheckSteps(const format::JsonNode& root, const archive::Package& package,
                const std::string& recordName, Findings& findings);

} // namespace kx::checks
