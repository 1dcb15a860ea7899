// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "io/AtomicFolder.h"
#include "io/Faults.h"
#include "support/TempDir.h"
#include "support/Thrown.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <fstream>

#include <sys/stat.h>

namespace kx::io
{

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace
{

void PutFile(const AtomicFolder& folder, const std::string& name)
{
    std::ofstream(folder.Path() + "/" + name) << "content";
}

} // namespace

TEST(AtomicFolders, AreThereWholeAfterCommit)
{
    const TempDir dir;
    {
        AtomicFolder folder(dir / "new//");
        PutFile(folder, "file");
        EXPECT_FALSE(std::filesystem::exists(dir / "new"));
        folder.Commit();
    }

    EXPECT_THAT(dir.Tree(), ElementsAre("new d 755", "new/file f 644 content"));
}

TEST(AtomicFolders, AreNotThereWithoutCommit)
{
    const TempDir dir;
    {
        const AtomicFolder folder(dir / "new");
        PutFile(folder, "file");
    }

    EXPECT_THAT(dir.Tree(), IsEmpty());
}

TEST(AtomicFolders, FillAnEmptyFolderWhichStaysTheSameOne)
{
    const TempDir dir;
    const std::string path = dir.MakeDir("empty");
    struct stat before {
    };
    ASSERT_EQ(stat(path.c_str(), &before), 0);
    {
        const AtomicFolder left(path);
        PutFile(left, "file");
    }
    EXPECT_THAT(dir.Tree(), ElementsAre("empty d 755"));
    {
        AtomicFolder folder(path);
        PutFile(folder, "file");
        std::filesystem::create_directory(folder.Path() + "/sub");
        folder.Commit();
    }

    EXPECT_THAT(dir.Tree(),
                ElementsAre("empty d 755", "empty/file f 644 content", "empty/sub d 755"));
    struct stat after {
    };
    ASSERT_EQ(stat(path.c_str(), &after), 0);
    EXPECT_EQ(before.st_ino, after.st_ino);
}

TEST(AtomicFolders, RefuseWhatIsNotEmpty)
{
    const TempDir dir;
    dir.Write("full/file", "old");
    dir.Write("other", "old");

    EXPECT_EQ(Thrown([&] { const AtomicFolder folder(dir / "full"); }),
              "2: " + dir.Path() +
                  "/full: is there already, and is no empty folder; name a folder that is not "
                  "there yet");
    EXPECT_EQ(Thrown([&] { const AtomicFolder folder(dir / "other"); }),
              "2: " + dir.Path() +
                  "/other: is there already, and is no empty folder; name a folder that is not "
                  "there yet");
    EXPECT_EQ(Thrown([&] { const AtomicFolder folder(dir / "none/new"); }),
              "3: " + dir.Path() + "/none/new: cannot make the folder: No such file or directory");
}

TEST(AtomicFolders, LeaveAloneWhatCameInTheMeantime)
{
    const TempDir dir;
    AtomicFolder beside(dir / "new");
    PutFile(beside, "file");
    dir.Write("new/other", "theirs");
    EXPECT_EQ(Thrown([&] { beside.Commit(); }),
              "2: " + dir.Path() +
                  "/new: is there already, and is no empty folder; name a folder that is not "
                  "there yet");

    AtomicFolder inside(dir.MakeDir("empty"));
    PutFile(inside, "a");
    PutFile(inside, "file");
    dir.Write("empty/file", "theirs");
    EXPECT_EQ(Thrown([&] { inside.Commit(); }),
              "3: " + dir.Path() + "/empty: cannot write: File exists");
    EXPECT_EQ(ReadFile(dir / "empty/file"), "theirs");
    EXPECT_FALSE(std::filesystem::exists(dir / "empty/a"));
}

TEST(AtomicFolders, AreGoneWhenTheyCannotTakeTheirPlace)
{
    const TempDir dir;
    {
        AtomicFolder folder(dir / "new");
        PutFile(folder, "file");
        const Faults faults(Call::kRename, EIO);
        EXPECT_EQ(Thrown([&] { folder.Commit(); }),
                  "3: " + dir.Path() + "/new: cannot write: Input/output error");
    }

    EXPECT_THAT(dir.Tree(), IsEmpty());
}

} // namespace kx::io
