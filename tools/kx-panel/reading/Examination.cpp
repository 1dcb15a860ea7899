// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "reading/Examination.h"

#include "archive/UnpackVerdict.h"
#include "archive/UnpackedArchive.h"
#include "archive/ZipNames.h"
#include "checks/ArchiveChecks.h"
#include "checks/DescriptionChecks.h"
#include "format/Description.h"
#include "format/Program.h"
#include "format/Summary.h"
#include "reading/Amounts.h"
#include "reading/Fields.h"
#include "reading/StepTargets.h"
#include "reading/TarHeads.h"
#include "signature/Refusal.h"
#include "signature/SignedFile.h"

#include <algorithm>
#include <optional>
#include <string>
#include <utility>

namespace kx::guard
{

namespace
{

using archive::PackageEntry;
using checks::Finding;
using checks::Findings;
using checks::Location;
using checks::RuleId;
using checks::Severity;

/// What the package is called where nobody reads it.
constexpr const char* kShownName = "package";

/// How many bytes at the beginning of a file are looked at.
constexpr std::uint64_t kHeadOfProgram = 4096;

/// With what programs and libraries begin.
constexpr std::string_view kProgramMark = "\x7f"
                                          "ELF";

/// What parts of the structure may take of the memory of the process.
constexpr std::uint64_t kStructureShare = 4;

/// Tells whether a panel refuses a package for a finding: for every error, and for what unzip and
/// another reader could take differently.
bool IsRefused(const Finding& finding)
{
    return finding.severity == Severity::kError || finding.rule == RuleId::kPathTwice ||
           finding.rule == RuleId::kEntryHeader;
}

std::string FaultText(const Finding& finding)
{
    const Location& place = finding.location;
    const bool hasPath = !place.path.empty();
    const std::string where = hasPath || place.file == archive::kDescriptionName ? place.path
                              : place.file.empty()                               ? ""
                                                   : "'" + place.file + "'";
    return (where.empty() ? finding.what : where + ": " + finding.what).substr(0, kLongestFault);
}

class Examiner
{
public:
    Examiner(const archive::ByteSource& source, const ExamOrder& order, IMessages& messages)
        : m_source(source), m_order(order), m_messages(messages)
    {
    }

    void Run()
    {
        ExamineContents();
        Send(ExamKind::kDone, FieldsWriter());
    }

private:
    void ExamineContents()
    {
        const std::uint64_t share = m_order.limits.readerMemory / kStructureShare;
        const archive::ZipStructure zip = archive::ReadZipStructure(
            m_source, {static_cast<std::size_t>(m_order.limits.entries), share});
        Findings findings;
        const int status = CheckStructure(zip, share, findings);
        if (TellFaults(ExamKind::kStructure, findings)) {
            return;
        }
        const archive::UnpackedArchive package(kShownName, m_source, zip, status);
        try {
            if (CheckDescriptionOf(package)) {
                Tell(zip, package);
            }
        } catch (const archive::ContentError& error) {
            Findings damaged; // though it was signed like that
            damaged.Add(RuleId::kEntryContent, Location::Whole(), error.Line());
            static_cast<void>(TellFaults(ExamKind::kStructure, damaged));
        }
    }

    // ---- the archive ----

    /// @return the status with which unzip would unpack it, as far as that is known
    int CheckStructure(const archive::ZipStructure& zip, std::uint64_t nameBytes,
                       Findings& findings)
    {
        const std::optional<std::size_t> block = CheckSignedForm(zip, findings);
        const bool isTooLarge = CheckAmounts(zip, findings);
        if (checks::HasTooManyNames(zip, nameBytes)) {
            findings.Add(RuleId::kArchiveTooMany, Location::Whole(),
                         "its names are too many or too long");
        }
        // More than it may unpack to shows as an entry that tells less than it has.
        const std::uint64_t most = SaturatedSum(m_order.limits.unpackedBytes, 1);
        const archive::UnpackVerdict verdict = m_order.isTrusted || isTooLarge
                                                   ? archive::JudgeHeaders(m_source, zip)
                                                   : archive::JudgeUnpacking(m_source, zip, most);
        checks::CheckArchive(zip, verdict, block, findings);
        return verdict.status;
    }

