// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "checks/Findings.h"
#include "model/DB_Fields.h"
#include "package/Json.h"

#include <string>
#include <vector>

/// Returns the place of a value in the description.
[[nodiscard]] Place PlaceIn(const JsonNode& node, const std::string& path);

/// Every class of the description, found from the root's.
[[nodiscard]] const std::vector<const ClassInfo*>& AllClasses();

/// Returns the class of a description's object, or null when it says none, or none that exists.
[[nodiscard]] const ClassInfo* ClassOf(const JsonNode& object);

/// Checks every object of the description against the field tables: what the reader refuses, and
/// what stands where no step can use it.
/// @param root  an object
void CheckClasses(const JsonNode& root, Findings& findings);
