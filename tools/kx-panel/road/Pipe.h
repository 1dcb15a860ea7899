// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "io/Descriptor.h"

namespace kx::guard
{

/// The two ends of a pipe, which are closed when another program is started.
struct Pipe {
    /// @throws Error when there are no more descriptors
    Pipe();

    io::Descriptor reading;
    io::Descriptor writing;
};

} // namespace kx::guard
