// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include <openssl/evp.h>

namespace kx::signature
{

// What is common to all use of libcrypto. Only what OpenSSL 1.1.1 has is called: panels have it.

/// Frees an object of libcrypto.
template <auto free>
struct FreeOpenSsl {
    template <class Object>
    void operator()(Object* object) const
    {
        free(object);
    }
};

/// Owns an object of libcrypto.
template <class Object, auto free>
using OpenSsl = std::unique_ptr<Object, FreeOpenSsl<free>>;

using OpenSslKey = OpenSsl<EVP_PKEY, EVP_PKEY_free>;
using OpenSslBio = OpenSsl<BIO, BIO_vfree>;

/// Refuses to go on when a call failed that only fails for want of memory, or of an algorithm that
/// the machine's libcrypto lacks.
/// @param doing  what it was for: "cannot …"
/// @throws Error with libcrypto's own words
void RequireOpenSsl(bool isDone, const char* doing);

/// Forgets the reasons of failures that were expected.
void ForgetOpenSslErrors();

/// Returns a reader of bytes, which must outlive it.
[[nodiscard]] OpenSslBio ReaderOf(std::string_view bytes);

/// Bytes as libcrypto wants them.
[[nodiscard]] inline const unsigned char* BytesIn(std::string_view bytes)
{
    return reinterpret_cast<const unsigned char*>(bytes.data());
}
[[nodiscard]] inline unsigned char* BytesIn(std::string& bytes)
{
    return reinterpret_cast<unsigned char*>(bytes.data());
}

} // namespace kx::signature
