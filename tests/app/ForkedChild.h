// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <string>

/// What a child process left behind.
struct ChildResult {
    std::string text; ///< what its work returned
    int status = -1;  ///< raw wait status; 0 when it ended well
};

/// Does @p work in a child of this process and waits for its end: for what changes a process for
/// good. The child's end is not looked at by the leak checker.
[[nodiscard]] ChildResult RunInChild(const std::function<std::string()>& work);
