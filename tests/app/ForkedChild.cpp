// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "app/ForkedChild.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace
{

bool isChild = false;

void WriteAll(int fd, const std::string& text)
{
    std::size_t written = 0;
    while (written < text.size()) {
        const ssize_t count = write(fd, text.data() + written, text.size() - written);
        if (count <= 0) {
            std::abort();
        }
        written += static_cast<std::size_t>(count);
    }
}

std::string ReadAll(int fd)
{
    std::string text;
    std::array<char, 4096> piece{};
    for (ssize_t count = 0; (count = read(fd, piece.data(), piece.size())) > 0;) {
        text.append(piece.data(), static_cast<std::size_t>(count));
    }
    return text;
}

} // namespace

// The leak checker asks this at a process's end. A forked child holds what its parent still uses.
// NOLINTNEXTLINE(bugprone-reserved-identifier): the leak checker's name
extern "C" int __lsan_is_turned_off();
int __lsan_is_turned_off()
{
    return isChild ? 1 : 0;
}

ChildResult RunInChild(const std::function<std::string()>& work)
{
    std::array<int, 2> ends{};
    if (pipe(ends.data()) != 0) {
        throw std::runtime_error("no pipe");
    }
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        isChild = true;
        // Far above the numbers that the work may close or count.
        constexpr int kFarAway = 100;
        const int out = fcntl(ends[1], F_DUPFD_CLOEXEC, kFarAway);
        close(ends[0]);
        close(ends[1]);
        WriteAll(out, work());
        std::exit(0); // not _exit: the coverage counters are written at a regular end
    }
    close(ends[1]);
    ChildResult result;
    result.text = ReadAll(ends[0]);
    close(ends[0]);
    if (child < 0 || waitpid(child, &result.status, 0) != child) {
        throw std::runtime_error("no child");
    }
    return result;
}
