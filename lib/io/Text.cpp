// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "io/Text.h"

#include "io/Error.h"

#include <array>
#include <cerrno>
#include <fstream>

#include <sys/stat.h>

namespace kx::io
{

namespace
{

bool IsControl(std::string_view character)
{
    const auto first = static_cast<unsigned char>(character[0]);
    const bool isC1 =
        character.size() == 2 && first == 0xc2 && static_cast<unsigned char>(character[1]) < 0xa0;
    return first < 0x20 || first == 0x7f || isC1;
}

void AppendEscaped(std::string_view bytes, std::string& line)
{
    constexpr std::string_view kDigits = "0123456789abcdef";
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        if (c == '\n') {
            line += "\\n";
        } else {
            line += "\\x";
            line += kDigits[byte >> 4];
            line += kDigits[byte & 0xf];
        }
    }
}

} // namespace

std::size_t Utf8Length(std::string_view text)
{
    const auto byte = [text](std::size_t i) {
        return i < text.size() ? static_cast<unsigned char>(text[i]) : 0U;
    };
    const unsigned first = byte(0);
    if (first < 0x80) {
        return 1;
    }
    std::size_t length = 0;
    if (first >= 0xc2 && first <= 0xdf) {
        length = 2;
    } else if (first >= 0xe0 && first <= 0xef) {
        length = 3;
    } else if (first >= 0xf0 && first <= 0xf4) {
        length = 4;
    }
    for (std::size_t i = 1; i < length; ++i) {
        if ((byte(i) & 0xc0) != 0x80) {
            return 0;
        }
    }
    // Overlong forms, halves of pairs, and beyond the last character.
    const bool isRefused = (first == 0xe0 && byte(1) < 0xa0) || (first == 0xed && byte(1) > 0x9f) ||
                           (first == 0xf0 && byte(1) < 0x90) || (first == 0xf4 && byte(1) > 0x8f);
    return isRefused ? 0 : length;
}

bool IsUtf8(std::string_view text)
{
    std::size_t at = 0;
    while (at < text.size()) {
        const std::size_t length = Utf8Length(text.substr(at));
        if (length == 0) {
            return false;
        }
        at += length;
    }
    return true;
}

std::string Printable(const std::string& text)
{
    std::string line;
    std::string_view rest = text;
    while (!rest.empty()) {
        const std::size_t length = Utf8Length(rest);
        const std::string_view piece = rest.substr(0, length == 0 ? 1 : length);
        if (length == 0 || IsControl(piece)) {
            AppendEscaped(piece, line);
        } else {
            line += piece;
        }
        rest.remove_prefix(piece.size());
    }
    return line;
}

std::string UnsafeCharacter(std::string_view text)
{
    constexpr std::string_view kUnsafe = "\"$`\\";
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x20 || byte == 0x7f || kUnsafe.find(c) != std::string_view::npos) {
            return Printable(std::string(1, c));
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

std::string ReadWholeFile(const std::string& path, std::uint64_t limit)
{
    struct stat info {
    };
    if (stat(path.c_str(), &info) != 0) {
        throw AccessError(path, "open", errno);
    }
    if (!S_ISREG(info.st_mode)) {
        throw Error(ExitCode::kNoAccess, path, "is no file");
    }
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        throw AccessError(path, "open", errno);
    }
    std::string text;
    std::array<char, 1 << 16> piece{};
    while (file && text.size() <= limit) {
        file.read(piece.data(), piece.size());
        text.append(piece.data(), static_cast<std::size_t>(file.gcount()));
    }
    if (file.bad()) {
        throw AccessError(path, "read", errno);
    }
    if (text.size() > limit) {
        throw Error(ExitCode::kNoAccess, path, "is larger than " + SizeText(limit));
    }
    return text;
}

} // namespace kx::io
