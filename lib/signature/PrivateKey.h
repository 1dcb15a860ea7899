// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "signature/PublicKey.h"

#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace kx::signature
{

/// Asked for the passphrase of a key, once, when the key has one.
using PassphraseAsker = std::function<std::string()>;

/// A key that makes signatures. Its bytes stay in the process' memory as long as it lives.
class PrivateKey
{
public:
    /// Makes a new one.
    /// @throws Error when the machine has no randomness, or its libcrypto no such keys
    [[nodiscard]] static PrivateKey Make(KeyType type);

    /// Reads a key's PEM text.
    /// @param where  what an error calls the file
    /// @throws Error kProblems when it is no private key of Ed25519 or P-256, or the passphrase
    /// does
    ///         not fit
    [[nodiscard]] static PrivateKey FromPem(std::string_view pem, const std::string& where,
                                            const PassphraseAsker& ask);

    [[nodiscard]] const PublicKey& Public() const { return m_public; }

    /// Returns the key as the PEM text of PKCS #8: encrypted by a key that PBKDF2 (SHA-256, 600000
    /// rounds) makes of the passphrase (AES-256-CBC), or as it is without one.
    [[nodiscard]] std::string Pem(const std::optional<std::string>& passphrase) const;

    /// Signs bytes.
    /// @return the signature as a block holds it. Of Ed25519 it is the same each time.
    [[nodiscard]] std::string Sign(std::string_view bytes) const;

private:
    PrivateKey(OpenSslKey key, const std::string& where);

    OpenSslKey m_key;
    PublicKey m_public;
};

/// Tells whether bytes are, or contain, a private key: the PEM text of any kind, or the DER of one
/// and nothing else.
[[nodiscard]] bool HoldsPrivateKey(std::string_view bytes);

} // namespace kx::signature
