// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "io/Descriptor.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

namespace kx::guard
{

/// What belongs to the run of the updater.
struct InstallerTerms {
    std::string program; ///< full path
    std::string folder;  ///< of the unpacked package, a full path
    /// Open as long as anything of the installation runs (see State::LockForInstaller).
    const io::Descriptor& lock;
    /// Gets each line of the updater's and of what it runs, without its end; of a very long one the
    /// pieces. @param milliseconds  since the start
    std::function<void(std::uint64_t milliseconds, std::string_view line)> onLine;
    /// Called once when this program is asked to end: it waits all the same.
    std::function<void()> onAsked;
    /// How long to wait for what an updater that was killed has left running.
    std::chrono::milliseconds patience;
};

/// How the updater ended.
struct InstallerEnd {
    int status = 0; ///< its exit status
    int signal = 0; ///< that ended it, 0 for none
    /// Something that it started still runs. After a signal that may be a step.
    bool isSomethingLeft = false;
};

/// Runs the updater on an unpacked package, without a window, and waits for its end, however long
/// that takes. It has a session of its own, so that keys of a terminal do not reach it; an empty
/// standard input; the root folder as its own; the umask 22; and an environment of PATH, HOME and
/// LANG, with what the panel's Qt may need. It outlives this process, and can still print then.
///
/// When a signal ended it, what it has left running is waited for, too, for a while.
/// @throws Error when it cannot be started
[[nodiscard]] InstallerEnd RunInstaller(const InstallerTerms& terms);

} // namespace kx::guard
