// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "io/Text.h"

#include "io/Hex.h"
#include "io/Utf8.h"

#include <array>

namespace kx::io
{

namespace
{

bool IsControl(char32_t character)
{
    return character < 0x20 || (character >= 0x7f && character < 0xa0);
}

void AppendEscaped(std::string_view bytes, std::string& line)
{
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        line += bytes[i] == '\n' ? "\\n" : "\\x" + Hex(bytes.substr(i, 1));
    }
}

/// Appends a text that is UTF-8.
void AppendPrintable(std::string_view text, std::string& line)
{
    while (!text.empty()) {
        const std::string_view before = text;
        const bool isControl = IsControl(TakeCharacter(text));
        const std::string_view piece = before.substr(0, before.size() - text.size());
        if (isControl) {
            AppendEscaped(piece, line);
        } else {
            line += piece;
        }
    }
}

} // namespace

std::string Printable(std::string_view text)
{
    std::string line;
    while (!text.empty()) {
        const std::size_t length = Utf8Prefix(text);
        AppendPrintable(text.substr(0, length), line);
        text.remove_prefix(length);
        AppendEscaped(text.substr(0, 1), line);
        text.remove_prefix(text.empty() ? 0 : 1);
    }
    return line;
}

std::string UnsafeCharacter(std::string_view text)
{
    constexpr std::string_view kUnsafe = "\"$`\\";
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x20 || byte == 0x7f || kUnsafe.find(c) != std::string_view::npos) {
            return Printable(std::string_view(&c, 1));
        }
    }
    return {};
}

std::string SizeText(std::uint64_t bytes)
{
    constexpr std::array<const char*, 5> kUnits = {"KiB", "MiB", "GiB", "TiB", "PiB"};
    constexpr std::uint64_t kStep = 1024;
    if (bytes < kStep) {
        return CountText(bytes, "byte");
    }
    std::size_t unit = 0;
    // Tenths are cut, not rounded, so that no unit shows 1024.0.
    std::uint64_t tenths = bytes / kStep * 10 + bytes % kStep * 10 / kStep;
    while (tenths >= kStep * 10 && unit + 1 < kUnits.size()) {
        tenths /= kStep;
        ++unit;
    }
    return std::to_string(tenths / 10) + "." + std::to_string(tenths % 10) + " " + kUnits[unit];
}

std::string CountText(std::uint64_t count, const char* thing)
{
    return std::to_string(count) + " " + thing + (count == 1 ? "" : "s");
}

std::string_view FirstBytes(std::string_view text, std::uint64_t limit)
{
    return limit < text.size() ? text.substr(0, static_cast<std::size_t>(limit)) : text;
}

} // namespace kx::io
