// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "signature/SignedOf.h"

#include "archive/ZipOf.h"
#include "io/TemporaryFile.h"
#include "io/Transfer.h"
#include "signature/Refusal.h"

#include <gtest/gtest.h>

#include <algorithm>

#include <unistd.h>

namespace kx::signature
{

const PrivateKey& EdKey()
{
    static const PrivateKey key = PrivateKey::Make(KeyType::kEd25519);
    return key;
}

const PrivateKey& OtherEdKey()
{
    static const PrivateKey key = PrivateKey::Make(KeyType::kEd25519);
    return key;
}

const PrivateKey& P256Key()
{
    static const PrivateKey key = PrivateKey::Make(KeyType::kP256);
    return key;
}

std::string SmallZip()
{
    return archive::ZipOf({{"a", "one"}, {"b/c", "two"}});
}

std::string WithZip64End(const std::string& zip)
{
    using archive::Bytes;
    const std::size_t endAt = zip.rfind(archive::kEndRecord);
    const std::string end = zip.substr(endAt);
    const std::string count = end.substr(8, 2) + std::string(6, '\0');
    const std::string size = end.substr(12, 4) + std::string(4, '\0');
    const std::string place = end.substr(16, 4) + std::string(4, '\0');
    return zip.substr(0, endAt) + "PK\6\6" + Bytes(44, 8) + Bytes(45, 2) + Bytes(45, 2) +
           Bytes(0, 8) + count + count + size + place + "PK\6\7" + Bytes(0, 4) + Bytes(endAt, 8) +
           Bytes(1, 4) + archive::kEndRecord + Bytes(0, 4) + std::string(12, '\xff') + Bytes(0, 2);
}

Block BlockFor(const std::string& zip, const std::vector<const PrivateKey*>& keys,
               const std::string& name)
{
    const archive::MemoryBytes source(zip);
    const SignedFile file(source, "zip");
    Block block{{name, file.Length(), file.Digest()}, {}};
    for (const PrivateKey* const key : keys) {
        block.signatures.push_back({key->Public().Id(), key->Sign(TextOf(block.statement))});
    }
    std::sort(block.signatures.begin(), block.signatures.end(),
              [](const Signature& one, const Signature& other) { return one.keyId < other.keyId; });
    return block;
}

std::string WithBlock(const std::string& zip, const Block& block)
{
    const archive::MemoryBytes source(zip);
    const io::Descriptor made = io::MakeTemporaryFile();
    SignedFile(source, "zip").Write(block, made.Number(), "made");
    EXPECT_EQ(lseek(made.Number(), 0, SEEK_SET), 0);
    return io::ReadAll(made.Number(), std::uint64_t{1} << 30, "made");
}

std::string SignedBytes(const std::string& zip, const std::vector<const PrivateKey*>& keys,
                        const std::string& name)
{
    return WithBlock(zip, BlockFor(zip, keys, name));
}

TrustedKeys Trusting(const std::vector<const PrivateKey*>& keys)
{
    TrustedKeys trusted;
    for (const PrivateKey* const key : keys) {
        trusted.keys.push_back({"key" + std::to_string(trusted.keys.size()),
                                PublicKey::FromPem(key->Public().Pem(), "key")});
    }
    return trusted;
}

std::string WhyRefused(const std::string& file, const TrustedKeys& trusted)
{
    try {
        const archive::MemoryBytes source(file);
        const SignedFile signedFile(source, "file");
        if (!signedFile.Signatures().has_value()) {
            return "is not signed";
        }
        // The digest first: where many files are judged, it is what takes the least time.
        signedFile.RefuseChanged();
        const Judgement judgement = Judge(*signedFile.Signatures(), trusted, {});
        if (!judgement.IsTrusted()) {
            return judgement.Has(SignerState::kBad) ? "bad signature" : "no trusted signature";
        }
        signedFile.RefuseHidden(archive::ReadZipStructure(source));
        return {};
    } catch (const Refusal& refusal) {
        return refusal.what();
    }
}

} // namespace kx::signature
