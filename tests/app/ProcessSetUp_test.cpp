// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "app/ForkedChild.h"
#include "app/ProcessSetUp.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <set>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace
{

/// What the descriptor @p fd stands for, as the kernel names it; "closed" when it is not open.
std::string NameOf(int fd)
{
    std::error_code error;
    const auto name =
        std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(fd), error).string();
    return error ? "closed" : name;
}

/// How many descriptors below 100 are open.
int CountOpen()
{
    int count = 0;
    for (int fd = 0; fd < 100; ++fd) {
        count += fcntl(fd, F_GETFD) != -1 ? 1 : 0; // NOLINT(cppcoreguidelines-pro-type-vararg)
    }
    return count;
}

struct sigaction ActionOf(int signal)
{
    struct sigaction action {
    };
    static_cast<void>(sigaction(signal, nullptr, &action));
    return action;
}

std::string HandlerOf(int signal)
{
    const struct sigaction action = ActionOf(signal);
    if (action.sa_handler == SIG_DFL) {
        return "default";
    }
    return action.sa_handler == SIG_IGN ? "ignored" : "caught";
}

void SetHandler(int signal, void (*handler)(int))
{
    struct sigaction action {
    };
    action.sa_handler = handler;
    static_cast<void>(sigaction(signal, &action, nullptr));
}

void OwnHandler(int /*signal*/) {}

} // namespace

/// The standard streams that are closed at the start, one bit each.
class ClosedStandardStreams : public ::testing::TestWithParam<int>
{
};

TEST_P(ClosedStandardStreams, BecomeTheNullDevice)
{
    std::string expected;
    for (int fd = 0; fd < 3; ++fd) {
        const bool isClosed = (GetParam() >> fd & 1) != 0;
        expected += (isClosed ? "/dev/null" : NameOf(fd)) + "\n";
    }
    const int openCount = CountOpen();

    const ChildResult child = RunInChild([] {
        for (int fd = 0; fd < 3; ++fd) {
            if ((GetParam() >> fd & 1) != 0) {
                close(fd);
            }
        }
        SetUpProcess();
        std::string names;
        for (int fd = 0; fd < 3; ++fd) {
            names += NameOf(fd) + "\n";
        }
        return names + std::to_string(CountOpen());
    });

    EXPECT_EQ(child.status, 0);
    EXPECT_EQ(child.text, expected + std::to_string(openCount));
}

INSTANTIATE_TEST_SUITE_P(Streams, ClosedStandardStreams, ::testing::Range(0, 8));

TEST(SetUpProcess, GivesBothDirectionsToAClosedStream)
{
    const ChildResult child = RunInChild([] {
        close(STDIN_FILENO);
        close(STDOUT_FILENO);
        SetUpProcess();
        char byte = 'x';
        const bool isWritten = write(STDOUT_FILENO, &byte, 1) == 1;
        const bool isAtEnd = read(STDIN_FILENO, &byte, 1) == 0;
        return std::string(isWritten ? "written" : "lost") + (isAtEnd ? " end" : " data");
    });

    EXPECT_EQ(child.text, "written end");
}

TEST(SetUpProcess, KeepsALaterFileFromTakingAStreamsPlace)
{
    const ChildResult child = RunInChild([] {
        close(STDOUT_FILENO);
        SetUpProcess();
        std::FILE* const file = std::fopen("/proc/self/status", "r");
        const int fd = fileno(file);
        static_cast<void>(std::fclose(file));
        return std::string(fd > STDERR_FILENO ? "above" : "in its place");
    });

    EXPECT_EQ(child.text, "above");
}

TEST(SetUpProcess, GivesSigchldItsDefaultActionHoweverItWasLeft)
{
    for (void (*const handler)(int) : {SIG_DFL, SIG_IGN, &OwnHandler}) {
        const ChildResult child = RunInChild([handler] {
            SetHandler(SIGCHLD, handler);
            SetUpProcess();
            return HandlerOf(SIGCHLD);
        });
        EXPECT_EQ(child.text, "default");
    }
}

