// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <string_view>

namespace kx::signature
{

/// How many characters a package's name may have.
constexpr std::size_t kLongestPackageName = 100;

/// What a package's name must be, for people.
constexpr const char* kPackageNameRule =
    "1 to 100 letters, digits, '.', '_' and '-', a letter or digit first, without '.temp'";

/// Tells whether a package may be called that, without its extension. Such a name is safe in a
/// path, in a shell's command and as the name of a record: [A-Za-z0-9][A-Za-z0-9._-]{0,99} without
/// ".temp".
[[nodiscard]] bool IsSafePackageName(std::string_view name);

} // namespace kx::signature
