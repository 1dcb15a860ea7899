// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "confined/ConfinedProcess.h"

#include "confined/OpenFiles.h"
#include "confined/Unread.h"
#include "io/Descriptor.h"
#include "io/Error.h"
#include "io/Interruption.h"
#include "io/Transfer.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <new>
#include <string>

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

namespace kx::guard
{

namespace
{

using Clock = std::chrono::steady_clock;

/// A child process, which has ended when the object has.
class Child
{
public:
    explicit Child(pid_t number) : m_number(number) {}
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;
    ~Child() { static_cast<void>(End()); }

    /// Ends it where it has not ended yet.
    /// @return how it ended, for people
    std::string End()
    {
        int status = 0;
        if (m_number > 0) {
            kill(m_number, SIGKILL); // one that is about to end does so as it was
            while (waitpid(m_number, &status, 0) < 0 && errno == EINTR) {
            }
            m_number = 0;
        }
        return WIFSIGNALED(status) ? "by signal " + std::to_string(WTERMSIG(status))
                                   : "early, with status " + std::to_string(WEXITSTATUS(status));
    }

private:
    pid_t m_number;
};

struct Pipe {
    io::Descriptor from;
    io::Descriptor to;
};

Pipe MakePipe()
{
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) {
        throw io::AccessError("", "start what reads packages", errno);
    }
    return {io::Descriptor(ends[0]), io::Descriptor(ends[1])};
}

/// Lets the work tell the local time: times of archives are local. The C library looks at the file
/// of the time zone again and again, unless TZ names it.
void KeepTimeZone()
{
    static_cast<void>(setenv("TZ", ":/etc/localtime", 0)); // NOLINT(concurrency-mt-unsafe)
    tzset();
}

/// What the child does from its first moment to its last.
[[noreturn]] void BeChild(int descriptor, int messages, const ConfinementLimits& limits,
                          pid_t parent, const ConfinedWork& work)
{
    FrameWriter writer(messages);
    try {
        CloseAllBut({descriptor, messages});
        KeepTimeZone();
        GiveUpRights(limits.process, parent);
        AllowOnlyReading(descriptor, messages);
        work(writer);
        writer.TellDone();
        _exit(EXIT_SUCCESS);
    } catch (const io::Error& error) {
        writer.TellError(error);
    } catch (const std::bad_alloc&) {
        writer.TellNoMemory();
    } catch (const std::exception&) {
        // Its end tells enough.
    }
    _exit(EXIT_FAILURE);
}

/// Waits for what the child says.
class Listening
{
public:
    Listening(int descriptor, const ConfinementLimits& limits)
        : m_descriptor(descriptor), m_limits(limits), m_reader(limits.frames),
          m_end(Clock::now() + std::chrono::seconds(limits.process.seconds))
    {
    }

    /// Hands on all that it says.
    /// @return false when it ended without a last word
    bool Listen(const MessageTaker& take)
    {
        const MessageTaker takeUntimed = [this, &take](const Message& message) {
            const Clock::time_point begin = Clock::now();
            take(message);
            m_end += Clock::now() - begin;
        };
        std::array<char, kLargestMessage> piece{};
        for (;;) {
            Wait();
            const io::Transferred some = io::ReadSome(m_descriptor, piece.data(), piece.size());
            RefuseInterrupted();
            if (some.error != 0) {
                throw io::AccessError("", "hear what reads packages", some.error);
            }
            if (some.count == 0) {
                return false;
            }
            if (m_reader.Feed({piece.data(), some.count}, takeUntimed)) {
                return true;
            }
        }
    }

private:
    static void RefuseInterrupted()
    {
        if (io::Interruption::IsAsked()) {
            throw io::AccessError("", "hear what reads packages", EINTR);
        }
    }

    /// Waits until there is something to read.
    void Wait()
    {
        for (;;) {
            RefuseInterrupted();
            const auto left =
                std::chrono::ceil<std::chrono::milliseconds>(m_end - Clock::now()).count();
            if (left <= 0) {
                throw Unread("what reads the package took longer than " +
                             std::to_string(m_limits.process.seconds) + " s");
            }
            constexpr decltype(left) kMost = 250; // between looks at whether to end
            pollfd waited{m_descriptor, POLLIN, 0};
            const int count = poll(&waited, 1, static_cast<int>(std::min(left, kMost)));
            if (count > 0) {
                return;
            }
            if (count < 0 && errno != EINTR) {
                throw io::AccessError("", "hear what reads packages", errno);
            }
        }
    }

    int m_descriptor;
    const ConfinementLimits& m_limits;
    FrameReader m_reader;
    Clock::time_point m_end;
};

} // namespace

void ConfinedProcess::Run(int descriptor, const ConfinedWork& work, const MessageTaker& take)
{
    if (geteuid() != 0) {
        throw io::Error(io::ExitCode::kNoAccess, "",
                        "needs root, to read packages as a user without rights",
                        "start it as root");
    }
    Pipe pipe = MakePipe();
    const pid_t parent = getpid();
    const pid_t number = fork();
    if (number < 0) {
        throw io::AccessError("", "start what reads packages", errno);
    }
    if (number == 0) {
        BeChild(descriptor, pipe.to.Number(), m_limits, parent, work);
    }
    Child child(number);
    pipe.to.Close();
    if (!Listening(pipe.from.Number(), m_limits).Listen(take)) {
        throw Unread("what reads the package ended " + child.End());
    }
}

} // namespace kx::guard
