// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "journal/ToolRun.h"

#include <array>
#include <cerrno>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace kx::guard
{

namespace
{

constexpr int kNotStarted = 127;

[[noreturn]] void BecomeTool(const char* path)
{
    const int null = open("/dev/null", O_RDWR);
    for (int number = 0; number < 3; ++number) {
        static_cast<void>(dup2(null, number)); // an output that leads elsewhere is no failure
    }
    // Both are copied, as execve takes words that it could change.
    std::string word = path;
    std::string search = "PATH=/usr/sbin:/usr/bin:/sbin:/bin";
    const std::array<char*, 2> words = {word.data(), nullptr};
    const std::array<char*, 2> environment = {search.data(), nullptr};
    execve(path, words.data(), environment.data());
    _exit(kNotStarted);
}

} // namespace

int RunTool(const std::string& path)
{
    const pid_t process = fork();
    if (process == 0) {
        BecomeTool(path.c_str());
    }
    int status = 0;
    pid_t ended = process;
    while (process > 0 && (ended = waitpid(process, &status, 0)) < 0 && errno == EINTR) {
    }
    if (ended < 0) {
        return kNotStarted;
    }
    return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

} // namespace kx::guard
