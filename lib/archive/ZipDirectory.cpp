// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "archive/ZipFields.h"
#include "archive/ZipRecords.h"

#include <ctime>
#include <string>
#include <string_view>
#include <utility>

namespace kx::archive
{

namespace
{

constexpr std::uint32_t kDirectoryMark = 0x02014b50;

/// Returns the moment that the directory tells; months and days that there are not are counted on.
std::time_t MomentOf(unsigned date, unsigned time)
{
    std::tm parts{};
    parts.tm_year = static_cast<int>(date >> 9) + 80;
    parts.tm_mon = static_cast<int>(date >> 5 & 0xf) - 1;
    parts.tm_mday = static_cast<int>(date & 0x1f);
    parts.tm_hour = static_cast<int>(time >> 11);
    parts.tm_min = static_cast<int>(time >> 5 & 0x3f);
    parts.tm_sec = static_cast<int>(time & 0x1f) * 2;
    return timegm(&parts);
}

/// Reads the central directory header at @p at.
/// @return the place behind it, which lies behind the end of a directory that is cut
std::size_t ReadMember(std::string_view bytes, std::size_t at, ZipStructure& zip)
{
    const std::size_t index = zip.members.size();
    ZipMember member;
    ZipFields fields(bytes, at + 4);
    member.madeOn = static_cast<std::uint8_t>(fields.Two() >> 8);
    member.neededVersion = fields.Two();
    member.flags = fields.Two();
    member.method = fields.Two();
    const std::uint16_t time = fields.Two();
    member.moment = MomentOf(fields.Two(), time);
    member.crc = fields.Four();
    member.packedSize = fields.Four();
    member.size = fields.Four();
    const std::uint16_t nameSize = fields.Two();
    const std::uint16_t extraSize = fields.Two();
    const std::uint16_t commentSize = fields.Two();
    const bool hasDisk = fields.Two() == kZipMax16;
    fields.Skip(2); // internal attributes
    member.attributes = fields.Four();
    member.headerAt = fields.Four();
    member.name = fields.Text(nameSize);
    ZipExtra extra = ReadZipExtra(fields.Text(extraSize));
    member.unicodeName = std::move(extra.unicodeName);
    if (!TakeZip64(extra, {&member.size, &member.packedSize, &member.headerAt}, hasDisk)) {
        zip.Report(ZipFlaw::kZip64Extra, 0, index);
    }
    if (extra.isDamaged) {
        zip.Report(ZipFlaw::kExtraField, 0, index);
    }
    zip.members.push_back(std::move(member));
    return fields.At() + commentSize;
}

} // namespace

bool PlaceZipDirectory(const ZipEnd& end, const ZipLimits& limits, ZipStructure& zip)
{
    if (end.directorySize > end.at) {
        zip.Report(ZipFlaw::kMissingBytes, end.directorySize - end.at);
        return false;
    }
    const std::uint64_t at = end.at - end.directorySize;
    if (end.directoryOffset > at) {
        zip.Report(ZipFlaw::kMissingBytes, end.directoryOffset - at);
        return false;
    }
    zip.leading = at - end.directoryOffset;
    if (zip.leading != 0) {
        zip.Report(ZipFlaw::kLeading, zip.leading);
    }
    zip.directoryAt = at;
    if (end.directorySize > limits.directory) {
        zip.Report(ZipFlaw::kTooMany, end.count);
        return false;
    }
    return true;
}

void ReadZipDirectory(const ByteSource& source, const ZipEnd& end, const ZipLimits& limits,
                      ZipStructure& zip)
{
    const std::string bytes =
        source.Read(zip.directoryAt, static_cast<std::size_t>(end.directorySize));
    std::size_t at = 0;
    while (ZipMarkAt(bytes, at) == kDirectoryMark) {
        if (zip.members.size() == limits.members) {
            zip.Report(ZipFlaw::kTooMany, end.count);
            zip.members.clear();
            return;
        }
        at = ReadMember(bytes, at, zip);
        if (at > bytes.size()) {
            zip.Report(ZipFlaw::kDirectory);
            return;
        }
    }
    if (at != bytes.size()) {
        zip.Report(ZipFlaw::kDirectory, bytes.size() - at);
    }
    // Only the low bits of the number can be told without zip64.
    const std::uint64_t mask = zip.isZip64 ? ~std::uint64_t{0} : kZipMax16;
    if ((zip.members.size() & mask) != end.count) {
        zip.Report(ZipFlaw::kCount, end.count);
    }
}

} // namespace kx::archive
