// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace kx::panel
{

/// What a panel has on it before the first package is installed, as far as packages have to do with
/// it: every panel has more below /usr and in /etc.
struct FreshPanel {
    std::vector<std::string> folders;                       ///< the one above before the one in it
    std::vector<std::pair<std::string, std::string>> links; ///< path, and where it leads
    std::vector<std::string> files;
};

/// Returns the one description of a fresh panel. The sandboxed device makes such panels.
[[nodiscard]] const FreshPanel& TheFreshPanel();

} // namespace kx::panel
