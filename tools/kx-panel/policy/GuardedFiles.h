// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "io/Descriptor.h"
#include "policy/Guarded.h"

#include <string>

#include <sys/types.h>

namespace kx::guard
{

/// The files of a panel of which only one user may be the master. The program looks at those of
/// the panel itself, and at root's, always: nothing that it is told or finds changes that. Tests,
/// which run as anybody and below a folder for temporary files, hand in a folder that stands for
/// the panel's root, and a user that stands for root.
class GuardedFiles
{
public:
    /// The panel's own.
    GuardedFiles() = default;

    /// For tests.
    /// @param root   folder in which the panel's paths begin, without a mark at its end; what it
    ///               lies in is not looked at
    /// @param owner  to whom everything must belong
    GuardedFiles(std::string root, uid_t owner);

    /// Opens a file or folder for reading: the very thing that was looked at, whatever its name has
    /// come to stand for since. Nothing else is opened, not even for a moment.
    /// @param path  of the panel, full and plain
    /// @throws Error naming the first part of the path that is wrong, what is wrong and the remedy
    [[nodiscard]] io::Descriptor Open(const std::string& path, GuardedKind kind) const;

    /// Refuses what Open refuses.
    /// @throws Error as Open
    void RefuseUnguarded(const std::string& path, GuardedKind kind) const;

    /// Reads a file.
    /// @throws Error as Open, or when it is larger than @p limit bytes
    [[nodiscard]] std::string Read(const std::string& path, std::uint64_t limit) const;

    /// The folder that stands for the panel's root; empty for that itself.
    [[nodiscard]] const std::string& Root() const { return m_root; }

private:
    [[nodiscard]] io::Descriptor Find(const std::string& path, GuardedKind kind) const;
    void RefuseWrong(const io::Descriptor& found, const std::string& path, GuardedKind kind) const;

    std::string m_root;
    uid_t m_owner = 0;
};

} // namespace kx::guard
