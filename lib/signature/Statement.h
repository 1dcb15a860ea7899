// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace kx::signature
{

/// Bytes of a SHA-256.
constexpr std::size_t kDigestSize = 32;

/// What is signed: that a package of this name consists of these bytes.
struct Statement {
    std::string name;         ///< a safe package name
    std::uint64_t length = 0; ///< bytes of the file, without the block that holds the signatures
    std::string digest;       ///< SHA-256 of these bytes, kDigestSize bytes
};

[[nodiscard]] bool operator==(const Statement& one, const Statement& other);

/// Returns the bytes that are signed: four lines of text, below 1 KiB.
[[nodiscard]] std::string TextOf(const Statement& statement);

/// Reads these bytes.
/// @return nothing for any other bytes than those that TextOf makes of some statement
[[nodiscard]] std::optional<Statement> ReadStatement(std::string_view text);

} // namespace kx::signature
