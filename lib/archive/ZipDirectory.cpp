// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "archive/ZipFields.h"
#include "archive/ZipRecords.h"

#include <algorithm>
#include <ctime>
#include <string>
#include <string_view>
#include <utility>

namespace kx::archive
{

namespace
{

constexpr std::uint32_t kDirectoryMark = 0x02014b50;

/// Returns how many days lie between the first day of a month and that of 1970.
/// @param months  since January of the year 0
std::int64_t DaysBefore(std::int64_t months)
{
    // Years that begin in March have their leap day at the end; 153 days are five months of them.
    const std::int64_t march = months - 2;
    const std::int64_t year = march / 12;
    const std::int64_t daysOfMonths = (153 * (march % 12) + 2) / 5;
    const std::int64_t leapDays = year / 4 - year / 100 + year / 400;
    constexpr std::int64_t kDaysTo1970 = 719468; // from the first of March of the year 0
    return year * 365 + leapDays + daysOfMonths - kDaysTo1970;
}

/// Returns the moment that the directory tells; months and days that there are not are counted on.
/// The C library's timegm does that, too, but reads the file of the time zone first, which a
/// process without rights cannot.
std::time_t MomentOf(unsigned date, unsigned time)
{
    constexpr std::int64_t kFirstYear = 1980;
    const std::int64_t months =
        (kFirstYear + (date >> 9)) * 12 + static_cast<std::int64_t>(date >> 5 & 0xf) - 1;
    const std::int64_t days = DaysBefore(months) + static_cast<std::int64_t>(date & 0x1f) - 1;
    const std::int64_t minutes = (days * 24 + (time >> 11)) * 60 + (time >> 5 & 0x3f);
    return minutes * 60 + static_cast<std::int64_t>(time & 0x1f) * 2;
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
    constexpr std::size_t kSmallestMember = 46; // bytes of one without a name
    zip.members.reserve(std::min(limits.members, static_cast<std::size_t>(std::min<std::uint64_t>(
                                                     end.count, bytes.size() / kSmallestMember))));
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
