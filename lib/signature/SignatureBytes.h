// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "signature/OpenSsl.h"

#include <optional>
#include <string>
#include <string_view>

namespace kx::signature
{

// Signatures as a block holds them: kSignatureSize bytes, one way to write each.

/// The two types of key.
enum class KeyType {
    kEd25519,
    kP256, ///< ECDSA with SHA-256
};

/// Tells whether a signature is written in the one way that is allowed. Of Ed25519: S below the
/// group's order. Of P-256: r and s of 32 bytes each, 1 to n-1, s no more than n/2.
[[nodiscard]] bool IsCanonical(KeyType type, std::string_view signature);

/// Makes a P-256 signature of r and s, and s the smaller one of the two that are good.
/// @return nothing when that is no signature
[[nodiscard]] std::optional<std::string> P256FromRaw(std::string_view raw);

/// Likewise, of a signature as DER.
[[nodiscard]] std::optional<std::string> P256FromDer(std::string_view der);

/// Returns a P-256 signature as DER, which libcrypto wants.
[[nodiscard]] std::string P256ToDer(std::string_view signature);

} // namespace kx::signature
