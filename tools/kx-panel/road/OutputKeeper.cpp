// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "road/OutputKeeper.h"

#include "confined/OpenFiles.h"
#include "io/Error.h"
#include "io/Transfer.h"
#include "road/Pipe.h"

#include <array>
#include <cerrno>
#include <utility>

#include <sys/wait.h>
#include <unistd.h>

namespace kx::guard
{

namespace
{

/// Reads to the end.
void ReadForNobody(int descriptor)
{
    constexpr std::size_t kPiece = 4096;
    std::array<char, kPiece> piece{};
    io::Transferred taken{1, 0};
    while (taken.count > 0 || taken.error == EINTR) {
        taken = io::ReadSome(descriptor, piece.data(), piece.size());
    }
}

/// The process that keeps the pipe.
[[noreturn]] void Keep(int alive, int reading)
{
    setsid();
    try {
        CloseAllBut({alive, reading});
    } catch (const io::Error&) {
        _exit(1); // it could hold up whoever waits for one of these to be closed
    }
    [[maybe_unused]] const int moved = chdir("/"); // no folder is kept busy, as far as that can be
    ReadForNobody(alive);
    ReadForNobody(reading);
    _exit(0);
}

} // namespace

OutputKeeper::OutputKeeper(const io::Descriptor& reading)
{
    Pipe alive;
    const pid_t process = fork();
    if (process == 0) {
        // A child's child is nobody's here: its end is waited for by the system.
        alive.writing.Close();
        if (fork() == 0) {
            Keep(alive.reading.Number(), reading.Number());
        }
        _exit(0);
    }
    if (process < 0) {
        throw io::AccessError("", "start a process", errno);
    }
    while (waitpid(process, nullptr, 0) < 0 && errno == EINTR) {
    }
    m_alive = std::move(alive.writing);
}

} // namespace kx::guard
