// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "confined/ConfinedProcess.h"
#include "confined/Sanitized.h"
#include "confined/Unread.h"
#include "io/Descriptor.h"
#include "io/Error.h"
#include "io/Interruption.h"
#include "io/TemporaryFile.h"
#include "io/Transfer.h"
#include "io/WholeFile.h"
#include "kx-panel/confined/ForkedChild.h"
#include "support/Thrown.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include <fcntl.h>
#include <linux/futex.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace kx::guard
{

namespace
{

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;

constexpr ConfinementLimits kLimits{{std::uint64_t{64} << 20, 20}, {1000, 1000000}};

/// Where the child's end of the pipe will be.
int NextPipe()
{
    std::array<int, 2> ends{};
    EXPECT_EQ(pipe(ends.data()), 0);
    close(ends[0]);
    close(ends[1]);
    return ends[1];
}

/// The number of the test's only child.
std::string ChildNumber()
{
    for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
        std::string name = entry.path().filename();
        if (name.find_first_not_of("0123456789") == std::string::npos &&
            io::ReadWholeFile(entry.path() / "status", 100000)
                    .find("PPid:\t" + std::to_string(getpid()) + "\n") != std::string::npos) {
            return name;
        }
    }
    return "none";
}

/// The lines of a file of /proc about the child that begin with these words.
std::vector<std::string> ProcLinesOf(const std::string& file, const std::vector<std::string>& words)
{
    std::istringstream text(io::ReadWholeFile("/proc/" + ChildNumber() + "/" + file, 100000));
    std::vector<std::string> lines;
    for (std::string line; std::getline(text, line);) {
        for (const std::string& word : words) {
            if (line.compare(0, word.size(), word) == 0) {
                lines.push_back(line);
            }
        }
    }
    return lines;
}

class ConfinedProcessTest : public ::testing::Test
{
protected:
    ConfinedProcessTest() : m_file(io::MakeTemporaryFile())
    {
        io::WriteAll(m_file.Number(), "the package", "file");
    }

    void TearDown() override { EXPECT_TRUE(HasNoChild()); }

    /// Does the work.
    /// @return how it ended
    std::string Ended(const ConfinedWork& work, const MessageTaker& take,
                      const ConfinementLimits& limits = kLimits)
    {
        return Thrown([&] { ConfinedProcess(limits).Run(m_file.Number(), work, take); });
    }

    std::string Ended(const ConfinedWork& work, const ConfinementLimits& limits = kLimits)
    {
        return Ended(
            work,
            [this](const Message& message) {
                m_messages.push_back(std::to_string(message.kind) + " " +
                                     std::string(message.bytes));
            },
            limits);
    }

    [[nodiscard]] int File() const { return m_file.Number(); }
    [[nodiscard]] const std::vector<std::string>& Messages() const { return m_messages; }

private:
    io::Descriptor m_file;
    std::vector<std::string> m_messages;
};

TEST_F(ConfinedProcessTest, ReadsItsFileAndTells)
{
    const std::string ended = Ended([this](IMessages& messages) {
        std::array<char, 7> bytes{};
        const std::size_t count = io::ReadAt(File(), bytes.data(), bytes.size(), 4, "file");
        messages.Send(1, {bytes.data(), count});
        messages.Send(2, std::string(kLargestMessage, 'x'));
        messages.Send(3, "");
    });

    EXPECT_EQ(ended, "nothing thrown");
    EXPECT_THAT(Messages(),
                ElementsAre("1 package", "2 " + std::string(kLargestMessage, 'x'), "3 "));
}

TEST_F(ConfinedProcessTest, DoesOneWorkAfterTheOther)
{
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(Ended([i](IMessages& messages) { messages.Send(1, std::to_string(i)); }),
                  "nothing thrown");
    }
    EXPECT_THAT(Messages(), ElementsAre("1 0", "1 1", "1 2"));
}

TEST_F(ConfinedProcessTest, KnowsTheLocalTime)
{
    const auto hour = [] {
        const std::time_t moment = 1700000000;
        tm time{};
        localtime_r(&moment, &time);
        const std::time_t again = mktime(&time);
        return std::to_string(time.tm_hour) + " " + std::to_string(again);
    };
    const auto tell = [&hour](IMessages& messages) { messages.Send(1, hour()); };
    const char* const before = std::getenv("TZ"); // NOLINT(concurrency-mt-unsafe)
    const std::string kept = before != nullptr ? before : "";

    // NOLINTBEGIN(concurrency-mt-unsafe)
    unsetenv("TZ");
    const std::string expected = "1 " + hour();
    EXPECT_EQ(Ended(tell), "nothing thrown");
    setenv("TZ", "XYZ-5", 1);
    EXPECT_EQ(Ended(tell), "nothing thrown");
    before != nullptr ? setenv("TZ", kept.c_str(), 1) : unsetenv("TZ");
    // NOLINTEND(concurrency-mt-unsafe)

    EXPECT_THAT(Messages(), ElementsAre(expected, "1 3 1700000000"));
}