    /// Refuses what hides in an archive, whether it is signed or not.
    /// @return the fault that is but the block of signatures
    std::optional<std::size_t> CheckSignedForm(const archive::ZipStructure& zip,
                                               Findings& findings) const
    {
        std::optional<std::size_t> block;
        try {
            const signature::SignedFile file(m_source, kShownName);
            block = file.BlockFault(zip);
            if (!zip.Has(archive::ZipFlaw::kTooMany)) { // else the directory is not even read
                file.RefuseHidden(zip);
            }
        } catch (const signature::Refusal& refusal) {
            findings.Add(RuleId::kSignatureHidden, Location::Whole(), refusal.what());
        }
        return block;
    }

    /// @return whether the contents are more than the panel takes
    bool CheckAmounts(const archive::ZipStructure& zip, Findings& findings)
    {
        for (const archive::ZipMember& member : zip.members) {
            m_unpackedBytes = SaturatedSum(m_unpackedBytes, archive::ContentHeader(member).size);
        }
        const bool isTooLarge = m_unpackedBytes > m_order.limits.unpackedBytes;
        if (isTooLarge) {
            findings.Add(RuleId::kArchiveBomb, Location::Whole(),
                         "unpacks to " + std::to_string(m_unpackedBytes) +
                             " bytes; this panel takes at most " +
                             std::to_string(m_order.limits.unpackedBytes));
        }
        return isTooLarge;
    }

    // ---- the description ----

    /// @return whether it is as it must be
    bool CheckDescriptionOf(const archive::Package& package)
    {
        const std::uint64_t most = m_order.limits.descriptionBytes;
        Findings findings;
        std::optional<std::string> bytes = checks::DescriptionBytes(package, most, findings);
        if (bytes.has_value()) {
            m_descriptionBytes = bytes->size();
            CheckDescriptionBytes(*std::move(bytes), findings);
        }
        return !TellFaults(ExamKind::kDescription, findings);
    }

    void CheckDescriptionBytes(std::string bytes, Findings& findings) const
    {
        const std::uint64_t most = m_order.limits.descriptionBytes;
        const auto add = [&findings](RuleId rule, const std::string& what) {
            findings.Add(rule, Location::Entry(archive::kDescriptionName), what);
        };
        if (bytes.size() > most) {
            add(RuleId::kDescriptionSize,
                "has more than " + std::to_string(most) + " bytes, the most that this panel reads");
            return;
        }
        if (format::FilledObjects(bytes, format::kMostFilledObjects) ==
            format::kMostFilledObjects) {
            findings.AddAs(Severity::kError, RuleId::kListsNested,
                           Location::Entry(archive::kDescriptionName),
                           "takes too long to read: each list doubles what stands in it");
            return;
        }
        const format::Description description =
            checks::CheckDescription(std::move(bytes), findings);
        for (const char* const key : {"PackageVersion", "ModelName", "OsVersion"}) {
            if (description.root.has_value() &&
                description.root->TextOf(key).size() > kLongestFact) {
                add(RuleId::kDescriptionSize, std::string("its ") + key + " has more than " +
                                                  std::to_string(kLongestFact) + " bytes");
            }
        }
    }

    // ---- what is in it ----

    void Tell(const archive::ZipStructure& zip, const archive::Package& package)
    {
        const format::Summary summary = format::Summarize(package);
        TellFacts(zip, summary);
        TellUnpacked(package);
        for (const PackageEntry& entry : package.Entries()) {
            if (entry.kind == PackageEntry::Kind::kFile && entry.name != archive::kUpdaterName) {
                // Most files are none, and to unpack more of each is what takes the time.
                if (package.Read(entry.name, kProgramMark.size()) == kProgramMark) {
                    TellProgram(entry.name, package.Read(entry.name, kHeadOfProgram));
                }
            }
        }
        for (const format::FastSteps& fast : summary.fastFolders) {
            TellProgramsOf(package, fast);
        }
        if (!TellTargets(package, summary, m_messages)) {
            Findings endless;
            endless.AddAs(Severity::kError, RuleId::kEntryLink, Location::Whole(),
                          "its steps make too many files, or links multiply them");
            static_cast<void>(TellFaults(ExamKind::kDescription, endless));
        }
    }

    void TellFacts(const archive::ZipStructure& zip, const format::Summary& summary)
    {
        Send(ExamKind::kFacts, FieldsWriter()
                                   .Text(std::string_view(summary.title).substr(0, kLongestFact))
                                   .Text(summary.version)
                                   .Text(summary.model)
                                   .Text(summary.osVersion)
                                   .Number(zip.members.size())
                                   .Number(m_unpackedBytes)
                                   .Number(m_descriptionBytes));
    }

