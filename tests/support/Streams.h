// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "io/Descriptor.h"

#include <stdexcept>
#include <utility>

#include <fcntl.h>
#include <pty.h>
#include <sys/ioctl.h>
#include <unistd.h>

/// Puts a file in the place of a stream of this process for the life of the object.
class ReplacedStream
{
public:
    ReplacedStream(int stream, const kx::io::Descriptor& file)
        : m_stream(stream), m_before(fcntl(stream, F_DUPFD_CLOEXEC, 3))
    {
        dup2(file.Number(), m_stream);
    }
    ReplacedStream(const ReplacedStream&) = delete;
    ReplacedStream& operator=(const ReplacedStream&) = delete;
    ~ReplacedStream()
    {
        if (m_before.IsOpen()) {
            dup2(m_before.Number(), m_stream);
        } else {
            close(m_stream);
        }
    }

private:
    int m_stream;
    kx::io::Descriptor m_before;
};

/// A person's terminal in the place of a stream of this process for the life of the object.
class TerminalStream
{
public:
    explicit TerminalStream(int stream) : TerminalStream(stream, Made()) {}

    /// The side with the keyboard and the screen.
    [[nodiscard]] int Screen() const { return m_screen.Number(); }

    void Resize(int rows, int columns) const
    {
        winsize told{};
        told.ws_row = static_cast<unsigned short>(rows);
        told.ws_col = static_cast<unsigned short>(columns);
        static_cast<void>(ioctl(Screen(), TIOCSWINSZ, &told));
    }

private:
    using Sides = std::pair<kx::io::Descriptor, kx::io::Descriptor>;

    TerminalStream(int stream, Sides sides)
        : m_screen(std::move(sides.first)), m_stream(stream, sides.second)
    {
    }

    static Sides Made()
    {
        int screen = -1;
        int program = -1;
        if (openpty(&screen, &program, nullptr, nullptr, nullptr) != 0) {
            throw std::runtime_error("there is no terminal");
        }
        return {kx::io::Descriptor(screen), kx::io::Descriptor(program)};
    }

    kx::io::Descriptor m_screen;
    ReplacedStream m_stream;
};
