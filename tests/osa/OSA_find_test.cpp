// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "osa/OSA.h"
#include "support/TempDir.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include <sys/stat.h>

using ::testing::ElementsAre;
using ::testing::IsEmpty;
namespace fs = std::filesystem;

namespace
{

/// The names that a whole listing of @p dir gives.
std::vector<std::string> List(OSA_FindFile& find, const std::string& dir)
{
    std::vector<std::string> names;
    for (const char* name = find.FindFirst(dir.c_str()); name != nullptr; name = find.Next()) {
        names.emplace_back(name);
    }
    return names;
}

} // namespace

TEST(OsaFindFile, ListsBareNamesInCollationOrder)
{
    const TempDir dir;
    for (const char* const name : {"b", "a", "B", "A", "10", "9", "_", "a b", "aa"}) {
        dir.Write(name, "");
    }
    OSA_FindFile find;

    EXPECT_THAT(List(find, dir.Path()),
                ElementsAre("10", "9", "A", "B", "_", "a", "a b", "aa", "b"));
}

TEST(OsaFindFile, ListsEveryKindOfEntry)
{
    const TempDir dir;
    dir.Write("file", "");
    dir.MakeDir("folder/below");
    fs::create_symlink("file", dir / "link");
    fs::create_symlink("missing", dir / "link to nothing");
    ASSERT_EQ(mkfifo((dir / "fifo").c_str(), 0600), 0);
    OSA_FindFile find;

    EXPECT_THAT(List(find, dir.Path()),
                ElementsAre("fifo", "file", "folder", "link", "link to nothing"));
}

TEST(OsaFindFile, SkipsNothingButTheFolderItselfAndItsParent)
{
    const TempDir dir;
    for (const char* const name : {".hidden", "...", "..a", ".a.", "-", "!", "~"}) {
        dir.Write(name, "");
    }
    OSA_FindFile find;

    // Some of these names stand before "." and some between and behind "..".
    EXPECT_THAT(List(find, dir.Path()), ElementsAre("!", "-", "...", "..a", ".a.", ".hidden", "~"));
}

TEST(OsaFindFile, ListsNamesThatAreNotUtf8)
{
    const TempDir dir;
    for (const char* const name : {"\xFF\xFE", "\x80", "%s%n", "\n", "\\"}) {
        dir.Write(name, "");
    }
    OSA_FindFile find;

    EXPECT_THAT(List(find, dir.Path()), ElementsAre("\n", "%s%n", "\\", "\x80", "\xFF\xFE"));
}

TEST(OsaFindFile, FindsNothingInAnEmptyFolder)
{
    const TempDir dir;
    OSA_FindFile find;

    EXPECT_EQ(find.FindFirst(dir.Path().c_str()), nullptr);
    EXPECT_EQ(find.Next(), nullptr);
}

TEST(OsaFindFile, FindsNothingWhereNothingCanBeListed)
{
    const TempDir dir;
    OSA_FindFile find;

    for (const std::string& path :
         {std::string(), dir / "missing", dir.Write("file", ""), dir / std::string(5000, 'n')}) {
        EXPECT_EQ(find.FindFirst(path.c_str()), nullptr);
        EXPECT_EQ(find.Next(), nullptr);
    }
}

TEST(OsaFindFile, HasNoNextNameBeforeAListing)
{
    OSA_FindFile find;

    EXPECT_EQ(find.Next(), nullptr);
}

TEST(OsaFindFile, HasNoNextNameBehindTheEnd)
{
    const TempDir dir;
    dir.Write("only", "");
    OSA_FindFile find;

    EXPECT_STREQ(find.FindFirst(dir.Path().c_str()), "only");
    EXPECT_EQ(find.Next(), nullptr);
    EXPECT_EQ(find.Next(), nullptr);
}

TEST(OsaFindFile, StartsAnewWithEveryFindFirst)
{
    const TempDir dir;
    dir.Write("1/a", "");
    dir.Write("1/b", "");
    dir.Write("2/c", "");
    OSA_FindFile find;

    EXPECT_STREQ(find.FindFirst((dir / "1").c_str()), "a");
    EXPECT_STREQ(find.FindFirst((dir / "1").c_str()), "a");
    EXPECT_STREQ(find.FindFirst((dir / "2").c_str()), "c");
    EXPECT_EQ(find.Next(), nullptr);
    EXPECT_EQ(find.FindFirst((dir / "missing").c_str()), nullptr);
    EXPECT_EQ(find.Next(), nullptr);
    EXPECT_THAT(List(find, dir / "1"), ElementsAre("a", "b"));
}

TEST(OsaFindFile, KeepsANameValidWhileTheListingGoesOn)
{
    const TempDir dir;
    dir.Write("a", "");
    dir.Write("b", "");
    OSA_FindFile find;

    const char* const first = find.FindFirst(dir.Path().c_str());
    fs::remove(dir / "a");
    const char* const second = find.Next();
    EXPECT_EQ(find.Next(), nullptr);

    EXPECT_STREQ(first, "a");
    EXPECT_STREQ(second, "b");
}

TEST(OsaFindFile, ListsAnUnchangedPictureOfTheFolder)
{
    const TempDir dir;
    dir.Write("a", "");
    OSA_FindFile find;

    EXPECT_STREQ(find.FindFirst(dir.Path().c_str()), "a");
    dir.Write("b", "");

    EXPECT_EQ(find.Next(), nullptr);
}

TEST(OsaFindFile, HoldsAListingOfItsOwnInEveryObject)
{
    const TempDir dir;
    dir.Write("1/a", "");
    dir.Write("1/b", "");
    dir.Write("2/c", "");
    OSA_FindFile outer;
    OSA_FindFile inner;

    EXPECT_STREQ(outer.FindFirst((dir / "1").c_str()), "a");
    EXPECT_THAT(List(inner, dir / "2"), ElementsAre("c"));

    EXPECT_STREQ(outer.Next(), "b");
}

TEST(OsaFindFile, ListsThousandsOfEntries)
{
    constexpr int kCount = 3000;
    const TempDir dir;
    std::vector<std::string> expected;
    for (int i = 0; i < kCount; ++i) {
        expected.push_back(std::to_string(i));
        dir.Write(expected.back(), "");
    }
    std::sort(expected.begin(), expected.end());
    OSA_FindFile find;

    EXPECT_EQ(List(find, dir.Path()), expected);
}

TEST(OsaFindFile, ListsTheLongestName)
{
    const TempDir dir;
    const std::string name(255, 'n');
    dir.Write(name, "");
    OSA_FindFile find;

    EXPECT_THAT(List(find, dir.Path()), ElementsAre(name));
    EXPECT_THAT(List(find, dir / name), IsEmpty());
}
