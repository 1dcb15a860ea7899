// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace kx::io
{

/// Returns the one of @p known that @p word was probably meant to be, or an empty text when none
/// comes near.
[[nodiscard]] std::string Nearest(std::string_view word, const std::vector<std::string>& known);

/// Returns what to do about a word that is not one of @p known: "did you mean 'nearest'?", or a
/// list of them all.
[[nodiscard]] std::string NearestRemedy(std::string_view word,
                                        const std::vector<std::string>& known);

} // namespace kx::io
