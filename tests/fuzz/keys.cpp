// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT

// Reads the input as what lies in a folder of keys, and as signatures: the PEM text of a key, the
// file beside it, DER and raw signatures. Its first byte says which.
#include "Require.h"
#include "io/Error.h"
#include "signature/Block.h"
#include "signature/TrustedKeys.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace
{

using kx::signature::KeyType;
using kx::signature::PublicKey;

// Of keys that were thrown away.
constexpr const char* kEd25519 = "-----BEGIN PUBLIC KEY-----\n"
                                 "MCowBQYDK2VwAyEA0Wpt/vHd26UQFSpQn2YwW0YM9vBNq089C6QvzBymfB0=\n"
                                 "-----END PUBLIC KEY-----\n";
constexpr const char* kP256 = "-----BEGIN PUBLIC KEY-----\n"
                              "MFkwEwYHKoZIzj0CAQYIKoZIzj0DAQcDQgAE5fn3lUBgj0aEz7gbGrF98Ku85l6D\n"
                              "2mzbZLlUxfoaJ/VLayv92vcvwk3pSgTCCPTvCz/qaumsEq0E1jpfo7k4cw==\n"
                              "-----END PUBLIC KEY-----\n";

const PublicKey& FixedKey(KeyType type)
{
    static const PublicKey ed25519 = PublicKey::FromPem(kEd25519, "ed25519");
    static const PublicKey p256 = PublicKey::FromPem(kP256, "p256");
    return type == KeyType::kEd25519 ? ed25519 : p256;
}

/// A key that is accepted can be written and read again, and stays the same.
void ReadPem(std::string_view text)
{
    try {
        const PublicKey key = PublicKey::FromPem(text, "fuzz");
        Require(key.Id().size() == kx::signature::kKeyIdSize);
        const PublicKey again = PublicKey::FromPem(key.Pem(), "again");
        Require(again.Id() == key.Id() && again.Type() == key.Type());
    } catch (const kx::io::Error& error) {
        Require(error.Code() == kx::io::ExitCode::kProblems && !error.Line().empty());
    }
}

/// A file beside a key that is accepted says something.
void ReadLimits(std::string_view text)
{
    static kx::signature::TrustedKey key{"fuzz", PublicKey::FromPem(kEd25519, "ed25519")};
    key.isRevoked = false;
    key.models.reset();
    key.packages.reset();
    try {
        kx::signature::TakeKeyLimits(std::string(text), "fuzz.toml", key);
        Require(!key.isDamaged);
    } catch (const kx::io::Error& error) {
        Require(!error.Line().empty());
    }
}

/// There is one way to write a signature.
void ReadSignatures(std::string_view bytes)
{
    const auto fromDer = kx::signature::P256FromDer(bytes);
    if (fromDer.has_value()) {
        Require(IsCanonical(KeyType::kP256, *fromDer));
        Require(kx::signature::P256FromDer(kx::signature::P256ToDer(*fromDer)) == fromDer);
    }
    const auto fromRaw = kx::signature::P256FromRaw(bytes);
    if (fromRaw.has_value()) {
        Require(IsCanonical(KeyType::kP256, *fromRaw));
        Require(kx::signature::P256FromRaw(*fromRaw) == fromRaw);
        Require(fromRaw->substr(0, kx::signature::kSignatureSize / 2) ==
                bytes.substr(0, kx::signature::kSignatureSize / 2));
    }
    Require(!IsCanonical(KeyType::kP256, bytes) || fromRaw == bytes);
    Require(!IsCanonical(KeyType::kEd25519, bytes) ||
            bytes.size() == kx::signature::kSignatureSize);
}

/// Nobody can sign by these keys any more.
void Verify(std::string_view bytes)
{
    const std::string_view text = "kx-update package signature, version 1\n";
    for (const KeyType type : {KeyType::kEd25519, KeyType::kP256}) {
        Require(!FixedKey(type).IsGood(bytes, text));
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size == 0) {
        return 0;
    }
    const std::string_view text(reinterpret_cast<const char*>(data) + 1, size - 1);
    switch (data[0] % 4U) {
    case 0:
        ReadPem(text);
        break;
    case 1:
        ReadLimits(text);
        break;
    case 2:
        ReadSignatures(text);
        break;
    default:
        Verify(text);
    }
    return 0;
}
