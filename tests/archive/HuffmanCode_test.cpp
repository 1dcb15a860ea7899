// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "archive/HuffmanCode.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace kx::archive
{

namespace
{

using testing::ElementsAre;

using Lengths = std::vector<std::uint8_t>;

bool Make(HuffmanCode& code, const Lengths& lengths)
{
    return code.Make(lengths.data(), lengths.size());
}

/// Packs texts of bits, the first bit lowest in the first byte.
std::string Packed(const std::string& bits)
{
    std::string bytes((bits.size() + 7) / 8, '\0');
    for (std::size_t i = 0; i < bits.size(); ++i) {
        if (bits[i] == '1') {
            bytes[i / 8] =
                static_cast<char>(static_cast<unsigned char>(bytes[i / 8]) | (1U << (i % 8)));
        }
    }
    return bytes;
}

/// Takes all symbols of a text of bits, which ends where the first one that is none begins.
std::vector<int> SymbolsOf(const HuffmanCode& code, const std::string& bits, std::size_t count)
{
    const std::string bytes = Packed(bits);
    BitReader reader;
    reader.Feed(bytes);
    std::vector<int> symbols;
    for (std::size_t i = 0; i < count; ++i) {
        symbols.push_back(code.Take(reader));
    }
    return symbols;
}

TEST(BitReader, TakesTheLowestBitsFirst)
{
    BitReader bits;
    bits.Feed("\xb5\x01\x80\xff");

    EXPECT_EQ(bits.Take(1), 1U);
    EXPECT_EQ(bits.Take(2), 2U);
    EXPECT_EQ(bits.Look(16), 0x0036U);
    EXPECT_EQ(bits.Look(5), 0x16U);
    EXPECT_EQ(bits.Take(5), 0x16U);
    EXPECT_EQ(bits.Take(16), 0x8001U);
    EXPECT_EQ(bits.Take(8), 0xffU);
    EXPECT_FALSE(bits.IsOver());
    EXPECT_EQ(bits.Bytes(), 0U);
}

TEST(BitReader, CountsTheBytesThatAreThereAndGivesBackWhatItDidNotTakeUp)
{
    const std::string bytes = "0123456789";
    BitReader bits;
    bits.Feed(bytes);

    EXPECT_EQ(bits.Bytes(), 10U);
    EXPECT_EQ(bits.Take(1), 0U);
    EXPECT_EQ(bits.Bytes(), 9U);
    EXPECT_EQ(bits.Take(7), 0x18U);
    EXPECT_EQ(bits.Bytes(), 9U);
    EXPECT_EQ(bits.Rest(), "89");
    bits.Feed("89ab");
    EXPECT_EQ(bits.Bytes(), 11U);
    for (const char c : std::string("123456789ab")) {
        EXPECT_EQ(bits.Take(8), static_cast<unsigned>(c));
    }
    EXPECT_TRUE(bits.Rest().empty());
}

TEST(BitReader, DropsTheRestOfAByteOnlyWhenSomeOfItIsTaken)
{
    BitReader bits;
    bits.Feed("\xff\x01\x02");

    static_cast<void>(bits.Take(3));
    bits.DropToByte();
    EXPECT_EQ(bits.Look(8), 1U);
    bits.DropToByte();
    EXPECT_EQ(bits.Take(8), 1U);
    EXPECT_FALSE(bits.IsOver());
}

TEST(BitReader, ReadsZeroBitsBehindTheEndAndTellsIt)
{
    BitReader bits;
    bits.Feed("\x07");

    EXPECT_EQ(bits.Take(2), 3U);
    EXPECT_EQ(bits.Look(16), 1U);
    EXPECT_FALSE(bits.IsOver());
    EXPECT_EQ(bits.Take(6), 1U);
    EXPECT_FALSE(bits.IsOver());
    EXPECT_EQ(bits.Take(1), 0U);
    EXPECT_TRUE(bits.IsOver());
    bits.Feed("x");
    static_cast<void>(bits.Take(8));
    EXPECT_TRUE(bits.IsOver());
}

TEST(HuffmanCode, GivesShorterCodesFirstAndOrdersThemBySymbol)
{
    HuffmanCode code;
    // 1: 0, 3: 10, 0: 110, 4: 111
    ASSERT_TRUE(Make(code, {3, 1, 0, 2, 3}));

    EXPECT_THAT(SymbolsOf(code, "010110111", 4), ElementsAre(1, 3, 0, 4));
}

TEST(HuffmanCode, ForgetsTheCodeBefore)
{
    HuffmanCode code;
    ASSERT_TRUE(Make(code, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 10}));
    ASSERT_TRUE(Make(code, {1, 1}));

    EXPECT_THAT(SymbolsOf(code, "0110", 4), ElementsAre(0, 1, 1, 0));
}

TEST(HuffmanCode, HasCodesOfEveryLengthUpToFifteen)
{
    HuffmanCode code;
    Lengths lengths;
    std::string bits;
    for (std::uint8_t length = 1; length <= 15; ++length) {
        lengths.push_back(length);
        bits += std::string(length - 1U, '1') + "0";
    }
    lengths.push_back(15);
    bits += std::string(15, '1');
    ASSERT_TRUE(Make(code, lengths));

    EXPECT_THAT(SymbolsOf(code, bits, 16),
                ElementsAre(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15));
}

TEST(HuffmanCode, HoldsAsManySymbolsAsAreAllowed)
{
    HuffmanCode code;
    // 224 symbols of eight bits and 64 of nine fill the code up.
    Lengths lengths(HuffmanCode::kMostSymbols, 8);
    std::fill(lengths.begin() + 224, lengths.end(), std::uint8_t{9});
    ASSERT_TRUE(Make(code, lengths));

    EXPECT_THAT(SymbolsOf(code,
                          "00000000"
                          "11011111"
                          "111000000"
                          "111111111",
                          4),
                ElementsAre(0, 223, 224, 287));
}

TEST(HuffmanCode, MayHaveASingleSymbolOfOneBit)
{
    HuffmanCode code;
    ASSERT_TRUE(Make(code, {0, 0, 1}));

    EXPECT_THAT(SymbolsOf(code, "001", 3), ElementsAre(2, 2, HuffmanCode::kNoSymbol));
}

TEST(HuffmanCode, MayHaveNoSymbolAtAll)
{
    HuffmanCode code;
    ASSERT_TRUE(Make(code, {0, 0, 0}));

    EXPECT_THAT(SymbolsOf(code, "0", 1), ElementsAre(HuffmanCode::kNoSymbol));
}

TEST(HuffmanCode, IsRefusedWithTooManyShortCodesOrAGap)
{
    HuffmanCode code;

    EXPECT_FALSE(Make(code, {1, 1, 1}));
    EXPECT_FALSE(Make(code, {1, 1, 15}));
    EXPECT_FALSE(Make(code, {2, 2, 2}));
    EXPECT_FALSE(Make(code, {1, 2}));
    EXPECT_FALSE(Make(code, {2}));
    EXPECT_FALSE(Make(code, {15}));
}

} // namespace

} // namespace kx::archive
