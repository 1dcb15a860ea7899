// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <string_view>

namespace kx::io
{

// UTF-8 as its standard has it: overlong forms, halves of pairs, and what lies beyond U+10FFFF are
// none.

/// Tells whether all bytes are UTF-8. No bytes are.
[[nodiscard]] bool IsUtf8(std::string_view text);

/// Returns how many bytes at the beginning of @p text are UTF-8, whole characters only.
[[nodiscard]] std::size_t Utf8Prefix(std::string_view text);

/// Returns the length in bytes, 1 to 4, of the character that @p text begins with; 0 when it is
/// empty or begins with bytes that are none.
[[nodiscard]] std::size_t Utf8Length(std::string_view text);

/// Returns the first character of a text that is UTF-8 and not empty, and takes it off @p text.
[[nodiscard]] char32_t TakeCharacter(std::string_view& text);

} // namespace kx::io
