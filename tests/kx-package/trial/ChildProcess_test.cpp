// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "support/Deadline.h"
#include "support/Thrown.h"
#include "trial/ChildProcess.h"

#include <gmock/gmock.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <stdexcept>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

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

TEST(RunChild, StartsAProgramInASessionOfItsOwnWithNothingOpenButItsStreams)
{
    const ChildResult session =
        RunChild({"/bin/sh", "-c", "set -- $(cat /proc/$$/stat); [ $1 = $6 ]"}, Always);
    const ChildResult open = RunChild({"/bin/sh", "-c", "ls /proc/$$/fd; true"}, Always);
    // What the tests were started with is not closed.
    std::vector<std::string> expected = {"0", "1", "2"};
    for (int number = 3; number < 1024; ++number) {
        const int flags = fcntl(number, F_GETFD);
        if (flags >= 0 && (flags & FD_CLOEXEC) == 0) {
            expected.push_back(std::to_string(number));
        }
    }

    EXPECT_EQ(session.status, 0);
    EXPECT_THAT(open.out.Lines(), testing::UnorderedElementsAreArray(expected));
}

TEST(RunChild, StartsAProgramThatEndsBySignalsWhateverThisOneIgnores)
{
    constexpr std::array<int, 5> kSignals = {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGPIPE};
    std::array<struct sigaction, kSignals.size()> before{};
    struct sigaction ignoring {
    };
    ignoring.sa_handler = SIG_IGN;
    for (std::size_t i = 0; i < kSignals.size(); ++i) {
        ASSERT_EQ(sigaction(kSignals[i], &ignoring, &before[i]), 0);
    }

    for (const char* const name : {"INT", "TERM", "HUP", "QUIT", "PIPE"}) {
        const std::string script = std::string("kill -") + name + " $$; exit 0";
        EXPECT_GT(RunChild({"/bin/sh", "-c", script}, Always).status, 128) << name;
    }

    for (std::size_t i = 0; i < kSignals.size(); ++i) {
        ASSERT_EQ(sigaction(kSignals[i], &before[i], nullptr), 0);
    }
}

TEST(RunChild, LeavesNoChildBehindWhenItIsAskedInVain)
{
    const Deadline deadline;
    const auto fails = []() -> bool { throw std::runtime_error("asked"); };

    EXPECT_THROW(static_cast<void>(RunChild({"/usr/bin/sleep", "60"}, fails)), std::runtime_error);

    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
    EXPECT_EQ(errno, ECHILD);
}

TEST(RunChild, EndsAChildWhoseParentIsKilled)
{
    const Deadline deadline;
    std::array<int, 2> ends{};
    ASSERT_EQ(pipe(ends.data()), 0);
    // The grandchild is handed over to this process, which then sees its end.
    ASSERT_EQ(prctl(PR_SET_CHILD_SUBREAPER, 1), 0);
    const pid_t parent = fork();
    if (parent == 0) {
        const std::string script =
            "echo $$ >&" + std::to_string(ends[1]) + "; exec /usr/bin/sleep 60";
        static_cast<void>(RunChild({"/bin/sh", "-c", script}, Always));
        _exit(0);
    }
    std::array<char, 16> text{};
    ASSERT_GT(read(ends[0], text.data(), text.size() - 1), 0);
    const pid_t child = std::stoi(text.data());

    kill(parent, SIGKILL);
    waitpid(parent, nullptr, 0);
    int status = 0;

    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFSIGNALED(status));
    EXPECT_EQ(WTERMSIG(status), SIGTERM);
    prctl(PR_SET_CHILD_SUBREAPER, 0);
    close(ends[0]);
    close(ends[1]);
}

TEST(RunChild, SaysWhyAProgramCannotBeStarted)
{
    EXPECT_EQ(Thrown([] { static_cast<void>(RunChild({"/nowhere/run"}, Always)); }),
              "3: /nowhere/run: cannot start: No such file or directory");
    EXPECT_EQ(Thrown([] { static_cast<void>(RunChild({"/etc/passwd"}, Always)); }),
              "3: /etc/passwd: cannot start: Permission denied");

    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "nothing is left of them";
    EXPECT_EQ(errno, ECHILD);
}

} // namespace

} // namespace kx::tool
