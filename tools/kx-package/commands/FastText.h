// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "common/Output.h"
#include "format/FastSteps.h"

#include <picojson.h>

#include <vector>

namespace kx::tool
{

// What the commands tell alike of fast folders: whose files travel in one archive.

/// Makes the JSON list of fast folders, with the full paths of what their uninstall scripts remove.
[[nodiscard]] picojson::value FastFoldersAsJson(const std::vector<format::FastSteps>& folders);

/// Writes for each folder from which archive it is unpacked, how it differs from a plain copy, and
/// what its uninstall script removes.
void TellFastFolders(const Output& output, const std::vector<format::FastSteps>& folders);

} // namespace kx::tool
