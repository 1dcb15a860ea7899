// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include <picojson.h>

#include <string>
#include <vector>

namespace kx::tool
{

// The JSON Schemas (draft 2020-12) of what the commands write with --json. They list every field,
// and no other is written.

/// Returns the names of the documents: those of the commands, and "error".
[[nodiscard]] std::vector<std::string> JsonDocumentNames();

/// Makes the schema of a document.
/// @param name  one of JsonDocumentNames
[[nodiscard]] picojson::value MakeJsonSchema(const std::string& name);

} // namespace kx::tool
