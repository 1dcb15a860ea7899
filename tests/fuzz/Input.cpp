// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "Input.h"

#include "osa/OSA.h"

#include <algorithm>
#include <cstdlib>

#include <sys/mman.h>
#include <unistd.h>

void SilentLogger::OutLine(const char* format, ...)
{
    va_list args;
    va_start(args, format);
    static_cast<void>(OSA_Format(format, args));
    va_end(args);
}

void SilentLogger::OutMsg(const char* /*text*/) {}

bool IsShallow(const std::uint8_t* data, std::size_t size)
{
    constexpr int kDeepest = 16; // the format itself needs 11
    int depth = 0;
    int deepest = 0;
    for (std::size_t i = 0; i < size; ++i) {
        if (data[i] == '{' || data[i] == '[') {
            deepest = std::max(deepest, ++depth);
        } else if (data[i] == '}' || data[i] == ']') {
            --depth;
        }
    }
    return deepest <= kDeepest;
}

MemoryFile::MemoryFile(const std::uint8_t* data, std::size_t size)
    : m_fd(memfd_create("description", MFD_CLOEXEC)),
      m_path("/proc/self/fd/" + std::to_string(m_fd))
{
    if (m_fd < 0 || write(m_fd, data, size) != static_cast<ssize_t>(size)) {
        std::abort();
    }
}

MemoryFile::~MemoryFile()
{
    close(m_fd);
}
