// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include <picojson.h>

namespace kx::tool
{

// The JSON Schemas (draft 2020-12) of the TOML files that people write, for editors. They know the
// same keys, types and words as the readers; what only the readers can see (files that are there,
// patterns that fit, keys that exclude each other) is for "build" and "check".

/// Makes the schema of panel.toml.
[[nodiscard]] picojson::value MakePanelSchema();

/// Makes the schema of package.toml.
[[nodiscard]] picojson::value MakeManifestSchema();

} // namespace kx::tool
