// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include <picojson.h>

#include <string>
#include <vector>

namespace kx::guard
{

/// Returns the names of the JSON documents: those of the commands, and "error".
[[nodiscard]] std::vector<std::string> DocumentNames();

/// Makes the JSON Schema of a document. It lists every field, and no other is written.
/// @param name  one of DocumentNames
[[nodiscard]] picojson::value DocumentSchema(const std::string& name);

} // namespace kx::guard
