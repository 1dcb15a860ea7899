// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "support/TempDir.h"
#include "support/Thrown.h"
#include "trial/KeptPanel.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

namespace kx::tool
{

namespace
{

namespace fs = std::filesystem;

std::string Place(const std::string& named, const std::vector<std::string>& apart = {})
{
    std::string place;
    const std::string refused = Thrown([&] { place = PlaceToKeep(named, apart); });
    return place.empty() ? refused : place;
}

TEST(PlaceToKeep, IsAFullPathThroughLinks)
{
    const TempDir dir;
    const std::string real = fs::canonical(dir.Path()).string();
    dir.MakeDir("a");
    fs::create_directory_symlink("a", dir / "link");

    EXPECT_EQ(Place(dir / "new"), real + "/new");
    EXPECT_EQ(Place(dir / "new///"), real + "/new");
    EXPECT_EQ(Place(dir / "link/new"), real + "/a/new");
    EXPECT_EQ(Place(dir / "a/../new"), real + "/new");
    EXPECT_EQ(Place("new.panel"), fs::current_path().string() + "/new.panel");
}

TEST(PlaceToKeep, MustNotBeThereYet)
{
    const TempDir dir;
    dir.MakeDir("folder");
    dir.Write("file", "");
    fs::create_symlink("nowhere", dir / "link");

    for (const char* const name : {"folder", "folder/", "file", "link", "folder/.", "folder/.."}) {
        EXPECT_EQ(Place(dir / name),
                  "2: " + (dir / name) + ": is there already; name a folder that is not there yet");
    }
    EXPECT_EQ(Place(""), "2: --keep: has no name; name a folder that is not there yet");
    EXPECT_EQ(Place("/"), "2: /: is there already; name a folder that is not there yet");
    EXPECT_EQ(Place(dir / "none/new"),
              "3: " + (dir / "none/new") + ": cannot make the folder: No such file or directory");
    EXPECT_EQ(Place(dir / "file/new"),
              "3: " + (dir / "file/new") + ": cannot make the folder: Not a directory");
}

TEST(PlaceToKeep, LiesApartFromWhatIsTried)
{
    const TempDir dir;
    dir.MakeDir("pkg/0");
    dir.MakeDir("pkg-2");
    dir.Write("Foo.kx-update", "");
    fs::create_directory_symlink("pkg/0", dir / "link");
    const std::vector<std::string> apart = {dir / "Foo.kx-update", dir / "pkg"};

    for (const char* const name : {"pkg/new", "pkg/0/new", "link/new"}) {
        EXPECT_EQ(Place(dir / name, apart), "2: " + (dir / name) + ": lies in " + (dir / "pkg") +
                                                "; name a folder elsewhere");
    }
    EXPECT_THAT(Place(dir / "pkg-2/new", apart), testing::EndsWith("/pkg-2/new"));
    EXPECT_THAT(Place(dir / "Foo.kx-update2", apart), testing::EndsWith("/Foo.kx-update2"));
}

TEST(MakeFolderBeside, IsForItsOwnerAloneAndOnTheSameDisk)
{
    const TempDir dir;

    const std::string made = MakeFolderBeside(dir / "new");

    EXPECT_EQ(fs::path(made).parent_path(), dir.Path());
    EXPECT_THAT(dir.Tree(), testing::ElementsAre(testing::MatchesRegex(R"(\.new\.[0-9-]+ d 700)")));
    EXPECT_EQ(Thrown([&dir] { static_cast<void>(MakeFolderBeside(dir / "none/new")); }),
              "3: " + dir.Path() + "/none/new: cannot make the folder: No such file or directory");
}

TEST(GivePlace, MovesAPanelAndNothingElse)
{
    const TempDir dir;
    dir.Write("made/root/file", "x");
    dir.MakeDir("empty");

    EXPECT_FALSE(GivePlace(dir / "empty", dir / "panel"));
    EXPECT_TRUE(GivePlace(dir / "made", dir / "panel"));

    EXPECT_THAT(dir.Tree(), testing::ElementsAre("empty d 755", "panel d 755", "panel/root d 755",
                                                 "panel/root/file f 644 x"));
}

TEST(GivePlace, LeavesAloneWhatHasComeThereMeanwhile)
{
    const TempDir dir;
    dir.Write("made/file", "x");
    dir.Write("taken/mine", "y");
    dir.Write("file", "z");

    for (const char* const name : {"taken", "file"}) {
        EXPECT_EQ(Thrown([&] { static_cast<void>(GivePlace(dir / "made", dir / name)); }),
                  "2: " + (dir / name) + ": is there already; name a folder that is not there yet");
    }

    EXPECT_THAT(dir.Tree(), testing::ElementsAre("file f 644 z", "made d 755", "made/file f 644 x",
                                                 "taken d 755", "taken/mine f 644 y"));
}

} // namespace

} // namespace kx::tool
