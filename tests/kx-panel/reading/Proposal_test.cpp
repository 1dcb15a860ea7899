// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "archive/ZipOf.h"
#include "kx-panel/InProcess.h"
#include "kx-panel/Lying.h"
#include "reading/Fields.h"
#include "reading/Proposal.h"
#include "signature/SignedOf.h"
#include "support/Thrown.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

namespace kx::guard
{

namespace
{

using signature::EdKey;
using signature::P256Key;
using signature::SignedBytes;
using signature::SmallZip;

std::optional<Proposal> Proposed(const std::string& file, IConfinement& confinement)
{
    return ReadProposal(confinement, archive::MemoryBytes(file), -1);
}

std::optional<Proposal> Proposed(const std::string& file)
{
    InProcess confinement;
    return Proposed(file, confinement);
}

/// What a confinement may say of a package, part by part.
struct ToldBlock {
    std::uint64_t blockSize = 0;
    std::string name = "demo";
    std::uint64_t length = 0;
    std::string digest = std::string(32, 'd');
    std::uint64_t count = 1;
    std::vector<std::pair<std::string, std::string>> signatures = {
        {std::string(32, 'k'), std::string(64, 's')}};

    /// Of a file of a size, all right.
    explicit ToldBlock(std::uint64_t fileSize)
    {
        signature::Block block{{name, 0, digest}, {{signatures[0].first, signatures[0].second}}};
        blockSize = BytesOf(block).size();
        do { // the number of digits counts, too
            length = fileSize - blockSize;
            block.statement.length = length;
            blockSize = BytesOf(block).size();
        } while (length != fileSize - blockSize);
    }

