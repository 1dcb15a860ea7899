// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace kx::io
{

/// Tells whether all bytes are UTF-8.
[[nodiscard]] bool IsUtf8(std::string_view text);

/// Returns the length of the UTF-8 character that @p text begins with, 0 for bytes that are none.
[[nodiscard]] std::size_t Utf8Length(std::string_view text);

/// Returns a text fit for one line of a terminal: control characters and bytes that are no UTF-8
/// become \xHH, line breaks \n, so that nothing that was read can play with the terminal.
[[nodiscard]] std::string Printable(const std::string& text);

/// Returns the first character that would not stay what it is between the double quotes of a shell
/// command or in a list of lines, printable; empty when there is none. These are `"`, `$`,
/// backquote, `\` and control characters.
[[nodiscard]] std::string UnsafeCharacter(std::string_view text);

/// Returns a size for people: "1 byte", "17 bytes", "4.2 KiB".
[[nodiscard]] std::string SizeText(std::uint64_t bytes);

/// Returns a number of things: "1 file", "3 files". The plural is made by an s.
[[nodiscard]] std::string CountText(std::uint64_t count, const char* thing);

/// Reads a whole file.
/// @throws Error when it cannot be read, is no regular file, or is larger than @p limit bytes
[[nodiscard]] std::string ReadWholeFile(const std::string& path, std::uint64_t limit);

} // namespace kx::io