TEST(SetUpProcess, LetsTheStatusOfACommandBeSeenEvenWhenSigchldWasIgnored)
{
    const ChildResult child = RunInChild([] {
        SetHandler(SIGCHLD, SIG_IGN);
        SetUpProcess();
        const pid_t command = fork();
        if (command == 0) {
            _exit(7);
        }
        int status = -1;
        return waitpid(command, &status, 0) == command ? std::to_string(WEXITSTATUS(status))
                                                       : std::string("lost");
    });

    EXPECT_EQ(child.text, "7");
}

TEST(SetUpProcess, SurvivesAReaderThatGoesAway)
{
    const ChildResult child = RunInChild([] {
        SetHandler(SIGPIPE, SIG_DFL);
        SetUpProcess();
        std::array<int, 2> ends{};
        static_cast<void>(pipe(ends.data()));
        close(ends[0]);
        const ssize_t count = write(ends[1], "x", 1);
        return std::to_string(count) + (errno == EPIPE ? " EPIPE" : " other");
    });

    EXPECT_EQ(child.status, 0);
    EXPECT_EQ(child.text, "-1 EPIPE");
}

TEST(SetUpProcess, RestartsCallsThatADroppedSignalInterrupts)
{
    const ChildResult child = RunInChild([] {
        SetHandler(SIGPIPE, SIG_DFL);
        SetUpProcess();
        return HandlerOf(SIGPIPE) +
               ((ActionOf(SIGPIPE).sa_flags & SA_RESTART) != 0 ? " restart" : "");
    });

    EXPECT_EQ(child.text, "caught restart");
}

TEST(SetUpProcess, LeavesASigpipeThatIsIgnoredOrCaughtAlone)
{
    const ChildResult ignored = RunInChild([] {
        SetHandler(SIGPIPE, SIG_IGN);
        SetUpProcess();
        return HandlerOf(SIGPIPE);
    });
    const ChildResult caught = RunInChild([] {
        SetHandler(SIGPIPE, OwnHandler);
        SetUpProcess();
        return std::string(ActionOf(SIGPIPE).sa_handler == OwnHandler ? "own" : "other");
    });

    EXPECT_EQ(ignored.text, "ignored");
    EXPECT_EQ(caught.text, "own");
}

// Bits 13 and 17 of SigIgn stand for SIGPIPE and SIGCHLD.
TEST(SetUpProcess, StartsCommandsWithTheDefaultActions)
{
    const ChildResult child = RunInChild([] {
        SetHandler(SIGPIPE, SIG_DFL);
        SetHandler(SIGCHLD, SIG_IGN);
        SetUpProcess();
        std::array<int, 2> ends{};
        static_cast<void>(pipe(ends.data()));
        const pid_t command = fork();
        if (command == 0) {
            dup2(ends[1], STDOUT_FILENO);
            // NOLINTNEXTLINE(cppcoreguidelines-pro-type-vararg)
            execlp("grep", "grep", "SigIgn", "/proc/self/status", nullptr);
            _exit(127);
        }
        close(ends[1]);
        int status = -1;
        waitpid(command, &status, 0);
        std::array<char, 64> line{};
        const ssize_t count = read(ends[0], line.data(), line.size());
        const std::string text(line.data(), count > 0 ? static_cast<std::size_t>(count) : 0);
        const auto place = text.find_last_of('\t');
        const unsigned long long mask =
            place == std::string::npos ? ~0ULL : std::stoull(text.substr(place + 1), nullptr, 16);
        return std::to_string(mask >> (SIGPIPE - 1) & 1U) +
               std::to_string(mask >> (SIGCHLD - 1) & 1U);
    });

    EXPECT_EQ(child.text, "00");
}

TEST(SetUpProcess, MayBeCalledTwice)
{
    const int openCount = CountOpen();

    const ChildResult child = RunInChild([] {
        SetHandler(SIGPIPE, SIG_DFL);
        SetUpProcess();
        SetUpProcess();
        return HandlerOf(SIGPIPE) + " " + HandlerOf(SIGCHLD) + " " + std::to_string(CountOpen());
    });

    EXPECT_EQ(child.text, "caught default " + std::to_string(openCount));
}
