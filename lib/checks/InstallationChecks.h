// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "archive/Package.h"
#include "checks/Findings.h"

namespace kx::checks
{

/// Plays the installation on a fresh panel, and reports where it fails unless an error among the
/// findings says so already: of a step that fails one that stands at this step, of anything else
/// any error. A package without an updater is played with another one.
/// @param root  the description's root, or null when it is no JSON
/// @throws Error when the package cannot be read
void CheckInstallation(const archive::Package& package, const format::JsonNode* root,
                       Findings& findings);

} // namespace kx::checks