    /// Tells what the package takes where it is unpacked; every folder is a block of its own.
    void TellUnpacked(const archive::Package& package)
    {
        std::uint64_t blocks = 1; // the folder for all of it
        for (const PackageEntry& entry : package.Entries()) {
            const bool isFolder = entry.kind == PackageEntry::Kind::kFolder;
            blocks = SaturatedSum(blocks, isFolder ? 1 : BlocksOf(entry.size, m_order.block));
        }
        Send(ExamKind::kUnpacked,
             FieldsWriter().Number(blocks).Number(package.Entries().size() + 1));
    }

    /// Tells of a program or library what processor it is for, by its first bytes: these hold all
    /// that says so but the attributes of an arm program, which stand at its end.
    void TellProgram(const std::string& name, std::string head)
    {
        const std::optional<format::Program> program = format::ReadProgram(std::move(head));
        if (!program.has_value() || program->kind == format::Program::Kind::kOther) {
            return; // data to the panel: firmware, a piece of a program
        }
        const bool isLoaded =
            !program->loader.empty() || program->kind == format::Program::Kind::kLibrary;
        const format::FloatAbi abi = isLoaded ? program->floatAbi : format::FloatAbi::kUnknown;
        Send(ExamKind::kProgram, FieldsWriter()
                                     .Text(std::string_view(name).substr(0, kLongestFault))
                                     .Number(program->head.machine)
                                     .Number((program->head.is64Bit ? kExam64Bit : 0) |
                                             (program->head.isBigEndian ? kExamBigEndian : 0))
                                     .Number(static_cast<std::uint64_t>(abi)));
    }

    /// Tells of the programs in the archive of a fast folder. Its bytes come one after the other,
    /// so that of a trusted package's only so many are unpacked as take a small part of the time
    /// in which the package's digest is taken.
    void TellProgramsOf(const archive::Package& package, const format::FastSteps& fast)
    {
        constexpr std::uint64_t kLeast = std::uint64_t{1} << 20;
        constexpr std::uint64_t kPart = 64;
        const std::string name = fast.Place() + "/" + format::kFastArchiveName;
        const PackageEntry* const entry = package.Find(name);
        if (entry == nullptr || entry->kind != PackageEntry::Kind::kFile) {
            return;
        }
        TarHeads heads(kHeadOfProgram, [&](const std::string& file, const std::string& head) {
            TellProgram(name + ":" + file, head);
        });
        std::uint64_t left = m_order.isTrusted ? kLeast + m_source.Size() / kPart : UINT64_MAX;
        package.Stream(name, [&](std::string_view piece) {
            left = SaturatedDifference(left, piece.size());
            return heads.Add(piece) && left != 0;
        });
    }

    // ---- messages ----

    /// Tells the findings for which a panel refuses the package.
    /// @return whether there are any
    bool TellFaults(ExamKind kind, const Findings& findings)
    {
        std::uint64_t count = 0;
        for (const Finding& finding : findings.All()) {
            if (!IsRefused(finding)) {
                continue;
            }
            if (++count <= kMostFaults) {
                Send(kind, FieldsWriter()
                               .Number(static_cast<std::uint64_t>(finding.rule))
                               .Text(FaultText(finding)));
            }
        }
        // Of each rule a bounded number is kept.
        const std::uint64_t all = std::max<std::uint64_t>(count, findings.Count(Severity::kError));
        if (all > kMostFaults) {
            Send(ExamKind::kMore, FieldsWriter().Number(all - kMostFaults));
        }
        return count != 0;
    }

    void Send(ExamKind kind, const FieldsWriter& fields)
    {
        m_messages.Send(static_cast<std::uint8_t>(kind), fields.Bytes());
    }

    const archive::ByteSource& m_source;
    const ExamOrder& m_order;
    IMessages& m_messages;
    std::uint64_t m_unpackedBytes = 0; ///< of all entries, as told
    std::uint64_t m_descriptionBytes = 0;
};

} // namespace

void Examine(const archive::ByteSource& source, const ExamOrder& order, IMessages& messages)
{
    Examiner(source, order, messages).Run();
}

} // namespace kx::guard