TEST_F(ConfinedProcessTest, BelongsToNobodyAndHasNothing)
{
    std::vector<std::string> status;
    std::vector<std::string> limits;

    const std::string ended = Ended(
        [](IMessages& messages) { messages.Send(1, "look"); },
        [&](const Message& /*message*/) {
            status =
                ProcLinesOf("status", {"Uid", "Gid", "Groups", "CapInh", "CapPrm", "CapEff",
                                       "CapAmb", "NoNewPrivs", "Seccomp:", "SigIgn", "SigBlk"});
            limits = ProcLinesOf("limits", {"Max open files", "Max processes", "Max file size",
                                            "Max core", "Max cpu", "Max address"});
        });

    EXPECT_EQ(ended, "nothing thrown");
    EXPECT_THAT(status,
                ElementsAre("Uid:\t65534\t65534\t65534\t65534", "Gid:\t65534\t65534\t65534\t65534",
                            StartsWith("Groups:\t"), "SigBlk:\t0000000000000000",
                            "SigIgn:\t0000000000000000", "CapInh:\t0000000000000000",
                            "CapPrm:\t0000000000000000", "CapEff:\t0000000000000000",
                            "CapAmb:\t0000000000000000", "NoNewPrivs:\t1", "Seccomp:\t2"));
    EXPECT_EQ(status.at(2).find_first_of("0123456789"), std::string::npos) << status.at(2);
    EXPECT_THAT(
        limits,
        ElementsAre(HasSubstr(" 21                   22 "), HasSubstr(" 0  "), HasSubstr(" 0  "),
                    HasSubstr(" 0  "), HasSubstr(kIsSanitized ? " 16  " : " 0  "),
                    HasSubstr(kIsSanitized ? "unlimited" : " 67108864             67108864 ")));
}

TEST_F(ConfinedProcessTest, KeepsNoDescriptorOpen)
{
    std::array<int, 2> ends{};
    ASSERT_EQ(pipe2(ends.data(), O_NONBLOCK), 0);
    const io::Descriptor from(ends[0]);
    io::Descriptor to(ends[1]);
    io::Transferred heard{1, 1};

    const std::string ended = Ended([](IMessages& messages) { messages.Send(1, "look"); },
                                    [&](const Message& /*message*/) {
                                        to.Close();
                                        char byte = 0;
                                        heard = io::ReadSome(from.Number(), &byte, 1);
                                    });

    EXPECT_EQ(ended, "nothing thrown");
    // The end of the pipe: nobody else could write to it.
    EXPECT_EQ(heard.error, 0);
    EXPECT_EQ(heard.count, 0U);
}

TEST_F(ConfinedProcessTest, PassesOnTheErrorOfTheWork)
{
    EXPECT_EQ(Ended([](IMessages& messages) {
                  messages.Send(1, "one");
                  throw io::Error(io::ExitCode::kProblems, "file", "is odd", "make it even");
              }),
              "1: file: is odd; make it even");
    EXPECT_THAT(Messages(), ElementsAre("1 one"));
}

TEST_F(ConfinedProcessTest, PassesOnTheErrorOfTheTaker)
{
    const MessageTaker refuse = [](const Message& /*message*/) {
        throw io::Error(io::ExitCode::kProblems, "", "too much");
    };

    EXPECT_EQ(Ended(
                  [](IMessages& messages) {
                      for (;;) {
                          messages.Send(1, "more");
                      }
                  },
                  refuse),
              "1: too much");
}

TEST_F(ConfinedProcessTest, OtherExceptionsOfTheWorkAreAnEarlyEnd)
{
    EXPECT_EQ(Ended([](IMessages&) { throw std::runtime_error("odd"); }),
              "1: what reads the package ended early, with status 1");
    EXPECT_EQ(Ended([](IMessages& messages) { messages.Send(0xff, ""); }),
              "1: what reads the package ended early, with status 1");
}

TEST_F(ConfinedProcessTest, AnEarlyEndIsARefusal)
{
    EXPECT_EQ(Ended([](IMessages& messages) {
                  messages.Send(1, "one");
                  _exit(0);
              }),
              "1: what reads the package ended early, with status 0");
    EXPECT_EQ(Ended([](IMessages&) { __builtin_trap(); }),
              "1: what reads the package ended by signal 4");
    EXPECT_EQ(Ended([](IMessages&) {
                  volatile int* const nothing = nullptr;
                  *nothing = 1;
              }),
              "1: what reads the package ended by signal 11");
}

