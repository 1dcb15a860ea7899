// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "checks/ArchiveChecks.h"

#include "archive/ZipNames.h"
#include "format/ShellText.h"
#include "io/Text.h"
#include "io/Utf8.h"

#include <algorithm>
#include <iterator>
#include <set>
#include <string>
#include <utility>

namespace kx::checks
{

namespace
{

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

Location LocationOf(const archive::ZipMember& member)
{
    return Location::Entry(member.name);
}

/// Tells what the verdict found as findings.
class VerdictCheck
{
public:
    VerdictCheck(const archive::ZipStructure& zip, Findings& findings)
        : m_zip(zip), m_findings(findings)
    {
    }

    void Tell(const archive::UnpackFault& fault)
    {
        using archive::UnpackReason;
        switch (fault.reason) {
        case UnpackReason::kStructure:
            TellStructure(m_zip.faults[fault.index], fault.status);
            break;
        case UnpackReason::kEmpty:
            m_findings.Add(RuleId::kArchiveEmpty, Location::Whole(), "has no entries");
            break;
        case UnpackReason::kBomb:
            m_findings.Add(RuleId::kArchiveBomb, Location::Whole(),
                           "unpacks to " + std::to_string(fault.amount >> 20) + " MiB or more");
            break;
        case UnpackReason::kNoName:
        case UnpackReason::kAbsolute:
        case UnpackReason::kUp:
        case UnpackReason::kBackslash:
        case UnpackReason::kLongName:
        case UnpackReason::kConflict:
            TellName(m_zip.members[fault.index], fault);
            break;
        case UnpackReason::kEncrypted:
        case UnpackReason::kVersion:
        case UnpackReason::kMethod:
        case UnpackReason::kLocalMethod:
        case UnpackReason::kLocalName:
        case UnpackReason::kLocalUtf8:
        case UnpackReason::kStoredSizes:
            TellHeaders(m_zip.members[fault.index], fault);
            break;
        case UnpackReason::kDamaged:
        case UnpackReason::kWrongCrc:
        case UnpackReason::kWrongSize:
        case UnpackReason::kUnchecked:
        case UnpackReason::kLiar:
            TellContent(m_zip.members[fault.index], fault);
            break;
        }
    }

private:
    void TellStructure(const archive::ZipFault& fault, int status)
    {
        const auto* const entry =
            std::find_if(std::begin(kFlawRules), std::end(kFlawRules),
                         [&fault](const FlawRule& rule) { return rule.flaw == fault.flaw; });
        const bool isEntry =
            fault.member != archive::ZipFault::kNoMember && fault.member < m_zip.members.size();
        std::string what = entry->what;
        if (fault.amount != 0) {
            const bool isCount =
                fault.flaw == archive::ZipFlaw::kCount || fault.flaw == archive::ZipFlaw::kTooMany;
            what += " (" + std::to_string(fault.amount) + (isCount ? " stated)" : " bytes)");
        }
        m_findings.AddAs(status == 0 ? Severity::kWarning : Severity::kError, entry->rule,
                         isEntry ? LocationOf(m_zip.members[fault.member]) : Location::Whole(),
                         what);
    }

    void TellName(const archive::ZipMember& member, const archive::UnpackFault& fault)
    {
        using archive::UnpackReason;
        const auto add = [this, &member](RuleId rule, const std::string& what) {
            m_findings.Add(rule, LocationOf(member), what);
        };
        switch (fault.reason) {
        case UnpackReason::kNoName:
            return add(RuleId::kPathEmpty, "has no name that can be used");
        case UnpackReason::kAbsolute:
            return add(RuleId::kPathAbsolute, "begins with '/'");
        case UnpackReason::kUp:
            return add(RuleId::kPathUp,
                       "contains '..'; arrives as " + Quote(archive::NameOnPanel(member).name));
        case UnpackReason::kBackslash:
            return add(RuleId::kPathBackslash, "has '\\' between folders");
        case UnpackReason::kLongName:
            return add(RuleId::kPathLong, "is longer than a name on the panel may be");
        default:
            return add(RuleId::kPathConflict, "is a file and a folder at once");
        }
    }

    void TellHeaders(const archive::ZipMember& member, const archive::UnpackFault& fault)
    {
        using archive::UnpackReason;
        const auto add = [this, &member](RuleId rule, const std::string& what) {
            m_findings.Add(rule, LocationOf(member), what);
        };
        const archive::ZipHeader told = archive::ContentHeader(member);
        switch (fault.reason) {
        case UnpackReason::kEncrypted:
            return add(RuleId::kEntryEncrypted, "is encrypted");
        case UnpackReason::kVersion:
            return add(RuleId::kEntryVersion,
                       "needs version " + std::to_string((member.neededVersion & 0xffU) / 10) +
                           "." + std::to_string((member.neededVersion & 0xffU) % 10) +
                           " of the zip format");
        case UnpackReason::kMethod:
            return add(RuleId::kEntryMethod,
                       "is packed with method " + std::to_string(member.method));
        case UnpackReason::kLocalMethod:
            return add(RuleId::kEntryMethod,
                       "is packed with method " + std::to_string(member.local.method));
        case UnpackReason::kLocalName:
            return add(RuleId::kEntryNameDiffers,
                       "is called " + Quote(member.local.name) + " in its own header");
        case UnpackReason::kLocalUtf8:
            return add(RuleId::kEntryNameDiffers, "is marked as UTF-8 in only one of its headers");
        default:
            // unzip sees that without reading, and warns, which is a failure.
            m_findings.AddAs(Severity::kError, RuleId::kEntryHeader, LocationOf(member),
                             "is stored, but has two sizes, " + std::to_string(told.packedSize) +
                                 " and " + std::to_string(told.size) + " bytes");
        }
    }

