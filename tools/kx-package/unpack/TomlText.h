// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <string_view>

namespace kx::tool
{

// Texts as they are written in a manifest. They must be UTF-8.

/// Returns a text in quotes, on one line.
[[nodiscard]] std::string TomlText(std::string_view text);

/// Returns a text of several lines between three quotes each, any other as TomlText does.
[[nodiscard]] std::string TomlLines(std::string_view text);

/// Returns a key, in quotes where it needs them.
[[nodiscard]] std::string TomlKey(std::string_view key);

/// Returns a date as a TOML date when it is one, written as the updater's authors do
/// ("2026/11/21"), otherwise as a text.
[[nodiscard]] std::string TomlDate(const std::string& date);

} // namespace kx::tool
