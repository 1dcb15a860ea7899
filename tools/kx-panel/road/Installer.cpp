// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "road/Installer.h"

#include "io/Error.h"
#include "io/Interruption.h"
#include "io/Transfer.h"
#include "road/OutputKeeper.h"
#include "road/Pipe.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace kx::guard
{

namespace
{

using Clock = std::chrono::steady_clock;

constexpr int kTickMs = 50;

/// Words as execve takes them.
class Words
{
public:
    explicit Words(std::vector<std::string> words) : m_words(std::move(words))
    {
        for (std::string& word : m_words) {
            m_pointers.push_back(word.data());
        }
        m_pointers.push_back(nullptr);
    }

    [[nodiscard]] char* const* Pointers() const { return m_pointers.data(); }

private:
    std::vector<std::string> m_words;
    std::vector<char*> m_pointers;
};

/// The environment of the updater: what it and a panel's Qt need to run, and nothing else.
std::vector<std::string> EnvironmentWords()
{
    std::vector<std::string> words = {
        "PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin", "HOME=/root"};
    const auto pass = [&words](const char* name, const char* otherwise) {
        const char* const value = std::getenv(name);
        if (value != nullptr || otherwise != nullptr) {
            words.push_back(std::string(name) + "=" + (value != nullptr ? value : otherwise));
        }
    };
    pass("LANG", "C");
    for (const char* const name :
         {"LC_ALL", "LC_COLLATE", "TZ", "QT_PLUGIN_PATH", "LD_LIBRARY_PATH"}) {
        pass(name, nullptr);
    }
    return words;
}

/// What the new process needs; everything was made before it, as it may take no memory.
struct Start {
    const Words& words;
    const Words& environment;
    int output;
    int lock;
    int failure;
};

/// Becomes the updater; writes the number of the error when that is not possible.
[[noreturn]] void BecomeInstaller(const Start& start)
{
    // Beyond the numbers that scripts use.
    constexpr int kFirstUnused = 200;
    setsid();
    umask(S_IWGRP | S_IWOTH);
    for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGPIPE, SIGCHLD}) {
        std::signal(number, SIG_DFL);
    }
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    const int null = open("/dev/null", O_RDONLY | O_CLOEXEC);
    if (null >= 0 && dup2(null, STDIN_FILENO) == STDIN_FILENO &&
        dup2(start.output, STDOUT_FILENO) == STDOUT_FILENO &&
        dup2(start.output, STDERR_FILENO) == STDERR_FILENO &&
        fcntl(start.lock, F_DUPFD, kFirstUnused) >= kFirstUnused && chdir("/") == 0) {
        char* const* const words = start.words.Pointers();
        execve(words[0], words, start.environment.Pointers());
    }
    const int number = errno;
    std::array<char, sizeof number> bytes{};
    std::memcpy(bytes.data(), &number, sizeof number);
    static_cast<void>(io::TryWriteAll(start.failure, {bytes.data(), bytes.size()}));
    _exit(127);
}

/// Splits what is printed into lines.
class LineSplitter
{
public:
    template <class Take>
    void Feed(std::string_view piece, const Take& take)
    {
        while (!piece.empty()) {
            const std::size_t end = std::min(piece.find('\n'), piece.size());
            const std::size_t count = std::min(end, kLongestLine - m_line.size());
            m_line.append(piece.substr(0, count));
            const bool isWhole = count == end && end < piece.size();
            piece.remove_prefix(count + (isWhole ? 1 : 0));
            if (isWhole || m_line.size() == kLongestLine) {
                Finish(take, isWhole);
            }
        }
    }

    /// Hands over what is left.
    template <class Take>
    void Finish(const Take& take, bool isWhole = false)
    {
        // The end of a line that was just handed over in pieces is no empty line.
        if (!m_line.empty() || (isWhole && !m_isPiece)) {
            take(m_line);
        }
        m_isPiece = !isWhole;
        m_line.clear();
    }

private:
    static constexpr std::size_t kLongestLine = 4096;

    std::string m_line;
    bool m_isPiece = false;
};

