// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "io/Reach.h"
#include "support/TempDir.h"
#include "support/Thrown.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <string>
#include <vector>

#include <sys/stat.h>

namespace kx::io
{

using testing::ElementsAre;
using testing::UnorderedElementsAre;

TEST(MeansMissing, IsToldFromWhatMayNotBeLookedAt)
{
    for (const int number : {ENOENT, ENOTDIR, ELOOP, ENAMETOOLONG}) {
        EXPECT_TRUE(MeansMissing(number)) << number;
    }
    for (const int number : {EACCES, EIO, EPERM, ENOMEM, ESTALE, 0}) {
        EXPECT_FALSE(MeansMissing(number)) << number;
    }
}

TEST(IsThere, FollowsLinksAndTakesWhatLeadsNowhereForMissing)
{
    const TempDir dir;
    dir.Write("file", "x");
    std::filesystem::create_symlink("file", dir / "link");
    std::filesystem::create_symlink("nowhere", dir / "broken");
    std::filesystem::create_symlink("loop", dir / "loop");

    for (const char* const name : {"file", "link", "."}) {
        EXPECT_TRUE(IsThere(dir / name)) << name;
    }
    for (const std::string& name : {std::string("none"), std::string("broken"), std::string("loop"),
                                    std::string("file/x"), std::string(300, 'x')}) {
        EXPECT_FALSE(IsThere(dir / name)) << name;
    }
}

TEST(ReadError, IsAProblemOfWhatIsNamedOrOfTheAccess)
{
    const TempDir dir;
    dir.Write("Recipes.kx-update", "x");
    const std::string path = dir / "recipes.kx-update";

    EXPECT_EQ(Thrown([&] { throw ReadError(path, "open", ENOENT); }),
              "1: " + path + ": cannot open: No such file or directory; there is '" + dir.Path() +
                  "/Recipes.kx-update'");
    EXPECT_EQ(Thrown([&] { throw ReadError(path, "open", EACCES); }),
              "3: " + path + ": cannot open: Permission denied");
    EXPECT_EQ(Thrown([&] { throw ReadError(dir / "none", "read", ENOTDIR); }),
              "1: " + (dir / "none") + ": cannot read: Not a directory");
}

/// A folder with names to miss.
class NearestPathTest : public testing::Test
{
protected:
    NearestPathTest()
    {
        m_dir.Write("files/app", "");
        m_dir.Write("files/Lib/libone.so", "");
        m_dir.Write("hello.kx-update", "");
        m_dir.Write("Straße", "");
    }

    TempDir m_dir;
};

TEST_F(NearestPathTest, DiffersInCaseMarksOrAFewLetters)
{
    EXPECT_EQ(NearestPath(m_dir.Path(), "Files/app"), "files/app");
    EXPECT_EQ(NearestPath(m_dir.Path(), "FILES/APP"), "files/app");
    EXPECT_EQ(NearestPath(m_dir.Path(), R"(files\app)"), "files/app");
    EXPECT_EQ(NearestPath(m_dir.Path(), R"(Files\lib/LibOne.so)"), "files/Lib/libone.so");
    EXPECT_EQ(NearestPath(m_dir.Path(), "file/app"), "files/app");
    EXPECT_EQ(NearestPath(m_dir.Path(), "./files//apq"), "./files/app");
    EXPECT_EQ(NearestPath(m_dir.Path(), "helo.kx-update"), "hello.kx-update");
    EXPECT_EQ(NearestPath(m_dir.Path(), "hello.kx-updat"), "hello.kx-update");
    EXPECT_EQ(NearestPath(m_dir.Path(), "STRAße"), "Straße");
    EXPECT_EQ(NearestPath("", m_dir / "Files/app"), m_dir / "files/app");
    EXPECT_EQ(NearestPathRemedy(m_dir.Path(), "Files/app"), "there is 'files/app'");
}

TEST_F(NearestPathTest, IsNothingWhereNothingComesNearOrNothingIsWrong)
{
    for (const std::string& path :
         {std::string("none.kx-update"), std::string("files/other"), std::string("files/app/x"),
          std::string("nowhere/app"), std::string("files/app"), std::string("/"), std::string()}) {
        EXPECT_EQ(NearestPath(m_dir.Path(), path), "") << path;
    }
    EXPECT_EQ(NearestPathRemedy(m_dir.Path(), "nowhere/app"), "");
}

TEST(ForEachBelow, VisitsEverythingAndEntersTheFoldersThatAreWanted)
{
    const TempDir dir;
    dir.Write("a/b/file", "123");
    dir.Write("left/out", "");
    std::filesystem::create_directory_symlink("a", dir / "link");
    std::vector<std::string> seen;

    ForEachBelow(
        dir.Path(), [&](const std::string& name, const std::string& path, const struct stat& info) {
            EXPECT_EQ(path, dir / name);
            seen.push_back(name + (S_ISDIR(info.st_mode) ? "/" : S_ISLNK(info.st_mode) ? "@" : ""));
            return name != "left";
        });

    EXPECT_THAT(seen, UnorderedElementsAre("a/", "a/b/", "a/b/file", "left/", "link@"));
}

TEST(ForEachBelow, SaysWhatCannotBeListed)
{
    const auto visit = [](const std::string& /*name*/, const std::string& /*path*/,
                          const struct stat& /*info*/) { return true; };

    EXPECT_EQ(Thrown([&] { ForEachBelow("/nowhere/x", visit); }),
              "1: /nowhere/x: cannot list the folder: No such file or directory");
}

TEST(Errors, AreTogetherTheFirstOfThoseWithTheGreatestCode)
{
    const Errors errors({{ExitCode::kProblems, "a", "is wrong"},
                         {ExitCode::kNoAccess, "b", "cannot be read"},
                         {ExitCode::kNoAccess, "c", "neither"}});

    EXPECT_EQ(errors.Code(), ExitCode::kNoAccess);
    EXPECT_EQ(errors.Line(), "b: cannot be read");
    std::vector<std::string> places;
    for (const Error& each : errors.All()) {
        places.push_back(each.Where());
    }
    EXPECT_THAT(places, ElementsAre("a", "b", "c"));
}

} // namespace kx::io
