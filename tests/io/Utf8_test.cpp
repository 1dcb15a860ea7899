// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "io/Utf8.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

namespace kx::io
{

namespace
{

/// The bytes of a number in the form of UTF-8, whether it is a character or not.
/// @param length  of the form, 1 to 4
std::string Form(std::uint32_t number, unsigned length)
{
    constexpr unsigned kLeads[] = {0, 0, 0xc0, 0xe0, 0xf0};
    std::string bytes;
    for (unsigned i = 1; i < length; ++i) {
        bytes.insert(bytes.begin(), static_cast<char>(0x80 | (number & 0x3f)));
        number >>= 6;
    }
    bytes.insert(bytes.begin(), static_cast<char>(kLeads[length] | number));
    return bytes;
}

unsigned LengthFor(std::uint32_t number)
{
    return number < 0x80 ? 1 : number < 0x800 ? 2 : number < 0x10000 ? 3 : 4;
}

} // namespace

TEST(Utf8, TellsTextFromBytes)
{
    EXPECT_TRUE(IsUtf8(""));
    EXPECT_TRUE(IsUtf8("a\xc3\xa4\xe3\x81\x82\xf0\x9f\x98\x80"));
    EXPECT_FALSE(IsUtf8("a\xff"));
    EXPECT_FALSE(IsUtf8("\xc3"));
    EXPECT_FALSE(IsUtf8("\xc0\xaf"));
    EXPECT_TRUE(IsUtf8(std::string_view("\0", 1)));
}

TEST(Utf8, HasEveryCharacterInItsShortestFormOnly)
{
    constexpr std::uint32_t kBeyond = 0x200000; // what four bytes can hold
    for (std::uint32_t number = 0; number < kBeyond; ++number) {
        const bool isHalf = number >= 0xd800 && number <= 0xdfff;
        const bool isCharacter = !isHalf && number <= 0x10ffff;
        for (unsigned length = LengthFor(number); length <= 4; ++length) {
            const std::string bytes = Form(number, length);
            const bool isText = isCharacter && length == LengthFor(number);
            ASSERT_EQ(IsUtf8(bytes), isText) << number << " in " << length;
            ASSERT_EQ(Utf8Length(bytes + "\x80"), isText ? length : 0)
                << number << " in " << length;
        }
    }
}

TEST(Utf8, RefusesEveryPairOfBytesThatIsNoText)
{
    for (unsigned first = 0; first < 0x100; ++first) {
        for (unsigned second = 0; second < 0x100; ++second) {
            const std::string bytes = {static_cast<char>(first), static_cast<char>(second)};
            const bool areTwo = first < 0x80 && second < 0x80;
            const bool isOne = first >= 0xc2 && first <= 0xdf && second >= 0x80 && second <= 0xbf;
            ASSERT_EQ(IsUtf8(bytes), areTwo || isOne) << first << " " << second;
        }
    }
}

TEST(Utf8, RefusesCharactersThatEndTooSoon)
{
    for (const std::string whole : {"\xc3\xa4", "\xe3\x81\x82", "\xf0\x9f\x98\x80"}) {
        for (std::size_t length = 1; length < whole.size(); ++length) {
            const std::string cut = whole.substr(0, length);
            EXPECT_FALSE(IsUtf8(cut));
            EXPECT_FALSE(IsUtf8(cut + "a"));
            EXPECT_EQ(Utf8Length(cut), 0U);
        }
    }
}

TEST(Utf8, TellsHowFarATextIsText)
{
    EXPECT_EQ(Utf8Prefix(""), 0U);
    EXPECT_EQ(Utf8Prefix("a\xc3\xa4"), 3U);
    EXPECT_EQ(Utf8Prefix("a\xc3\xa4\xff\xc3\xa4"), 3U);
    EXPECT_EQ(Utf8Prefix("a\xe3\x81"), 1U);
    EXPECT_EQ(Utf8Length(""), 0U);
    EXPECT_EQ(Utf8Length("ab"), 1U);
    // The next character is cut where four bytes end: it does not matter.
    EXPECT_EQ(Utf8Length("\xe3\x81\x82\xf0\x9f\x98\x80"), 3U);
}

TEST(Utf8, TakesCharactersOffTheBeginning)
{
    std::string_view text = "a\xc3\xa4\xf0\x9f\x98\x80";

    EXPECT_EQ(TakeCharacter(text), U'a');
    EXPECT_EQ(TakeCharacter(text), U'\u00e4');
    EXPECT_EQ(TakeCharacter(text), U'\U0001f600');
    EXPECT_EQ(text, "");
}

} // namespace kx::io