    [[nodiscard]] std::string Bytes() const
    {
        FieldsWriter fields;
        fields.Number(blockSize).Text(name).Number(length).Text(digest).Number(count);
        for (const auto& [keyId, bytes] : signatures) {
            fields.Text(keyId).Text(bytes);
        }
        return fields.Bytes();
    }
};

constexpr std::uint64_t kFileSize = 5000;
constexpr std::uint8_t kUnsigned = 1;
constexpr std::uint8_t kRefused = 2;
constexpr std::uint8_t kSigned = 3;
constexpr const char* kCannotBe = "1: what reads the package told of a block that cannot be";
constexpr const char* kNoSense = "1: what reads the package sent a message that makes no sense";

std::string SaidTo(const Lying::Messages& messages)
{
    return Thrown([&messages] {
        Lying lying(messages);
        static_cast<void>(Proposed(std::string(kFileSize, 'x'), lying));
    });
}

std::string Refusing(std::uint64_t reason, const std::string& text)
{
    return FieldsWriter().Number(reason).Text(text).Bytes();
}

} // namespace

TEST(Proposal, IsTheBlockOfASignedPackage)
{
    for (const std::string& zip : {SmallZip(), signature::WithZip64End(SmallZip())}) {
        const std::string file = SignedBytes(zip, {&EdKey(), &P256Key()});

        const std::optional<Proposal> proposal = Proposed(file);

        ASSERT_TRUE(proposal.has_value());
        EXPECT_EQ(proposal->blockSize, file.size() - zip.size());
        EXPECT_EQ(BytesOf(proposal->block),
                  file.substr(zip.find(archive::kCentral),
                              static_cast<std::size_t>(proposal->blockSize)));
        EXPECT_EQ(proposal->block.statement.name, "demo");
        EXPECT_EQ(proposal->block.statement.length, zip.size());
    }
}

TEST(Proposal, IsNothingOfAPackageWithoutABlock)
{
    EXPECT_FALSE(Proposed(SmallZip()).has_value());
}

TEST(Proposal, TellsWhyAPackageIsRefused)
{
    std::string damaged = SignedBytes(SmallZip(), {&EdKey()});
    damaged[damaged.find("name: ")] = 'N';

    EXPECT_EQ(Thrown([&] { static_cast<void>(Proposed(damaged)); }),
              "1: its block of signatures has no statement that can be read");
    EXPECT_EQ(Thrown([&] { static_cast<void>(Proposed("rubbish")); }),
              "1: is too short for an archive");
}

TEST(Proposal, TakesWhatIsAllRight)
{
    EXPECT_EQ(SaidTo({{kSigned, ToldBlock(kFileSize).Bytes()}}), "nothing thrown");
    EXPECT_EQ(SaidTo({{kUnsigned, ""}}), "nothing thrown");
    EXPECT_EQ(SaidTo({{kRefused, Refusing(1, "is \033odd")}}), "1: is \\x1bodd");
}

TEST(Proposal, TakesNoMessageButOne)
{
    const std::string good = ToldBlock(kFileSize).Bytes();

    EXPECT_EQ(SaidTo({}), kCannotBe);
    EXPECT_EQ(SaidTo({{kSigned, good}, {kSigned, good}}), kCannotBe);
    EXPECT_EQ(SaidTo({{kUnsigned, ""}, {kSigned, good}}), kCannotBe);
    EXPECT_EQ(SaidTo({{kSigned, good}, {kUnsigned, ""}}), kCannotBe);
    for (const int kind : {0, 4, 0xef}) {
        EXPECT_EQ(SaidTo({{static_cast<std::uint8_t>(kind), good}}), kCannotBe);
    }
    EXPECT_EQ(SaidTo({{kUnsigned, "x"}}), kNoSense);
}

TEST(Proposal, TakesNoMessageOfAnotherLength)
{
    const std::string good = ToldBlock(kFileSize).Bytes();
    for (std::size_t size = 0; size < good.size(); ++size) {
        EXPECT_NE(SaidTo({{kSigned, good.substr(0, size)}}), "nothing thrown") << size;
    }
    EXPECT_EQ(SaidTo({{kSigned, good + "x"}}), kNoSense);
}

TEST(Proposal, TakesNoRefusalThatCannotBe)
{
    EXPECT_EQ(SaidTo({{kRefused, Refusing(3, "hides something")}}), kCannotBe);
    EXPECT_EQ(SaidTo({{kRefused, Refusing(4, "is too large")}}), kCannotBe);
    EXPECT_EQ(SaidTo({{kRefused, Refusing(5, "is odd")}}), kNoSense);
    EXPECT_EQ(SaidTo({{kRefused, Refusing(1, std::string(301, 'x'))}}), kNoSense);
    EXPECT_EQ(SaidTo({{kRefused, Refusing(1, "is odd") + "x"}}), kNoSense);
    EXPECT_EQ(SaidTo({{kRefused, ""}}), kNoSense);
}

/// A lie about a block.
struct Lie {
    const char* name;
    void (*change)(ToldBlock& told);
    const char* thrown;
};

class Lies : public ::testing::TestWithParam<Lie>
{
};

TEST_P(Lies, AreNotTaken)
{
    ToldBlock told(kFileSize);
    GetParam().change(told);

    EXPECT_EQ(SaidTo({{kSigned, told.Bytes()}}), GetParam().thrown);
}

INSTANTIATE_TEST_SUITE_P(
    Kinds, Lies,
    ::testing::Values(
        Lie{"NoBlockAtAll", [](ToldBlock& told) { told.blockSize = 0; }, kCannotBe},
        Lie{"ALargerBlock", [](ToldBlock& told) { ++told.blockSize; }, kCannotBe},
        Lie{"ASmallerBlock", [](ToldBlock& told) { --told.blockSize; }, kCannotBe},
        Lie{"ABlockAndAFileOfOtherSizes",
            [](ToldBlock& told) {
                ++told.blockSize;
                --told.length;
            },
            kCannotBe},
        Lie{"TooLargeABlock", [](ToldBlock& told) { told.blockSize = 8193; }, kNoSense},
        Lie{"AHugeBlock", [](ToldBlock& told) { told.blockSize = UINT64_MAX; }, kNoSense},
        Lie{"ALongerFile", [](ToldBlock& told) { ++told.length; }, kCannotBe},
        Lie{"AnEndlessFile", [](ToldBlock& told) { told.length = UINT64_MAX; }, kCannotBe},
        Lie{"NoName", [](ToldBlock& told) { told.name = ""; }, kCannotBe},
        Lie{"AnotherLengthOfName", [](ToldBlock& told) { told.name = "demo2"; }, kCannotBe},
        Lie{"AnUnsafeName", [](ToldBlock& told) { told.name = "../x"; }, kCannotBe},
        Lie{"AnUnpackedName", [](ToldBlock& told) { told.name = "a.temp"; }, kCannotBe},
        Lie{"ALongName", [](ToldBlock& told) { told.name = std::string(101, 'x'); }, kNoSense},
        Lie{"AShortDigest", [](ToldBlock& told) { told.digest.pop_back(); }, kCannotBe},
        Lie{"ALongDigest", [](ToldBlock& told) { told.digest += 'd'; }, kNoSense},
        Lie{"NoSignature",
            [](ToldBlock& told) {
                told.signatures.clear();
                told.count = 0;
            },
            kCannotBe},
        Lie{"FewerSignaturesThanTold", [](ToldBlock& told) { told.count = 2; }, kNoSense},
        Lie{"MoreSignaturesThanTold", [](ToldBlock& told) { told.count = 0; }, kNoSense},
        Lie{"TooManySignatures",
            [](ToldBlock& told) {
                told.count = 17;
                told.signatures.resize(17, told.signatures[0]);
            },
            kNoSense},
        Lie{"TwoSignaturesOfOneKey",
            [](ToldBlock& told) {
                told.count = 2;
                told.signatures.push_back(told.signatures[0]);
                told.blockSize += 96;
                told.length -= 96;
            },
            kCannotBe},
        Lie{"SignaturesOutOfOrder",
            [](ToldBlock& told) {
                told.count = 2;
                told.signatures.emplace_back(std::string(32, 'a'), std::string(64, 's'));
                told.blockSize += 96;
                told.length -= 96;
            },
            kCannotBe},
        Lie{"AShortKey", [](ToldBlock& told) { told.signatures[0].first.pop_back(); }, kCannotBe},
        Lie{"AShortSignature", [](ToldBlock& told) { told.signatures[0].second.pop_back(); },
            kCannotBe},
        Lie{"ALongSignature", [](ToldBlock& told) { told.signatures[0].second += 's'; }, kNoSense},
        Lie{"TheMarkOfAnEnd",
            [](ToldBlock& told) { told.signatures[0].second.replace(0, 4, "PK\5\6"); }, kCannotBe}),
    [](const auto& row) { return std::string(row.param.name); });

} // namespace kx::guard
