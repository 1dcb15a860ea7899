// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace kx::io
{

// Paths as texts; nothing is looked at.

/// Returns a full path without doubled marks, "." and "..", and without a mark at its end.
[[nodiscard]] std::string PlainPath(const std::string& path);

/// Returns what stands behind the last '/'.
[[nodiscard]] std::string LastPart(const std::string& path);

/// Returns the folder in which a full path lies; "/" for itself.
[[nodiscard]] std::string FolderAbove(const std::string& path);

/// Tells whether a path is @p folder or lies below it; both plain.
[[nodiscard]] bool IsIn(const std::string& path, const std::string& folder);

} // namespace kx::io
