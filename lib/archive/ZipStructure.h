// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "archive/ByteSource.h"

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <string>
#include <vector>

namespace kx::archive
{

// The structure of a zip archive, as the bytes of the file tell it: the end records, the central
// directory, and for every entry its local header. Contents are not read.

/// Bits of an entry's flags.
constexpr unsigned kZipEncrypted = 1;
constexpr unsigned kZipDescriptor = 1U << 3; ///< sizes and CRC follow the content
constexpr unsigned kZipPatch = 1U << 5;
constexpr unsigned kZipUtf8 = 1U << 11;
/// Where an entry's external attributes hold the mode of a file, if they hold one.
constexpr unsigned kZipModeShift = 16;

/// Methods by which contents are packed.
constexpr unsigned kZipStored = 0; ///< as they are
constexpr unsigned kZipDeflated = 8;
constexpr unsigned kZipDeflated64 = 9;
constexpr unsigned kZipBzip2 = 12;

/// What the central directory and the local header of an entry both tell.
struct ZipHeader {
    std::uint16_t neededVersion = 0;
    std::uint16_t flags = 0;
    std::uint16_t method = 0;
    std::uint32_t crc = 0;
    std::uint64_t packedSize = 0; ///< the zip64 field's where there is one
    std::uint64_t size = 0;       ///< likewise
    std::string name;             ///< as written
    std::string unicodeName;      ///< UTF-8 name of the extra field 0x7075; empty without one
};

/// One entry of the central directory, with its local header.
struct ZipMember : ZipHeader {
    std::uint8_t madeOn = 0;        ///< the system that the attributes are of
    std::time_t moment = 0;         ///< the date, as if it had been written in UTC
    std::uint32_t attributes = 0;   ///< external attributes
    std::uint64_t headerAt = 0;     ///< place of the local header in the file
    bool hasLocal = false;          ///< a local header stands there; else `local` is empty
    ZipHeader local;                ///< packedSize, size and crc are 0 with a descriptor
    std::uint64_t contentAt = 0;    ///< place of the content in the file
    std::uint64_t behind = 0;       ///< place behind content and descriptor
    bool isDescriptorWrong = false; ///< the descriptor tells other sizes or another CRC
};

/// What is wrong with the structure itself.
enum class ZipFlaw {
    kNoEnd,        ///< there is no end record
    kManyDisks,    ///< the archive is one part of several
    kOtherParts,   ///< the archive tells of other parts, which nobody looks for
    kZip64End,     ///< the zip64 end record is missing, damaged or contradicts the end record
    kMissingBytes, ///< the directory should stand before the beginning of the file
    kLeading,      ///< there are bytes before the archive, or between it and its directory
    kTrailing,     ///< bytes follow the end record
    kCutComment,   ///< the comment is shorter than told
    kDirectory,    ///< the central directory is cut or damaged
    kCount,        ///< the end record tells another number of entries than there are
    kTooMany,      ///< more entries than kMostZipMembers; they were not read
    kZip64Extra,   ///< an entry's zip64 field is too short
    kExtraField,   ///< an entry's extra fields do not end where they should
    kNoLocal,      ///< there is no local header where the directory says
    kContentCut,   ///< content reaches over the end of the file or into the directory
    kOverlap,      ///< two entries share bytes
    kGap,          ///< bytes between entries that belong to none
};

/// How many entries are read. They take up to some 300 bytes of memory each, besides their names.
constexpr std::size_t kMostZipMembers = 200000;
/// How many bytes the central directory may have.
constexpr std::uint64_t kLargestZipDirectory = std::uint64_t{128} << 20;

/// A flaw and where it is.
struct ZipFault {
    static constexpr std::size_t kNoMember = ~std::size_t{0};

    ZipFlaw flaw;
    std::size_t member = kNoMember; ///< index of the entry, or kNoMember
    std::uint64_t amount = 0;       ///< how many bytes or entries, where that says something
};

/// The structure of an archive.
struct ZipStructure {
    std::vector<ZipMember> members; ///< in the order of the central directory
    std::vector<ZipFault> faults;
    std::uint64_t directoryAt = 0; ///< place of the central directory in the file
    std::uint64_t endAt = 0;       ///< place of the end record; of the zip64 one where it counts
    std::uint64_t leading = 0;     ///< bytes before the archive, which count in no offset
    bool isZip64 = false;

    [[nodiscard]] bool Has(ZipFlaw flaw) const;

    /// Adds a fault.
    void Report(ZipFlaw flaw, std::uint64_t amount = 0, std::size_t member = ZipFault::kNoMember);
};

/// How much of a structure is read; what has more is kTooMany.
struct ZipLimits {
    std::size_t members = kMostZipMembers;
    std::uint64_t directory = kLargestZipDirectory; ///< bytes of the central directory
};

/// Reads the structure of an archive. Never fails for what stands in the bytes: what is wrong with
/// them is among the faults.
/// @throws Error when the source cannot be read
[[nodiscard]] ZipStructure ReadZipStructure(const ByteSource& source,
                                            const ZipLimits& limits = ZipLimits());

/// Returns the header that says where the content ends and what it must be: the local one, or the
/// directory's when sizes and CRC follow the content.
[[nodiscard]] ZipHeader ContentHeader(const ZipMember& member);

} // namespace kx::archive
