// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include <picojson.h>

namespace kx::tool
{

/// Makes the JSON Schema (draft 2020-12) of the package description from the tables that the
/// reader uses.
///
/// It takes what the reader takes, but only the class that belongs in a place, and only the kinds
/// of steps and settings that exist. Fields that no table has are allowed, as the reader
/// ignores them.
[[nodiscard]] picojson::value MakeSchema();

} // namespace kx::tool
