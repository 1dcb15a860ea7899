// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "signature/OpenSsl.h"

#include "io/Error.h"

#include <openssl/bio.h>
#include <openssl/err.h>

namespace kx::signature
{

void RequireOpenSsl(bool isDone, const char* doing)
{
    if (!isDone) {
        const char* const reason = ERR_reason_error_string(ERR_peek_last_error());
        ForgetOpenSslErrors();
        throw io::Error(io::ExitCode::kNoAccess, "",
                        std::string("libcrypto cannot ") + doing + ": " +
                            (reason != nullptr ? reason : "for an unknown reason"));
    }
}

void ForgetOpenSslErrors()
{
    ERR_clear_error();
}

OpenSslBio ReaderOf(std::string_view bytes)
{
    OpenSslBio reader(BIO_new_mem_buf(bytes.data(), static_cast<int>(bytes.size())));
    RequireOpenSsl(reader != nullptr, "read bytes");
    return reader;
}

} // namespace kx::signature
