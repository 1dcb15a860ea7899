// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "checks/Findings.h"

#include <string>
#include <vector>

namespace kx::checks
{

/// Reports a command that is longer than a command should or can be.
/// @param failure  severity when the command cannot be run at all
void CheckCommand(const std::string& command, const Location& place, Severity failure,
                  Findings& findings);

/// Returns the elements of a list object; none when it is no list. Elements that are no objects
/// stand in the result as they are.
[[nodiscard]] std::vector<const format::JsonNode*> ElementsOf(const format::JsonNode* list);

} // namespace kx::checks
