// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "journal/State.h"
#include "journal/TestState.h"
#include "journal/ToolRun.h"
#include "support/Thrown.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>

namespace kx::guard
{

namespace
{

std::string OpeningSays(const StatePlace& place)
{
    return Thrown([&] { const State state(place); });
}

/// Makes a folder that is open for its owner alone.
void MakeClosedFolder(const TempDir& dir, const std::string& name)
{
    dir.MakeDir(name);
    ASSERT_EQ(chmod((dir / name).c_str(), 0700), 0);
}

} // namespace

TEST(State, IsMadeForRootAlone)
{
    const TempDir dir;

    const State state(PlaceIn(dir));

    EXPECT_THAT(dir.Tree(), testing::ElementsAre("state d 700", "state/lock f 600 "));
}

TEST(State, IsNotThereToReadBeforeItWasMade)
{
    const TempDir dir;

    EXPECT_FALSE(OpenStateToRead(PlaceIn(dir)).has_value());
    EXPECT_THAT(dir.Tree(), testing::ElementsAre());
}

TEST(State, IsTheFirstOnesAlone)
{
    const TempDir dir;
    auto first = std::make_unique<State>(PlaceIn(dir));

    EXPECT_EQ(OpeningSays(PlaceIn(dir)),
              "4: " + dir.Path() + "/state: another kx-panel is at work; wait until it has ended");
    EXPECT_TRUE(IsAtWork(*OpenStateToRead(PlaceIn(dir))));
    first.reset();

    EXPECT_FALSE(IsAtWork(*OpenStateToRead(PlaceIn(dir))));
    EXPECT_EQ(OpeningSays(PlaceIn(dir)), "nothing thrown");
}

TEST(State, IsBusyAsLongAsAnInstallerRunsWhoseStarterIsGone)
{
    const TempDir dir;
    auto first = std::make_unique<State>(PlaceIn(dir));
    const io::Descriptor lock = first->LockForInstaller();
    io::Descriptor inherited(fcntl(lock.Number(), F_DUPFD_CLOEXEC, 0));
    first.reset();

    EXPECT_EQ(OpeningSays(PlaceIn(dir)),
              "4: " + dir.Path() +
                  "/state: an installation goes on, although the kx-panel that began it is gone; "
                  "wait until it has ended, or restart the panel");
}

TEST(State, IsNotHeldUpByWhatAnEndedInstallationLeftRunning)
{
    const TempDir dir;
    auto first = std::make_unique<State>(PlaceIn(dir));
    const io::Descriptor inherited = first->LockForInstaller();

    const io::Descriptor second = first->LockForInstaller();

    EXPECT_TRUE(second.IsOpen());
}

TEST(State, RefusesAFolderThatIsOpenToOthers)
{
    const TempDir dir;
    dir.MakeDir("state");

    EXPECT_EQ(OpeningSays(PlaceIn(dir)),
              "1: " + dir.Path() +
                  "/state: is not open for root alone; name a folder for this alone, or chmod 700 "
                  "it");
    EXPECT_THAT(dir.Tree(), testing::ElementsAre("state d 755"));
}

TEST(State, RefusesALink)
{
    const TempDir dir;
    MakeClosedFolder(dir, "elsewhere");
    std::filesystem::create_directory_symlink("elsewhere", dir / "state");

    EXPECT_EQ(OpeningSays(PlaceIn(dir)),
              "3: " + dir.Path() + "/state: cannot open: Not a directory");
    EXPECT_THAT(dir.Tree(), testing::Not(testing::Contains(testing::HasSubstr("lock"))));
}

TEST(State, RefusesALinkInThePlaceOfItsLock)
{
    const TempDir dir;
    MakeClosedFolder(dir, "state");
    std::filesystem::create_symlink("../elsewhere", dir / "state/lock");

    EXPECT_EQ(OpeningSays(PlaceIn(dir)),
              "1: " + dir.Path() + "/state/lock: is not a file; remove it");
    EXPECT_FALSE(std::filesystem::exists(dir / "elsewhere"));
}

TEST(State, AsksForTheFolderAboveBeforeItMakesOneAndForItselfAfterwards)
{
    const TempDir dir;
    StatePlace place = PlaceIn(dir);
    std::vector<std::string> asked;
    place.refuseUnguarded = [&asked](const std::string& path) { asked.push_back(path); };

    const State state(place);

    EXPECT_THAT(asked, testing::ElementsAre(dir.Path(), dir / "state"));
}

TEST(State, IsNotMadeWhereTheGuardRefuses)
{
    const TempDir dir;
    StatePlace place = PlaceIn(dir);
    place.refuseUnguarded = [](const std::string& path) {
        throw io::Error(io::ExitCode::kProblems, path, "can be changed by others");
    };

    EXPECT_EQ(OpeningSays(place), "1: " + dir.Path() + ": can be changed by others");
    EXPECT_THAT(dir.Tree(), testing::ElementsAre());
}

TEST(State, NeedsTheFolderAbove)
{
    const TempDir dir;
    StatePlace place = PlaceIn(dir);
    place.folder = dir / "missing/state";

    EXPECT_EQ(OpeningSays(place),
              "3: " + dir.Path() +
                  "/missing/state: cannot make the folder: No such file or directory; make the "
                  "folder above it, or name another as 'state'");
}

TEST(RunTool, TellsHowAToolEnded)
{
    const TempDir dir;
    const std::string fine = dir.Write("fine", "#!/bin/sh\necho text\nexit 0\n", 0755);
    const std::string failing = dir.Write("failing", "#!/bin/sh\nexit 7\n", 0755);
    const std::string killed = dir.Write("killed", "#!/bin/sh\nkill -9 $$\n", 0755);

    EXPECT_EQ(RunTool(fine), 0);
    EXPECT_EQ(RunTool(failing), 7);
    EXPECT_EQ(RunTool(killed), 137);
    EXPECT_EQ(RunTool(dir / "missing"), 127);
}

} // namespace kx::guard