    void TellContent(const archive::ZipMember& member, const archive::UnpackFault& fault)
    {
        using archive::UnpackReason;
        const auto add = [this, &member](RuleId rule, const std::string& what) {
            m_findings.Add(rule, LocationOf(member), what);
        };
        switch (fault.reason) {
        case UnpackReason::kDamaged:
            return add(RuleId::kEntryContent, "is damaged");
        case UnpackReason::kWrongCrc:
            return add(RuleId::kEntryCrc, "its CRC is wrong");
        case UnpackReason::kWrongSize:
            if (member.local.method != 0) { // else its headers have shown that
                add(RuleId::kEntryHeader, "has " + std::to_string(fault.amount) +
                                              " bytes instead of " +
                                              std::to_string(archive::ContentHeader(member).size));
            }
            return;
        case UnpackReason::kUnchecked:
            return add(RuleId::kEntryMethod, "is packed with method " +
                                                 std::to_string(member.local.method) +
                                                 ", which cannot be checked here");
        default:
            return add(RuleId::kArchiveBomb, "unpacks to more than it says, " +
                                                 std::to_string(fault.amount >> 20) +
                                                 " MiB or more");
        }
    }

    const archive::ZipStructure& m_zip;
    Findings& m_findings;
};

/// Tells what surprises somebody though unzip does not mind.
class EntryCheck
{
public:
    explicit EntryCheck(Findings& findings) : m_findings(findings) {}

    void Check(const archive::ZipMember& member)
    {
        const archive::UnpackedName name = archive::NameOnPanel(member);
        CheckName(member, name);
        CheckLocale(member);
        if (archive::IsDiskLabel(member)) {
            m_findings.Add(RuleId::kEntryLabel, LocationOf(member),
                           "is marked as the name of a disk");
        } else if (!name.isFolder && !name.name.empty() && !m_files.insert(name.name).second) {
            m_findings.Add(RuleId::kPathTwice, LocationOf(member), "comes more than once");
        }
        if (member.hasLocal) {
            CheckHeaders(member);
        }
    }

private:
    void CheckName(const archive::ZipMember& member, const archive::UnpackedName& name)
    {
        const std::string becomes = "arrives as " + Quote(name.name);
        if (!name.hadBackslashes && name.name.find('\\') != std::string::npos) {
            m_findings.AddAs(Severity::kWarning, RuleId::kPathBackslash, LocationOf(member),
                             "has '\\' in its name; it does not become a folder");
        }
        if (name.hadControl || member.name.find('\0') != std::string::npos) {
            m_findings.Add(RuleId::kPathControl, LocationOf(member),
                           "contains control characters; " + becomes);
        }
        if (name.hadVersion) {
            m_findings.Add(RuleId::kPathVersion, LocationOf(member), becomes);
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
            m_findings.AddAs(Severity::kError, RuleId::kPathLocale, LocationOf(member),
                             "has a second name, " + Quote(member.unicodeName));
        } else if (isUtf8 && !io::IsUtf8(member.name)) {
            m_findings.AddAs(Severity::kError, RuleId::kPathLocale, LocationOf(member),
                             "is marked as UTF-8, which it is not");
        } else if (!isUtf8 && member.madeOn == kDos) {
            m_findings.AddAs(Severity::kError, RuleId::kPathLocale, LocationOf(member),
                             "is in the character set of another system and is converted");
        } else {
            m_findings.Add(RuleId::kPathLocale, LocationOf(member), "is not plain ASCII");
        }
    }

    void CheckHeaders(const archive::ZipMember& member)
    {
        if (member.local.method == archive::kZipBzip2) {
            m_findings.Add(RuleId::kEntryBzip2, LocationOf(member), "is packed with bzip2");
        }
        if (member.local.method == archive::kZipDeflated64) {
            m_findings.Add(RuleId::kEntryDeflate64, LocationOf(member), "is packed with deflate64");
        }
        if (const std::string difference = Difference(member); !difference.empty()) {
            m_findings.Add(RuleId::kEntryHeader, LocationOf(member),
                           "directory and header differ in " + difference);
        }
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

    Findings& m_findings;
    std::set<std::string> m_files; ///< names on the panel
};

} // namespace

void CheckArchive(const archive::ZipStructure& zip, const archive::UnpackVerdict& verdict,
                  std::optional<std::size_t> block, Findings& findings)
{
    VerdictCheck check(zip, findings);
    for (const archive::UnpackFault& fault : verdict.faults) {
        if (fault.reason != archive::UnpackReason::kStructure || fault.index != block) {
            check.Tell(fault);
        }
    }
    if (zip.Has(archive::ZipFlaw::kNoEnd) || zip.Has(archive::ZipFlaw::kTooMany)) {
        return;
    }
    EntryCheck entries(findings);
    for (const archive::ZipMember& member : zip.members) {
        entries.Check(member);
    }
}

bool HasTooManyNames(const archive::ZipStructure& zip, std::uint64_t most)
{
    std::uint64_t total = 0;
    for (const archive::ZipMember& member : zip.members) {
        for (std::size_t slash = member.name.find('/'); slash != std::string::npos;
             slash = member.name.find('/', slash + 1)) {
            total += slash;
        }
        total += member.name.size();
    }
    return total > most;
}

} // namespace kx::checks
