// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "trial/ChildProcess.h"

#include "io/Descriptor.h"
#include "io/Error.h"
#include "io/Transfer.h"
#include "trial/ShellTerminal.h"

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <optional>

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace kx::tool
{

namespace
{

using Clock = std::chrono::steady_clock;

constexpr int kTickMs = 100;
constexpr std::chrono::seconds kPatience(40); ///< for a child that was told to end

/// A pipe.
struct Pipe {
    Pipe()
    {
        std::array<int, 2> ends{};
        if (pipe2(ends.data(), O_CLOEXEC) != 0) {
            throw io::AccessError("", "make a pipe", errno);
        }
        reading = io::Descriptor(ends[0]);
        writing = io::Descriptor(ends[1]);
    }

    io::Descriptor reading;
    io::Descriptor writing;
};

/// Becomes the program; writes the number of the error to @p failure when that is not possible.
[[noreturn]] void Become(const std::vector<std::string>& words, std::array<int, 3> streams,
                         int failure, pid_t parent)
{
    setsid();
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGPIPE}) {
        std::signal(number, SIG_DFL);
    }
    bool isReady = getppid() == parent;
    for (int number = 0; number < 3; ++number) {
        isReady = isReady && dup2(streams[static_cast<std::size_t>(number)], number) == number;
    }
    if (isReady) {
        std::vector<char*> arguments;
        for (const std::string& word : words) {
            arguments.push_back(const_cast<char*>(word.c_str())); // NOLINT: as execv wants it
        }
        arguments.push_back(nullptr);
        execv(arguments[0], arguments.data());
    }
    const int number = errno;
    std::array<char, sizeof number> bytes{};
    std::memcpy(bytes.data(), &number, sizeof number);
    static_cast<void>(io::TryWriteAll(failure, {bytes.data(), bytes.size()}));
    _exit(127);
}

/// Reads what is there.
/// @return false at the end
bool Take(int descriptor, BoundedText& text,
          const std::function<void(std::string_view)>& listener = {})
{
    std::array<char, 1 << 16> piece{};
    const io::Transferred taken = io::ReadSome(descriptor, piece.data(), piece.size());
    text.Append({piece.data(), taken.count});
    if (listener) {
        listener({piece.data(), taken.count});
    }
    return taken.count > 0 || taken.error == EINTR || taken.error == EAGAIN;
}

/// Waits until the child has become the program.
/// @return 0, or the number of the error that keeps it from that
int NumberFrom(const io::Descriptor& failure)
{
    std::array<char, sizeof(int)> bytes{};
    const io::Transferred told = io::ReadSome(failure.Number(), bytes.data(), bytes.size());
    int number = 0;
    std::memcpy(&number, bytes.data(), told.count);
    // A child whose start was not waited for is asked to end by the first look at it.
    return told.error == EINTR ? 0 : told.error != 0 ? told.error : number;
}

/// A child that runs.
class Child
{
public:
    Child(const std::vector<std::string>& words, const ChildTerms& terms) : Child(terms)
    {
        Start(words); // what throws from here on is followed by the destructor
    }
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;
    /// Leaves no child behind, also when something was thrown.
    ~Child()
    {
        if (m_process > 0) {
            kill(m_process, SIGKILL);
            waitpid(m_process, nullptr, 0);
        }
    }

    ChildResult Wait(const std::function<bool()>& mayGoOn)
    {
        while (m_isOutOpen || m_isErrOpen) {
            Look(mayGoOn);
            Serve();
        }
        int status = 0;
        while (waitpid(m_process, &status, WNOHANG) == 0) {
            Look(mayGoOn);
            poll(nullptr, 0, kTickMs / 10);
        }
        m_process = -1;
        m_result.status = WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
        return m_result;
    }

private:
    explicit Child(const ChildTerms& terms) : m_terms(terms), m_terminal(terms.terminal) {}

