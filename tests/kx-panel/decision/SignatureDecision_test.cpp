// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "archive/ZipOf.h"
#include "decision/SignatureDecision.h"
#include "kx-panel/InProcess.h"
#include "kx-panel/Lying.h"
#include "reading/Fields.h"
#include "signature/SignedOf.h"
#include "support/Thrown.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

namespace kx::guard
{

namespace
{

using signature::BlockFor;
using signature::EdKey;
using signature::OtherEdKey;
using signature::P256Key;
using signature::SignedBytes;
using signature::SmallZip;
using signature::Trusting;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

/// Nothing here asks for a file system.
class NoFileSystems final : public IFileSystems
{
public:
    [[nodiscard]] FileSystem Of(const std::string& /*path*/) const override { std::abort(); }
    [[nodiscard]] std::optional<StandingFile> Look(const std::string& /*path*/) const override
    {
        std::abort();
    }
};

/// A package in memory that remembers from where on it was read.
class WatchedBytes final : public archive::ByteSource
{
public:
    explicit WatchedBytes(std::string bytes)
        : m_held(std::move(bytes)), m_bytes(m_held), m_first(m_held.size())
    {
    }

    [[nodiscard]] std::uint64_t Size() const override { return m_bytes.Size(); }
    [[nodiscard]] std::string Read(std::uint64_t offset, std::size_t count) const override
    {
        m_first = std::min(m_first, offset);
        return m_bytes.Read(offset, count);
    }
    [[nodiscard]] std::uint64_t First() const { return m_first; }

private:
    std::string m_held;
    archive::MemoryBytes m_bytes;
    mutable std::uint64_t m_first;
};

std::string HexOf(const signature::PrivateKey& key)
{
    std::string hex;
    for (const char byte : key.Public().Id()) {
        for (const int digit :
             {static_cast<unsigned char>(byte) / 16, static_cast<unsigned char>(byte) % 16}) {
            hex += "0123456789abcdef"[digit];
        }
    }
    return hex;
}

class SignatureDecisionTest : public ::testing::Test
{
protected:
    SignatureDecisionTest() { m_policy.model.models = {"TP-0700"}; }

    Policy& ThePolicy() { return m_policy; }
    signature::TrustedKeys& Keys() { return m_keys; }
    [[nodiscard]] const PackageFacts& Facts() const { return m_decision.facts; }

    /// Judges a package.
    /// @return the reasons, "word value value", or an exception
    std::vector<std::string> Judged(const std::string& file, IConfinement& confinement,
                                    const signature::Verifier& verify = signature::IsGoodSignature)
    {
        Panel panel{m_policy, m_keys, m_fileSystems, {}};
        panel.verify = verify;
        m_decision = {};
        bool goesOn = false;
        const std::string thrown = Thrown([&] {
            goesOn = DecideSignature(panel, confinement, archive::MemoryBytes(file), -1, m_fileName,
                                     m_decision);
        });
        if (thrown != "nothing thrown") {
            return {thrown};
        }
        EXPECT_EQ(goesOn, m_decision.reasons.empty());
        return Told();
    }

    std::vector<std::string> Judged(const std::string& file)
    {
        InProcess confinement;
        return Judged(file, confinement);
    }

    /// Likewise, but whether the file is the one that was signed.
    std::vector<std::string> JudgedSigner(const archive::ByteSource& source)
    {
        InProcess confinement;
        const Panel panel{m_policy, m_keys, m_fileSystems, {}};
        m_decision = {};
        const bool goesOn = DecideSigner(panel, confinement, source, -1, m_fileName, m_decision);
        EXPECT_EQ(goesOn, m_decision.reasons.empty());
        return Told();
    }

    void Call(std::string fileName) { m_fileName = std::move(fileName); }

private:
    [[nodiscard]] std::vector<std::string> Told() const
    {
        std::vector<std::string> reasons;
        for (const Reason& reason : m_decision.reasons) {
            std::string text = ReasonWord(reason.id);
            for (const std::string& value : reason.values) {
                text += " " + value;
            }
            reasons.push_back(text);
        }
        return reasons;
    }

