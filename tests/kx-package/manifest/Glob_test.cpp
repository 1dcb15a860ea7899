// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "manifest/Glob.h"
#include "support/TempDir.h"
#include "support/Thrown.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>

#include <sys/stat.h>

namespace kx::tool
{

using ::testing::ElementsAre;

namespace
{

struct GlobCase {
    const char* name;
    const char* pattern;
    const char* path;
    bool fits;
};

std::vector<std::string> NamesOf(const std::vector<FoundFile>& found)
{
    std::vector<std::string> names;
    names.reserve(found.size());
    for (const FoundFile& file : found) {
        names.push_back(file.name + (file.isFolder ? "/" : ""));
    }
    return names;
}

} // namespace

class Glob : public ::testing::TestWithParam<GlobCase>
{
};

TEST_P(Glob, FitsWhatItSays)
{
    EXPECT_EQ(MatchesPath(GetParam().pattern, GetParam().path), GetParam().fits);
}

INSTANTIATE_TEST_SUITE_P(
    Patterns, Glob,
    ::testing::Values(GlobCase{"PlainName", "a.txt", "a.txt", true},
                      GlobCase{"OtherName", "a.txt", "b.txt", false},
                      GlobCase{"StarInName", "a*.txt", "abc.txt", true},
                      GlobCase{"StarForNothing", "a*.txt", "a.txt", true},
                      GlobCase{"StarTriesLaterPlaces", "*ab", "aab", true},
                      GlobCase{"StarBeginsTheRestAnew", "*ab", "axb", false},
                      GlobCase{"LaterStarsDoNotGoBack", "*bc*cd", "bcd", false},
                      GlobCase{"TwoStars", "*a*b", "xaxxb", true},
                      GlobCase{"StarStaysInItsPart", "*", "a/b", false},
                      GlobCase{"NameIsMatchedWhole", "a", "ab", false},
                      GlobCase{"PatternIsMatchedWhole", "ab", "a", false},
                      GlobCase{"QuestionMark", "a?c", "abc", true},
                      GlobCase{"QuestionMarkNeedsACharacter", "a?", "a", false},
                      GlobCase{"QuestionMarkIsOneUtf8Character", "?.txt", "\xe3\x81\x82.txt", true},
                      GlobCase{"QuestionMarkIsNotTwo", "?.txt", "\xc3\xa4\xc3\xa4.txt", false},
                      GlobCase{"StarTakesWholeCharacters", "*\xa4.txt", "\xc3\xa4.txt", false},
                      GlobCase{"StarTakesBytesThatAreNoCharacters", "*b",
                               "\xff\xfe"
                               "b",
                               true},
                      GlobCase{"AnyDepth", "**", "a/b/c", true},
                      GlobCase{"AnyDepthBeforeAName", "**/x", "a/b/x", true},
                      GlobCase{"AnyDepthMayBeNone", "**/x", "x", true},
                      GlobCase{"AnyDepthInside", "a/**/b", "a/1/2/b", true},
                      GlobCase{"AnyDepthNeedsTheRest", "a/**/b", "a/1/2/c", false},
                      GlobCase{"HiddenNamesDoNotFit", "*", ".git", false},
                      GlobCase{"HiddenFoldersDoNotFit", "**", ".git/x", false},
                      GlobCase{"HiddenNamesFitADot", ".g*", ".git", true},
                      GlobCase{"QuestionMarkIsNoLeadingDot", "?git", ".git", false},
                      GlobCase{"PartsThatAreEmptyDoNotCount", "a//b", "a/b", true}),
    [](const auto& place) { return std::string(place.param.name); });

TEST(GlobTime, IsBoundedForHostilePatterns)
{
    const std::string stars = "*a*a*a*a*a*a*a*a*a*a*a*a*a*a*a*a*b";
    std::string folders;
    std::string path;
    for (int i = 0; i < 200; ++i) {
        folders += "**/a/";
        path += "a/";
    }
    const auto start = std::chrono::steady_clock::now();

    EXPECT_FALSE(MatchesPath(stars, std::string(5000, 'a')));
    EXPECT_FALSE(MatchesPath(folders + "b", path + "a"));

    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
}

TEST(FixedFolder, IsWhatStandsBeforeTheFirstWildcard)
{
    EXPECT_EQ(FixedFolder("data/*/x"), "data");
    EXPECT_EQ(FixedFolder("../a/b/**"), "../a/b");
    EXPECT_EQ(FixedFolder("*.txt"), "");
    EXPECT_EQ(FixedFolder("bin/hello"), "bin");
    EXPECT_EQ(FixedFolder("/opt/x*"), "/opt");
    EXPECT_EQ(FixedFolder("/x*"), "/");
}

TEST(ListTree, FindsWhatThePatternFitsInTheOrderOfBytes)
{
    const TempDir dir;
    dir.Write("b/x.txt", "");
    dir.Write("a/y/x.txt", "");
    dir.Write("a-b.txt", "");
    dir.Write(".git/x.txt", "");
    dir.Write("a/x.bin", "");

    EXPECT_THAT(NamesOf(ListTree(dir.Path(), FilterOf("**/*.txt"))),
                ElementsAre("a-b.txt", "a/y/x.txt", "b/x.txt"));
    EXPECT_THAT(NamesOf(ListTree(dir.Path(), FilterOf("*"))), ElementsAre("a/", "a-b.txt", "b/"));
}

TEST(ListTree, TakesEverythingButWhatIsExcluded)
{
    const TempDir dir;
    dir.Write("keep/.hidden", "");
    dir.Write("keep/x.orig", "");
    dir.Write("drop/deep/x", "");

    EXPECT_THAT(NamesOf(ListTree(dir.Path(), FilterWithout({"**/*.orig", "drop"}))),
                ElementsAre("keep/", "keep/.hidden"));
}

TEST(ListTree, DoesNotEnterFoldersThatHoldNothingWanted)
{
    const TempDir dir;
    std::filesystem::create_directory_symlink("/", dir.MakeDir("other") + "/loop");
    dir.Write("wanted/x", "");

    EXPECT_THAT(NamesOf(ListTree(dir.Path(), FilterOf("wanted/*"))), ElementsAre("wanted/x"));
    EXPECT_THAT(NamesOf(ListTree(dir.Path(), FilterWithout({"other"}))),
                ElementsAre("wanted/", "wanted/x"));
}

TEST(TreeFilters, EnterOnlyFoldersThatMayHoldSomethingWanted)
{
    const TreeFilter files = FilterOf("wanted/*/x");
    EXPECT_TRUE(files.isEntered("wanted"));
    EXPECT_TRUE(files.isEntered("wanted/a"));
    EXPECT_FALSE(files.isEntered("other"));
    EXPECT_FALSE(files.isEntered("wanted/a/x"));
    EXPECT_FALSE(FilterOf("x").isEntered("x"));
    EXPECT_TRUE(FilterOf("a/**").isEntered("a/b/c"));
    EXPECT_FALSE(FilterOf("a/**").isEntered("a/.b"));
    EXPECT_FALSE(FilterWithout({"a"}).isEntered("a"));
    EXPECT_TRUE(FilterWithout({"a"}).isEntered("b"));
}

TEST(ListTree, EntersWhateverTheEndOfAPatternFitsAtAnyDepth)
{
    const TempDir dir;
    dir.Write("a/b/c/x", "");
    dir.Write("a/.git/x", "");
    dir.Write("b/x", "");

    EXPECT_THAT(NamesOf(ListTree(dir.Path(), FilterOf("a/**"))),
                ElementsAre("a/", "a/b/", "a/b/c/", "a/b/c/x"));
    EXPECT_THAT(NamesOf(ListTree(dir.Path(), FilterOf("a/**/c/*"))), ElementsAre("a/b/c/x"));
    EXPECT_THAT(NamesOf(ListTree(dir.Path(), FilterOf("a"))), ElementsAre("a/"));
}

TEST(ListTree, TakesLinksToFilesAndRefusesOtherThings)
{
    const TempDir dir;
    dir.Write("file", "x");
    std::filesystem::create_symlink("file", dir / "link");
    EXPECT_THAT(NamesOf(ListTree(dir.Path(), FilterWithout({}))), ElementsAre("file", "link"));

    std::filesystem::create_symlink("nowhere", dir / "broken");
    EXPECT_EQ(Thrown([&] { static_cast<void>(ListTree(dir.Path(), FilterWithout({}))); }),
              "1: " + (dir / "broken") +
                  ": is a link that leads nowhere; remove it, or list it in 'exclude'");

    std::filesystem::remove(dir / "broken");
    std::filesystem::create_directory_symlink("/", dir / "root");
    EXPECT_EQ(
        Thrown([&] { static_cast<void>(ListTree(dir.Path(), FilterWithout({}))); }),
        "1: " + (dir / "root") +
            ": is a link to a folder; put the folder itself there, or list the link in 'exclude'");

    std::filesystem::remove(dir / "root");
    ASSERT_EQ(mkfifo((dir / "pipe").c_str(), 0600), 0);
    EXPECT_EQ(Thrown([&] { static_cast<void>(ListTree(dir.Path(), FilterWithout({}))); }),
              "1: " + (dir / "pipe") +
                  ": is neither a file nor a folder; remove it, or list it in 'exclude'");
}

TEST(ListTree, SaysWhichFolderCannotBeListed)
{
    EXPECT_EQ(Thrown([] { static_cast<void>(ListTree("/nowhere/x", FilterWithout({}))); }),
              "1: /nowhere/x: cannot list the folder: No such file or directory");
}

} // namespace kx::tool
