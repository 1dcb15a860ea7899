// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "format/Json.h"
#include "model/DB_Fields.h"

#include <vector>

namespace kx::format
{

/// Key of an object's class.
constexpr const char* kTypeKey = "$type";

/// Every class of the description, found from the root's.
[[nodiscard]] const std::vector<const ClassInfo*>& AllClasses();

/// Returns the class of a description's object, or null when it says none, or none that exists.
[[nodiscard]] const ClassInfo* ClassOf(const JsonNode& object);

} // namespace kx::format
