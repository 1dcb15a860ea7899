// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "compare/LineDifference.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace kx::tool
{

using ::testing::ElementsAre;
using ::testing::Pair;

TEST(UnifiedDifference, ShowsLinesWithThreeAround)
{
    EXPECT_EQ(UnifiedDifference("1\n2\n3\n4\n5\n6\n7\n8\n9\n", "1\n2\n3\n4\nfive\n6\n7\n8\n9\n"),
              "@@ -2,7 +2,7 @@\n 2\n 3\n 4\n-5\n+five\n 6\n 7\n 8\n");
}

TEST(UnifiedDifference, PutsIntoOneHunkWhatIsNear)
{
    const std::string before = "a\n1\n2\n3\n4\n5\n6\nb\n";
    EXPECT_EQ(UnifiedDifference(before, "A\n1\n2\n3\n4\n5\n6\nB\n"),
              "@@ -1,8 +1,8 @@\n-a\n+A\n 1\n 2\n 3\n 4\n 5\n 6\n-b\n+B\n");
    EXPECT_EQ(UnifiedDifference("a\n1\n2\n3\n4\n5\n6\n7\nb\n", "1\n2\n3\n4\n5\n6\n7\nb\nc\n"),
              "@@ -1,4 +1,3 @@\n-a\n 1\n 2\n 3\n@@ -7,3 +6,4 @@\n 6\n 7\n b\n+c\n");
}

TEST(UnifiedDifference, CountsFromZeroWhereThereIsNothing)
{
    EXPECT_EQ(UnifiedDifference("", "a\n"), "@@ -0,0 +1,1 @@\n+a\n");
    EXPECT_EQ(UnifiedDifference("a\nb\n", ""), "@@ -1,2 +0,0 @@\n-a\n-b\n");
}

TEST(UnifiedDifference, TellsOfAnEndWithoutALineFeed)
{
    EXPECT_EQ(UnifiedDifference("a\nb\n", "a\nb"),
              "@@ -1,2 +1,2 @@\n a\n-b\n+b\n\\ No newline at end of file\n");
}

TEST(UnifiedDifference, IsEmptyForTheSame)
{
    EXPECT_EQ(UnifiedDifference("a\n", "a\n"), "");
    EXPECT_EQ(UnifiedDifference("", ""), "");
}

TEST(UnifiedDifference, IsBounded)
{
    std::string one;
    std::string other;
    for (int i = 0; i < 9999; ++i) {
        one += "a" + std::to_string(i) + "\n";
        other += "b" + std::to_string(i) + "\n";
    }
    EXPECT_EQ(UnifiedDifference(one, other).substr(0, 22), "@@ -1,9999 +1,9999 @@\n");
    EXPECT_EQ(UnifiedDifference(one + "\n\n\n", other), "(too long to be compared line by line)\n");
}

TEST(MatchedLists, KeepTheOrderOfBoth)
{
    const std::vector<MatchedPlaces> matched = MatchLists({"a", "b", "c"}, {"b", "x", "c", "a"});

    EXPECT_THAT(matched, ElementsAre(Pair(0U, std::nullopt), Pair(1U, 0U), Pair(std::nullopt, 1U),
                                     Pair(2U, 2U), Pair(std::nullopt, 3U)));
    EXPECT_TRUE(MatchLists({}, {}).empty());
}

} // namespace kx::tool
