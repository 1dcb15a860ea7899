// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "archive/UnpackVerdict.h"

#include "archive/ZipContent.h"
#include "archive/ZipNames.h"

#include <algorithm>
#include <optional>
#include <string>
#include <utility>

namespace kx::archive
{

namespace
{

/// How much more than told a content may be before it is no longer read.
constexpr std::uint64_t kToleratedExcess = std::uint64_t{64} << 20;

/// Archives larger than this may not be packed more tightly than kSuspiciousRatio.
constexpr std::uint64_t kSuspiciousSize = std::uint64_t{1} << 30;
constexpr std::uint64_t kSuspiciousRatio = 200;

/// The exit statuses of unzip that matter here.
enum UnzipStatus : int {
    kFine = 0,
    kWarned = 1,      ///< all was unpacked, but something was odd
    kWrong = 2,       ///< something is damaged or could not be created
    kFarWrong = 3,    ///< the directory is not what it should be
    kNoPassword = 5,  ///< encrypted, and nobody to ask
    kNoArchive = 9,   ///< there is no end record
    kShared = 12,     ///< entries share bytes
    kDisk = 50,       ///< a file cannot be written
    kUnsupported = 81 ///< an entry was passed over
};

int StatusOf(ZipFlaw flaw)
{
    switch (flaw) {
    case ZipFlaw::kOtherParts:
    case ZipFlaw::kTrailing:
    case ZipFlaw::kExtraField:
    case ZipFlaw::kGap:
        return kFine;
    case ZipFlaw::kManyDisks:
    case ZipFlaw::kLeading:
    case ZipFlaw::kCutComment:
        return kWarned;
    case ZipFlaw::kNoLocal:
    case ZipFlaw::kZip64Extra:
        return kWrong;
    case ZipFlaw::kNoEnd:
        return kNoArchive;
    case ZipFlaw::kContentCut:
    case ZipFlaw::kOverlap:
        return kShared;
    case ZipFlaw::kZip64End:
    case ZipFlaw::kMissingBytes:
    case ZipFlaw::kDirectory:
    case ZipFlaw::kCount:
        return kFarWrong;
    case ZipFlaw::kTooMany:
        return kDisk;
    }
    return kFine;
}

int StatusOf(UnpackReason reason)
{
    switch (reason) {
    case UnpackReason::kEmpty:
    case UnpackReason::kAbsolute:
    case UnpackReason::kUp:
    case UnpackReason::kBackslash:
    case UnpackReason::kLocalMethod:
    case UnpackReason::kLocalName:
    case UnpackReason::kLocalUtf8:
    case UnpackReason::kStoredSizes:
        return kWarned;
    case UnpackReason::kNoName:
    case UnpackReason::kConflict:
    case UnpackReason::kDamaged:
    case UnpackReason::kWrongCrc:
        return kWrong;
    case UnpackReason::kEncrypted:
        return kNoPassword;
    case UnpackReason::kLongName:
    case UnpackReason::kLiar:
    case UnpackReason::kBomb:
        return kDisk;
    case UnpackReason::kMethod:
    case UnpackReason::kVersion:
        return kUnsupported;
    case UnpackReason::kStructure:
    case UnpackReason::kWrongSize:
    case UnpackReason::kUnchecked:
        break;
    }
    return kFine;
}

/// Tells whether unzip 6.0 unpacks the method: stored, shrunk, imploded, deflated, by
/// deflate64, bzip2.
bool IsKnownMethod(unsigned method)
{
    constexpr unsigned kMethods[] = {0, 1, 6, 8, 9, 12};
    return std::find(std::begin(kMethods), std::end(kMethods), method) != std::end(kMethods);
}

bool IsTooLong(const std::string& name)
{
    constexpr std::size_t kLongestPart = 255;
    constexpr std::size_t kLongestPath = 4000; // the folder that it is unpacked to comes first
    std::size_t begin = 0;
    bool isLong = name.size() > kLongestPath;
    while (begin <= name.size()) {
        const std::size_t end = std::min(name.find('/', begin), name.size());
        isLong = isLong || end - begin > kLongestPart;
        begin = end + 1;
    }
    return isLong;
}

/// What unpacking makes of an entry.
struct Made {
    std::string name;
    bool isFolder = false;
    std::size_t index = 0;
};

/// Tells whether one name comes before another, with what a folder holds right behind its name:
/// '/' comes before all other characters.
bool IsListedBefore(const Made& one, const Made& other)
{
    const auto rank = [](char c) {
        return c == '/' ? 0 : static_cast<int>(static_cast<unsigned char>(c)) + 1;
    };
    return std::lexicographical_compare(one.name.begin(), one.name.end(), other.name.begin(),
                                        other.name.end(),
                                        [rank](char a, char b) { return rank(a) < rank(b); });
}

class Judge
{
public:
    Judge(const ByteSource& source, const ZipStructure& zip) : m_source(source), m_zip(zip) {}

