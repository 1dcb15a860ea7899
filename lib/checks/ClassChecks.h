// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "checks/Findings.h"
#include "format/Json.h"
#include "model/DB_Fields.h"

#include <string>
#include <vector>

namespace kx::checks
{

/// Returns the place of a value in the description.
[[nodiscard]] Location LocationIn(const format::JsonNode& node, const std::string& path);

/// Checks every object of the description against the field tables: what the reader refuses, and
/// what stands where no step can use it.
/// @param root  an object
void CheckClasses(const format::JsonNode& root, Findings& findings);

} // namespace kx::checks
