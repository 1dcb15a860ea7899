// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "signature/Sha256.h"

#include "signature/Statement.h"

namespace kx::signature
{

Sha256::Sha256() : m_context(EVP_MD_CTX_new())
{
    RequireOpenSsl(EVP_DigestInit_ex(m_context.get(), EVP_sha256(), nullptr) == 1, "hash");
}

void Sha256::Add(std::string_view bytes)
{
    RequireOpenSsl(EVP_DigestUpdate(m_context.get(), bytes.data(), bytes.size()) == 1, "hash");
}

std::string Sha256::Result()
{
    std::string digest(kDigestSize, '\0');
    RequireOpenSsl(EVP_DigestFinal_ex(m_context.get(), BytesIn(digest), nullptr) == 1, "hash");
    return digest;
}

std::string Sha256Of(std::string_view bytes)
{
    Sha256 digest;
    digest.Add(bytes);
    return digest.Result();
}

} // namespace kx::signature
