// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "archive/ZipStructure.h"

#include "archive/ZipFields.h"

#include <algorithm>
#include <numeric>
#include <optional>
#include <utility>

namespace kx::archive
{

namespace
{

constexpr std::uint32_t kLocalMark = 0x04034b50;
constexpr std::uint32_t kDirectoryMark = 0x02014b50;
constexpr std::uint32_t kEndMark = 0x06054b50;
constexpr std::uint32_t kZip64EndMark = 0x06064b50;
constexpr std::uint32_t kZip64LocatorMark = 0x07064b50;
constexpr std::uint32_t kDescriptorMark = 0x08074b50;

constexpr std::size_t kLocalSize = 30;
constexpr std::size_t kEndSize = 22;
constexpr std::size_t kZip64EndSize = 56;
constexpr std::size_t kZip64LocatorSize = 20;

/// Returns how far from the end of the file the device's unzip looks for the end record: at least
/// 66,000 bytes, in whole blocks of the file.
std::uint64_t SearchedTail(std::uint64_t fileSize)
{
    constexpr std::uint64_t kLeast = 66000;
    constexpr std::uint64_t kBlock = 8192;
    const std::uint64_t last = fileSize % kBlock;
    return std::min(fileSize, last + (kLeast - last + kBlock - 1) / kBlock * kBlock);
}

constexpr std::uint16_t kMax16 = 0xffff;

std::uint32_t MarkAt(std::string_view bytes, std::size_t at)
{
    return ZipFields(bytes, at).Four();
}

bool IsFolderName(std::string_view name)
{
    return !name.empty() && name.back() == '/';
}

/// What the end records tell.
struct EndRecord {
    std::uint64_t at = 0; ///< place of the record that the directory ends at
    std::uint64_t disk = 0;
    std::uint64_t directoryDisk = 0;
    std::uint64_t countHere = 0;
    std::uint64_t count = 0;
    std::uint64_t directorySize = 0;
    std::uint64_t directoryOffset = 0; ///< as told, which is wrong when bytes stand in front
};

/// Reads one archive's structure, one part after the other.
class Reader
{
public:
    explicit Reader(const ByteSource& source) : m_source(source) {}

    ZipStructure Read()
    {
        if (const std::optional<EndRecord> end = FindEnd();
            end.has_value() && PlaceDirectory(*end)) {
            ReadDirectory(*end);
            ReadLocals();
            FindOverlaps();
        }
        return std::move(m_zip);
    }

private:
    void Report(ZipFlaw flaw, std::uint64_t amount = 0, std::size_t member = ZipFault::kNoMember)
    {
        m_zip.faults.push_back({flaw, member, amount});
    }

    std::optional<EndRecord> FindEnd()
    {
        const std::uint64_t size = m_source.Size();
        const std::uint64_t tailAt = size - SearchedTail(size);
        const std::string tail = m_source.Read(tailAt, static_cast<std::size_t>(size - tailAt));
        for (std::size_t at = tail.size() < kEndSize ? 0 : tail.size() - kEndSize + 1; at-- > 0;) {
            if (MarkAt(tail, at) == kEndMark) {
                return ReadEnd(tail, at, tailAt);
            }
        }
        Report(ZipFlaw::kNoEnd);
        return {};
    }

    EndRecord ReadEnd(std::string_view tail, std::size_t at, std::uint64_t tailAt)
    {
        EndRecord end;
        ZipFields fields(tail, at + 4);
        end.at = tailAt + at;
        end.disk = fields.Two();
        end.directoryDisk = fields.Two();
        end.countHere = fields.Two();
        end.count = fields.Two();
        end.directorySize = fields.Four();
        end.directoryOffset = fields.Four();
        const std::size_t comment = fields.Two();
        const std::size_t behind = tail.size() - at - kEndSize;
        if (comment > behind) {
            Report(ZipFlaw::kCutComment, comment - behind);
        } else if (comment < behind) {
            Report(ZipFlaw::kTrailing, behind - comment);
        }
        ReadZip64End(end);
        if (end.disk != 0) {
            Report(ZipFlaw::kManyDisks);
        } else if (end.directoryDisk != 0 || end.countHere != end.count) {
            Report(ZipFlaw::kOtherParts);
        }
        m_zip.endAt = end.at;
        return end;
    }

    /// Replaces what the end record tells by the zip64 record's numbers, where that is there.
    void ReadZip64End(EndRecord& end)
    {
        if (end.at < kZip64LocatorSize) {
            return;
        }
        const std::uint64_t locatorAt = end.at - kZip64LocatorSize;
        const std::string locator = m_source.Read(locatorAt, kZip64LocatorSize);
        if (MarkAt(locator, 0) != kZip64LocatorMark) {
            return;
        }
        m_zip.isZip64 = true;
        ZipFields place(locator, 4);
        const std::uint32_t disk = place.Four();
        const std::uint64_t recordAt = place.Eight();
        const std::uint32_t disks = place.Four();
        const std::string record = m_source.Read(recordAt, kZip64EndSize);
        // No more than the record and the locator may stand between directory and end record.
        if (disk != 0 || disks != 1 || record.size() < kZip64EndSize ||
            MarkAt(record, 0) != kZip64EndMark || locatorAt < kZip64EndSize) {
            Report(ZipFlaw::kZip64End);
            return;
        }
        ZipFields fields(record, 4);
        const std::uint64_t rest = fields.Eight(); // behind this number
        if (rest > locatorAt || recordAt > locatorAt || recordAt + 12 + rest != locatorAt) {
            Report(ZipFlaw::kZip64End);
        }
        TakeZip64End(fields, end, recordAt);
    }

