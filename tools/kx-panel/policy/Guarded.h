// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>

namespace kx::guard
{

// What decides about trust must be root's alone: every folder from the root on down belongs to root
// and can be changed by nobody else, and no name on the way is a link.

/// Refuses a file or folder that somebody else than root could change.
/// @param path  full
/// @throws Error naming the first part of the path that is wrong, what is wrong and the remedy
void RefuseUnguarded(const std::string& path);

/// Reads a file of which that holds, without a moment between looking and reading.
/// @throws Error as RefuseUnguarded; when it cannot be read, is no file, or is larger than @p limit
[[nodiscard]] std::string ReadGuarded(const std::string& path, std::uint64_t limit);

} // namespace kx::guard
