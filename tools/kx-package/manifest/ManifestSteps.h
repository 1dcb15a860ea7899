// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "format/FastFolder.h"
#include "format/TomlTable.h"
#include "manifest/Manifest.h"

namespace kx::tool
{

/// The uninstall script of a step that has none.
constexpr const char* kDefaultUninstall = format::kNoUninstall;

/// Reads one step of a manifest.
/// @param folder    the manifest's folder, for scripts in files of their own
/// @param mistakes  gets all that is wrong; items with a mistake are left out
/// @return nothing when there is nothing left of the step
[[nodiscard]] std::optional<ManifestStep> ReadStep(const format::TomlTable& table,
                                                   const std::string& folder, Mistakes& mistakes);

/// Reads the folder that a table tells of, without a target.
[[nodiscard]] ManifestFolder ReadTree(const format::TomlTable& table);

/// Reads the object of a description that is in the file which the table names as description-file.
/// @throws Error where it is no JSON object
[[nodiscard]] ManifestObject ReadVerbatimObject(const format::TomlTable& table,
                                                const std::string& folder);

/// Returns the path by which a file that a manifest names is opened.
[[nodiscard]] std::string PathFrom(const std::string& folder, const std::string& named);

} // namespace kx::tool
