// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "signature/OpenSsl.h"

#include <string>
#include <string_view>

namespace kx::signature
{

/// The SHA-256 of bytes that come in pieces.
class Sha256
{
public:
    /// @throws Error when libcrypto has none
    Sha256();

    void Add(std::string_view bytes);

    /// Returns the digest, kDigestSize bytes; nothing can be added then.
    [[nodiscard]] std::string Result();

private:
    OpenSsl<EVP_MD_CTX, EVP_MD_CTX_free> m_context;
};

/// Returns the SHA-256 of bytes.
[[nodiscard]] std::string Sha256Of(std::string_view bytes);

} // namespace kx::signature
