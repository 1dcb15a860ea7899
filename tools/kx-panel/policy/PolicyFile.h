// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "policy/GuardedFiles.h"
#include "policy/Policy.h"

#include <string>

namespace kx::guard
{

/// Reads what a panel is and what it lets in.
/// @param path   plain and full: panel::kPanelDescription
/// @param files  only tests hand in others than the panel's own
/// @throws Error when the file is missing; Errors for all that is wrong in it: it is damaged, of an
///         unknown version, says something unknown or something twice, or lacks what a panel must
///         say; also when the file, a folder above it, or the program that installs, could be
///         changed by anybody but root, or is a link
[[nodiscard]] Policy ReadPolicy(const std::string& path, const GuardedFiles& files = {});

/// Reads it from a text.
/// @param path  of the file, for messages
/// @throws Errors for all that is wrong in it
[[nodiscard]] Policy ParsePolicy(const std::string& text, const std::string& path);

/// Reads the keys that a panel trusts. Files that are no keys, or not only root's, are among the
/// problems, and none of them is trusted; so is that no key is left where signatures are required.
/// @param folder  plain and full: panel::kTrustedKeys
/// @param rule    of the panel, about signatures
/// @param files   only tests hand in others than the panel's own
/// @throws Error when the folder is missing, or could be changed by anybody but root, or one above
[[nodiscard]] signature::TrustedKeys ReadPanelKeys(const std::string& folder, SignatureRule rule,
                                                   const GuardedFiles& files = {});

} // namespace kx::guard
