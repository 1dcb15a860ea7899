// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "io/Path.h"

#include <gtest/gtest.h>

namespace kx::io
{

TEST(PlainPath, HasNoDotsAndNoDoubleSlashes)
{
    EXPECT_EQ(PlainPath("/a/b"), "/a/b");
    EXPECT_EQ(PlainPath("a/b/"), "/a/b");
    EXPECT_EQ(PlainPath("//a///b//"), "/a/b");
    EXPECT_EQ(PlainPath("/./a/./b/."), "/a/b");
    EXPECT_EQ(PlainPath("/a/../b"), "/b");
    EXPECT_EQ(PlainPath("/a/b/../../c"), "/c");
    EXPECT_EQ(PlainPath("/a/b/.."), "/a");
    EXPECT_EQ(PlainPath("/..a/b../..."), "/..a/b../...");
}

TEST(PlainPath, EndsAtTheRoot)
{
    for (const char* const path : {"", "/", ".", "..", "/../..", "/a/..", "/a/../.."}) {
        EXPECT_EQ(PlainPath(path), "/") << path;
    }
    EXPECT_EQ(PlainPath("/../../a"), "/a");
}

TEST(FolderAbove, GoesUpToTheRoot)
{
    EXPECT_EQ(FolderAbove("/a/b"), "/a");
    EXPECT_EQ(FolderAbove("/a"), "/");
    EXPECT_EQ(FolderAbove("/"), "/");
}

TEST(IsIn, TakesAFolderAndWhatIsBelowIt)
{
    EXPECT_TRUE(IsIn("/a", "/a"));
    EXPECT_TRUE(IsIn("/a/b", "/a"));
    EXPECT_TRUE(IsIn("/a/", "/a"));
    EXPECT_FALSE(IsIn("/ab", "/a"));
    EXPECT_FALSE(IsIn("/b/a", "/a"));
    EXPECT_FALSE(IsIn("/", "/a"));
    EXPECT_FALSE(IsIn("/b", "/a"));
}

} // namespace kx::io
