// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include <stdexcept>

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

/// Leaves room for one pipe while it lives: the sanitizers look at memory through one, and the
/// start of a child needs four.
class FileLimit
{
public:
    FileLimit()
    {
        const int firstFree = open("/dev/null", O_RDONLY | O_CLOEXEC);
        if (firstFree < 0 || getrlimit(RLIMIT_NOFILE, &m_saved) != 0) {
            throw std::runtime_error("no limit of open files");
        }
        close(firstFree);
        rlimit limit = m_saved;
        limit.rlim_cur = static_cast<rlim_t>(firstFree) + 2;
        setrlimit(RLIMIT_NOFILE, &limit);
    }
    FileLimit(const FileLimit&) = delete;
    FileLimit& operator=(const FileLimit&) = delete;
    ~FileLimit() { setrlimit(RLIMIT_NOFILE, &m_saved); }

private:
    rlimit m_saved{};
};
