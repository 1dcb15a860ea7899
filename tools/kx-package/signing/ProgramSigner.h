// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "signature/PublicKey.h"

#include <string>
#include <string_view>

namespace kx::tool
{

/// A program that signs, as one that asks a token or a service for it.
struct SigningProgram {
    /// A command for /bin/sh; the name of the file with the bytes to be signed is put behind it. It
    /// writes the signature to standard output, as bytes: of Ed25519 the 64 of the signature, of
    /// P-256 its DER.
    std::string command;
    bool isRaw = false; ///< of P-256 it writes r and s, 32 bytes each
};

/// Lets a program sign bytes. It has no standard input.
/// @return the signature as a block holds it
/// @throws Error when the program fails, or when what it writes is no good signature by the key
[[nodiscard]] std::string SignByProgram(const SigningProgram& program,
                                        const signature::PublicKey& key, std::string_view bytes);

} // namespace kx::tool
