// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "policy/Policy.h"

#include <string>

namespace kx::guard
{

/// Reads what a panel is and what it lets in.
/// @param root  "" for this panel; a folder that stands for its root in tests
/// @throws Error when the file is missing, damaged, of an unknown version, says something unknown
///         or something twice, or lacks what a panel must say; also when the file, a folder above
///         it, or the program that installs, could be changed by anybody but root, or is a link
[[nodiscard]] Policy ReadPolicy(const std::string& path);

/// Reads the keys that a panel trusts. Files that are no keys, or not only root's, are among the
/// problems, and none of them is trusted.
/// @throws Error when the folder, or one above it, could be changed by anybody but root
[[nodiscard]] signature::TrustedKeys ReadPanelKeys(const std::string& folder);

} // namespace kx::guard
