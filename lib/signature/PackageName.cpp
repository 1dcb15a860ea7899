// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "signature/PackageName.h"

#include "panel/Names.h"

#include <algorithm>

namespace kx::signature
{

namespace
{

// Not those of the C library, whose answers depend on the locale.
bool IsLetterOrDigit(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
}

} // namespace

bool IsSafePackageName(std::string_view name)
{
    const auto isAllowed = [](char c) {
        return IsLetterOrDigit(c) || c == '.' || c == '_' || c == '-';
    };
    return !name.empty() && name.size() <= kLongestPackageName && IsLetterOrDigit(name.front()) &&
           std::all_of(name.begin(), name.end(), isAllowed) &&
           name.find(panel::kUnpackedSuffix) == std::string_view::npos;
}

} // namespace kx::signature
