// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "archive/Package.h"
#include "io/Error.h"

#include <cstdint>
#include <string>
#include <vector>

namespace kx::tool
{

/// What a package takes on a drive, where the panel unpacks it beside itself.
struct RoomNeeded {
    std::uint64_t package = 0;  ///< bytes of the file's clusters
    std::uint64_t unpacked = 0; ///< bytes of the unpacked folder's
    std::uint64_t files = 0;    ///< files and folders that are made
};

/// Computes it.
/// @param type     of the file system
/// @param cluster  bytes of which every file and folder takes a number
[[nodiscard]] RoomNeeded NeededRoom(std::uint64_t packageSize,
                                    const std::vector<archive::PackageEntry>& entries,
                                    const std::string& type, std::uint64_t cluster);

/// Tells what a file system cannot hold of a package, the file and what is in it: files of 4 GiB,
/// names, names that differ in case alone, links, folders of too many names. Of many there is a
/// number only.
/// @param type   of the file system; what is told is about FAT and exFAT
/// @param shown  the package on the drive, for people
[[nodiscard]] std::vector<io::Error>
LimitProblems(const std::string& type, const std::string& name, std::uint64_t size,
              const std::vector<archive::PackageEntry>& entries, const std::string& shown);

} // namespace kx::tool
