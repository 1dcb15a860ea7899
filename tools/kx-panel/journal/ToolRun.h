// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace kx::guard
{

/// Runs one of the panel's tools without arguments, without a shell, and waits for its end. Its
/// output goes nowhere.
/// @param path  full
/// @return its exit status; 128 plus the signal's number when one ended it; 127 when it cannot be
///         started
[[nodiscard]] int RunTool(const std::string& path);

} // namespace kx::guard