    /// @param most  how many bytes of contents are unpacked; 0: none is looked at
    UnpackVerdict Run(std::uint64_t most)
    {
        for (std::size_t index = 0; index < m_zip.faults.size(); ++index) {
            Note({UnpackReason::kStructure, StatusOf(m_zip.faults[index].flaw), index,
                  m_zip.faults[index].amount});
        }
        if (m_zip.Has(ZipFlaw::kNoEnd) || m_zip.Has(ZipFlaw::kTooMany)) {
            return std::move(m_verdict);
        }
        if (m_zip.members.empty() && m_zip.faults.empty()) {
            Note(UnpackReason::kEmpty, 0);
        }
        for (std::size_t index = 0; index < m_zip.members.size(); ++index) {
            JudgeHeaders(index);
        }
        JudgeNames();
        // Entries that share bytes could make this take any time.
        if (!m_zip.Has(ZipFlaw::kOverlap) && !IsBomb()) {
            JudgeContents(most);
        }
        return std::move(m_verdict);
    }

private:
    void Note(const UnpackFault& fault)
    {
        m_verdict.status = std::max(m_verdict.status, fault.status);
        m_verdict.faults.push_back(fault);
    }

    void Note(UnpackReason reason, std::size_t index, std::uint64_t amount = 0)
    {
        Note({reason, StatusOf(reason), index, amount});
    }

    void NoteIf(bool isSo, UnpackReason reason, std::size_t index)
    {
        if (isSo) {
            Note(reason, index);
        }
    }

    void JudgeHeaders(std::size_t index)
    {
        const ZipMember& member = m_zip.members[index];
        const UnpackedName name = NameOnPanel(member);
        const bool isLabel = IsDiskLabel(member);
        NoteIf(name.wasAbsolute, UnpackReason::kAbsolute, index);
        NoteIf(name.wentUp, UnpackReason::kUp, index);
        NoteIf(name.hadBackslashes, UnpackReason::kBackslash, index);
        if (!isLabel) {
            // Of a folder nothing need be left: it is the one that is unpacked to.
            const bool isRoot = member.name.find_first_not_of('/') == std::string::npos;
            NoteIf(name.name.empty() && (isRoot || !name.isFolder), UnpackReason::kNoName, index);
            NoteIf(IsTooLong(name.name), UnpackReason::kLongName, index);
        }
        constexpr unsigned kNewestVersion = 46;
        NoteIf((member.flags & kZipEncrypted) != 0, UnpackReason::kEncrypted, index);
        NoteIf((member.neededVersion & 0xffU) > kNewestVersion, UnpackReason::kVersion, index);
        if (!member.hasLocal) {
            return;
        }
        // unzip asks the directory whether it can unpack an entry, and the header how to.
        if (!IsKnownMethod(member.method)) {
            Note(UnpackReason::kMethod, index);
        } else if (!name.isFolder && !IsKnownMethod(member.local.method)) {
            Note(UnpackReason::kLocalMethod, index);
        }
        NoteIf(member.local.name != member.name, UnpackReason::kLocalName, index);
        NoteIf(((member.flags ^ member.local.flags) & kZipUtf8) != 0, UnpackReason::kLocalUtf8,
               index);
        // The sizes of encrypted bytes differ, as more stands before them.
        const bool isEncrypted = (member.flags & kZipEncrypted) != 0;
        const ZipHeader told = ContentHeader(member);
        NoteIf(told.method == 0 && !isEncrypted && told.packedSize != told.size,
               UnpackReason::kStoredSizes, index);
    }

