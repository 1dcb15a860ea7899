// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "io/Descriptor.h"

namespace kx::guard
{

/// Keeps a pipe from breaking when its reader is gone, killed or not, before all of its writers: a
/// step that prints would end by that. From then on a process of its own reads what still comes,
/// for nobody, and ends with the last writer. It has nothing else open.
class OutputKeeper
{
public:
    /// Starts that process; it does nothing as long as this object lives.
    /// @param reading  the end of the pipe
    /// @throws Error when it cannot be started
    explicit OutputKeeper(const io::Descriptor& reading);

private:
    io::Descriptor m_alive; ///< closed at the end of this object, or of this process
};

} // namespace kx::guard
