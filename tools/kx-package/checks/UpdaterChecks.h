// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "checks/Findings.h"
#include "package/Package.h"
#include "package/Processor.h"

/// Checks the updater that the package brings along.
/// @param processor  the panel's, or null when it is not known
void CheckUpdater(const Package& package, const Processor* processor, Findings& findings);