TEST_F(ConfinedProcessTest, WhatTakesForEverIsEnded)
{
    ConfinementLimits limits = kLimits;
    limits.process.seconds = 1;
    EXPECT_EQ(Ended(
                  [](IMessages& messages) {
                      messages.Send(1, "one");
                      for (volatile bool isEndless = true; isEndless;) {
                      }
                  },
                  limits),
              "1: what reads the package took longer than 1 s");
}

TEST_F(ConfinedProcessTest, TheTimeOfTheTakerDoesNotCount)
{
    ConfinementLimits limits = kLimits;
    limits.process.seconds = 1;
    EXPECT_EQ(Ended([](IMessages& messages) { messages.Send(1, "one"); },
                    [](const Message& /*message*/) {
                        const timespec pause{1, 200000000};
                        nanosleep(&pause, nullptr);
                    },
                    limits),
              "nothing thrown");
}

TEST_F(ConfinedProcessTest, MoreMemoryThanAllowedIsNotGiven)
{
    if (kIsSanitized) {
        return; // its memory has no limit
    }
    EXPECT_EQ(Ended([](IMessages&) {
                  std::vector<std::string> all;
                  all.reserve(128);
                  for (int i = 0; i < 128; ++i) {
                      all.emplace_back(std::size_t{1} << 20, 'x');
                  }
              }),
              "1: what reads the package needs more memory than it may have");
    EXPECT_EQ(Ended([](IMessages& messages) {
                  messages.Send(1, std::string(kLargestMessage, 'x'));
                  std::string large(std::size_t{32} << 20, 'x');
                  messages.Send(1, large.substr(large.size() - 3));
              }),
              "nothing thrown");
}

TEST_F(ConfinedProcessTest, ManyMessagesAreOneRefusal)
{
    ConfinementLimits limits = kLimits;
    limits.frames = {std::uint64_t{1} << 40, std::uint64_t{20} << 20};
    std::uint64_t taken = 0;
    EXPECT_EQ(Ended(
                  [](IMessages& messages) {
                      const std::string large(kLargestMessage, 'x');
                      for (int i = 0; i < 16384; ++i) { // 1 GiB
                          messages.Send(1, large);
                      }
                  },
                  [&taken](const Message& message) { taken += message.bytes.size(); }, limits),
              "1: what reads the package said what it must not say");
    EXPECT_EQ(taken, std::uint64_t{20} << 20);
}

