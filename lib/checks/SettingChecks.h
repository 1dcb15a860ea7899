// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "checks/Findings.h"

#include <string>

namespace kx::checks
{

/// Checks the settings of a hardware step.
/// @param step     the step's object, of the right class
/// @param path     its place in the description
/// @param failure  severity of what makes a setting fail
void CheckSettings(const format::JsonNode& step, const std::string& path, Severity failure,
                   Findings& findings);

} // namespace kx::checks
