// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "kx-package/trial/FakeDevice.h"
#include "trial/Restart.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace kx::tool
{

namespace
{

constexpr TrialBounds kRestartBounds = {7, 300, 20, 1};

/// Restarts the panel of a device; what changed is one user, so that it can be told from nothing.
Restart Restarted(const FakeDevice& device)
{
    TrialPanel panel(device.Folder(), kRestartBounds, {});
    Restart restart = PlayRestart(panel, 3, 7, "/summary", [] {
        PanelChanges changes;
        changes.users = {{"u", "added"}};
        return changes;
    });
    static_cast<void>(panel.Run({}, {"after"}));
    return restart;
}

/// A device that answers the look at the script, and then the script's start.
std::string Answers(const std::string& look, const std::string& start)
{
    return "case $(grep -c '^--state' \"${0%/*}/calls\") in\n1) " + look + " ;;\n2) " + start +
           " ;;\nesac\n";
}

TEST(PlayRestart, LooksForTheScriptOnTheRestartedPanelAndGivesItItsTime)
{
    const FakeDevice device(Answers("exit 0", "echo up; exit 3"));

    const Restart restart = Restarted(device);

    EXPECT_EQ(restart.script, StartupScript::kEnded);
    EXPECT_EQ(restart.exitStatus, 3);
    EXPECT_EQ(restart.seconds, 3U);
    EXPECT_THAT(restart.output.Lines(), testing::ElementsAre("up"));
    EXPECT_THAT(restart.remarks, testing::IsEmpty());
    EXPECT_EQ(restart.changes.users.size(), 1U);
    const std::string calls = ReadFile(device.Folder() + "/calls");
    EXPECT_THAT(calls, testing::HasSubstr("--seconds 60 --memory 300 --processes 20 --boot "
                                          "--no-startup -- sh -c"));
    EXPECT_THAT(calls, testing::HasSubstr("--seconds 3 --memory 300 --processes 20 --summary-json "
                                          "/summary --trace "));
    EXPECT_THAT(calls, testing::HasSubstr("/trace --trace-programs -- sh -c"));
    EXPECT_THAT(calls, testing::HasSubstr("--seconds 7 --memory 300 --processes 20 -- after\n"));
}

TEST(PlayRestart, StartsNothingThatAPanelWouldNotStart)
{
    const FakeDevice without(Answers("exit 1", "exit 9"));
    const FakeDevice other(Answers("exit 2", "exit 9"));

    for (const auto& [device, script] : {std::pair(&without, StartupScript::kNone),
                                         std::pair(&other, StartupScript::kNotExecutable)}) {
        const Restart restart = Restarted(*device);

        EXPECT_EQ(restart.script, script);
        EXPECT_EQ(restart.exitStatus, std::nullopt);
        EXPECT_TRUE(restart.changes.users.empty());
        // The second call is already the one afterwards.
        EXPECT_THAT(ReadFile(device->Folder() + "/calls"),
                    testing::Not(testing::HasSubstr("--summary-json")));
    }
}

TEST(PlayRestart, TellsAScriptThatGoesOnFromOneThatABoundEnded)
{
    const Restart running = Restarted(FakeDevice(Answers(
        "exit 0", "echo 'device/run: ended after the time limit of 3 seconds' >&2; exit 124")));
    EXPECT_EQ(running.script, StartupScript::kRunning);
    EXPECT_EQ(running.exitStatus, std::nullopt);
    EXPECT_THAT(running.remarks, testing::IsEmpty());
    EXPECT_EQ(running.changes.users.size(), 1U);

    const Restart full = Restarted(FakeDevice(Answers("exit 0", kFillsTheDisk)));
    EXPECT_EQ(full.script, StartupScript::kStopped);
    EXPECT_EQ(full.exitStatus, std::nullopt);
    EXPECT_THAT(full.remarks, testing::ElementsAre("ended because the panel's files take more than "
                                                   "1 MiB; see --disk"));

    const Restart own = Restarted(FakeDevice(Answers("exit 0", "exit 124")));
    EXPECT_EQ(own.script, StartupScript::kEnded);
    EXPECT_EQ(own.exitStatus, 124);
}

} // namespace

} // namespace kx::tool
