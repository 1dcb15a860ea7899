// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "support/Thrown.h"
#include "trial/ChildProcess.h"

#include <gmock/gmock.h>

#include <chrono>

namespace kx::tool
{

namespace
{

using testing::ElementsAre;

bool Always()
{
    return true;
}

TEST(RunChild, TellsWhatAProgramPrintedAndItsExitStatus)
{
    const ChildResult result = RunChild({"/usr/bin/printf", "%s\\n", "a b", ""}, Always);

    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.out.Lines(), ElementsAre("a b", ""));
    EXPECT_THAT(result.err.Lines(), ElementsAre());
    EXPECT_FALSE(result.isStopped);
    EXPECT_EQ(RunChild({"/usr/bin/false"}, Always).status, 1);
}

TEST(RunChild, GivesNoInput)
{
    EXPECT_EQ(RunChild({"/usr/bin/cat"}, Always).status, 0);
}

TEST(RunChild, KeepsErrorsApart)
{
    const ChildResult result = RunChild({"/usr/bin/cat", "/nowhere"}, Always);

    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err.Lines().size(), 1U);
    EXPECT_THAT(result.out.Lines(), ElementsAre());
}

TEST(RunChild, EndsAChildThatMayNotGoOn)
{
    const auto start = std::chrono::steady_clock::now();

    const ChildResult result = RunChild({"/usr/bin/sleep", "60"}, [] { return false; });

    EXPECT_EQ(result.status, 128 + 15);
    EXPECT_TRUE(result.isStopped);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
}

TEST(RunChild, SaysWhyAProgramCannotBeStarted)
{
    EXPECT_EQ(Thrown([] { static_cast<void>(RunChild({"/nowhere/run"}, Always)); }),
              "3: /nowhere/run: cannot start: No such file or directory");
    EXPECT_EQ(Thrown([] { static_cast<void>(RunChild({"/etc/passwd"}, Always)); }),
              "3: /etc/passwd: cannot start: Permission denied");
}

} // namespace

} // namespace kx::tool
