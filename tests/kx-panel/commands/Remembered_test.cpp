// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "commands/Remembered.h"
#include "journal/Baseline.h"
#include "journal/TestState.h"

#include <gtest/gtest.h>

namespace kx::guard
{

TEST(Remembered, IsNothingBeforeTheFirstInstallation)
{
    const TempDir dir;
    Remembered remembered(PlaceIn(dir), dir.Path());
    Decision decision;

    EXPECT_EQ(remembered.Highest("demo"), std::nullopt);
    remembered.AddReasons(decision);
    EXPECT_TRUE(decision.IsAccepted());
}

TEST(Remembered, IsWhatTheJournalHolds)
{
    const TempDir dir;
    RaiseVersion(State(PlaceIn(dir)).Folder(), "demo", "1.2");
    Remembered remembered(PlaceIn(dir), dir.Path());

    EXPECT_EQ(remembered.Highest("demo"), "1.2");
    EXPECT_EQ(remembered.Highest("other"), std::nullopt);
}

TEST(Remembered, IsAReasonWhereItIsDamaged)
{
    const TempDir dir;
    {
        const State state(PlaceIn(dir));
        RaiseVersion(state.Folder(), "demo", "1.2");
        const std::optional<StateFolder> versions = state.Folder().Find("versions");
        ASSERT_TRUE(versions.has_value());
        versions->Replace("demo", "\x01");
    }
    Remembered remembered(PlaceIn(dir), dir.Path());
    Decision decision;
    decision.reasons.push_back({ReasonId::kModel, {"a", "b"}});

    EXPECT_EQ(remembered.Highest("demo"), std::nullopt);
    remembered.AddReasons(decision);

    ASSERT_EQ(decision.reasons.size(), 2U);
    EXPECT_EQ(decision.reasons.front().id, ReasonId::kState);
}

TEST(Remembered, IsAReasonWhereItsFolderIsNotRootsAlone)
{
    const TempDir dir;
    dir.MakeDir("state");
    StatePlace place = PlaceIn(dir);
    place.refuseUnguarded = [](const std::string& path) {
        throw io::Error(io::ExitCode::kProblems, path, "can be changed by others");
    };
    Remembered remembered(place, dir.Path());
    Decision decision;

    remembered.AddReasons(decision);

    ASSERT_EQ(decision.reasons.size(), 1U);
    EXPECT_EQ(decision.reasons.front().id, ReasonId::kState);
}

} // namespace kx::guard
