// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "checks/ArchiveChecks.h"

#include "archive/UnpackedArchive.h"
#include "archive/ZipContent.h"
#include "format/ShellText.h"
#include "io/Text.h"

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

namespace kx::checks
{

namespace
{

/// How much more than told a content may be before it is no longer read.
constexpr std::uint64_t kToleratedExcess = std::uint64_t{64} << 20;

/// Packages larger than this may not be packed more tightly than kSuspiciousRatio.
constexpr std::uint64_t kSuspiciousSize = std::uint64_t{1} << 30;
constexpr std::uint64_t kSuspiciousRatio = 200;

struct FlawRule {
    archive::ZipFlaw flaw;
    RuleId rule;
    const char* what;
};

constexpr FlawRule kFlawRules[] = {
    {archive::ZipFlaw::kNoEnd, RuleId::kArchiveEnd, "has no end record"},
    {archive::ZipFlaw::kManyDisks, RuleId::kArchiveParts, "says that it is one part of several"},
    {archive::ZipFlaw::kOtherParts, RuleId::kArchiveParts, "mentions other parts"},
    {archive::ZipFlaw::kZip64End, RuleId::kArchiveZip64,
     "its zip64 end record contradicts the others"},
    {archive::ZipFlaw::kMissingBytes, RuleId::kArchiveDirectory, "its beginning is missing"},
    {archive::ZipFlaw::kLeading, RuleId::kArchiveLeading,
     "does not begin where the file does, or has extra bytes before its directory"},
    {archive::ZipFlaw::kTrailing, RuleId::kArchiveTrailing, "is followed by extra bytes"},
    {archive::ZipFlaw::kCutComment, RuleId::kArchiveComment, "its comment is truncated"},
    {archive::ZipFlaw::kDirectory, RuleId::kArchiveDirectory,
     "its directory is truncated or damaged"},
    {archive::ZipFlaw::kCount, RuleId::kArchiveCount,
     "has a different number of entries than its end record says"},
    {archive::ZipFlaw::kTooMany, RuleId::kArchiveTooMany, "has too many entries to check"},
    {archive::ZipFlaw::kZip64Extra, RuleId::kArchiveZip64, "its zip64 field is too short"},
    {archive::ZipFlaw::kExtraField, RuleId::kEntryExtra,
     "its extra fields do not end where they should"},
    {archive::ZipFlaw::kNoLocal, RuleId::kEntryLocal, "has no header where the directory says"},
    {archive::ZipFlaw::kContentCut, RuleId::kEntryContent, "reaches beyond the archive's contents"},
    {archive::ZipFlaw::kOverlap, RuleId::kEntryOverlap, "shares bytes with another entry"},
    {archive::ZipFlaw::kGap, RuleId::kArchiveGap, "has bytes before it that belong to no entry"},
};

std::string Quote(const std::string& name)
{
    return "'" + name + "'";
}

class ArchiveCheck
{
public:
    ArchiveCheck(const archive::ByteSource& source, const archive::ZipStructure& zip,
                 Findings& findings)
        : m_source(source), m_zip(zip), m_findings(findings)
    {
    }

    void Run()
    {
        ReportFlaws();
        if (m_zip.Has(archive::ZipFlaw::kNoEnd) || m_zip.Has(archive::ZipFlaw::kTooMany)) {
            return;
        }
        if (m_zip.members.empty() && m_zip.faults.empty()) {
            m_findings.Add(RuleId::kArchiveEmpty, Place::Whole(), "has no entries");
        }
        for (const archive::ZipMember& member : m_zip.members) {
            CheckName(member);
            CheckHeaders(member);
        }
        CheckConflicts();
        // Entries that share bytes could make this take any time.
        if (!m_zip.Has(archive::ZipFlaw::kOverlap) && !IsBomb()) {
            for (const archive::ZipMember& member : m_zip.members) {
                CheckContent(member);
            }
        }
    }

private:
    static Place PlaceOf(const archive::ZipMember& member) { return Place::Entry(member.name); }

