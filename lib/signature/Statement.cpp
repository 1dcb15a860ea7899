// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "signature/Statement.h"

#include "io/Hex.h"
#include "signature/PackageName.h"

#include <charconv>

namespace kx::signature
{

namespace
{

// The first line keeps what is signed here apart from all else that a key may sign.
constexpr std::string_view kDomain = "kx-update package signature, version 1\n";
constexpr std::string_view kName = "name: ";
constexpr std::string_view kLength = "length: ";
constexpr std::string_view kDigest = "sha256: ";

/// Takes a line off the text.
/// @return what stands behind @p key; nothing when the line is another one
std::optional<std::string_view> TakeLine(std::string_view& text, std::string_view key)
{
    const std::size_t end = text.find('\n');
    if (end == std::string_view::npos || text.substr(0, key.size()) != key || end < key.size()) {
        return {};
    }
    const std::string_view value = text.substr(key.size(), end - key.size());
    text.remove_prefix(end + 1);
    return value;
}

/// Reads pairs of hexadecimal digits; what is none of these does not come out as it was.
std::string BytesOfHex(std::string_view digits)
{
    std::string bytes;
    for (std::size_t i = 0; i + 1 < digits.size(); i += 2) {
        unsigned char byte = 0;
        static_cast<void>(std::from_chars(digits.data() + i, digits.data() + i + 2, byte, 16));
        bytes += static_cast<char>(byte);
    }
    return bytes;
}

} // namespace

bool operator==(const Statement& one, const Statement& other)
{
    return one.name == other.name && one.length == other.length && one.digest == other.digest;
}

std::string TextOf(const Statement& statement)
{
    std::string text(kDomain);
    text.append(kName).append(statement.name).append("\n");
    text.append(kLength).append(std::to_string(statement.length)).append("\n");
    text.append(kDigest).append(io::Hex(statement.digest)).append("\n");
    return text;
}

std::optional<Statement> ReadStatement(std::string_view text)
{
    if (text.substr(0, kDomain.size()) != kDomain) {
        return {};
    }
    std::string_view rest = text.substr(kDomain.size());
    const auto name = TakeLine(rest, kName);
    const auto length = name.has_value() ? TakeLine(rest, kLength) : std::nullopt;
    const auto digest = length.has_value() ? TakeLine(rest, kDigest) : std::nullopt;
    if (!digest.has_value() || !IsSafePackageName(*name)) {
        return {};
    }
    Statement statement{std::string(*name), 0, BytesOfHex(*digest)};
    static_cast<void>(
        std::from_chars(length->data(), length->data() + length->size(), statement.length));
    // Whatever is not written as it must be does not come out as it was.
    const bool isExact = statement.digest.size() == kDigestSize && TextOf(statement) == text;
    return isExact ? std::optional(std::move(statement)) : std::nullopt;
}

} // namespace kx::signature
