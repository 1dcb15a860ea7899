// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "io/Interruption.h"
#include "kx-package/trial/FakeDevice.h"
#include "support/Deadline.h"
#include "support/Thrown.h"
#include "trial/TrialPanel.h"

#include <gmock/gmock.h>

#include <chrono>
#include <csignal>
#include <filesystem>

namespace kx::tool
{

namespace
{

using testing::ElementsAre;
using testing::IsEmpty;

constexpr TrialBounds kBounds = {7, 300, 20, 1};

/// Runs a command on a panel of this device.
PanelResult RunOn(const FakeDevice& device)
{
    TrialPanel panel(device.Folder(), kBounds, {});
    return panel.Run({}, {"sh", "-c", "true"});
}

std::string ThrownOn(const FakeDevice& device)
{
    return Thrown([&device] { static_cast<void>(RunOn(device)); });
}

TEST(TrialPanel, HandsBoundsEnvironmentAndCommandToTheDevice)
{
    const FakeDevice device("exit 0\n");
    TrialPanel panel(device.Folder(), kBounds, {"A=b", "C=d"});

    static_cast<void>(panel.Run({"--trace", "none"}, {"sh", "-c", "true"}));
    panel.SetSeconds(60);
    static_cast<void>(panel.Run({}, {"cat", "-n"}));
    panel.End();

    EXPECT_THAT(device.Calls(),
                ElementsAre("--state STATE --seconds 7 --memory 300 --processes 20 --env A=b --env "
                            "C=d --trace none -- sh -c true",
                            "--state STATE --seconds 60 --memory 300 --processes 20 --env A=b "
                            "--env C=d -- cat -n",
                            "--erase --state STATE"));
}

TEST(TrialPanel, TellsWhatTheCommandPrintedAndTheDeviceSays)
{
    const FakeDevice device("echo printed; echo 'device/run: said' >&2; echo plain >&2; exit 3\n");

    const PanelResult result = RunOn(device);

    EXPECT_EQ(result.status, 3);
    EXPECT_FALSE(result.isStopped);
    EXPECT_THAT(result.out.Lines(), ElementsAre("printed"));
    EXPECT_THAT(result.remarks, ElementsAre("said", "plain"));
}

TEST(TrialPanel, KeepsItsFilesBetweenCommandsAndLeavesNoneAtItsEnd)
{
    const FakeDevice device("[ -e \"$state/x\" ] && exit 4; touch \"$state/x\"\n");
    {
        TrialPanel panel(device.Folder(), kBounds, {});
        EXPECT_EQ(panel.Run({}, {"true"}).status, 0);
        EXPECT_EQ(panel.Run({}, {"true"}).status, 4);
        EXPECT_FALSE(device.IsClean());
    }

    EXPECT_TRUE(device.IsClean());
    EXPECT_EQ(device.Calls().back(), "--erase --state STATE");
}

TEST(TrialPanel, EndsOnce)
{
    const FakeDevice device("exit 0\n");
    {
        TrialPanel panel(device.Folder(), kBounds, {});
        panel.End();
        EXPECT_TRUE(device.IsClean());
        panel.End();
    }

    EXPECT_THAT(device.Calls(), ElementsAre("--erase --state STATE"));
}

TEST(TrialPanel, LiesBesideThePlaceThatItGets)
{
    const TempDir dir;
    const FakeDevice device("touch \"$state/x\"\n");
    {
        TrialPanel panel(device.Folder(), kBounds, {}, dir / "kept");
        EXPECT_EQ(panel.Run({}, {"true"}).status, 0);
        EXPECT_FALSE(std::filesystem::exists(dir / "kept"));

        EXPECT_TRUE(panel.Keep());
        panel.End();
    }

    EXPECT_THAT(dir.Tree(), ElementsAre("kept d 700", "kept/x f 644 "));
    EXPECT_TRUE(device.IsClean());
}

TEST(TrialPanel, LeavesNothingBesideThePlaceThatItDoesNotGet)
{
    const TempDir dir;
    const FakeDevice device("touch \"$state/x\"\n");
    {
        TrialPanel panel(device.Folder(), kBounds, {}, dir / "kept");
        EXPECT_FALSE(panel.Keep()); // nothing ran on it
        EXPECT_EQ(panel.Run({}, {"true"}).status, 0);
    }
    EXPECT_THAT(dir.Tree(), IsEmpty());

    EXPECT_EQ(
        Thrown([&] { const TrialPanel panel(device.Folder(), kBounds, {}, dir / "no/kept"); }),
        "3: " + dir.Path() + "/no/kept: cannot make the folder: No such file or directory");
    EXPECT_TRUE(device.IsClean());
}

TEST(TrialPanel, IsAnErrorWhereTheDeviceCannotBeMade)
{
    const FakeDevice device("echo 'first' >&2; echo 'device/run: no namespaces' >&2; exit 125\n");

    EXPECT_EQ(ThrownOn(device), "3: " + device.Folder() +
                                    "/run: no namespaces; without a sandboxed device nothing is "
                                    "installed");
    EXPECT_TRUE(device.IsClean());
}

TEST(TrialPanel, IsWrongUseWhereTheDeviceDoesNotKnowAWord)
{
    const FakeDevice device("echo 'device/run: --env: no; see device/run --help' >&2; exit 2\n");

    EXPECT_EQ(ThrownOn(device),
              "2: " + device.Folder() + "/run: --env: no; see kx-package try --help");
}

TEST(TrialPanel, TakesTheSameStatusesOfACommandForItsOwn)
{
    for (const char* const status : {"2", "124", "125"}) {
        const PanelResult silent = RunOn(FakeDevice(std::string("exit ") + status + "\n"));

        EXPECT_EQ(silent.status, std::stoi(status));
        EXPECT_FALSE(silent.isStopped) << status;
        EXPECT_THAT(silent.remarks, IsEmpty());
    }
    EXPECT_EQ(RunOn(FakeDevice("echo 'device/run: other' >&2; exit 2\n")).status, 2);
}

TEST(TrialPanel, TellsThatTheTimeWasOver)
{
    const PanelResult result =
        RunOn(FakeDevice("echo 'device/run: ended after the time limit' >&2; exit 124\n"));

    EXPECT_TRUE(result.isStopped);
    EXPECT_THAT(result.remarks, ElementsAre("ended after the time limit"));
}

TEST(TrialPanel, IsStoppedByAFullDiskWhateverStatusFollows)
{
    const FakeDevice device("echo 'device/run: said' >&2\n" + kFillsTheDisk);

    const PanelResult result = RunOn(device);

    EXPECT_EQ(result.status, 0);
    EXPECT_TRUE(result.isStopped);
    EXPECT_THAT(result.remarks,
                ElementsAre("ended because the panel's files take more than 1 MiB; see --disk"));
    EXPECT_TRUE(device.IsClean());
}

TEST(TrialPanel, TellsAFullDiskAlsoWhereTheDeviceFailsOverIt)
{
    std::string fails = kFillsTheDisk;
    fails.replace(fails.find("exit 0"), 6, "echo no room >&2; exit 125");

    const PanelResult result = RunOn(FakeDevice(fails));

    EXPECT_EQ(result.status, 125);
    EXPECT_TRUE(result.isStopped);
    EXPECT_THAT(result.remarks,
                ElementsAre("ended because the panel's files take more than 1 MiB; see --disk"));
}

TEST(TrialPanel, IsEndedWithThePersonsWish)
{
    const Deadline deadline;
    const FakeDevice device("exec sleep 60\n");
    struct sigaction own {
    };
    struct sigaction before {
    };
    own.sa_handler = [](int) {};
    ASSERT_EQ(sigaction(SIGTERM, &own, &before), 0);
    {
        const io::Interruption interruption;
        ASSERT_EQ(std::raise(SIGTERM), 0);

        EXPECT_EQ(ThrownOn(device), "3: the trial was interrupted");
    }
    const io::Interruption forgets; // the mark of the signal
    ASSERT_EQ(sigaction(SIGTERM, &before, nullptr), 0);
    EXPECT_TRUE(device.IsClean());
}

TEST(TrialPanel, DoesNotWaitForADeviceWhenThePersonDoesNot)
{
    const auto start = std::chrono::steady_clock::now();
    const FakeDevice device("trap '' TERM\nexec sleep 60\n");
    struct sigaction own {
    };
    struct sigaction before {
    };
    own.sa_handler = [](int) {};
    ASSERT_EQ(sigaction(SIGTERM, &own, &before), 0);
    {
        const io::Interruption interruption;
        ASSERT_EQ(std::raise(SIGTERM), 0);

        EXPECT_EQ(ThrownOn(device), "3: the trial was interrupted");
    }
    const io::Interruption forgets; // the mark of the signal
    ASSERT_EQ(sigaction(SIGTERM, &before, nullptr), 0);

    // Otherwise a device may take 40 seconds.
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
    EXPECT_TRUE(device.IsClean());
}

TEST(TrialPanel, KeepsItsFilesInTheUsualFolderWhereNoneIsNamed)
{
    for (const char* const named : {static_cast<const char*>(nullptr), ""}) {
        const Environment none("TMPDIR", named);
        const TrialPanel panel("/none", kBounds, {});

        EXPECT_THAT(panel.Scratch("x"), testing::StartsWith("/tmp/kx-package-try-"));
    }
}

TEST(TrialPanel, NeedsAFolderForItsFiles)
{
    const Environment nowhere("TMPDIR", "/nowhere");

    EXPECT_EQ(Thrown([] { const TrialPanel panel("/none", kBounds, {}); }),
              "3: /nowhere: cannot make a folder for the trial: No such file or directory");
}

} // namespace

} // namespace kx::tool
