// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

#include <sys/types.h>

namespace kx::guard
{

/// The user and group without rights of Linux systems, "nobody".
constexpr unsigned kNobody = 65534;

/// What a process that reads packages may use.
struct ProcessLimits {
    std::uint64_t memoryBytes = 0; ///< of address space
    std::uint64_t seconds = 0;     ///< of the processor
};

/// Gives up for ever whatever the process may do as root, but for the descriptors that are open:
/// it belongs to nobody, has no network and no capability, gains none, opens no file, starts no
/// process, and ends with its parent. The process must be of its own, and just have begun.
///
/// It keeps its root folder, under which it can open nothing.
/// @param parent  the process that started it
/// @throws Error naming the step that failed, after which the process must end
void GiveUpRights(const ProcessLimits& limits, pid_t parent);

/// Lets the kernel kill the process for any call but those that reading takes: reading a place of
/// one descriptor, writing to another one, memory that holds no program, its own end.
/// @throws Error when the kernel has no such filters
void AllowOnlyReading(int descriptor, int messages);

} // namespace kx::guard