/// The updater while it runs.
class RunningInstaller
{
public:
    explicit RunningInstaller(const InstallerTerms& terms) : m_terms(terms)
    {
        const Words words({terms.program, "-unzipedDir", terms.folder});
        const Words environment(EnvironmentWords());
        Pipe failure;
        // What is orphaned becomes a child of this process, so that its end shows.
        prctl(PR_SET_CHILD_SUBREAPER, 1);
        m_process = fork();
        if (m_process == 0) {
            BecomeInstaller({words, environment, m_output.writing.Number(), terms.lock.Number(),
                             failure.writing.Number()});
        }
        int error = m_process < 0 ? errno : 0;
        m_output.writing.Close();
        failure.writing.Close();
        if (error == 0) {
            error = ErrorFrom(failure.reading);
        }
        if (error != 0) {
            throw io::AccessError(terms.program, "start", error);
        }
    }
    RunningInstaller(const RunningInstaller&) = delete;
    RunningInstaller& operator=(const RunningInstaller&) = delete;
    /// Whatever was thrown, nothing may be cleared while the updater runs.
    ~RunningInstaller()
    {
        m_isSilent = true;
        while (!m_hasEnded && waitpid(m_process, nullptr, WNOHANG) == 0) {
            Serve();
        }
        prctl(PR_SET_CHILD_SUBREAPER, 0);
    }

    InstallerEnd Wait()
    {
        int status = 0;
        while (waitpid(m_process, &status, WNOHANG) == 0) {
            Serve();
        }
        m_hasEnded = true;
        InstallerEnd end;
        end.status = WIFEXITED(status) ? WEXITSTATUS(status) : 0;
        end.signal = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
        end.isSomethingLeft = AreChildrenLeft();
        const Clock::time_point killed = Clock::now();
        while (end.signal != 0 && end.isSomethingLeft && Clock::now() - killed < m_terms.patience) {
            Serve();
            end.isSomethingLeft = AreChildrenLeft();
        }
        Drain();
        m_lines.Finish([this](const std::string& line) { Tell(line); });
        return end;
    }

private:
    /// @return 0 once the process has become the updater
    int ErrorFrom(const io::Descriptor& failure)
    {
        int number = 0;
        std::array<char, sizeof number> bytes{};
        // Asked to end or not: the child has become the updater, or will tell, in a moment.
        std::size_t done = 0;
        while (done < bytes.size()) {
            const io::Transferred told =
                io::ReadSome(failure.Number(), bytes.data() + done, bytes.size() - done);
            done += told.count;
            if (told.count == 0 && told.error != EINTR) {
                break;
            }
        }
        if (done < bytes.size()) {
            return 0;
        }
        std::memcpy(&number, bytes.data(), sizeof number);
        waitpid(m_process, nullptr, 0);
        return number;
    }

    /// Waits a moment for lines, and takes them.
    void Serve()
    {
        if (io::Interruption::IsAsked() && !m_wasAsked && !m_isSilent) {
            m_wasAsked = true;
            m_terms.onAsked();
        }
        pollfd wait = {m_isOpen ? m_output.reading.Number() : -1, POLLIN, 0};
        if (poll(&wait, 1, kTickMs) > 0) {
            TakeSome();
        }
    }

    /// Takes what is left in the pipe. Its other end may stay open for ever.
    void Drain()
    {
        constexpr int kMostPieces = 100;
        for (int i = 0; m_isOpen && i < kMostPieces; ++i) {
            pollfd wait = {m_output.reading.Number(), POLLIN, 0};
            if (poll(&wait, 1, 0) <= 0) {
                return;
            }
            TakeSome();
        }
    }

    void TakeSome()
    {
        constexpr std::size_t kPiece = std::size_t{1} << 16;
        std::array<char, kPiece> piece{};
        const io::Transferred taken =
            io::ReadSome(m_output.reading.Number(), piece.data(), piece.size());
        m_isOpen = taken.count > 0 || taken.error == EINTR || taken.error == EAGAIN;
        m_lines.Feed({piece.data(), taken.count}, [this](const std::string& line) { Tell(line); });
    }

    void Tell(const std::string& line)
    {
        if (m_isSilent) {
            return;
        }
        const auto passed =
            std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - m_start);
        m_terms.onLine(static_cast<std::uint64_t>(passed.count()), line);
    }

    /// Takes leave of children that have ended.
    static bool AreChildrenLeft()
    {
        pid_t ended = 1;
        while (ended > 0) {
            ended = waitpid(-1, nullptr, WNOHANG);
        }
        return ended == 0;
    }

    const InstallerTerms& m_terms;
    Pipe m_output;
    OutputKeeper m_keeper{m_output.reading};
    pid_t m_process = -1;
    Clock::time_point m_start = Clock::now();
    LineSplitter m_lines;
    bool m_isOpen = true;
    bool m_wasAsked = false;
    bool m_hasEnded = false;
    bool m_isSilent = false;
};

} // namespace

InstallerEnd RunInstaller(const InstallerTerms& terms)
{
    return RunningInstaller(terms).Wait();
}

} // namespace kx::guard