    void ReportFlaws()
    {
        for (const archive::ZipFault& fault : m_zip.faults) {
            const auto* const entry =
                std::find_if(std::begin(kFlawRules), std::end(kFlawRules),
                             [&fault](const FlawRule& rule) { return rule.flaw == fault.flaw; });
            const bool isEntry =
                fault.member != archive::ZipFault::kNoMember && fault.member < m_zip.members.size();
            std::string what = entry->what;
            if (fault.amount != 0) {
                what += " (" + std::to_string(fault.amount) +
                        (fault.flaw == archive::ZipFlaw::kCount ||
                                 fault.flaw == archive::ZipFlaw::kTooMany
                             ? " stated)"
                             : " bytes)");
            }
            m_findings.AddAs(
                fault.flaw == archive::ZipFlaw::kOtherParts ? Severity::kWarning
                                                            : RuleOf(entry->rule).severity,
                entry->rule, isEntry ? PlaceOf(m_zip.members[fault.member]) : Place::Whole(), what);
        }
    }

    void CheckName(const archive::ZipMember& member)
    {
        const archive::UnpackedName name = archive::NameOnPanel(member);
        const std::string becomes = "arrives as " + Quote(name.name);
        if (name.name.empty()) {
            const bool isHarmless = member.name == "./" || member.name == ".";
            if (!isHarmless) {
                m_findings.Add(RuleId::kPathEmpty, PlaceOf(member), "has no name that can be used");
            }
        }
        if (name.wasAbsolute) {
            m_findings.Add(RuleId::kPathAbsolute, PlaceOf(member), "begins with '/'");
        }
        if (name.wentUp) {
            m_findings.Add(RuleId::kPathUp, PlaceOf(member), "contains '..'; " + becomes);
        }
        if (name.hadBackslashes) {
            m_findings.Add(RuleId::kPathBackslash, PlaceOf(member), "has '\\' between folders");
        } else if (name.name.find('\\') != std::string::npos) {
            m_findings.AddAs(Severity::kWarning, RuleId::kPathBackslash, PlaceOf(member),
                             "has '\\' in its name; it does not become a folder");
        }
        if (name.hadControl || member.name.find('\0') != std::string::npos) {
            m_findings.Add(RuleId::kPathControl, PlaceOf(member),
                           "contains control characters; " + becomes);
        }
        if (name.hadVersion) {
            m_findings.Add(RuleId::kPathVersion, PlaceOf(member), becomes);
        }
        CheckLength(member, name.name);
        CheckLocale(member);
    }

    void CheckLength(const archive::ZipMember& member, const std::string& name)
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
        if (isLong) {
            m_findings.Add(RuleId::kPathLong, PlaceOf(member),
                           "is longer than a name on the panel may be");
        }
    }

    void CheckLocale(const archive::ZipMember& member)
    {
        const bool isForeign = format::HasForeignBytes(member.name);
        const bool isOther = !member.unicodeName.empty() && member.unicodeName != member.name;
        if (!isForeign && !isOther) {
            return;
        }
        const bool isUtf8 = (member.flags & archive::kZipUtf8) != 0;
        constexpr std::uint8_t kDos = 0;
        if (isOther) {
            m_findings.AddAs(Severity::kError, RuleId::kPathLocale, PlaceOf(member),
                             "has a second name, " + Quote(member.unicodeName));
        } else if (isUtf8 && !io::IsUtf8(member.name)) {
            m_findings.AddAs(Severity::kError, RuleId::kPathLocale, PlaceOf(member),
                             "is marked as UTF-8, which it is not");
        } else if (!isUtf8 && member.madeOn == kDos) {
            m_findings.AddAs(Severity::kError, RuleId::kPathLocale, PlaceOf(member),
                             "is in the character set of another system and is converted");
        } else {
            m_findings.Add(RuleId::kPathLocale, PlaceOf(member), "is not plain ASCII");
        }
    }

