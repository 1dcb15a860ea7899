// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "io/Error.h"
#include "signature/PublicKey.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace kx::signature
{

/// How many key files a folder may hold.
constexpr std::size_t kMostTrustedKeys = 256;

/// A key of a panel's folder, with what the file beside it says.
struct TrustedKey {
    std::string name; ///< of the file, without ".pem" or ".pub.pem"
    PublicKey key;
    bool isRevoked = false;
    bool isDamaged = false; ///< what limits it cannot be read: it is not trusted
    /// Models of panels on which it counts; nothing: all.
    std::optional<std::vector<std::string>> models{};
    /// Names of packages for which it counts; nothing: all.
    std::optional<std::vector<std::string>> packages{};
};

/// The keys of a folder.
struct TrustedKeys {
    std::vector<TrustedKey> keys;    ///< in the order of their files' names
    std::vector<io::Error> problems; ///< files that are no keys, or limit none
};

/// How large a key's file, and the one beside it, may be, in bytes.
constexpr std::uint64_t kLargestKeyFile = 16384;

/// Takes what the text of the file beside a key says: it may limit or revoke it.
/// @param path  of the file, for messages
/// @throws Error when it is damaged, or says nothing at all; the key must not be trusted then
void TakeKeyLimits(const std::string& text, const std::string& path, TrustedKey& key);

/// Reads a whole file of at most so many bytes.
using KeyFileReader = std::function<std::string(const std::string& path, std::uint64_t limit)>;

/// Reads the public keys of a folder: each FOLDER/NAME.pem or FOLDER/NAME.pub.pem, with NAME.toml
/// beside it, which may limit or revoke it. Hidden files are passed over. A damaged file is a
/// problem and never ends the reading; of one that cannot be told the key is not trusted.
/// @param read  reads each file; an Error that it throws is a problem like any other
/// @throws Error when the folder cannot be listed, or holds too many keys
[[nodiscard]] TrustedKeys ReadTrustedKeys(const std::string& folder, const KeyFileReader& read);

/// The same with files as they are, whoever owns them.
[[nodiscard]] TrustedKeys ReadTrustedKeys(const std::string& folder);

} // namespace kx::signature
