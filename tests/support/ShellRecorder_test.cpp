// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "osa/OSA_System.h"
#include "support/ShellRecorder.h"
#include "support/SleepRecorder.h"
#include "support/TempDir.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>

using ::testing::ElementsAre;

TEST(ShellRecorder, RecordsCommandsInOrderAndAnswersThem)
{
    ShellRecorder shell;
    shell.Answer("false", 256);

    EXPECT_EQ(OSA_SystemRun("true"), 0);
    EXPECT_EQ(OSA_SystemRun("false"), 256);

    EXPECT_THAT(shell.Commands(), ElementsAre("true", "false"));
}

TEST(ShellRecorder, AnswersTheNthCommand)
{
    ShellRecorder shell;
    shell.AnswerNth(2, 512);

    EXPECT_EQ(OSA_SystemRun("true"), 0);
    EXPECT_EQ(OSA_SystemRun("true"), 512);
    EXPECT_EQ(OSA_SystemRun("true"), 0);
}

TEST(ShellRecorder, RunsAnActionBeforeTheAnswer)
{
    ShellRecorder shell;
    bool isRun = false;
    shell.On("true", [&isRun] { isRun = true; });

    EXPECT_EQ(OSA_SystemRun("true"), 0);

    EXPECT_TRUE(isRun);
}

TEST(ShellRecorder, PassesThroughACopyInsideATestFolder)
{
    const TempDir dir;
    const std::string source = dir.Write("a", "content");
    ShellRecorder shell(ShellRecorder::Mode::PassThrough);

    EXPECT_EQ(OSA_SystemRun(("cp -f \"" + source + "\" \"" + dir / "b" + "\" ").c_str()), 0);

    EXPECT_EQ(ReadFile(dir / "b"), "content");
}

using ShellRecorderDeathTest = ::testing::TestWithParam<const char*>;

TEST_P(ShellRecorderDeathTest, EndsTheTestAtACommandThatCouldReachTheMachine)
{
    const auto run = [] {
        const ShellRecorder shell(ShellRecorder::Mode::PassThrough);
        static_cast<void>(OSA_SystemRun(GetParam()));
    };

    EXPECT_DEATH(run(), "will not run outside a test folder");
}

INSTANTIATE_TEST_SUITE_P(Commands, ShellRecorderDeathTest,
                         ::testing::Values("rm -r \"/\"", "/sbin/reboot",
                                           "cp -f \"/etc/hostname\" \"/tmp/kx_other\" ",
                                           "chmod 777 /etc", "mkdir -p \"/tmp/../etc\""));

TEST(ShellRecorderDeath, EndsTheTestAtACommandOutsideTheLifeOfARecorder)
{
    EXPECT_DEATH(static_cast<void>(OSA_SystemRun("true")), "outside the life of a recorder");
}

TEST(ShellRecorderDeath, EndsTheTestAtACommandPastTheRecorder)
{
    const ShellRecorder shell(ShellRecorder::Mode::PassThrough);

    EXPECT_DEATH(static_cast<void>(std::system("true")), "a command past the recorder: true");
}

TEST(SleepRecorderDeath, EndsTheTestAtASleepOutsideTheLifeOfARecorder)
{
    EXPECT_DEATH(OSA_SystemSleep(1), "outside the life of a recorder: sleep 1");
    EXPECT_DEATH(OSA_SystemPause(1), "outside the life of a recorder: pause 1");
}