    void CheckHeaders(const archive::ZipMember& member)
    {
        constexpr unsigned kNewestVersion = 46;
        constexpr unsigned kBzip2 = 12;
        if ((member.flags & archive::kZipEncrypted) != 0) {
            m_findings.Add(RuleId::kEntryEncrypted, PlaceOf(member), "is encrypted");
        }
        if ((member.neededVersion & 0xffU) > kNewestVersion) {
            m_findings.Add(RuleId::kEntryVersion, PlaceOf(member),
                           "needs version " + std::to_string((member.neededVersion & 0xffU) / 10) +
                               "." + std::to_string((member.neededVersion & 0xffU) % 10) +
                               " of the zip format");
        }
        if (!member.hasLocal) {
            return;
        }
        // unzip asks the directory whether it can unpack an entry, and the header how to.
        const bool isFolder = archive::NameOnPanel(member).isFolder;
        const bool isTaken = IsTakenMethod(member.method);
        if (!isTaken || (!isFolder && !archive::IsReadableMethod(member.local.method))) {
            m_findings.Add(RuleId::kEntryMethod, PlaceOf(member),
                           "is packed with method " +
                               std::to_string(isTaken ? member.local.method : member.method));
        }
        if (member.local.method == kBzip2) {
            m_findings.Add(RuleId::kEntryBzip2, PlaceOf(member), "is packed with bzip2");
        }
        if (member.local.name != member.name) {
            m_findings.Add(RuleId::kEntryNameDiffers, PlaceOf(member),
                           "is called " + Quote(member.local.name) + " in its own header");
        }
        if (((member.flags ^ member.local.flags) & archive::kZipUtf8) != 0) {
            m_findings.Add(RuleId::kEntryNameDiffers, PlaceOf(member),
                           "is marked as UTF-8 in only one of its headers");
        }
        const archive::ZipHeader told = archive::ContentHeader(member);
        if (told.method == 0 && told.packedSize != told.size) {
            // unzip sees that without reading, and warns, which is a failure.
            m_findings.AddAs(Severity::kError, RuleId::kEntryHeader, PlaceOf(member),
                             "is stored, but has two sizes, " + std::to_string(told.packedSize) +
                                 " and " + std::to_string(told.size) + " bytes");
        }
        if (const std::string difference = Difference(member); !difference.empty()) {
            m_findings.Add(RuleId::kEntryHeader, PlaceOf(member),
                           "directory and header differ in " + difference);
        }
    }

    /// Tells whether unzip 6.0 unpacks the method: stored, shrunk, imploded, deflated, bzip2.
    static bool IsTakenMethod(unsigned method)
    {
        constexpr unsigned kMethods[] = {0, 1, 6, 8, 9, 12};
        return std::find(std::begin(kMethods), std::end(kMethods), method) != std::end(kMethods);
    }

    static std::string Difference(const archive::ZipMember& member)
    {
        const archive::ZipHeader& local = member.local;
        const bool isTold = (local.flags & archive::kZipDescriptor) == 0;
        std::string words;
        const auto add = [&words](bool differs, const char* word) {
            words += differs ? (words.empty() ? "" : ", ") + std::string(word) : "";
        };
        add(local.method != member.method, "method");
        add(isTold && local.crc != member.crc, "CRC");
        add(isTold && local.packedSize != member.packedSize, "packed size");
        add(isTold && local.size != member.size, "size");
        constexpr unsigned kSaid = archive::kZipEncrypted | archive::kZipDescriptor;
        add(((local.flags ^ member.flags) & kSaid) != 0, "flags");
        add(member.isDescriptorWrong, "what follows the content");
        return words;
    }

