// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "rehearsal/VirtualPanel.h"

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

/// Which files the steps write, and what they meet there: on the rehearsal's fresh panel. The
/// rehearsal ends at the first step that fails; here the steps behind it have their turn, too.
class Targets
{
public:
    /// Notes that a file is written.
    /// @param path  a full path
    TargetState AddFile(const std::string& path);

    /// Notes that a folder is created.
    /// @param path  a full path
    /// @return false when it cannot be: a file stands there, or in the place of a folder above it
    bool AddFolder(const std::string& path);

private:
    rehearsal::VirtualPanel m_panel{""};
    std::unordered_set<std::string> m_written; ///< paths without links
};

} // namespace kx::checks
