// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "io/Descriptor.h"

#include <string>

#include <sys/stat.h>

namespace kx::io
{

/// What a path leads to.
struct FoundPath {
    Descriptor at; ///< opened to be looked at, not to be read; not open after an error
    struct stat info {
    };
    int error = 0; ///< errno, 0 when something was found
};

/// Asks the kernel what a path below a folder leads to: links that begin with '/' begin at the
/// folder, and ".." does not leave it (openat2, Linux 5.6).
/// @param root            open folder
/// @param path            not empty, without zero bytes, no longer than a path can be
/// @param isLastFollowed  whether a link at the end of the path is followed
/// @return the error is ENOSYS or EPERM where the kernel, or what guards the program, knows no such
///         question, and EAGAIN where things around the path were being renamed again and again
[[nodiscard]] FoundPath FindByKernel(const Descriptor& root, const std::string& path,
                                     bool isLastFollowed);

/// Finds the same, name by name, for kernels that cannot be asked. It differs in what /proc has as
/// links of running processes ("/proc/self/exe"): the kernel refuses these with ELOOP, here the
/// text of the link is followed.
[[nodiscard]] FoundPath FindByWalk(const Descriptor& root, const std::string& path,
                                   bool isLastFollowed);

} // namespace kx::io
