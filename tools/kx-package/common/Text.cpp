// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "common/Text.h"

#include "common/Error.h"
#include "common/Output.h"

#include <array>
#include <cerrno>
#include <fstream>

#include <sys/stat.h>

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
