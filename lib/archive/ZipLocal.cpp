// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "archive/ZipFields.h"
#include "archive/ZipRecords.h"

#include <algorithm>
#include <string>
#include <utility>

namespace kx::archive
{

namespace
{

constexpr std::uint32_t kLocalMark = 0x04034b50;
constexpr std::uint32_t kDescriptorMark = 0x08074b50;

constexpr std::size_t kLocalSize = 30;

/// Reads the data descriptor behind a content: with or without its mark, with short or long sizes.
void ReadDescriptor(const ByteSource& source, const ZipHeader& header, ZipMember& member)
{
    constexpr std::size_t kLongest = 24;
    const std::string bytes = source.Read(member.behind, kLongest);
    for (const std::size_t mark : {std::size_t{4}, std::size_t{0}}) {
        if (mark != 0 && ZipMarkAt(bytes, 0) != kDescriptorMark) {
            continue;
        }
        for (const bool isLong : {false, true}) {
            ZipFields fields(bytes, mark);
            const std::uint32_t crc = fields.Four();
            const std::uint64_t packedSize = isLong ? fields.Eight() : fields.Four();
            const std::uint64_t size = isLong ? fields.Eight() : fields.Four();
            if (crc == header.crc && packedSize == header.packedSize && size == header.size &&
                fields.At() <= bytes.size()) {
                member.behind += fields.At();
                return;
            }
        }
    }
    member.isDescriptorWrong = true;
    // What the device's unzip skips in any case; it reads nothing of a folder.
    if (IsZipFolder(member.name)) {
        return;
    }
    member.behind += ZipMarkAt(bytes, 0) == kDescriptorMark ? 16 : 12;
}

/// Finds the place behind the content of an entry and its descriptor.
void FindContentEnd(const ByteSource& source, ZipMember& member, std::size_t index,
                    ZipStructure& zip)
{
    const ZipHeader header = ContentHeader(member);
    const std::uint64_t limit = zip.directoryAt;
    // Other packed contents know their own end, so the smaller size is the right one, or too small
    // for the content in any case. With bzip2 unzip goes on to where the content is told to end.
    const bool isAsTold = header.method == kZipStored || header.method == kZipBzip2;
    const std::uint64_t size =
        isAsTold ? header.packedSize : std::min(header.packedSize, member.packedSize);
    const std::uint64_t room = limit - std::min(member.contentAt, limit);
    if (!IsZipFolder(member.name) && (member.contentAt > limit || size > room)) {
        zip.Report(ZipFlaw::kContentCut, 0, index);
        member.behind = limit;
        return;
    }
    member.behind = std::min(member.contentAt, limit) + std::min(size, room);
    if ((member.local.flags & kZipDescriptor) != 0) {
        ReadDescriptor(source, header, member);
    }
}

/// Reads the local file header of an entry.
void ReadLocal(const ByteSource& source, ZipMember& member, std::size_t index, ZipStructure& zip)
{
    // Names and extra fields are short as a rule, so one reading does for most headers.
    constexpr std::size_t kUsual = 512;
    std::string bytes = source.Read(member.headerAt, kUsual);
    if (bytes.size() < kLocalSize || ZipMarkAt(bytes, 0) != kLocalMark) {
        zip.Report(ZipFlaw::kNoLocal, 0, index);
        return;
    }
    member.hasLocal = true;
    ZipHeader& local = member.local;
    ZipFields fields(bytes, 4);
    local.neededVersion = fields.Two();
    local.flags = fields.Two();
    local.method = fields.Two();
    fields.Skip(4); // date and time
    local.crc = fields.Four();
    local.packedSize = fields.Four();
    local.size = fields.Four();
    const std::size_t nameSize = fields.Two();
    const std::size_t extraSize = fields.Two();
    member.contentAt = member.headerAt + kLocalSize + nameSize + extraSize;
    if (kLocalSize + nameSize + extraSize > bytes.size()) {
        bytes = source.Read(member.headerAt, kLocalSize + nameSize + extraSize);
    }
    ZipFields rest(bytes, kLocalSize);
    local.name = rest.Text(nameSize);
    ZipExtra extra = ReadZipExtra(rest.Text(extraSize));
    local.unicodeName = std::move(extra.unicodeName);
    if (!TakeZip64(extra, {&local.size, &local.packedSize}, false)) {
        zip.Report(ZipFlaw::kZip64Extra, 0, index);
    }
    FindContentEnd(source, member, index, zip);
}

} // namespace

void ReadZipLocals(const ByteSource& source, ZipStructure& zip)
{
    for (std::size_t index = 0; index < zip.members.size(); ++index) {
        ZipMember& member = zip.members[index];
        if (member.headerAt > source.Size() - zip.leading) {
            zip.Report(ZipFlaw::kNoLocal, 0, index);
            continue;
        }
        member.headerAt += zip.leading;
        ReadLocal(source, member, index, zip);
    }
}

} // namespace kx::archive
