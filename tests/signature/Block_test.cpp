// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "signature/Block.h"
#include "signature/Refusal.h"
#include "support/Thrown.h"

#include <gtest/gtest.h>

#include <string>

namespace kx::signature
{

namespace
{

Block BlockOfKeys(std::size_t count)
{
    Block block{{"demo", 100, std::string(32, '\1')}, {}};
    for (std::size_t i = 0; i < count; ++i) {
        block.signatures.push_back(
            {std::string(32, static_cast<char>(i)), std::string(64, static_cast<char>(i + 100))});
    }
    return block;
}

std::string ErrorOf(const std::string& bytes)
{
    return Thrown([&bytes] { static_cast<void>(ReadBlock(bytes, "p")); });
}

std::string Refused(const std::string& why)
{
    return "1: p: its block of signatures " + why +
           "; get the package again from where it was signed";
}

} // namespace

TEST(Block, HasItsPartsOneBehindTheOther)
{
    const Block block = BlockOfKeys(2);
    const std::string text = TextOf(block.statement);
    const std::string size(1, static_cast<char>(text.size()));
    const std::string whole(1, static_cast<char>((16 + 2 + text.size() + 1 + 2 * 96 + 20) - 256));

    EXPECT_EQ(BytesOf(block), "KX-SIGNATURES 1\n" + size + std::string(1, '\0') + text + "\2" +
                                  std::string(32, '\0') + std::string(64, 'd') +
                                  std::string(32, '\1') + std::string(64, 'e') + whole + "\1" +
                                  std::string(2, '\0') + "KX-SIGNATURES 1\n");
}

TEST(Block, IsReadAsItWasWritten)
{
    for (const std::size_t count : {std::size_t{1}, std::size_t{3}, kMostSignatures}) {
        const std::string bytes = BytesOf(BlockOfKeys(count));

        const Block block = ReadBlock(bytes, "p");

        EXPECT_EQ(block.signatures.size(), count);
        EXPECT_EQ(BytesOf(block), bytes);
        EXPECT_LE(bytes.size(), kLargestBlock);
        EXPECT_EQ(ReadBlockSize(bytes.substr(bytes.size() - kBlockEndSize)), bytes.size());
    }
}

TEST(Block, RefusesEveryOtherNumberOfBytes)
{
    const std::string bytes = BytesOf(BlockOfKeys(2));

    for (std::size_t size = 0; size < bytes.size(); ++size) {
        EXPECT_NE(ErrorOf(bytes.substr(0, size)), "nothing thrown") << size;
    }
    for (std::size_t more = 1; more < 100; ++more) {
        EXPECT_NE(ErrorOf(bytes + std::string(more, '\0')), "nothing thrown") << more;
    }
    EXPECT_EQ(ErrorOf(std::string(kLargestBlock + 1, 'x')), Refused("is too large"));
}

TEST(Block, RefusesAnEmptyListAndOneThatIsTooLong)
{
    EXPECT_EQ(ErrorOf(BytesOf(BlockOfKeys(0))), Refused("has no signature, or too many"));
    EXPECT_EQ(ErrorOf(BytesOf(BlockOfKeys(17))), Refused("has no signature, or too many"));
}

TEST(Block, RefusesSignaturesOutOfOrderAndTwoOfOneKey)
{
    Block block = BlockOfKeys(2);
    std::swap(block.signatures[0], block.signatures[1]);
    Block doubled = BlockOfKeys(2);
    doubled.signatures[0].keyId = doubled.signatures[1].keyId;

    EXPECT_EQ(ErrorOf(BytesOf(block)), Refused("has signatures out of order"));
    EXPECT_EQ(ErrorOf(BytesOf(doubled)), Refused("has signatures out of order"));
}

TEST(Block, HoldsNoMarkOfAnArchivesEnd)
{
    Block block = BlockOfKeys(1);
    block.signatures[0].bytes.replace(30, 4, "PK\5\6");

    EXPECT_EQ(ErrorOf(BytesOf(block)), Refused("holds the mark of an archive's end"));
}

TEST(Block, RefusesAStatementThatCannotBeRead)
{
    Block block = BlockOfKeys(1);
    block.statement.name = "no name";

    EXPECT_EQ(ErrorOf(BytesOf(block)), Refused("has no statement that can be read"));
}

TEST(Block, IsNotThereWhereItsMarkIsNot)
{
    EXPECT_FALSE(ReadBlockSize("").has_value());
    EXPECT_FALSE(ReadBlockSize(std::string(20, 'x')).has_value());
    EXPECT_FALSE(ReadBlockSize("KX-SIGNATURES 1\n1234").has_value());
}

} // namespace kx::signature
