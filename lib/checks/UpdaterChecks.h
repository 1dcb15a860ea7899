// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "archive/Package.h"
#include "checks/Findings.h"
#include "format/PanelFile.h"

namespace kx::checks
{

/// Checks the updater that the package brings along.
/// @param panel  that it is for, as far as that is known
void CheckUpdater(const archive::Package& package, const format::PanelModel& panel,
                  Findings& findings);

} // namespace kx::checks
