// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "trial/BoundedText.h"

#include <gmock/gmock.h>

namespace kx::tool
{

namespace
{

using testing::ElementsAre;

TEST(BoundedText, IsEmptyAtFirst)
{
    EXPECT_THAT(BoundedText().Lines(), ElementsAre());
}

TEST(BoundedText, KeepsAShortTextAsItIs)
{
    BoundedText text(8);

    text.Append("ab");
    text.Append("c\n\n4");

    EXPECT_THAT(text.Lines(), ElementsAre("abc", "", "4"));
    EXPECT_EQ(text.Omitted(), 0U);
}

TEST(BoundedText, GivesAllBytesAsTheyCame)
{
    BoundedText text(8);

    text.Append(std::string("a\0\n", 3));
    text.Append("b\n");

    EXPECT_EQ(text.Bytes(), std::string("a\0\nb\n", 5));
    text.Append("123456789");
    EXPECT_EQ(text.Bytes(), std::nullopt);
}

TEST(BoundedText, JoinsBeginningAndEndWhereNothingIsLeftOut)
{
    BoundedText text(8);

    text.Append("abcdefgh1234");

    EXPECT_THAT(text.Lines(), ElementsAre("abcdefgh1234"));
    EXPECT_EQ(text.Omitted(), 0U);
}

TEST(BoundedText, KeepsBeginningAndEndOfALongText)
{
    BoundedText text(8);

    text.Append("abcd");
    text.Append("efgh");
    text.Append("ijkl");
    text.Append("mnop");

    EXPECT_THAT(text.Lines(), ElementsAre("abcd", "[8 bytes left out]", "mnop"));
    EXPECT_EQ(text.Omitted(), 8U);
}

TEST(BoundedText, KeepsTheSameWhateverThePieces)
{
    const std::string all = "abcdefghijklmnopqrstuvwxyz";
    for (std::size_t size = 1; size <= all.size(); ++size) {
        BoundedText text(8);
        for (std::size_t i = 0; i < all.size(); i += size) {
            text.Append(std::string_view(all).substr(i, size));
        }
        EXPECT_THAT(text.Lines(), ElementsAre("abcd", "[18 bytes left out]", "wxyz")) << size;
        EXPECT_EQ(text.Omitted(), 18U) << size;
    }
}

TEST(BoundedText, TakesOneLargePiece)
{
    BoundedText text(8);

    text.Append("ab\ncdefghijklmnopqr\nst");

    EXPECT_THAT(text.Lines(), ElementsAre("ab", "c", "[14 bytes left out]", "r", "st"));
}

} // namespace

} // namespace kx::tool