    /// Finds names that stand for several things.
    void CheckConflicts()
    {
        struct Named {
            std::string name;
            bool isFolder;
            const archive::ZipMember* member;
        };
        std::vector<Named> names;
        for (const archive::ZipMember& member : m_zip.members) {
            archive::UnpackedName name = archive::NameOnPanel(member);
            if (!name.name.empty()) {
                names.push_back({std::move(name.name), name.isFolder, &member});
            }
        }
        // With '/' before all other characters, what a folder holds comes right behind its name.
        const auto rank = [](char c) {
            return c == '/' ? 0 : static_cast<int>(static_cast<unsigned char>(c)) + 1;
        };
        std::stable_sort(names.begin(), names.end(), [rank](const Named& one, const Named& other) {
            return std::lexicographical_compare(
                one.name.begin(), one.name.end(), other.name.begin(), other.name.end(),
                [rank](char a, char b) { return rank(a) < rank(b); });
        });
        for (std::size_t i = 0; i + 1 < names.size(); ++i) {
            const Named& one = names[i];
            const Named& next = names[i + 1];
            const bool isSame = one.name == next.name;
            const bool isBelow = next.name.size() > one.name.size() &&
                                 next.name.compare(0, one.name.size(), one.name) == 0 &&
                                 next.name[one.name.size()] == '/';
            if ((isSame && one.isFolder != next.isFolder) || (isBelow && !one.isFolder)) {
                m_findings.Add(RuleId::kPathConflict, PlaceOf(*one.member),
                               "is a file and a folder at once");
            } else if (isSame && !one.isFolder) {
                m_findings.Add(RuleId::kPathTwice, PlaceOf(*next.member), "comes more than once");
            }
        }
    }

    bool IsBomb()
    {
        constexpr std::uint64_t kTightest = 1100; // what unpacking can make of a byte, and more
        std::uint64_t packed = 0;
        std::uint64_t total = 0;
        for (const archive::ZipMember& member : m_zip.members) {
            const archive::ZipHeader header = archive::ContentHeader(member);
            const std::uint64_t most = std::min(header.packedSize, m_source.Size());
            packed += most;
            // Only bzip2 packs tighter; what is told beyond that is not true.
            total += std::min(
                {header.size, most * kTightest + kSuspiciousSize / kTightest, kMostUnpacked + 1});
            if (total > kMostUnpacked ||
                (total > kSuspiciousSize && total / kSuspiciousRatio > packed)) {
                m_findings.Add(RuleId::kArchiveBomb, Place::Whole(),
                               "unpacks to " + std::to_string(total >> 20) + " MiB or more, from " +
                                   std::to_string(packed >> 20) + " MiB");
                return true;
            }
        }
        return false;
    }

    void CheckContent(const archive::ZipMember& member)
    {
        if (!member.hasLocal || m_isStopped || (member.flags & archive::kZipEncrypted) != 0 ||
            archive::NameOnPanel(member).isFolder) {
            return; // of a folder nothing is unpacked
        }
        const std::uint64_t told = std::min(archive::ContentHeader(member).size, kMostUnpacked);
        const std::uint64_t limit = std::min(told + kToleratedExcess, kMostUnpacked - m_total);
        const archive::ContentResult result =
            archive::ReadContent(m_source, member, limit, [](std::string_view) { return true; });
        m_total += std::min(result.size, limit);
        switch (result.state) {
        case archive::ContentState::kDamaged:
            m_findings.Add(RuleId::kEntryContent, PlaceOf(member), "is damaged");
            break;
        case archive::ContentState::kWrongCrc:
            m_findings.Add(RuleId::kEntryCrc, PlaceOf(member), "its CRC is wrong");
            break;
        case archive::ContentState::kWrongSize:
            if (member.local.method != 0) { // else its headers have shown that
                m_findings.Add(RuleId::kEntryHeader, PlaceOf(member),
                               "has " + std::to_string(result.size) + " bytes instead of " +
                                   std::to_string(archive::ContentHeader(member).size));
            }
            break;
        case archive::ContentState::kTooLarge:
            m_findings.Add(RuleId::kArchiveBomb, PlaceOf(member),
                           "unpacks to more than it says, " + std::to_string(result.size >> 20) +
                               " MiB or more");
            m_isStopped = m_total >= kMostUnpacked;
            break;
        case archive::ContentState::kFine:
        case archive::ContentState::kUnsupported:
            break;
        }
    }

    const archive::ByteSource& m_source;
    const archive::ZipStructure& m_zip;
    Findings& m_findings;
    std::uint64_t m_total = 0;
    bool m_isStopped = false;
};

} // namespace

void CheckArchive(const archive::ByteSource& source, const archive::ZipStructure& zip,
                  Findings& findings)
{
    ArchiveCheck(source, zip, findings).Run();
}

} // namespace kx::checks
