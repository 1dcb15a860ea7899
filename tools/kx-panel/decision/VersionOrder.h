// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <string_view>

namespace kx::guard
{

// Versions in Debian's order: [epoch:]upstream[-revision]. Digits compare as numbers of any length,
// '~' comes before everything, even the end; letters come before other characters.

/// How many bytes a version may have.
constexpr std::size_t kLongestVersion = 255;

/// Tells whether a text is a version: upstream begins with a digit and holds letters, digits and
/// `.+-~:`, the revision letters, digits and `.+~`; the epoch is a number up to 2147483647. Blanks
/// around it, which Debian's own tool passes over, make it none.
[[nodiscard]] bool IsVersion(std::string_view text);

/// Compares two versions. Texts that are none compare somehow, and always the same way.
/// @return less than 0, 0, more than 0 for an older, equal, newer first one
[[nodiscard]] int CompareVersions(std::string_view one, std::string_view other);

} // namespace kx::guard
