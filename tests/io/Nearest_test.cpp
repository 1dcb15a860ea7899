// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "io/Nearest.h"

#include <gtest/gtest.h>

namespace kx::io
{

TEST(Nearest, FindsTheWordThatWasMeant)
{
    const std::vector<std::string> known = {"title", "version", "comment"};

    EXPECT_EQ(Nearest("titlee", known), "title");
    EXPECT_EQ(Nearest("vversion", known), "version");
    EXPECT_EQ(Nearest("Comment", known), "comment");
    EXPECT_EQ(Nearest("comment", known), "comment");
}

TEST(Nearest, FindsNothingFarAway)
{
    EXPECT_EQ(Nearest("colour", {"title", "version"}), "");
    EXPECT_EQ(Nearest("", {"a", "ab"}), "");
    EXPECT_EQ(Nearest(std::string(1000, 'x'), {"title"}), "");
}

TEST(NearestRemedy, NamesTheNearestOrAll)
{
    EXPECT_EQ(NearestRemedy("titlee", {"title", "version"}), "did you mean 'title'?");
    EXPECT_EQ(NearestRemedy("xxxxxx", {"a", "b", "c"}), "there are a, b and c");
    EXPECT_EQ(NearestRemedy("xxxxxx", {"a"}), "there are a");
}

TEST(Nearest, CountsLettersToInsertRemoveAndReplaceAtEveryPlace)
{
    EXPECT_EQ(Nearest("xxcopy", {"copy"}), "copy");
    EXPECT_EQ(Nearest("copyxx", {"copy"}), "copy");
    EXPECT_EQ(Nearest("copy", {"xxcopy"}), "xxcopy");
    EXPECT_EQ(Nearest("copy", {"copyxx"}), "copyxx");
    EXPECT_EQ(Nearest("xxcopyx", {"copy"}), "");
    EXPECT_EQ(Nearest("copy", {"xxxcopy"}), "");
    EXPECT_EQ(Nearest("abcdefghi", {"abcdef"}), "abcdef");
    EXPECT_EQ(Nearest("abcdefgh", {"abcde"}), "");
    EXPECT_EQ(Nearest("ab", {"cd"}), "");
    EXPECT_EQ(Nearest("ax", {"ab", "ac"}), "ab");
}

TEST(Nearest, ComparesWordsOfUpToTwoHundredLetters)
{
    const std::string longest(200, 'a');

    EXPECT_EQ(Nearest(longest, {longest}), longest);
    EXPECT_EQ(Nearest(longest + "a", {longest}), "");
}

} // namespace kx::io
