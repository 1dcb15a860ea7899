// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "archive/Package.h"
#include "checks/Findings.h"
#include "format/Processor.h"

namespace kx::checks
{

/// Checks the updater that the package brings along.
/// @param processor  the panel's, or null when it is not known
void CheckUpdater(const archive::Package& package, const format::Processor* processor,
                  Findings& findings);

} // namespace kx::checks
