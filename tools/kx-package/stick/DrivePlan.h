// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "archive/Package.h"
#include "io/Error.h"
#include "stick/Drive.h"
#include "stick/Room.h"
#include "stick/SourceFile.h"
#include "stick/Strays.h"

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace kx::tool
{

/// What there is and will be on a drive, in bytes.
struct RoomBalance {
    RoomNeeded needed;
    DriveRoom room;
    std::uint64_t freed = 0; ///< by what is removed before
    std::uint64_t older = 0; ///< what an older file of the package's name takes
    bool isSameSize = false; ///< it may be the package itself, and nothing need be written
    bool mayRemoveOlder = false;
};

/// What comes of it.
struct RoomVerdict {
    std::vector<io::Error> problems;
    bool removesOlder = false; ///< the package has room only when the older file is gone
};

/// Tells whether there is room for the package and, when it is there alone, for unpacking it.
/// @param shown  the drive, for people
[[nodiscard]] RoomVerdict JudgeRoom(const RoomBalance& balance, const std::string& shown);

/// What is to be done with a drive before a package is written to it.
struct DrivePlan {
    std::vector<Stray> strays;       ///< what else is there; without problems, what is removed
    std::vector<io::Error> problems; ///< with any of these nothing is written or removed
    RoomNeeded needed;
};

/// Looks at a drive and plans. Nothing is changed.
/// @param entries   of the package
/// @param replaces  what can be removed may be
/// @throws Error when the drive cannot be read
[[nodiscard]] DrivePlan PlanDrive(const Drive& drive, const SourceFile& source,
                                  const std::vector<archive::PackageEntry>& entries, bool replaces);

/// Removes what is planned to be removed.
/// @param onRemoved  is told the path of each
/// @throws Error when something cannot be removed, or the program is asked to end
void ClearDrive(const Drive& drive, const DrivePlan& plan,
                const std::function<void(const std::string& shown)>& onRemoved);

} // namespace kx::tool
