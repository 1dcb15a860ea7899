// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <unordered_set>

namespace kx::checks
{

/// What a copy meets at its target.
enum class TargetState {
    kFree,
    kFolder,    ///< a folder stands there
    kBelowFile, ///< a file stands where one of the target's folders should be
    kTwice,     ///< an earlier step wrote the same file
};

/// The files and folders that a package makes, as far as steps tell; the folders that every panel
/// has are there from the beginning.
class Targets
{
public:
    Targets();

    /// Notes that a file is written.
    /// @param path  a full path
    TargetState AddFile(const std::string& path);

    /// Notes that a folder is created.
    /// @return false when it cannot be: a file stands there, or in the place of a folder above it
    bool AddFolder(const std::string& path);

private:
    /// Notes the folders above a plain path.
    /// @return false when one of them is a file
    bool AddFoldersAbove(const std::string& plain);

    std::unordered_set<std::string> m_folders;
    std::unordered_set<std::string> m_files;      ///< that the package writes
    std::unordered_set<std::string> m_panelFiles; ///< that every panel has
};

} // namespace kx::checks