    Policy m_policy;
    signature::TrustedKeys m_keys = Trusting({&EdKey(), &P256Key()});
    NoFileSystems m_fileSystems;
    std::string m_fileName = "on the drive.kx-update";
    Decision m_decision;
};

TEST_F(SignatureDecisionTest, AGoodSignatureLetsAPackageIn)
{
    const std::string file = SignedBytes(SmallZip(), {&EdKey()}, "recipes");

    EXPECT_THAT(Judged(file), IsEmpty());
    EXPECT_EQ(Facts().name, "recipes");
    EXPECT_EQ(Facts().signer, "key0");
    EXPECT_EQ(Facts().blockSize, file.size() - SmallZip().size());
    EXPECT_THAT(Judged(SignedBytes(signature::WithZip64End(SmallZip()), {&P256Key()})), IsEmpty());
    EXPECT_EQ(Facts().signer, "key1");
}

TEST_F(SignatureDecisionTest, OneGoodSignatureAmongOthersSuffices)
{
    EXPECT_THAT(Judged(SignedBytes(SmallZip(), {&OtherEdKey(), &P256Key()})), IsEmpty());
    EXPECT_EQ(Facts().signer, "key1");
}

TEST_F(SignatureDecisionTest, APackageMustBeSigned)
{
    EXPECT_THAT(Judged(SmallZip()), ElementsAre("signature-missing"));
    EXPECT_EQ(Facts().name, "");
}

TEST_F(SignatureDecisionTest, WhereItNeedNotTheFilesNameCounts)
{
    ThePolicy().signatures = SignatureRule::kOptional;
    Call("recipes_2.kx-update");

    EXPECT_THAT(Judged(SmallZip()), IsEmpty());
    EXPECT_EQ(Facts().name, "recipes_2");
    EXPECT_EQ(Facts().signer, "");
    EXPECT_EQ(Facts().blockSize, 0U);
}

TEST_F(SignatureDecisionTest, WhereItNeedNotTheFilesNameMustBeSafe)
{
    ThePolicy().signatures = SignatureRule::kOptional;
    for (const std::string& name :
         {std::string(), std::string(".kx-update"), std::string("recipes"),
          std::string("recipes.KX-UPDATE"), std::string("recipes.kx-update.zip"),
          std::string("a b.kx-update"), std::string("$(x).kx-update"),
          std::string("a.temp.kx-update"), std::string("..kx-update"), std::string("a\n.kx-update"),
          std::string("a\0b.kx-update", 13), std::string(101, 'x') + ".kx-update"}) {
        Call(name);

        EXPECT_THAT(Judged(SmallZip()), ElementsAre("name " + name));
        EXPECT_EQ(Facts().name, "");
    }
}

TEST_F(SignatureDecisionTest, AnArchiveThatEndsOtherwiseHasNoSignatures)
{
    const std::string file = SmallZip() + "behind";
    EXPECT_THAT(Judged(file),
                ElementsAre("signature-damaged does not end in an archive's end record without a "
                            "comment"));
    ThePolicy().signatures = SignatureRule::kOptional;
    Call("recipes.kx-update");
    EXPECT_THAT(Judged(file), IsEmpty());
}

TEST_F(SignatureDecisionTest, ADamagedBlockIsRefusedEverywhere)
{
    std::string file = SignedBytes(SmallZip(), {&EdKey()});
    file[file.find("KX-SIGNATURES")] = 'k';
    for (const SignatureRule rule : {SignatureRule::kRequired, SignatureRule::kOptional}) {
        ThePolicy().signatures = rule;
        EXPECT_THAT(Judged(file),
                    ElementsAre("signature-damaged its block of signatures is damaged"));
    }
}

TEST_F(SignatureDecisionTest, ABadSignatureIsRefusedEverywhere)
{
    const std::string zip = SmallZip();
    signature::Block block = BlockFor(zip, {&EdKey(), &P256Key()});
    for (signature::Signature& signature : block.signatures) {
        signature.bytes[5] = static_cast<char>(signature.bytes[5] ^ 1);
    }
    std::vector<std::string> reasons = {"signature-bad 'key0' (" + HexOf(EdKey()) + ")",
                                        "signature-bad 'key1' (" + HexOf(P256Key()) + ")"};
    if (EdKey().Public().Id() > P256Key().Public().Id()) {
        std::swap(reasons[0], reasons[1]);
    }

    for (const SignatureRule rule : {SignatureRule::kRequired, SignatureRule::kOptional}) {
        ThePolicy().signatures = rule;
        EXPECT_EQ(Judged(WithBlock(zip, block)), reasons);
    }
}

TEST_F(SignatureDecisionTest, AGoodSignatureDoesNotOutweighABadOne)
{
    const std::string zip = SmallZip();
    signature::Block block = BlockFor(zip, {&EdKey(), &P256Key()});
    const bool isFirst = block.signatures[0].keyId == EdKey().Public().Id();
    block.signatures[isFirst ? 0 : 1].bytes[0] ^= 1;

    EXPECT_THAT(Judged(WithBlock(zip, block)),
                ElementsAre("signature-bad 'key0' (" + HexOf(EdKey()) + ")"));
    EXPECT_EQ(Facts().name, "");
}

TEST_F(SignatureDecisionTest, KeysThatDoNotCountAreTold)
{
    const std::string file = SignedBytes(SmallZip(), {&EdKey()});
    const std::string id = HexOf(EdKey());
    const std::string word = "signature-untrusted ";

    Keys().keys[0].models = {"TP-1000"};
    EXPECT_THAT(Judged(file), ElementsAre(word + "'key0' (" + id + ") is limited"));
    Keys().keys[0].models = {"TP-1000", "TP-0700"};
    EXPECT_THAT(Judged(file), IsEmpty());
    Keys().keys[0].packages = {"other"};
    EXPECT_THAT(Judged(file), ElementsAre(word + "'key0' (" + id + ") is limited"));
    Keys().keys[0].isDamaged = true;
    EXPECT_THAT(Judged(file), ElementsAre(word + "'key0' (" + id + ") is damaged"));
    Keys().keys[0].isRevoked = true;
    EXPECT_THAT(Judged(file), ElementsAre(word + "'key0' (" + id + ") is revoked"));
    Keys().keys.clear();
    EXPECT_THAT(Judged(file), ElementsAre(word + id + " is unknown"));
}

TEST_F(SignatureDecisionTest, AllKeysThatDoNotCountAreTold)
{
    Keys().keys[0].isRevoked = true;
    const std::string revoked = "'key0' (" + HexOf(EdKey()) + ") is revoked";
    const std::string unknown = HexOf(OtherEdKey()) + " is unknown";
    const bool isFirst = EdKey().Public().Id() < OtherEdKey().Public().Id();

    EXPECT_THAT(Judged(SignedBytes(SmallZip(), {&EdKey(), &OtherEdKey()})),
                ElementsAre("signature-untrusted " +
                            (isFirst ? revoked + ", " + unknown : unknown + ", " + revoked)));
}

TEST_F(SignatureDecisionTest, AnotherFileIsNotTheOneThatWasSigned)
{
    std::string file = SignedBytes(SmallZip(), {&EdKey()});
    file[file.find("one")] = 'O';
    std::string longer = SmallZip();
    longer.insert(0, "x");
    archive::Patch(longer, archive::kEndRecord, 16,
                   archive::Bytes(longer.find(archive::kCentral), 4));
    const std::string changed = "signature-changed";

    EXPECT_THAT(Judged(file), ElementsAre(changed));
    EXPECT_THAT(JudgedSigner(archive::MemoryBytes(file)), IsEmpty());
    EXPECT_THAT(Judged(WithBlock(longer, BlockFor(SmallZip(), {&EdKey()}))), ElementsAre(changed));
}

TEST_F(SignatureDecisionTest, WhoSignedIsJudgedBeforeAnythingElseIsRead)
{
    const std::string zip = SmallZip();
    const WatchedBytes source(SignedBytes(zip, {&EdKey()}));
    const WatchedBytes plain(zip);

    EXPECT_THAT(JudgedSigner(source), IsEmpty());
    EXPECT_EQ(source.First(), zip.find(archive::kCentral)); // where the block begins
    EXPECT_THAT(JudgedSigner(plain), ElementsAre("signature-missing"));
    EXPECT_EQ(plain.First(), zip.find(archive::kCentral) - signature::kBlockEndSize);
}

TEST_F(SignatureDecisionTest, NoBitOfASmallPackageChangesUnnoticed)
{
    for (const std::string& zip : {SmallZip(), signature::WithZip64End(SmallZip())}) {
        std::string file = SignedBytes(zip, {&EdKey()});
        ASSERT_THAT(Judged(file), IsEmpty());
        for (std::size_t bit = 0; bit < file.size() * 8; ++bit) {
            file[bit / 8] = static_cast<char>(file[bit / 8] ^ 1 << (bit % 8));
            ASSERT_NE(Judged(file).size(), 0U) << "bit " << bit;
            file[bit / 8] = static_cast<char>(file[bit / 8] ^ 1 << (bit % 8));
        }
    }
}

/// What a confinement tells of a block.
std::string Telling(const signature::Block& block)
{
    FieldsWriter fields;
    fields.Number(BytesOf(block).size()).Text(block.statement.name);
    fields.Number(block.statement.length).Text(block.statement.digest);
    fields.Number(block.signatures.size());
    for (const signature::Signature& signature : block.signatures) {
        fields.Text(signature.keyId).Text(signature.bytes);
    }
    return fields.Bytes();
}

TEST_F(SignatureDecisionTest, AConfinementThatWasTakenOverGainsNothing)
{
    constexpr std::uint8_t kSigned = 3;
    const std::string zip = SmallZip();
    std::string other = zip;
    other[other.find("one")] = 'O';
    const signature::Block good = BlockFor(zip, {&EdKey()});
    const signature::Block evil = BlockFor(other, {&OtherEdKey()});
    const std::string file = WithBlock(other, evil);
    const std::string notThere = "1: what reads the package told of a block that is not there";

    // The block of a good package is told of one that somebody else made.
    Lying lying({{kSigned, Telling(good)}});
    EXPECT_THAT(Judged(file, lying), ElementsAre(notThere));
    // So it has to be in the file; but then the file is not the one that was signed.
    EXPECT_THAT(Judged(WithBlock(other, good), lying), ElementsAre("signature-changed"));
    // A package without block, and one in which it stands elsewhere.
    std::string moved = zip;
    moved.insert(0, BytesOf(good));
    EXPECT_THAT(Judged(moved, lying),
                ElementsAre("signature-damaged its directory does not stand where its end record "
                            "says"));
    // That nothing is signed does not help where signatures are required.
    Lying silent({{std::uint8_t{1}, ""}});
    EXPECT_THAT(Judged(file, silent), ElementsAre("signature-missing"));
    Lying honest({{kSigned, Telling(evil)}});
    EXPECT_THAT(Judged(file, honest),
                ElementsAre("signature-untrusted " + HexOf(OtherEdKey()) + " is unknown"));
}

TEST_F(SignatureDecisionTest, TheVerifierThatIsHandedInIsAsked)
{
    InProcess confinement;
    const std::string zip = SmallZip();
    signature::Block block = BlockFor(zip, {&EdKey()});
    block.signatures[0].bytes = std::string(64, 's');
    const auto yes = [](const auto&, std::string_view, std::string_view) { return true; };
    const auto no = [](const auto&, std::string_view, std::string_view) { return false; };

    EXPECT_THAT(Judged(WithBlock(zip, block), confinement, yes), IsEmpty());
    EXPECT_THAT(Judged(SignedBytes(zip, {&EdKey()}), confinement, no),
                ElementsAre("signature-bad 'key0' (" + HexOf(EdKey()) + ")"));
}

} // namespace

} // namespace kx::guard
