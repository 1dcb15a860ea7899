// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "checks/Findings.h"

#include <string>

/// Checks the settings of a hardware step.
/// @param step     the step's object, of the right class
/// @param path     its place in the description
/// @param failure  severity of what makes a setting fail
void CheckSettings(const JsonNode& step, const std::string& path, Severity failure,
                   Findings& findings);
