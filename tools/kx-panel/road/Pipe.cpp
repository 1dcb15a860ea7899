// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "road/Pipe.h"

#include "io/Error.h"

#include <array>
#include <cerrno>

#include <fcntl.h>
#include <unistd.h>

namespace kx::guard
{

Pipe::Pipe()
{
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) {
        throw io::AccessError("", "make a pipe", errno);
    }
    reading = io::Descriptor(ends[0]);
    writing = io::Descriptor(ends[1]);
}

} // namespace kx::guard
