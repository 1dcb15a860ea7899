// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "archive/ZipStructure.h"

#include <cstddef>
#include <cstdint>
#include <optional>

namespace kx::archive
{

// The records of a zip archive, each kind read by a source of its own. What is wrong with them is
// added to the structure's faults. All of these throw Error when the source cannot be read.

/// What the end of central directory records tell: the usual one and that of zip64.
struct ZipEnd {
    std::uint64_t at = 0; ///< place of the record that the central directory ends at
    std::uint64_t disk = 0;
    std::uint64_t directoryDisk = 0;
    std::uint64_t countHere = 0; ///< of the entries on this disk
    std::uint64_t count = 0;
    std::uint64_t directorySize = 0;
    std::uint64_t directoryOffset = 0; ///< as told, which is wrong when bytes stand in front
};

/// Finds and reads the end of central directory records.
/// @return nothing when there are none
[[nodiscard]] std::optional<ZipEnd> ReadZipEnd(const ByteSource& source, ZipStructure& zip);

/// Finds the central directory by what the end records tell, and the bytes before the archive.
/// @return false when it is not where it should be, or too large
[[nodiscard]] bool PlaceZipDirectory(const ZipEnd& end, const ZipLimits& limits, ZipStructure& zip);

/// Reads the central directory headers: the structure's entries.
void ReadZipDirectory(const ByteSource& source, const ZipEnd& end, const ZipLimits& limits,
                      ZipStructure& zip);

/// Reads the local file header of every entry, and the data descriptor behind its content.
void ReadZipLocals(const ByteSource& source, ZipStructure& zip);

/// Finds bytes that belong to two entries, or to none.
void FindZipOverlaps(ZipStructure& zip);

/// Tells whether an entry of that name is a folder.
[[nodiscard]] inline bool IsZipFolder(std::string_view name)
{
    return !name.empty() && name.back() == '/';
}

} // namespace kx::archive
