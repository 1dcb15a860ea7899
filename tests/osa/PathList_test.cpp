// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "osa/PathList.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace std::string_literals;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace
{

std::vector<std::string> Texts(const PathList& list)
{
    return {list.begin(), list.end()};
}

} // namespace

TEST(PathList, StartsEmpty)
{
    const PathList list;

    EXPECT_TRUE(list.empty());
    EXPECT_EQ(list.size(), 0U);
    EXPECT_THAT(Texts(list), IsEmpty());
    EXPECT_FALSE(list.Contains(""));
}

TEST(PathList, KeepsTheOrderOfInsertion)
{
    PathList list;
    list.AppendOnce("/b");
    list.AppendOnce("/a");
    list.AppendOnce("/c");

    EXPECT_THAT(Texts(list), ElementsAre("/b", "/a", "/c"));
    EXPECT_EQ(list.size(), 3U);
    EXPECT_FALSE(list.empty());
}

TEST(PathList, AppendsAnEqualTextOnce)
{
    PathList list;
    list.AppendOnce("/a");
    list.AppendOnce("/b");
    list.AppendOnce("/a");

    EXPECT_THAT(Texts(list), ElementsAre("/a", "/b"));
    EXPECT_EQ(list.size(), 2U);
    EXPECT_TRUE(list.Contains("/a"));
}

TEST(PathList, ComparesByteForByte)
{
    PathList list;
    const std::vector<std::string> texts = {
        "/a",        "/a/",   "/A",     "//a", "/a ", "",
        "\xC3\xA9",  // one letter, composed
        "e\xCC\x81", // the same letter, decomposed
        "\xE9",      "/a\0"s, "/a\0b"s, "%s",
    };

    for (const std::string& text : texts) {
        EXPECT_FALSE(list.Contains(text)) << text;
        list.AppendOnce(text);
        list.AppendOnce(text);
        EXPECT_TRUE(list.Contains(text)) << text;
    }

    EXPECT_THAT(Texts(list), ::testing::ElementsAreArray(texts));
}

TEST(PathList, ForgetsEverythingWhenCleared)
{
    PathList list;
    list.AppendOnce("/a");
    list.AppendOnce("/b");

    list.clear();

    EXPECT_THAT(Texts(list), IsEmpty());
    EXPECT_FALSE(list.Contains("/a"));
    EXPECT_FALSE(list.Contains("/b"));
}

TEST(PathList, TakesTheSameTextsAgainAfterItWasCleared)
{
    PathList list;
    list.AppendOnce("/a");
    list.clear();
    list.clear();

    list.AppendOnce("/b");
    list.AppendOnce("/a");
    list.AppendOnce("/a");

    EXPECT_THAT(Texts(list), ElementsAre("/b", "/a"));
}

TEST(PathList, TakesATextOfItsOwn)
{
    PathList list;
    list.AppendOnce("/a");

    list.AppendOnce(*list.begin());

    EXPECT_THAT(Texts(list), ElementsAre("/a"));
    EXPECT_EQ(list.size(), 1U);
    EXPECT_TRUE(list.Contains("/a"));
}

TEST(PathList, DoesNotDependOnTheCallersText)
{
    PathList list;
    {
        std::string text(100, 'x');
        list.AppendOnce(text);
        text.assign(100, 'y');
    }

    EXPECT_TRUE(list.Contains(std::string(100, 'x')));
    EXPECT_FALSE(list.Contains(std::string(100, 'y')));
}

TEST(PathList, FindsEachOfTensOfThousandsOfPaths)
{
    constexpr int kCount = 50000;
    PathList list;
    std::vector<std::string> expected;
    for (int i = 0; i < kCount; ++i) {
        expected.push_back("/opt/app/data/" + std::to_string(i));
        list.AppendOnce(expected.back());
    }
    for (const std::string& path : expected) {
        list.AppendOnce(path);
    }

    EXPECT_EQ(list.size(), 50000U);
    EXPECT_EQ(Texts(list), expected);
    EXPECT_TRUE(list.Contains("/opt/app/data/49999"));
    EXPECT_FALSE(list.Contains("/opt/app/data/50000"));
}
