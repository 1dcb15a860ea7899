// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace kx::io
{

// Texts for people.

/// Returns a text fit for one line of a terminal: control characters and bytes that are no UTF-8
/// become \xHH, line breaks \n, so that nothing that was read can play with the terminal.
[[nodiscard]] std::string Printable(std::string_view text);

/// Returns the first character that would not stay what it is between the double quotes of a shell
/// command or in a list of lines, printable; empty when there is none. These are `"`, `$`,
/// backquote, `\` and control characters.
[[nodiscard]] std::string UnsafeCharacter(std::string_view text);

/// Returns a size for people: "1 byte", "17 bytes", "4.2 KiB".
[[nodiscard]] std::string SizeText(std::uint64_t bytes);

/// Returns a number of things: "1 file", "3 files". The plural is made by an s.
[[nodiscard]] std::string CountText(std::uint64_t count, const char* thing);

/// Returns the first bytes of a text, all of it when it is shorter than @p limit, which may be
/// above what the memory of a 32-bit system could hold.
[[nodiscard]] std::string_view FirstBytes(std::string_view text, std::uint64_t limit);

} // namespace kx::io
