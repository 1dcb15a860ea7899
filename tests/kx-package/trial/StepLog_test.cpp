// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "trial/StepLog.h"

#include <gmock/gmock.h>

namespace kx::tool
{

namespace
{

using Form = StepFailure::Form;

StepLog HeardOf(const std::string& text)
{
    StepLog log;
    log.Hear(text);
    return log;
}

/// What is known of the only failure behind the beginning of the first of nine steps.
StepFailure FailureOf(const std::string& line)
{
    const StepLog log = HeardOf("**** Installation step 1/9\n" + line + "\n");
    EXPECT_EQ(log.Failures().size(), 1U) << line;
    return log.Failures().empty() ? StepFailure() : log.Failures().front();
}

TEST(StepLog, KnowsTheStepThatRuns)
{
    StepLog log;
    EXPECT_EQ(log.Step(), 0);

    log.Hear("**** Installation st");
    EXPECT_EQ(log.Step(), 0);
    log.Hear("ep 1/12\nfoo**** Installation step 2/12\n**** Installation");

    EXPECT_EQ(log.Step(), 2);
    EXPECT_EQ(log.Count(), 12);
}

TEST(StepLog, TakesNoOtherNumbersForASteps)
{
    for (const char* const numbers : {"1/3", "3/3", "2/4", "2/1", "2", "2/", "/3", "x/3", "2/3 ",
                                      "-2/3", "2/99999999999", "02/3/4"}) {
        const StepLog log = HeardOf("**** Installation step 1/3\n**** Installation step " +
                                    std::string(numbers) + "\n");
        EXPECT_EQ(log.Step(), 1) << numbers;
        EXPECT_EQ(log.Count(), 3) << numbers;
    }
}

TEST(StepLog, ReadsHowAScriptFailed)
{
    const StepFailure failure =
        FailureOf("printedScript execution returned an error(=1792) in step no 1");

    EXPECT_EQ(failure.step, 1);
    EXPECT_EQ(failure.form, Form::kScript);
    EXPECT_EQ(failure.why, "exit status 7");
    EXPECT_TRUE(failure.isSkipped);
    EXPECT_EQ(FailureOf("Script execution returned an error(=9) in step no 1").why,
              "ended by signal 9");
    EXPECT_EQ(FailureOf("Script execution returned an error(=1003) in step no 1").why,
              "result 1003");
    EXPECT_EQ(FailureOf("Script execution returned an error(=-1) in step no 1").why, "result -1");
    EXPECT_TRUE(HeardOf("**** Installation step 1/9\nScript execution returned an error(=256) in "
                        "step no 2\n")
                    .Failures()
                    .empty());
}

TEST(StepLog, ReadsHowACopyFailed)
{
    const StepFailure file =
        FailureOf("File copy error(= 256) is corrupted. From /a to b/0/0/x to /t  (Permissions=7)");
    EXPECT_EQ(file.form, Form::kCopy);
    EXPECT_EQ(file.why, "exit status 1");
    EXPECT_EQ(file.subject, "/a to b/0/0/x to /t");

    const StepFailure folder =
        FailureOf("File copy error( = 1002) is corrupted. From /a/0/0 to /t  (Permissions=)");
    EXPECT_EQ(folder.why, "result 1002");
    EXPECT_EQ(folder.subject, "/a/0/0 to /t");
}

TEST(StepLog, ReadsWhichSettingFailed)
{
    const StepFailure failure = FailureOf("H/W setting failed in a in. in.");

    EXPECT_EQ(failure.form, Form::kSetting);
    EXPECT_EQ(failure.subject, "a in.");
    EXPECT_EQ(failure.why, "the setting a in. failed");
}

TEST(StepLog, TellsEachStepOnceAndHowManyOfItsItemsFailed)
{
    const StepLog log = HeardOf("**** Installation step 1/3\n"
                                "H/W setting failed in a in.\nH/W setting failed in b in.\n"
                                "**** Installation step 2/3\nH/W setting failed in c in.\n");

    ASSERT_EQ(log.Failures().size(), 2U);
    EXPECT_EQ(log.Failures()[0].failures, 2U);
    EXPECT_EQ(log.Failures()[0].subject, "a");
    EXPECT_EQ(log.Failures()[1].step, 2);
}

TEST(StepLog, KnowsTheFailureThatEndedTheInstallation)
{
    const StepLog log = HeardOf("**** Installation step 1/3\nH/W setting failed in a in.\n"
                                "**** Installation step 2/3\n"
                                "Script execution returned an error(=256) in step no 2\n"
                                "Installation failed in step 2.\n");

    ASSERT_EQ(log.Failures().size(), 2U);
    EXPECT_TRUE(log.Failures()[0].isSkipped);
    EXPECT_FALSE(log.Failures()[1].isSkipped);

    const StepLog silent = HeardOf("**** Installation step 1/3\nInstallation failed in step 1.\n");
    ASSERT_EQ(silent.Failures().size(), 1U);
    EXPECT_EQ(silent.Failures()[0].form, Form::kOther);
    EXPECT_EQ(silent.Failures()[0].why, "");
    EXPECT_FALSE(silent.Failures()[0].isSkipped);
}

TEST(StepLog, TakesNothingBeforeTheFirstStep)
{
    EXPECT_TRUE(HeardOf("H/W setting failed in a in.\nInstallation failed in step 0.\n"
                        "Script execution returned an error(=256) in step no 0\n")
                    .Failures()
                    .empty());
}

TEST(StepLog, ForgetsTheBeginningOfALineWithoutEnd)
{
    StepLog log = HeardOf("**** Installation step 1/9\n");
    for (int i = 0; i < 100; ++i) {
        log.Hear(std::string(4096, 'x'));
    }
    log.Hear("H/W setting failed in a in.\n");

    ASSERT_EQ(log.Failures().size(), 1U);
    EXPECT_EQ(log.Failures()[0].subject, "a");
}

} // namespace

} // namespace kx::tool