    void Start(const std::vector<std::string>& words)
    {
        Pipe failure;
        const io::Descriptor null(open("/dev/null", O_RDONLY | O_CLOEXEC));
        const std::array<int, 3> streams = {
            m_terminal != nullptr ? m_terminal->PanelSide() : null.Number(),
            m_terminal != nullptr ? m_terminal->PanelSide() : m_out.writing.Number(),
            m_err.writing.Number()};
        const pid_t parent = getpid();
        m_process = fork();
        if (m_process == 0) {
            Become(words, streams, failure.writing.Number(), parent);
        }
        int number = m_process < 0 ? errno : 0;
        // Their other ends are the child's alone, so that its end shows.
        for (Pipe* const pipe : {&failure, &m_out, &m_err}) {
            pipe->writing.Close();
        }
        if (number == 0) {
            number = NumberFrom(failure.reading);
        }
        if (number != 0) {
            throw io::AccessError(words[0], "start", number);
        }
        m_isOutOpen = m_terminal == nullptr;
    }

    /// Asks whether to go on, and sees to it that a child that shall end does.
    void Look(const std::function<bool()>& mayGoOn)
    {
        if (m_result.isStopped) {
            // Asked anew each time: somebody may lose patience.
            const Clock::duration patience = m_terms.patience ? m_terms.patience() : kPatience;
            if (Clock::now() - m_stopped > patience) {
                kill(m_process, SIGKILL);
            }
        } else if (!mayGoOn()) {
            m_result.isStopped = true;
            m_stopped = Clock::now();
            kill(m_process, SIGTERM);
        }
    }

    /// Waits for something to carry, for a moment, and carries it.
    void Serve()
    {
        std::array<pollfd, 4> waits{};
        waits[0] = {m_isOutOpen ? m_out.reading.Number() : -1, POLLIN, 0};
        waits[1] = {m_isErrOpen ? m_err.reading.Number() : -1, POLLIN, 0};
        waits[2] = {-1, POLLIN, 0};
        waits[3] = {-1, POLLIN, 0};
        if (m_terminal != nullptr) {
            m_terminal->CopySize();
            const bool isFull = m_terminal->HasPending();
            waits[2].fd = m_hasKeyboard && !isFull ? m_terminal->Keyboard() : -1;
            waits[3] = {m_terminal->OurSide(),
                        static_cast<short>(isFull ? POLLIN | POLLOUT : POLLIN), 0};
        }
        if (poll(waits.data(), waits.size(), kTickMs) <= 0) {
            return;
        }
        // The terminal first: nothing the shell printed may be lost when its end is seen.
        if (m_terminal != nullptr) {
            ServeTerminal(waits[2].revents, waits[3].revents);
        }
        m_isOutOpen = m_isOutOpen && (waits[0].revents == 0 ||
                                      Take(m_out.reading.Number(), m_result.out, m_terms.onOutput));
        m_isErrOpen = m_isErrOpen && (waits[1].revents == 0 || waits[3].revents != 0 ||
                                      Take(m_err.reading.Number(), m_result.err));
    }

    void ServeTerminal(int person, int ourSide)
    {
        if ((ourSide & POLLIN) != 0) {
            m_terminal->ShowPrinted();
        }
        if ((ourSide & POLLOUT) != 0) {
            m_terminal->HandOver();
        }
        if (person != 0) {
            m_hasKeyboard = m_terminal->TakeKeys();
        }
    }

    const ChildTerms& m_terms;
    ShellTerminal* m_terminal;
    Pipe m_out;
    Pipe m_err;
    bool m_isOutOpen = true;
    bool m_isErrOpen = true;
    bool m_hasKeyboard = true;
    pid_t m_process = -1;
    Clock::time_point m_stopped;
    ChildResult m_result;
};

} // namespace

ChildResult RunChild(const std::vector<std::string>& words, const std::function<bool()>& mayGoOn,
                     const ChildTerms& terms)
{
    return Child(words, terms).Wait(mayGoOn);
}

} // namespace kx::tool
