// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "signature/Judgement.h"
#include "signature/SignedOf.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

namespace kx::signature
{

using ::testing::ElementsAre;

namespace
{

using Models = std::optional<std::vector<std::string>>;

/// The states of a block's signatures, in the order of keys that are named.
std::vector<std::string> StatesOf(const Judgement& judgement,
                                  const std::vector<const PrivateKey*>& keys)
{
    std::vector<std::string> states;
    for (const PrivateKey* const key : keys) {
        for (const Signer& signer : judgement.signers) {
            if (signer.keyId == key->Public().Id()) {
                states.push_back(SignerStateName(signer.state) +
                                 (signer.name.empty() ? "" : " " + signer.name));
            }
        }
    }
    return states;
}

const std::vector<const PrivateKey*>& Three()
{
    static const std::vector<const PrivateKey*> keys = {&EdKey(), &OtherEdKey(), &P256Key()};
    return keys;
}

} // namespace

TEST(Judgement, IsThatOneGoodSignatureSuffices)
{
    const Block block = BlockFor(SmallZip(), Three());

    const Judgement judgement = Judge(block, Trusting({&P256Key()}), {});

    EXPECT_TRUE(judgement.IsTrusted());
    EXPECT_THAT(StatesOf(judgement, Three()), ElementsAre("unknown", "unknown", "good key0"));
    EXPECT_FALSE(Judge(block, {}, {}).IsTrusted());
}

TEST(Judgement, IsThatABadSignatureUnderAKnownKeyRefuses)
{
    Block block = BlockFor(SmallZip(), Three());
    for (Signature& signature : block.signatures) {
        if (signature.keyId == EdKey().Public().Id()) {
            signature.bytes.front() = static_cast<char>(signature.bytes.front() ^ 1);
        }
    }

    const Judgement judgement = Judge(block, Trusting(Three()), {});

    EXPECT_FALSE(judgement.IsTrusted());
    EXPECT_THAT(StatesOf(judgement, Three()), ElementsAre("bad key0", "good key1", "good key2"));
    EXPECT_TRUE(Judge(block, Trusting({&P256Key()}), {}).IsTrusted());
}

TEST(Judgement, PassesOverRevokedAndDamagedKeys)
{
    const Block block = BlockFor(SmallZip(), Three());
    TrustedKeys trusted = Trusting(Three());
    trusted.keys[0].isRevoked = true;
    trusted.keys[1].isDamaged = true;

    EXPECT_TRUE(Judge(block, trusted, {}).IsTrusted());
    EXPECT_THAT(StatesOf(Judge(block, trusted, {}), Three()),
                ElementsAre("revoked key0", "damaged key1", "good key2"));
    trusted.keys[2].isRevoked = true;
    EXPECT_FALSE(Judge(block, trusted, {}).IsTrusted());
}

TEST(Judgement, TakesTheStrictestOfSeveralFilesWithOneKey)
{
    const Block block = BlockFor(SmallZip(), {&EdKey()});
    TrustedKeys trusted = Trusting({&EdKey(), &EdKey(), &EdKey()});
    trusted.keys[1].isRevoked = true;

    EXPECT_FALSE(Judge(block, trusted, {}).IsTrusted());
    EXPECT_THAT(StatesOf(Judge(block, trusted, {}), {&EdKey()}), ElementsAre("revoked key1"));
}

TEST(Judgement, CountsAKeyOnlyForItsPanelsAndPackages)
{
    const Block block = BlockFor(SmallZip(), {&EdKey()}, "demo");
    TrustedKeys trusted = Trusting({&EdKey()});
    const auto isTrusted = [&](const Models& models) {
        return Judge(block, trusted, models).IsTrusted();
    };
    trusted.keys[0].packages = {"other", "demo"};
    EXPECT_TRUE(isTrusted({}));
    trusted.keys[0].packages = {"Demo"};
    EXPECT_FALSE(isTrusted({}));
    trusted.keys[0].packages.emplace();
    EXPECT_FALSE(isTrusted({}));
    trusted.keys[0].packages.reset();
    trusted.keys[0].models = {"TP-0700", "TP-0900"};
    EXPECT_TRUE(isTrusted(Models({"TP-0900"})));
    EXPECT_FALSE(isTrusted(Models({"TP-1000"})));
    EXPECT_FALSE(isTrusted(Models(std::in_place)));
    EXPECT_TRUE(isTrusted({}));
    EXPECT_TRUE(Judge(block, trusted, {}).signers[0].needsModel);
    EXPECT_FALSE(Judge(block, trusted, Models({"TP-0900"})).signers[0].needsModel);
    EXPECT_THAT(StatesOf(Judge(block, trusted, Models({"TP-1000"})), {&EdKey()}),
                ElementsAre("limited key0"));
}

TEST(Judgement, LetsNoLimitedKeyHideABadSignature)
{
    Block block = BlockFor(SmallZip(), {&EdKey()});
    block.signatures[0].bytes.back() = static_cast<char>(block.signatures[0].bytes.back() ^ 1);
    TrustedKeys trusted = Trusting({&EdKey()});
    trusted.keys[0].packages.emplace();

    EXPECT_TRUE(Judge(block, trusted, {}).Has(SignerState::kBad));
}

} // namespace kx::signature
