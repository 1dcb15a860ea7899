// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "archive/UnpackVerdict.h"
#include "checks/Findings.h"

namespace kx::checks
{

/// Tells what the device's unzip makes of an archive, by its verdict and its entries' names.
/// @param verdict  JudgeUnpacking of the structure
void CheckArchive(const archive::ZipStructure& zip, const archive::UnpackVerdict& verdict,
                  Findings& findings);

} // namespace kx::checks
