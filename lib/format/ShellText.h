// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <string_view>

namespace kx::format
{

// How the panel's shell reads texts that the updater puts into its commands unchanged. Each answer
// is the first place that is read as something else, printable, or empty when the text stays what
// it is.

/// A text between double quotes.
[[nodiscard]] std::string ChangedInDoubleQuotes(std::string_view text);

/// A text between single quotes.
[[nodiscard]] std::string ChangedInSingleQuotes(std::string_view text);

/// A text without quotes, not at the beginning of a word; blanks and patterns are not looked at.
[[nodiscard]] std::string ChangedBare(std::string_view text);

/// What some shells' `echo` makes something else of: a backslash and what follows.
[[nodiscard]] std::string ChangedByEcho(std::string_view text);

/// Tells whether chmod takes the text as a mode.
[[nodiscard]] bool IsMode(std::string_view text);

/// Tells whether `chmod` takes a text for a question to itself: it answers, succeeds, and sets
/// nothing.
[[nodiscard]] bool IsChmodQuestion(std::string_view text);

/// Tells whether the text holds bytes beyond ASCII.
[[nodiscard]] bool HasForeignBytes(std::string_view text);

} // namespace kx::format
