// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "archive/ZipFields.h"
#include "archive/ZipRecords.h"

#include <algorithm>

namespace kx::archive
{

namespace
{

/// Returns how far from the end of the file the device's unzip looks for the end record: at least
/// 66,000 bytes, in whole blocks of the file.
std::uint64_t SearchedTail(std::uint64_t fileSize)
{
    constexpr std::uint64_t kLeast = 66000;
    constexpr std::uint64_t kBlock = 8192;
    const std::uint64_t last = fileSize % kBlock;
    return std::min(fileSize, last + (kLeast - last + kBlock - 1) / kBlock * kBlock);
}

/// Takes the numbers of the zip64 record from behind its size.
void TakeZip64End(ZipFields fields, std::uint64_t recordAt, ZipEnd& end, ZipStructure& zip)
{
    fields.Skip(4); // versions
    const auto take = [&zip](std::uint64_t& number, std::uint64_t most, std::uint64_t large) {
        if (number == most) {
            number = large;
        } else if (number != large) {
            zip.Report(ZipFlaw::kZip64End);
        }
    };
    take(end.disk, kZipMax16, fields.Four());
    take(end.directoryDisk, kZipMax16, fields.Four());
    take(end.countHere, kZipMax16, fields.Eight());
    take(end.count, kZipMax16, fields.Eight());
    take(end.directorySize, kZipMax32, fields.Eight());
    take(end.directoryOffset, kZipMax32, fields.Eight());
    end.at = recordAt;
}

/// Replaces what the end record tells by the zip64 end of central directory record's numbers, where
/// a zip64 end of central directory locator leads to that.
void ReadZip64End(const ByteSource& source, ZipEnd& end, ZipStructure& zip)
{
    if (end.at < kZip64LocatorSize) {
        return;
    }
    const std::uint64_t locatorAt = end.at - kZip64LocatorSize;
    const std::string locator = source.Read(locatorAt, kZip64LocatorSize);
    if (ZipMarkAt(locator, 0) != kZip64LocatorMark) {
        return;
    }
    zip.isZip64 = true;
    ZipFields place(locator, 4);
    const std::uint32_t disk = place.Four();
    const std::uint64_t recordAt = place.Eight();
    const std::uint32_t disks = place.Four();
    const std::string record = source.Read(recordAt, kZip64EndSize);
    // No more than the record and the locator may stand between directory and end record.
    if (disk != 0 || disks != 1 || record.size() < kZip64EndSize ||
        ZipMarkAt(record, 0) != kZip64EndMark || locatorAt < kZip64EndSize) {
        zip.Report(ZipFlaw::kZip64End);
        return;
    }
    ZipFields fields(record, 4);
    const std::uint64_t rest = fields.Eight(); // behind this number
    if (rest > locatorAt || recordAt > locatorAt || recordAt + 12 + rest != locatorAt) {
        zip.Report(ZipFlaw::kZip64End);
    }
    TakeZip64End(fields, recordAt, end, zip);
}

/// Reads the end of central directory record at a place of the file's tail, which begins at tailAt.
ZipEnd ReadEnd(const ByteSource& source, std::string_view tail, std::size_t at,
               std::uint64_t tailAt, ZipStructure& zip)
{
    ZipEnd end;
    ZipFields fields(tail, at + 4);
    end.at = tailAt + at;
    end.disk = fields.Two();
    end.directoryDisk = fields.Two();
    end.countHere = fields.Two();
    end.count = fields.Two();
    end.directorySize = fields.Four();
    end.directoryOffset = fields.Four();
    const std::size_t comment = fields.Two();
    const std::size_t behind = tail.size() - at - kZipEndSize;
    if (comment > behind) {
        zip.Report(ZipFlaw::kCutComment, comment - behind);
    } else if (comment < behind) {
        zip.Report(ZipFlaw::kTrailing, behind - comment);
    }
    ReadZip64End(source, end, zip);
    if (end.disk != 0) {
        zip.Report(ZipFlaw::kManyDisks);
    } else if (end.directoryDisk != 0 || end.countHere != end.count) {
        zip.Report(ZipFlaw::kOtherParts);
    }
    zip.endAt = end.at;
    return end;
}

} // namespace

std::optional<ZipEnd> ReadZipEnd(const ByteSource& source, ZipStructure& zip)
{
    const std::uint64_t size = source.Size();
    const std::uint64_t tailAt = size - SearchedTail(size);
    const std::string tail = source.Read(tailAt, static_cast<std::size_t>(size - tailAt));
    for (std::size_t at = tail.size() < kZipEndSize ? 0 : tail.size() - kZipEndSize + 1;
         at-- > 0;) {
        if (ZipMarkAt(tail, at) == kZipEndMark) {
            return ReadEnd(source, tail, at, tailAt, zip);
        }
    }
    zip.Report(ZipFlaw::kNoEnd);
    return {};
}

} // namespace kx::archive
