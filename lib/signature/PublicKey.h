// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "signature/OpenSsl.h"
#include "signature/SignatureBytes.h"

#include <string>
#include <string_view>

namespace kx::signature
{

/// A key that tells whether signatures are good.
class PublicKey
{
public:
    /// Reads a key's PEM text: one "PUBLIC KEY", of Ed25519 or of P-256 with an uncompressed point.
    /// @param where  what an error calls the file
    /// @throws Error kProblems for anything else
    [[nodiscard]] static PublicKey FromPem(std::string_view pem, const std::string& where);

    /// Takes the public part of any key of libcrypto's.
    /// @throws Error as FromPem
    [[nodiscard]] static PublicKey Of(const EVP_PKEY* key, const std::string& where);

    [[nodiscard]] KeyType Type() const { return m_type; }

    /// The key's identifier: the SHA-256 of its DER (SubjectPublicKeyInfo), kKeyIdSize bytes.
    [[nodiscard]] const std::string& Id() const { return m_id; }

    /// Returns the key's PEM text.
    [[nodiscard]] std::string Pem() const;

    /// Tells whether a signature is canonical, and a good one of these bytes by this key.
    /// @param signature  as a block holds it
    [[nodiscard]] bool IsGood(std::string_view signature, std::string_view bytes) const;

private:
    PublicKey(std::string der, KeyType type, OpenSslKey key);
    static PublicKey FromDer(std::string der, const std::string& where);

    std::string m_der;
    KeyType m_type;
    OpenSslKey m_key;
    std::string m_id;
};

/// Returns a type's name: "ed25519", "p256".
[[nodiscard]] const char* KeyTypeName(KeyType type);

/// Starts libcrypto's signing or verifying of bytes by a key of that type.
/// @param start  EVP_DigestSignInit or EVP_DigestVerifyInit
template <class Start>
[[nodiscard]] OpenSsl<EVP_MD_CTX, EVP_MD_CTX_free> StartSigning(Start start, KeyType type,
                                                                EVP_PKEY* key)
{
    OpenSsl<EVP_MD_CTX, EVP_MD_CTX_free> context(EVP_MD_CTX_new());
    const EVP_MD* const digest = type == KeyType::kP256 ? EVP_sha256() : nullptr;
    RequireOpenSsl(context != nullptr && start(context.get(), nullptr, digest, nullptr, key) == 1,
                   "use the key");
    return context;
}

} // namespace kx::signature
