// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "road/StepFolder.h"
#include "support/TempDir.h"
#include "support/Thrown.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include <sys/stat.h>
#include <unistd.h>

namespace kx::guard
{

namespace
{

using testing::ElementsAre;

} // namespace

TEST(StepFolder, IsMadeAndRemovedWithWhatIsInIt)
{
    const TempDir dir;
    {
        const StepFolder folder(dir / "Zt/");
        dir.Write("Zt/temp.sh", "exit 0\n");
        EXPECT_THAT(dir.Tree(), ElementsAre("Zt d 700", "Zt/temp.sh f 644 exit 0\n"));
    }
    EXPECT_THAT(dir.Tree(), ElementsAre());
}

TEST(StepFolder, TakesTheLinkAwayAndNotWhatItLeadsTo)
{
    const TempDir dir;
    dir.Write("target/file", "keep");
    std::filesystem::create_directory_symlink("target", dir / "Zt");
    {
        const StepFolder folder(dir / "Zt");
        EXPECT_THAT(dir.Tree(), ElementsAre("Zt d 700", "target d 755", "target/file f 644 keep"));
    }
    EXPECT_THAT(dir.Tree(), ElementsAre("target d 755", "target/file f 644 keep"));
}

TEST(StepFolder, TakesAFileOrAnothersFolderAway)
{
    const TempDir dir;
    dir.Write("Zt/deep/temp.sh", "another's", 0777);
    ASSERT_EQ(chmod((dir / "Zt").c_str(), 0777), 0);
    {
        const StepFolder folder(dir / "Zt");
        EXPECT_THAT(dir.Tree(), ElementsAre("Zt d 700"));
    }
    dir.Write("Zt", "a file");
    {
        const StepFolder folder(dir / "Zt");
        EXPECT_THAT(dir.Tree(), ElementsAre("Zt d 700"));
    }
}

TEST(StepFolder, StaysWhenSomethingInItStillRuns)
{
    const TempDir dir;
    {
        StepFolder folder(dir / "Zt");
        folder.Keep();
    }
    EXPECT_THAT(dir.Tree(), ElementsAre("Zt d 700"));

    StepFolder::Remove(dir / "Zt");

    EXPECT_THAT(dir.Tree(), ElementsAre());
}

TEST(StepFolder, RefusesAFolderAboveInWhichOthersCanReplaceIt)
{
    const TempDir dir;
    dir.MakeDir("tmp");
    ASSERT_EQ(chmod((dir / "tmp").c_str(), 0777), 0);

    EXPECT_EQ(Thrown([&] { const StepFolder folder(dir / "tmp/Zt"); }),
              "1: " + dir.Path() +
                  "/tmp: lets others replace the files of root; make it root's, with mode 1777");
    ASSERT_EQ(chmod((dir / "tmp").c_str(), 01777), 0);
    EXPECT_EQ(Thrown([&] { const StepFolder folder(dir / "tmp/Zt"); }), "nothing thrown");
}

} // namespace kx::guard
