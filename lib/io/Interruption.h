// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <csignal>

namespace kx::io
{

/// While one lives, the signals by which a person or the system ends a program (INT, TERM, HUP)
/// only set a mark, so that work can be left cleanly. At its end a signal that came is raised
/// again and does what it would have done at first. Where one lives inside another's life, the
/// outer one ends it. Not for several threads.
class Interruption
{
public:
    Interruption();
    Interruption(const Interruption&) = delete;
    Interruption& operator=(const Interruption&) = delete;
    ~Interruption();

    /// Tells whether such a signal came.
    [[nodiscard]] static bool IsAsked();

    /// Forgets a signal that came: what the program ends with answers it, so that it is not raised
    /// again.
    static void Answer();

private:
    static constexpr std::array<int, 3> kSignals = {SIGINT, SIGTERM, SIGHUP};
    std::array<struct sigaction, 3> m_before{};
};

} // namespace kx::io
