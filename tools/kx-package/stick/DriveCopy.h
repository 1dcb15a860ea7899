// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "stick/DriveCalls.h"
#include "stick/SourceFile.h"

#include <functional>
#include <optional>
#include <string>

namespace kx::tool
{

/// The drive to which a file is copied.
struct CopyTarget {
    DriveCalls& calls;
    std::string name;          ///< of the file at the top of the drive
    std::string shown;         ///< what errors call the file
    bool isPastMemory = false; ///< reading past the system's memory reads the drive itself
};

/// What is being done, with how much of it is done, 0 to 1.
struct CopyProgress {
    std::function<void(double fraction)> writing;
    std::function<void(double fraction)> reading;
};

/// Where the bytes came from that were compared with the source's.
enum class ReadBack {
    kFromDrive,  ///< from the drive itself
    kFromMemory, ///< perhaps only from what the system remembered of them
};

/// Compares the file that the drive has under the name with the source, byte by byte, and brings it
/// to the drive as CopyToDrive does.
/// @return nothing when there is no such file, or it is another one
/// @throws Error when something cannot be read or brought to the drive
[[nodiscard]] std::optional<ReadBack>
CompareWithDrive(const CopyTarget& target, const SourceFile& source, const CopyProgress& progress);

/// Copies a file to a drive: writes it under another name, which no panel takes for a package,
/// waits for the drive, reads it back, compares, and gives it its name, which it takes from an
/// older file; then waits for the drive again.
///
/// Until it has its name, a failure and a signal that asks the program to end leave nothing of it,
/// and an older file as it was.
/// @throws Error when something cannot be read or written, when what was read back is not what was
///         written, when the source was changed meanwhile, or when the file does not stand on the
///         drive under that very name
[[nodiscard]] ReadBack CopyToDrive(const CopyTarget& target, const SourceFile& source,
                                   const CopyProgress& progress);

} // namespace kx::tool
