// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "format/Kinds.h"
#include "trial/FailedSteps.h"

#include <gtest/gtest.h>

namespace kx::tool
{

namespace
{

using Form = StepFailure::Form;

StepFailure Failure(int step, Form form, const std::string& subject = "", bool isSkipped = true)
{
    StepFailure failure;
    failure.step = step;
    failure.form = form;
    failure.subject = subject;
    failure.isSkipped = isSkipped;
    return failure;
}

format::SummaryStep Step(const std::string& kind, bool canSkip = true)
{
    format::SummaryStep step;
    step.kind = kind;
    step.canSkip = canSkip;
    return step;
}

/// The command that is found for a failure of the only step, which ran these.
std::string CommandFor(const StepFailure& failure, const std::string& kind,
                       const std::vector<std::string>& commands)
{
    RunTrace trace;
    trace.commands.push_back({"outside", {}, 0});
    trace.commands.push_back({"", {}, 1});
    for (const std::string& command : commands) {
        trace.commands.push_back({command, {}, 1});
    }
    trace.commands.push_back({"of another", {}, 2});
    std::vector<StepFailure> failures = {failure};
    CompleteFailures({Step(kind), Step(kind)}, trace, failures);
    return failures.empty() ? "none" : failures[0].kind + ": " + failures[0].command;
}

TEST(CompleteFailures, FindsTheCommandOfAScript)
{
    EXPECT_EQ(CommandFor(Failure(1, Form::kScript), "script", {"chmod +x", "run"}), "script: run");
    EXPECT_EQ(CommandFor(Failure(1, Form::kScript), "script", {}), "script: ");
}

TEST(CompleteFailures, FindsTheCommandOfACopiedFile)
{
    const StepFailure failure = Failure(1, Form::kCopy, "/p to q/0/0/a to /t");
    const std::string copy = R"(cp -f "/p to q/0/0/a" "/t" )";

    EXPECT_EQ(CommandFor(failure, "copy-files", {"mkdir", copy, "mkdir", "cp other"}),
              "copy-files: " + copy);
    EXPECT_EQ(CommandFor(failure, "copy-files", {copy, R"(chmod 755 "/t" )", "cp other"}),
              R"(copy-files: chmod 755 "/t" )");
    EXPECT_EQ(CommandFor(failure, "copy-files", {"cp other"}), "copy-files: ");
}

TEST(CompleteFailures, FindsTheLastCommandOfACopiedFolder)
{
    EXPECT_EQ(CommandFor(Failure(1, Form::kCopy, "/p/0/0 to /t"), "copy-folder",
                         {R"(cp -f "/p/0/0/a" "/t/a" )", R"(cp -f "/p/0/0/b" "/t/b" )",
                          R"(cp -f "/p/0/1/c" "/t/c" )"}),
              R"(copy-folder: cp -f "/p/0/0/b" "/t/b" )");
}

TEST(CompleteFailures, FindsTheCommandOfAPassword)
{
    EXPECT_EQ(CommandFor(Failure(1, Form::kSetting, "Zt.Plugins.HW_UserConfigSet,  Plexa"),
                         "settings", {"echo 'a:b' | chpasswd", "kx-setting-cui set A=1 "}),
              "settings: echo 'a:b' | chpasswd");
    EXPECT_EQ(CommandFor(Failure(1, Form::kSetting, "x"), "settings", {"kx-setting-cui"}),
              "settings: ");
}

TEST(CompleteFailures, NamesSettingsAsPeopleDo)
{
    std::vector<StepFailure> failures = {
        Failure(1, Form::kSetting, format::kUserKind.id),
        Failure(2, Form::kSetting, "x"),
    };
    failures[1].why = "as it was";

    CompleteFailures({Step("settings"), Step("settings")}, {}, failures);

    EXPECT_EQ(failures.at(0).why, "the setting 'user' failed");
    EXPECT_EQ(failures.at(1).why, "as it was");
}

TEST(CompleteFailures, RemovesWhatTheUpdaterCannotHaveSaid)
{
    const auto remains = [](const StepFailure& failure, const format::SummaryStep& step) {
        std::vector<StepFailure> failures = {failure};
        CompleteFailures({step}, {}, failures);
        return !failures.empty();
    };

    EXPECT_TRUE(remains(Failure(1, Form::kScript), Step("script")));
    EXPECT_FALSE(remains(Failure(1, Form::kScript), Step("script", false)));
    EXPECT_TRUE(remains(Failure(1, Form::kScript, "", false), Step("script", false)));
    EXPECT_TRUE(remains(Failure(1, Form::kOther), Step("script", false)));
    for (const char* const kind : {"copy-files", "copy-folder", "settings", ""}) {
        EXPECT_FALSE(remains(Failure(1, Form::kScript), Step(kind))) << kind;
    }
    EXPECT_FALSE(remains(Failure(1, Form::kCopy), Step("settings")));
    EXPECT_FALSE(remains(Failure(1, Form::kSetting), Step("script")));
    EXPECT_FALSE(remains(Failure(2, Form::kScript), Step("script")));
}

TEST(AddMadeFailure, AddsTheStepInItsPlaceUnlessItIsThere)
{
    std::vector<StepFailure> failures = {Failure(1, Form::kScript), Failure(4, Form::kScript)};

    AddMadeFailure({"cp", 1, 3}, true, failures);
    AddMadeFailure({"cp", 1, 4}, true, failures);
    AddMadeFailure({"rm", 1, 5}, false, failures);

    ASSERT_EQ(failures.size(), 4U);
    EXPECT_EQ(failures[1].step, 3);
    EXPECT_EQ(failures[1].command, "cp");
    EXPECT_EQ(failures[1].why, "made to fail");
    EXPECT_TRUE(failures[1].isSkipped);
    EXPECT_EQ(failures[2].why, "");
    EXPECT_EQ(failures[3].step, 5);
    EXPECT_FALSE(failures[3].isSkipped);
}

} // namespace

} // namespace kx::tool
