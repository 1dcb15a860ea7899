// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "unpack/LocalNames.h"

#include <gtest/gtest.h>

namespace kx::tool
{

namespace
{

struct NameCase {
    const char* test;
    const char* part;
    const char* harmless;
};

} // namespace

class HarmlessNames : public ::testing::TestWithParam<NameCase>
{
};

TEST_P(HarmlessNames, AreMadeOfAllNames)
{
    EXPECT_EQ(HarmlessName(GetParam().part), GetParam().harmless);
    EXPECT_EQ(HarmlessName(GetParam().harmless), GetParam().harmless);
}

INSTANTIATE_TEST_SUITE_P(
    Names, HarmlessNames,
    ::testing::Values(
        NameCase{"Plain", "a-b_c.d e", "a-b_c.d e"}, NameCase{"Hidden", ".hidden", ".hidden"},
        NameCase{"BeyondAscii", "\xc3\xa4\xe6\x97\xa5", "\xc3\xa4\xe6\x97\xa5"},
        NameCase{"NoUtf8", "a\xff\xc3", "a__"}, NameCase{"Empty", "", "_"},
        NameCase{"Dot", ".", "__"}, NameCase{"DotDot", "..", "_._"},
        NameCase{"Shell", "a$b`c\"d\\e", "a_b_c_d_e"}, NameCase{"Patterns", "a*b?", "a_b_"},
        NameCase{"OtherSystems", "a:b<c>d|e", "a_b_c_d_e"},
        NameCase{"Control", "a\nb\x7f\x1b", "a_b__"}, NameCase{"Option", "-rf", "_rf"},
        NameCase{"BlankBefore", " a", "_ a"}, NameCase{"BlankBehind", "a ", "a_"},
        NameCase{"DotBehind", "a.", "a_"}, NameCase{"Repository", ".git", "_git"},
        NameCase{"RepositoryInCapitals", ".GIT", "_GIT"},
        NameCase{"NoRepository", ".gitignore", ".gitignore"}, NameCase{"Device", "con", "_con"},
        NameCase{"DeviceFile", "NUL.txt", "_NUL.txt"}, NameCase{"Port", "com1", "_com1"},
        NameCase{"NoPort", "com", "com"}, NameCase{"NoDevice", "console", "console"}),
    [](const auto& param) { return param.param.test; });

TEST(HarmlessPaths, AreRelativeAndNotHidden)
{
    for (const char* const path : {"a", "a/b/.c", "\xc3\xa4/b"}) {
        EXPECT_TRUE(IsHarmlessPath(path)) << path;
    }
    for (const char* const path : {"", "/a", "a/", "a//b", "../a", "a/../b", "./a", ".hidden/a",
                                   "a/.git/config", "a\\b", "C:/a"}) {
        EXPECT_FALSE(IsHarmlessPath(path)) << path;
    }
    EXPECT_FALSE(IsHarmlessPath(std::string(1001, 'a')));
}

TEST(NamesInOneTree, DifferInMoreThanCase)
{
    LocalNames names;

    EXPECT_EQ(names.Of("A/x"), "A/x");
    EXPECT_EQ(names.Of("a/x"), "a~2/x");
    EXPECT_EQ(names.Of("a/X"), "a~2/X~2");
    EXPECT_EQ(names.Of("a/x"), "a~2/x");
    EXPECT_EQ(names.Of("A"), "A");
    EXPECT_EQ(names.Of("a~2"), "a~2~2");
    EXPECT_EQ(names.Of("q?"), "q_");
    EXPECT_EQ(names.Of("q*"), "q_~2");
}

TEST(PlacesOfFiles, AreTakenOnce)
{
    LocalPlaces places;

    EXPECT_TRUE(places.TakeFile("bin/hello"));
    EXPECT_FALSE(places.TakeFile("bin/hello"));
    EXPECT_FALSE(places.TakeFile("BIN/Hello"));
    EXPECT_TRUE(places.TakeFile("bin/other"));
    EXPECT_FALSE(places.TakeFile("bin/hello/below"));
    EXPECT_FALSE(places.TakeFile("bin"));
    EXPECT_EQ(places.TakeFileNear("bin/hello"), "bin/hello~2");
}

TEST(PlacesOfTrees, HoldNothingElse)
{
    LocalPlaces places;
    ASSERT_TRUE(places.TakeFile("bin/hello"));

    EXPECT_FALSE(places.TakeTree("bin"));
    EXPECT_TRUE(places.TakeTree("share"));
    EXPECT_FALSE(places.TakeTree("share/deep"));
    EXPECT_FALSE(places.TakeFile("Share/x"));
    EXPECT_TRUE(places.TakeFile("share-x"));
    EXPECT_EQ(places.TakeTreeNear("bin"), "bin~2");
}

} // namespace kx::tool