    void TakeZip64End(ZipFields& fields, EndRecord& end, std::uint64_t recordAt)
    {
        fields.Skip(4); // versions
        const auto take = [this](std::uint64_t& number, std::uint64_t most, std::uint64_t large) {
            if (number == most) {
                number = large;
            } else if (number != large) {
                Report(ZipFlaw::kZip64End);
            }
        };
        take(end.disk, kMax16, fields.Four());
        take(end.directoryDisk, kMax16, fields.Four());
        take(end.countHere, kMax16, fields.Eight());
        take(end.count, kMax16, fields.Eight());
        take(end.directorySize, kZipMax32, fields.Eight());
        take(end.directoryOffset, kZipMax32, fields.Eight());
        end.at = recordAt;
    }

    /// Finds where the directory really begins.
    bool PlaceDirectory(const EndRecord& end)
    {
        if (end.directorySize > end.at) {
            Report(ZipFlaw::kMissingBytes, end.directorySize - end.at);
            return false;
        }
        const std::uint64_t at = end.at - end.directorySize;
        if (end.directoryOffset > at) {
            Report(ZipFlaw::kMissingBytes, end.directoryOffset - at);
            return false;
        }
        m_shift = at - end.directoryOffset;
        if (m_shift != 0) {
            Report(ZipFlaw::kLeading, m_shift);
        }
        m_zip.directoryAt = at;
        if (end.directorySize > kLargestZipDirectory) {
            Report(ZipFlaw::kTooMany, end.count);
            return false;
        }
        return true;
    }

    void ReadDirectory(const EndRecord& end)
    {
        const std::string bytes =
            m_source.Read(m_zip.directoryAt, static_cast<std::size_t>(end.directorySize));
        std::size_t at = 0;
        while (MarkAt(bytes, at) == kDirectoryMark) {
            if (m_zip.members.size() == kMostZipMembers) {
                Report(ZipFlaw::kTooMany, end.count);
                m_zip.members.clear();
                return;
            }
            at = ReadMember(bytes, at);
            if (at > bytes.size()) {
                Report(ZipFlaw::kDirectory);
                return;
            }
        }
        if (at != bytes.size()) {
            Report(ZipFlaw::kDirectory, bytes.size() - at);
        }
        // Only the low bits of the number can be told without zip64.
        const std::uint64_t mask = m_zip.isZip64 ? ~std::uint64_t{0} : kMax16;
        if ((m_zip.members.size() & mask) != end.count) {
            Report(ZipFlaw::kCount, end.count);
        }
    }

    /// Reads the directory's entry at @p at.
    /// @return the place behind it, which lies behind the end of a directory that is cut
    std::size_t ReadMember(std::string_view bytes, std::size_t at)
    {
        const std::size_t index = m_zip.members.size();
        ZipMember member;
        ZipFields fields(bytes, at + 4);
        member.madeOn = static_cast<std::uint8_t>(fields.Two() >> 8);
        member.neededVersion = fields.Two();
        member.flags = fields.Two();
        member.method = fields.Two();
        fields.Skip(4); // date and time
        member.crc = fields.Four();
        member.packedSize = fields.Four();
        member.size = fields.Four();
        const std::uint16_t nameSize = fields.Two();
        const std::uint16_t extraSize = fields.Two();
        const std::uint16_t commentSize = fields.Two();
        const bool hasDisk = fields.Two() == kMax16;
        fields.Skip(2); // internal attributes
        member.attributes = fields.Four();
        member.headerAt = fields.Four();
        member.name = fields.Text(nameSize);
        ZipExtra extra = ReadZipExtra(fields.Text(extraSize));
        member.unicodeName = std::move(extra.unicodeName);
        if (!TakeZip64(extra, {&member.size, &member.packedSize, &member.headerAt}, hasDisk)) {
            Report(ZipFlaw::kZip64Extra, 0, index);
        }
        if (extra.isDamaged) {
            Report(ZipFlaw::kExtraField, 0, index);
        }
        m_zip.members.push_back(std::move(member));
        return fields.At() + commentSize;
    }

    void ReadLocals()
    {
        for (std::size_t index = 0; index < m_zip.members.size(); ++index) {
            ZipMember& member = m_zip.members[index];
            if (member.headerAt > m_source.Size() - m_shift) {
                Report(ZipFlaw::kNoLocal, 0, index);
                continue;
            }
            member.headerAt += m_shift;
            ReadLocal(member, index);
        }
    }

