// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "checks/Findings.h"
#include "common/Output.h"

#include <string>

namespace kx::tool
{

/// Tells the findings: as text, or as one JSON document.
void WriteFindings(const Output& output, const std::string& path, const checks::Findings& findings,
                   bool isClean);

} // namespace kx::tool
