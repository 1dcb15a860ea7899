// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "trial/RunTrace.h"

#include <gmock/gmock.h>

namespace kx::tool
{

namespace
{

using Process = rehearsal::PlannedCommand::Process;

/// A plan of commands, each with its step.
rehearsal::Plan PlanWith(const std::vector<std::pair<int, std::string>>& commands)
{
    rehearsal::Plan plan;
    for (const auto& [step, text] : commands) {
        rehearsal::PlannedCommand command;
        command.process = step < 0 ? Process::kWindow : Process::kInstaller;
        command.step = std::max(step, 0);
        command.command = text;
        plan.commands.push_back(command);
    }
    return plan;
}

/// The steps that these commands are assigned.
std::vector<int> StepsOf(const rehearsal::Plan& plan, const std::vector<std::string>& commands)
{
    RunTrace trace;
    for (const std::string& text : commands) {
        trace.commands.push_back({text, {{"/p", "arm", true, "", 0}}, 0});
    }
    AssignSteps(plan, trace);
    std::vector<int> steps;
    for (const TracedCommand& command : trace.commands) {
        EXPECT_EQ(command.programs.at(0).step, command.step);
        steps.push_back(command.step);
    }
    return steps;
}

TEST(ReadRunTrace, ReadsCommandsAndWhatWasStartedDuringEach)
{
    const RunTrace trace = ReadRunTrace("tool\tsync\nprogram\t/a\tarm\t"
                                        "yes\t\n"
                                        "command\ta\\tb\\\\n\\n\nprogram\t/b\tx86_64\tno\t/lib/l\n"
                                        "program\t/short\n\ncommand\nshell\tx\n");

    EXPECT_FALSE(trace.isRefused);
    ASSERT_EQ(trace.commands.size(), 2U);
    EXPECT_EQ(trace.commands[0].text, "");
    ASSERT_EQ(trace.commands[0].programs.size(), 1U);
    EXPECT_EQ(trace.commands[0].programs[0].path, "/a");
    EXPECT_TRUE(trace.commands[0].programs[0].canRun);
    EXPECT_EQ(trace.commands[1].text, "a\tb\\n\n");
    const std::vector<StartedProgram> all = trace.Programs();
    ASSERT_EQ(all.size(), 2U);
    EXPECT_EQ(all[1].processor, "x86_64");
    EXPECT_FALSE(all[1].canRun);
    EXPECT_EQ(all[1].missingLoader, "/lib/l");
}

TEST(ReadRunTrace, KnowsThatACommandWasRefused)
{
    EXPECT_TRUE(ReadRunTrace("command\tcp\nrefused\tcp\n").isRefused);
    EXPECT_FALSE(ReadRunTrace("command\trefused\\tcp\n").isRefused);
}

TEST(AssignSteps, FollowsThePlan)
{
    const rehearsal::Plan plan = PlanWith(
        {{-1, "rm"}, {0, "sync"}, {1, "mkdir"}, {1, "run"}, {2, "mkdir"}, {2, "run"}, {0, "sync"}});

    EXPECT_EQ(StepsOf(plan, {"sync", "mkdir", "run", "mkdir", "run", "sync"}),
              (std::vector<int>{0, 1, 1, 2, 2, 0}));
}

TEST(AssignSteps, GivesWhatIsNotPlannedToTheStepThatRuns)
{
    const rehearsal::Plan plan =
        PlanWith({{0, "sync"}, {1, "a"}, {2, "b"}, {3, "c"}, {3, "x"}, {0, "sync"}});

    EXPECT_EQ(StepsOf(plan, {"sync", "a", "unknown", "b", "c"}), (std::vector<int>{0, 1, 1, 2, 3}));
    // A text of a step that is not next is another command.
    EXPECT_EQ(StepsOf(plan, {"sync", "a", "x", "b", "c", "x"}),
              (std::vector<int>{0, 1, 1, 2, 3, 3}));
    EXPECT_EQ(StepsOf(rehearsal::Plan(), {"a"}), (std::vector<int>{0}));
}

} // namespace

} // namespace kx::tool
