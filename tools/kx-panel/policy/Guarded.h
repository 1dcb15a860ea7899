// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>

namespace kx::guard
{

// What decides about trust must be root's alone: every folder from the root on down belongs to root
// and can be changed by nobody else, and no name on the way is a link. Folders in which everybody
// may make files of his own (mode 1777) are refused as well. What a POSIX ACL grants to others is
// seen in the group's bits of the mode, which are its mask then.

/// What a path must lead to.
enum class GuardedKind {
    kFile,
    kProgram, ///< a file that may be started
    kFolder,
    kEither, ///< a file or a folder
};

/// Refuses a file or folder that somebody else than root could change.
/// @param path  full and plain
/// @throws Error naming the first part of the path that is wrong, what is wrong and the remedy
void RefuseUnguarded(const std::string& path, GuardedKind kind = GuardedKind::kEither);

/// Reads a file of which that holds, without a moment between looking and reading.
/// @throws Error as RefuseUnguarded; when it cannot be read, is no file, or is larger than @p limit
[[nodiscard]] std::string ReadGuarded(const std::string& path, std::uint64_t limit);

} // namespace kx::guard
