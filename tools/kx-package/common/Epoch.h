// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include <ctime>
#include <optional>
#include <string>

namespace kx::tool
{

/// The first second that the dates of a package cannot hold.
constexpr std::time_t kFirstOf2108 = 4354819200;

/// Returns the moment that the environment variable SOURCE_DATE_EPOCH names, or nothing when it is
/// not set or empty.
/// @throws Error when it is no number of seconds that a package can hold, 1970 to 2107
[[nodiscard]] std::optional<std::time_t> SourceDateEpoch();

/// Returns the day of a moment, in UTC, as "2026/11/21".
[[nodiscard]] std::string DateText(std::time_t moment);

} // namespace kx::tool