    void ReadLocal(ZipMember& member, std::size_t index)
    {
        // Names and extra fields are short as a rule, so one reading does for most headers.
        constexpr std::size_t kUsual = 512;
        std::string bytes = m_source.Read(member.headerAt, kUsual);
        if (bytes.size() < kLocalSize || MarkAt(bytes, 0) != kLocalMark) {
            Report(ZipFlaw::kNoLocal, 0, index);
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
            bytes = m_source.Read(member.headerAt, kLocalSize + nameSize + extraSize);
        }
        ZipFields rest(bytes, kLocalSize);
        local.name = rest.Text(nameSize);
        ZipExtra extra = ReadZipExtra(rest.Text(extraSize));
        local.unicodeName = std::move(extra.unicodeName);
        if (!TakeZip64(extra, {&local.size, &local.packedSize}, false)) {
            Report(ZipFlaw::kZip64Extra, 0, index);
        }
        FindContentEnd(member, index);
    }

    void FindContentEnd(ZipMember& member, std::size_t index)
    {
        const ZipHeader header = ContentHeader(member);
        const std::uint64_t limit = m_zip.directoryAt;
        const bool isStored = header.method == 0;
        // Packed contents know their own end, so the smaller size is the right one, or too small
        // for the content in any case.
        const std::uint64_t size =
            isStored ? header.packedSize : std::min(header.packedSize, member.packedSize);
        const std::uint64_t room = limit - std::min(member.contentAt, limit);
        if (!IsFolderName(member.name) && (member.contentAt > limit || size > room)) {
            Report(ZipFlaw::kContentCut, 0, index);
            member.behind = limit;
            return;
        }
        member.behind = std::min(member.contentAt, limit) + std::min(size, room);
        if ((member.local.flags & kZipDescriptor) != 0) {
            ReadDescriptor(member, header);
        }
    }

    /// Reads the descriptor behind a content: with or without its mark, with short or long sizes.
    void ReadDescriptor(ZipMember& member, const ZipHeader& header)
    {
        constexpr std::size_t kLongest = 24;
        const std::string bytes = m_source.Read(member.behind, kLongest);
        for (const std::size_t mark : {std::size_t{4}, std::size_t{0}}) {
            if (mark != 0 && MarkAt(bytes, 0) != kDescriptorMark) {
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
        if (IsFolderName(member.name)) {
            return;
        }
        member.behind += MarkAt(bytes, 0) == kDescriptorMark ? 16 : 12;
    }

    /// Compares the places of all entries with each other and with the directory's.
    void FindOverlaps()
    {
        std::vector<std::size_t> order(m_zip.members.size());
        std::iota(order.begin(), order.end(), std::size_t{0});
        std::sort(order.begin(), order.end(), [this](std::size_t one, std::size_t other) {
            return std::pair(m_zip.members[one].headerAt, one) <
                   std::pair(m_zip.members[other].headerAt, other);
        });
        std::uint64_t filesEnd = m_shift; // unzip minds what it writes files from, not folders
        std::uint64_t end = m_shift;
        for (const std::size_t index : order) {
            const ZipMember& member = m_zip.members[index];
            if (!member.hasLocal) {
                continue;
            }
            const bool isFolder = IsFolderName(member.name);
            if (member.headerAt < filesEnd) {
                Report(ZipFlaw::kOverlap, filesEnd - member.headerAt, index);
            } else if (member.headerAt > end) {
                Report(ZipFlaw::kGap, member.headerAt - end, index);
            }
            end = std::max(end, member.behind);
            filesEnd = isFolder ? filesEnd : std::max(filesEnd, member.behind);
        }
        if (filesEnd > m_zip.directoryAt) {
            Report(ZipFlaw::kOverlap, filesEnd - m_zip.directoryAt);
        } else if (end < m_zip.directoryAt) {
            Report(ZipFlaw::kGap, m_zip.directoryAt - end);
        }
    }

    const ByteSource& m_source;
    ZipStructure m_zip;
    std::uint64_t m_shift = 0; ///< bytes before the archive
};

} // namespace

bool ZipStructure::Has(ZipFlaw flaw) const
{
    return std::any_of(faults.begin(), faults.end(),
                       [flaw](const ZipFault& fault) { return fault.flaw == flaw; });
}

ZipHeader ContentHeader(const ZipMember& member)
{
    ZipHeader header;
    header.method = member.local.method;
    header.flags = member.local.flags;
    const ZipHeader& told = (member.local.flags & kZipDescriptor) != 0
                                ? static_cast<const ZipHeader&>(member)
                                : member.local;
    header.crc = told.crc;
    header.packedSize = told.packedSize;
    header.size = told.size;
    return header;
}

ZipStructure ReadZipStructure(const ByteSource& source)
{
    return Reader(source).Read();
}

} // namespace kx::archive
