// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "archive/Package.h"

#include <string>

namespace kx::archive
{

/// Where a link in a package leads.
struct LinkEnd {
    std::string target;                  ///< as written in the first link
    const PackageEntry* entry = nullptr; ///< what it leads to; null when that is not in the package
};

/// Follows a link, and links that it leads to, inside the package.
/// @param entry  an entry of the package that is a link
[[nodiscard]] LinkEnd FollowLink(const Package& package, const PackageEntry& entry);

} // namespace kx::archive
