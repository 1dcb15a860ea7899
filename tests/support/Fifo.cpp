// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "support/Fifo.h"

#include <stdexcept>

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

Fifo::Fifo(const TempDir& dir, const std::string& name) : m_path(dir / name)
{
    if (mkfifo(m_path.c_str(), 0600) != 0) {
        throw std::runtime_error("no FIFO " + m_path);
    }
}

bool Fifo::Take()
{
    if (m_fd < 0) {
        m_fd = open(m_path.c_str(), O_WRONLY | O_CLOEXEC | O_NONBLOCK);
    }
    return m_fd >= 0;
}

void Fifo::Await()
{
    if (m_fd < 0) {
        m_fd = open(m_path.c_str(), O_WRONLY | O_CLOEXEC);
    }
}

void Fifo::Release()
{
    if (m_fd >= 0) {
        close(m_fd);
        m_fd = -1;
    }
}

bool Fifo::AwaitEnd() const
{
    constexpr int kPatienceMs = 30000;
    return WaitForNoReader(kPatienceMs);
}

bool Fifo::WaitForNoReader(int waitMs) const
{
    if (m_fd < 0) {
        throw std::logic_error("the writing end is not taken");
    }
    pollfd end = {m_fd, 0, 0};
    return poll(&end, 1, waitMs) == 1 && (end.revents & POLLERR) != 0;
}
