// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "archive/Package.h"
#include "checks/Findings.h"

namespace kx::checks
{

/// Checks the links in a package, and what desktop systems leave in folders.
void CheckEntries(const archive::Package& package, Findings& findings);

} // namespace kx::checks
