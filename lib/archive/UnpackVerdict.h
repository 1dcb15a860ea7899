// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "archive/ZipStructure.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace kx::archive
{

// Does the device's unzip unpack an archive? The updater takes every exit status but 0 for a
// failure, warnings included.

/// How many bytes an archive may unpack to before its contents are no longer read.
constexpr std::uint64_t kMostUnpacked = std::uint64_t{8} << 30;

/// What can be noticed about an archive when it is unpacked.
enum class UnpackReason {
    kStructure,   ///< a fault of the structure
    kEmpty,       ///< there are no entries
    kNoName,      ///< nothing is left of an entry's name
    kAbsolute,    ///< a name begins with '/'
    kUp,          ///< a name holds ".."
    kBackslash,   ///< '\' stands between the parts of a name
    kLongName,    ///< a name is longer than the panel's file system takes
    kConflict,    ///< a name stands for a file and for a folder
    kEncrypted,   ///< the content is encrypted
    kVersion,     ///< a newer unzip is wanted
    kMethod,      ///< the directory tells a method that unzip does not know
    kLocalMethod, ///< the entry's own header does
    kLocalName,   ///< the entry's own header tells another name
    kLocalUtf8,   ///< the two headers do not agree on the name's character set
    kStoredSizes, ///< stored bytes have two sizes
    kDamaged,     ///< the packed bytes make no sense, or end too early
    kWrongCrc,    ///< the content has another CRC than told
    kWrongSize,   ///< the content has another size than told; unzip does not mind
    kUnchecked,   ///< unzip knows the method, but contents cannot be followed here
    kLiar,        ///< the content is so much larger than told that it was not read to its end
    kBomb,        ///< the archive unpacks to so much that contents were not read
};

/// Something that was noticed.
struct UnpackFault {
    UnpackReason reason;
    int status = 0;           ///< unzip's exit status for this; 0 when it goes on as if nothing was
    std::size_t index = 0;    ///< of the entry; with kStructure of the structure's fault
    std::uint64_t amount = 0; ///< bytes that came out; with kBomb of all entries together
};

/// What comes of unpacking an archive by `unzip -o`.
struct UnpackVerdict {
    int status = 0; ///< unzip's exit status, the largest of all faults
    std::vector<UnpackFault> faults;

    [[nodiscard]] bool Has(UnpackReason reason) const;
};

/// Judges an archive. Reads all contents, in pieces, unless they share bytes or are too large.
/// @param most  after how many unpacked bytes no more contents are read; where fewer were told, the
///              verdict says that an entry tells less than it has
/// @throws Error when the source cannot be read
[[nodiscard]] UnpackVerdict JudgeUnpacking(const ByteSource& source, const ZipStructure& zip,
                                           std::uint64_t most = kMostUnpacked);

/// Judges an archive by its structure, its names and its headers alone: no content is read, so that
/// nothing is said about those.
[[nodiscard]] UnpackVerdict JudgeHeaders(const ByteSource& source, const ZipStructure& zip);

} // namespace kx::archive
