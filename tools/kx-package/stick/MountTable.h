// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace kx::tool
{

/// One line of the kernel's table of what is mounted.
struct Mount {
    int id = 0;
    std::string root;   ///< the folder of the file system that is seen; "/" is all of it
    std::string folder; ///< the mount point
    std::string type;   ///< of the file system: "vfat"
    std::string source; ///< "/dev/sdb1", or any other text
};

/// Reads the table as /proc/self/mountinfo has it. Lines that make no sense are left out.
[[nodiscard]] std::vector<Mount> ReadMounts(std::string_view table);

} // namespace kx::tool
