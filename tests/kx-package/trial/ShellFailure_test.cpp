// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "support/Thrown.h"
#include "trial/ShellFailure.h"

#include <gtest/gtest.h>

namespace kx::tool
{

namespace
{

using Process = rehearsal::PlannedCommand::Process;

void Add(rehearsal::Plan& plan, int step, const std::string& text,
         Process process = Process::kInstaller)
{
    rehearsal::PlannedCommand command;
    command.process = process;
    command.step = step;
    command.command = text;
    plan.commands.push_back(command);
}

/// A plan that reaches this many steps.
rehearsal::Plan PlanOf(int steps)
{
    rehearsal::Plan plan;
    plan.lastStep = steps;
    Add(plan, 0, "sync", Process::kWindow);
    Add(plan, 0, "sync");
    return plan;
}

TEST(FailureOfStep, IsTheFirstCommandThatMakesNoFolder)
{
    rehearsal::Plan plan = PlanOf(1);
    Add(plan, 1, R"(mkdir -p "/a")");
    Add(plan, 1, "cp one");
    Add(plan, 1, "cp two");

    const ShellFailure failure = FailureOfStep(plan, 1, 1);

    EXPECT_EQ(failure.command, "cp one");
    EXPECT_EQ(failure.number, 1);
}

TEST(FailureOfStep, IsTheFirstFolderWhereNothingElseIsDone)
{
    rehearsal::Plan plan = PlanOf(1);
    Add(plan, 1, R"(mkdir -p "/a")");
    Add(plan, 1, R"(mkdir -p "/b")");

    EXPECT_EQ(FailureOfStep(plan, 1, 1).command, R"(mkdir -p "/a")");
}

TEST(FailureOfStep, CountsTheSameCommandOfEarlierSteps)
{
    rehearsal::Plan plan = PlanOf(3);
    Add(plan, 1, "chmod +x");
    Add(plan, 2, "chmod +x", Process::kWindow);
    Add(plan, 2, "chmod +x");
    Add(plan, 3, "chmod +x");

    EXPECT_EQ(FailureOfStep(plan, 3, 3).number, 3);
}

TEST(FailureOfStep, IsNoCommandOfTheWindow)
{
    rehearsal::Plan plan = PlanOf(1);
    Add(plan, 1, "cp window", Process::kWindow);
    Add(plan, 1, "cp installer");

    EXPECT_EQ(FailureOfStep(plan, 1, 1).command, "cp installer");
}

TEST(FailureOfStep, RefusesAStepThatCannotFail)
{
    const rehearsal::Plan plan = PlanOf(1);

    EXPECT_EQ(Thrown([&plan] { static_cast<void>(FailureOfStep(plan, 2, 3)); }),
              "2: --fail: there is no step 3, the package has 2 steps");
    EXPECT_EQ(Thrown([&plan] { static_cast<void>(FailureOfStep(plan, 1, 0)); }),
              "2: --fail: there is no step 0, the package has 1 step");
    EXPECT_EQ(Thrown([&plan] { static_cast<void>(FailureOfStep(plan, 2, 2)); }),
              "2: --fail: the installation ends before step 2; see kx-package plan and kx-package "
              "check");
    EXPECT_EQ(Thrown([&plan] { static_cast<void>(FailureOfStep(plan, 2, 1)); }),
              "2: --fail: step 1 runs no command that could fail; kx-package plan shows the "
              "commands of every step");
}

} // namespace

} // namespace kx::tool
