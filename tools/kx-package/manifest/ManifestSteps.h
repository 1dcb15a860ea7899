// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "format/TomlTable.h"
#include "manifest/Manifest.h"

namespace kx::tool
{

/// Reads one step of a manifest.
/// @param folder  the manifest's folder, for scripts in files of their own
/// @throws Error for the first thing that is wrong
[[nodiscard]] ManifestStep ReadStep(const format::TomlTable& table, const std::string& folder);

/// Returns the path by which a file that a manifest names is opened.
[[nodiscard]] std::string PathFrom(const std::string& folder, const std::string& named);

} // namespace kx::tool