    /// Finds names that stand for files and for folders.
    void JudgeNames()
    {
        std::vector<Made> made;
        made.reserve(m_zip.members.size());
        for (std::size_t index = 0; index < m_zip.members.size(); ++index) {
            UnpackedName name = NameOnPanel(m_zip.members[index]);
            if (!name.name.empty() && !IsDiskLabel(m_zip.members[index])) {
                made.push_back({std::move(name.name), name.isFolder, index});
            }
        }
        std::stable_sort(made.begin(), made.end(), IsListedBefore);
        for (std::size_t i = 0; i + 1 < made.size(); ++i) {
            const Made& one = made[i];
            const Made& next = made[i + 1];
            const bool isSame = one.name == next.name;
            const bool isBelow = next.name.size() > one.name.size() &&
                                 next.name.compare(0, one.name.size(), one.name) == 0 &&
                                 next.name[one.name.size()] == '/';
            if ((isSame && one.isFolder != next.isFolder) || (isBelow && !one.isFolder)) {
                const std::size_t file = one.isFolder ? next.index : one.index;
                const std::size_t folder = one.isFolder ? one.index : next.index;
                // A file in the way of a folder ends the entry, a folder in the way of a file more.
                Note({UnpackReason::kConflict, folder < file ? kDisk : kWrong, one.index, 0});
            }
        }
    }

    bool IsBomb()
    {
        constexpr std::uint64_t kTightest = 1100; // what unpacking can make of a byte, and more
        std::uint64_t packed = 0;
        std::uint64_t total = 0;
        for (const ZipMember& member : m_zip.members) {
            const ZipHeader header = ContentHeader(member);
            const std::uint64_t most = std::min(header.packedSize, m_source.Size());
            packed += most;
            // Only bzip2 packs tighter; what is told beyond that is not true.
            total += std::min(
                {header.size, most * kTightest + kSuspiciousSize / kTightest, kMostUnpacked + 1});
            if (total > kMostUnpacked ||
                (total > kSuspiciousSize && total / kSuspiciousRatio > packed)) {
                Note(UnpackReason::kBomb, 0, total);
                return true;
            }
        }
        return false;
    }

    void JudgeContents(std::uint64_t most)
    {
        ContentReader reader(m_source);
        std::uint64_t total = 0;
        for (std::size_t index = 0; index < m_zip.members.size() && total < most; ++index) {
            const ZipMember& member = m_zip.members[index];
            if (!member.hasLocal || (member.flags & kZipEncrypted) != 0 || IsDiskLabel(member) ||
                NameOnPanel(member).isFolder || !IsKnownMethod(member.method) ||
                !IsKnownMethod(member.local.method)) {
                continue; // nothing is unpacked
            }
            const std::uint64_t told = std::min(ContentHeader(member).size, kMostUnpacked);
            const std::uint64_t limit = std::min(told + kToleratedExcess, most - total);
            const ContentResult result =
                reader.Read(member, limit, [](std::string_view) { return true; });
            total += std::min(result.size, limit);
            if (const auto reason = ReasonOf(result.state); reason.has_value()) {
                Note(*reason, index, result.size);
            }
        }
    }

    static std::optional<UnpackReason> ReasonOf(ContentState state)
    {
        switch (state) {
        case ContentState::kDamaged:
            return UnpackReason::kDamaged;
        case ContentState::kWrongCrc:
            return UnpackReason::kWrongCrc;
        case ContentState::kWrongSize:
            return UnpackReason::kWrongSize;
        case ContentState::kTooLarge:
            return UnpackReason::kLiar;
        case ContentState::kUnsupported:
            return UnpackReason::kUnchecked;
        case ContentState::kFine:
            break;
        }
        return {};
    }

    const ByteSource& m_source;
    const ZipStructure& m_zip;
    UnpackVerdict m_verdict;
};

} // namespace

bool UnpackVerdict::Has(UnpackReason reason) const
{
    return std::any_of(faults.begin(), faults.end(),
                       [reason](const UnpackFault& fault) { return fault.reason == reason; });
}

UnpackVerdict JudgeUnpacking(const ByteSource& source, const ZipStructure& zip, std::uint64_t most)
{
    return Judge(source, zip).Run(std::min(most, kMostUnpacked));
}

UnpackVerdict JudgeHeaders(const ByteSource& source, const ZipStructure& zip)
{
    return Judge(source, zip).Run(0);
}

} // namespace kx::archive