TEST_F(ConfinedProcessTest, RubbishIsRefused)
{
    const int pipe = NextPipe();
    for (const std::string& rubbish :
         {std::string("\1\xff\xff\xff\xff"), std::string("\xff\0\0\0\0more", 9),
          std::string("\xf3\0\0\0\0", 5)}) {
        EXPECT_EQ(Ended([&rubbish, pipe](IMessages&) {
                      static_cast<void>(io::TryWriteAll(pipe, rubbish));
                  }),
                  "1: what reads the package said what it must not say");
    }
    EXPECT_EQ(Ended([pipe](IMessages&) {
                  static_cast<void>(io::TryWriteAll(pipe, {"\1\2\0\0\0x", 6}));
                  _exit(0);
              }),
              "1: what reads the package ended early, with status 0");
    EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(ConfinedProcessTest, WhoAsksTheProgramToEndIsHeard)
{
    struct sigaction action {
    };
    struct sigaction before {
    };
    action.sa_handler = [](int) {};
    sigaction(SIGTERM, &action, &before);
    {
        const io::Interruption interruption;
        EXPECT_EQ(Ended(
                      [](IMessages& messages) {
                          messages.Send(1, "one");
                          for (volatile bool isEndless = true; isEndless;) {
                          }
                      },
                      [](const Message& /*message*/) { static_cast<void>(std::raise(SIGTERM)); }),
                  "3: cannot hear what reads packages: Interrupted system call");
    }
    {
        const io::Interruption forgetting;
    }
    sigaction(SIGTERM, &before, nullptr);
}

TEST_F(ConfinedProcessTest, NeedsRoot)
{
    ASSERT_EQ(seteuid(kNobody), 0);
    const std::string ended = Ended([](IMessages&) {});
    ASSERT_EQ(seteuid(0), 0);

    EXPECT_EQ(ended, "3: needs root, to read packages as a user without rights; start it as root");
}

TEST_F(ConfinedProcessTest, IsNotMadeByHalves)
{
    // Without the right to change its user, the child must do nothing at all.
    EXPECT_EQ(InChild([this] {
                  DropCapability(7); // CAP_SETUID
                  const std::string ended =
                      Ended([](IMessages& messages) { messages.Send(1, "done nevertheless"); });
                  return ended + (Messages().empty() ? "" : ", " + Messages().front());
              }),
              "3: cannot keep what reads packages from being root: Operation not permitted");
}

/// What a work must not do; each would be harmless where it could.
struct Forbidden {
    const char* name;
    void (*call)(int file);
};

class ForbiddenCalls : public ConfinedProcessTest, public ::testing::WithParamInterface<Forbidden>
{
};

TEST_P(ForbiddenCalls, EndTheProcess)
{
    EXPECT_EQ(Ended([this](IMessages& messages) {
                  GetParam().call(File());
                  messages.Send(1, "still here");
              }),
              "1: what reads the package ended by signal 31");
    EXPECT_THAT(Messages(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(
    Calls, ForbiddenCalls,
    ::testing::Values(
        Forbidden{"Open",
                  [](int) { static_cast<void>(open("/etc/passwd", O_RDONLY | O_CLOEXEC)); }},
        Forbidden{"OldOpen", [](int) { syscall(SYS_open, "/etc/passwd", O_RDONLY); }},
        Forbidden{"Socket", [](int) { socket(AF_INET, SOCK_STREAM, 0); }},
        Forbidden{"SocketPair",
                  [](int) {
                      std::array<int, 2> ends{};
                      socketpair(AF_UNIX, SOCK_STREAM, 0, ends.data());
                  }},
        Forbidden{"Fork",
                  [](int) {
                      if (fork() == 0) {
                          _exit(0);
                      }
                  }},
        Forbidden{"Execute",
                  [](int) {
                      std::array<char*, 1> none{};
                      execve("/nonexistent", none.data(), none.data());
                  }},
        Forbidden{"SignalItsParent", [](int) { kill(getppid(), 0); }},
        Forbidden{"SignalAll", [](int) { syscall(SYS_kill, -1, 0); }},
        Forbidden{"Trace", [](int) { ptrace(PTRACE_TRACEME, 0, nullptr, nullptr); }},
        Forbidden{"WriteToItsFile",
                  [](int file) { static_cast<void>(io::TryWriteAll(file, "x")); }},
        Forbidden{"WriteElsewhere", [](int) { static_cast<void>(io::TryWriteAll(9, "x")); }},
        Forbidden{"WriteAtAPlace", [](int file) { syscall(SYS_pwrite64, file, "x", 1, 0); }},
        Forbidden{"CutItsFile", [](int file) { static_cast<void>(ftruncate(file, 0)); }},
        Forbidden{"ReadAnotherFile",
                  [](int file) {
                      char byte = 0;
                      static_cast<void>(pread(file + 1, &byte, 1, 0));
                  }},
        Forbidden{"MoveItsParentsPlace", [](int file) { lseek(file, 0, SEEK_SET); }},
        Forbidden{"MakeAProgram",
                  [](int) {
                      static_cast<void>(mmap(nullptr, 4096, PROT_READ | PROT_EXEC,
                                             MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
                  }},
        Forbidden{"TurnMemoryIntoAProgram",
                  [](int) {
                      static std::array<char, 8192> bytes{};
                      mprotect(bytes.data(), 4096, PROT_READ | PROT_EXEC);
                  }},
        Forbidden{"WaitForAFutex",
                  [](int) {
                      static int word = 0;
                      syscall(SYS_futex, &word, FUTEX_WAIT_PRIVATE, 1, nullptr, nullptr, 0);
                  }},
        Forbidden{"ChangeTheFilter", [](int) { prctl(PR_SET_SECCOMP, 0, 0, 0, 0); }},
        Forbidden{"BecomeRoot", [](int) { syscall(SYS_setresuid, 0, 0, 0); }},
        Forbidden{"RaiseLimits",
                  [](int) {
                      const rlimit limit{10, 10};
                      setrlimit(RLIMIT_NOFILE, &limit);
                  }},
        Forbidden{"MakeAFolder", [](int) { mkdir("/nonexistent/folder", 0700); }},
        Forbidden{"Remove", [](int) { unlink("/nonexistent/file"); }},
        Forbidden{"Duplicate", [](int file) { static_cast<void>(dup(file)); }},
        Forbidden{"WatchWithBpf", [](int) { syscall(SYS_bpf, -1, nullptr, 0); }},
        Forbidden{"QueueCalls", [](int) { syscall(SYS_io_uring_setup, 0, nullptr); }},
        Forbidden{"Sleep",
                  [](int) {
                      const timespec pause{1000, 0};
                      nanosleep(&pause, nullptr);
                  }}),
    [](const auto& row) { return std::string(row.param.name); });

} // namespace

} // namespace kx::guard
