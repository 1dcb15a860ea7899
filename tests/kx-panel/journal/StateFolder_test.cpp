// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "io/Faults.h"
#include "journal/StateFolder.h"
#include "support/TempDir.h"
#include "support/Thrown.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>

namespace kx::guard
{

namespace
{

using testing::ElementsAre;

StateFolder FolderAt(const std::string& path)
{
    return {io::Descriptor(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)), path};
}

} // namespace

TEST(StateFolder, ReadsBackWhatItReplaced)
{
    const TempDir dir;
    const StateFolder folder = FolderAt(dir.Path());

    EXPECT_EQ(folder.Read("note", 100), std::nullopt);
    folder.Replace("note", "one");
    folder.Replace("note", "two");

    EXPECT_EQ(folder.Read("note", 100), "two");
    EXPECT_THAT(dir.Tree(), ElementsAre("note f 600 two"));
}

TEST(StateFolder, HasWhatReplacesAFileOnTheDiskBeforeItsNameAndTheNameAfterwards)
{
    const TempDir dir;
    dir.Write("note", "older");
    const StateFolder folder = FolderAt(dir.Path());
    const io::Placing placing;

    folder.Replace("note", "new");

    EXPECT_THAT(placing.Calls(), ElementsAre("sync " + (dir / ".note.new") + ", 3 bytes",
                                             "name " + (dir / "note"), "sync " + dir.Path()));
}

TEST(StateFolder, KeepsTheOldBytesWhenTheDiskDoesNotTakeTheNewOnes)
{
    const TempDir dir;
    dir.Write("note", "older");
    const StateFolder folder = FolderAt(dir.Path());
    const std::string said = "3: " + (dir / "note") + ": cannot write: ";
    {
        const io::Faults faults(io::Call::kSync, {{EIO}});

        EXPECT_EQ(Thrown([&] { folder.Replace("note", "new"); }), said + "Input/output error");
    }
    const io::Faults faults(io::Call::kRename, {{ENOSPC}});

    EXPECT_EQ(Thrown([&] { folder.Replace("note", "new"); }), said + "No space left on device");
    EXPECT_THAT(dir.Tree(), ElementsAre("note f 644 older"));
}

TEST(StateFolder, HasReplacedTheFileAlsoWhereFoldersCannotBeSynced)
{
    const TempDir dir;
    const StateFolder folder = FolderAt(dir.Path());
    const io::Faults faults(io::Call::kSync, {{}, {EINVAL}});

    folder.Replace("note", "new");

    EXPECT_THAT(dir.Tree(), ElementsAre("note f 600 new"));
}

TEST(StateFolder, ReplacesALinkAndNotWhatItLeadsTo)
{
    const TempDir dir;
    const StateFolder folder = FolderAt(dir.MakeDir("state"));
    dir.Write("elsewhere", "keep");
    std::filesystem::create_symlink("../elsewhere", dir / "state/note");
    std::filesystem::create_symlink("../elsewhere", dir / "state/.note.new");

    folder.Replace("note", "new");

    EXPECT_THAT(dir.Tree(),
                ElementsAre("elsewhere f 644 keep", "state d 755", "state/note f 600 new"));
}

TEST(StateFolder, FollowsNoLink)
{
    const TempDir dir;
    const StateFolder folder = FolderAt(dir.MakeDir("state"));
    dir.Write("elsewhere/file", "bytes");
    std::filesystem::create_symlink("../elsewhere/file", dir / "state/file");
    std::filesystem::create_symlink("../elsewhere", dir / "state/folder");

    EXPECT_EQ(Thrown([&] { static_cast<void>(folder.Read("file", 100)); }),
              "1: " + dir.Path() + "/state/file: is not a file; remove it");
    EXPECT_EQ(Thrown([&] { static_cast<void>(folder.OpenOrCreate("file")); }),
              "1: " + dir.Path() + "/state/file: is not a file; remove it");
    EXPECT_EQ(Thrown([&] { static_cast<void>(folder.Find("folder")); }),
              "1: " + dir.Path() + "/state/folder: is not a folder; remove it");
    EXPECT_EQ(Thrown([&] { static_cast<void>(folder.FindOrMake("folder")); }),
              "1: " + dir.Path() + "/state/folder: is not a folder; remove it");
    EXPECT_EQ(Thrown([&] { static_cast<void>(folder.Create("file")); }),
              "3: " + dir.Path() + "/state/file: cannot write: File exists");
}

TEST(StateFolder, DoesNotWaitForAPipe)
{
    const TempDir dir;
    const StateFolder folder = FolderAt(dir.Path());
    ASSERT_EQ(mkfifo((dir / "pipe").c_str(), 0600), 0);

    EXPECT_EQ(Thrown([&] { static_cast<void>(folder.Read("pipe", 100)); }),
              "1: " + dir.Path() + "/pipe: is not a file; remove it");
}

TEST(StateFolder, RemovesATreeAndNoneOfWhatItsLinksLeadTo)
{
    const TempDir dir;
    const StateFolder folder = FolderAt(dir.MakeDir("state"));
    dir.Write("elsewhere/file", "keep");
    dir.Write("state/unpacked/a/b/c/file", "1");
    dir.Write("state/unpacked/a/b/d/e/file", "2");
    dir.Write("state/unpacked/.removed-0/file", "3");
    dir.MakeDir("state/unpacked/read-only/empty");
    std::filesystem::create_directory_symlink("../../elsewhere", dir / "state/unpacked/a/link");
    std::filesystem::create_directory_symlink("../elsewhere", dir / "state/link");
    ASSERT_EQ(chmod((dir / "state/unpacked/read-only").c_str(), 0500), 0);

    folder.Remove("unpacked");
    folder.Remove("link");
    folder.Remove("nothing");

    EXPECT_THAT(dir.Tree(),
                ElementsAre("elsewhere d 755", "elsewhere/file f 644 keep", "state d 755"));
}

TEST(StateFolder, RemovesFoldersThatAreDeeperThanThereAreDescriptors)
{
    constexpr int kDepth = 200;
    constexpr rlim_t kFew = 32;
    const TempDir dir;
    const StateFolder folder = FolderAt(dir.Path());
    io::Descriptor at(open(dir.Path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    for (int depth = 0; depth < kDepth; ++depth) {
        ASSERT_EQ(mkdirat(at.Number(), "d", 0700), 0);
        at = io::Descriptor(openat(at.Number(), "d", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    }

    at.Close();
    rlimit before{};
    getrlimit(RLIMIT_NOFILE, &before);
    const rlimit few{kFew, before.rlim_max};
    setrlimit(RLIMIT_NOFILE, &few);

    const std::string said = Thrown([&folder] { folder.Remove("d"); });

    setrlimit(RLIMIT_NOFILE, &before);
    EXPECT_EQ(said, "nothing thrown");
    EXPECT_THAT(dir.Tree(), ElementsAre());
}

} // namespace kx::guard
