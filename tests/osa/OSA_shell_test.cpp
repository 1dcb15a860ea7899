// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "osa/OSA.h"
#include "support/ShellRecorder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using ::testing::ElementsAre;

TEST(OsaRunScript, DoesNotRunAScriptItCannotMakeExecutable)
{
    ShellRecorder shell;
    shell.Answer(R"(chmod +x "/ro/job.sh")", 256);

    EXPECT_EQ(OSA_RunScript("/ro/job.sh"), 256);

    EXPECT_THAT(shell.Commands(), ElementsAre(R"(chmod +x "/ro/job.sh")"));
}
