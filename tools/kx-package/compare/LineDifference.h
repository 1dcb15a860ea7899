// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace kx::tool
{

/// Returns what differs between two texts as unified hunks, each line with its line feed; empty
/// when they are the same. Of texts too long for that, one line says so.
[[nodiscard]] std::string UnifiedDifference(const std::string& before, const std::string& after);

/// Places of elements that belong together in two lists; one is missing for what is gone or new.
using MatchedPlaces = std::pair<std::optional<std::size_t>, std::optional<std::size_t>>;

/// Finds which texts of two lists are the same ones, in the order of both.
[[nodiscard]] std::vector<MatchedPlaces> MatchLists(const std::vector<std::string>& before,
                                                    const std::vector<std::string>& after);

} // namespace kx::tool
