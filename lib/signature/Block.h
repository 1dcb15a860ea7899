// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "signature/Statement.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kx::signature
{

/// Bytes of a key's identifier, which is the whole SHA-256 of the public key's DER.
constexpr std::size_t kKeyIdSize = 32;
/// Bytes of a signature of either type of key.
constexpr std::size_t kSignatureSize = 64;
/// How many signatures a block may hold.
constexpr std::size_t kMostSignatures = 16;
/// How many bytes a block may have.
constexpr std::size_t kLargestBlock = 8192;

/// What an archive's end record begins with. The block holds it nowhere, so that whoever looks for
/// the end record finds it in no bytes that nobody has signed.
constexpr std::string_view kEndRecordMark = "PK\5\6";

/// One signature of a statement.
struct Signature {
    std::string keyId; ///< kKeyIdSize bytes
    std::string bytes; ///< kSignatureSize bytes, canonical
};

/// What a signed package holds between its last entry and its directory.
struct Block {
    Statement statement;
    std::vector<Signature> signatures; ///< at least one, by ascending key, one of each key
};

/// How many bytes a block ends in that tell its size.
constexpr std::size_t kBlockEndSize = 20;

/// Reads the kBlockEndSize bytes that a block ends in.
/// @return the size of the whole block, as told; nothing when no block ends there
[[nodiscard]] std::optional<std::uint64_t> ReadBlockSize(std::string_view bytes);

/// Returns what is wrong with a block of which the parts have the right sizes: the number of its
/// signatures, their order, the mark of an end record. Null when nothing is.
[[nodiscard]] const char* WrongWith(const Block& block);

/// Returns a block's bytes.
[[nodiscard]] std::string BytesOf(const Block& block);

/// Reads a block's bytes. There is one way to write a block, and any other is refused.
/// @param where  what an error calls the file
/// @throws Refusal kBlock
[[nodiscard]] Block ReadBlock(std::string_view bytes, const std::string& where);

} // namespace kx::signature
