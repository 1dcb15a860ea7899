// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "archive/Package.h"
#include "confined/Confinement.h"
#include "format/Summary.h"

namespace kx::guard
{

/// Tells which files and folders the steps of a package make on a panel, and how large they are:
/// kFolder, kFile, kFastFile, kFast (reading/Examination.h). What scripts and settings do is not
/// known.
/// @return false when there are more than kMostTargets, as links of the package can make it
[[nodiscard]] bool TellTargets(const archive::Package& package, const format::Summary& summary,
                               IMessages& messages);

} // namespace kx::guard
