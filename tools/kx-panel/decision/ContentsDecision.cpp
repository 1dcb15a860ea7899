// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "decision/ContentsDecision.h"

#include "checks/DescriptionChecks.h"
#include "confined/Unread.h"
#include "decision/Room.h"
#include "decision/VersionOrder.h"
#include "io/Path.h"
#include "io/Text.h"
#include "panel/Names.h"
#include "reading/Amounts.h"
#include "reading/Examination.h"
#include "reading/Fields.h"

#include <algorithm>
#include <string>
#include <string_view>
#include <utility>

namespace kx::guard
{

namespace
{

[[noreturn]] void RefuseMessage(const char* what)
{
    throw Unread(std::string("what reads the package ") + what);
}

/// Returns the words of a list for people: "'A' or 'B'".
std::string ListText(const std::optional<std::vector<std::string>>& words)
{
    std::string text;
    for (const std::string& word : words.value_or(std::vector<std::string>())) {
        text += (text.empty() ? "'" : " or '") + io::Printable(word) + "'";
    }
    return text.empty() ? "of none" : text;
}

/// Takes what the examination tells, and trusts nothing in it.
class ContentsTaker
{
public:
    ContentsTaker(const Panel& panel, Decision& decision)
        : m_panel(panel), m_decision(decision), m_room(panel.fileSystems),
          m_record(std::string(panel::kRegistry) + "/" + decision.facts.name)
    {
    }

    void Take(const Message& message)
    {
        if (m_isDone) {
            RefuseMessage("went on behind its end");
        }
        FieldsReader fields(message.bytes);
        TakeFields(static_cast<ExamKind>(message.kind), fields);
        fields.End();
    }

    /// Judges what was told when all was.
    /// @param packageBytes  of the copy for which room is needed, too
    void Judge(std::optional<std::uint64_t> packageBytes)
    {
        if (!m_isDone) {
            RefuseMessage("ended before it had told all");
        }
        const bool isFaulty = m_counts.structure != 0 || m_counts.description != 0;
        if (isFaulty) {
            return;
        }
        if (!m_hasFacts || !m_hasUnpacked) {
            RefuseMessage("did not tell what the package is");
        }
        JudgeVersion();
        AddState(packageBytes);
        AddRecord();
        for (Reason& reason : m_room.Reasons()) {
            m_decision.reasons.push_back(std::move(reason));
        }
    }

private:
    void TakeFields(ExamKind kind, FieldsReader& fields)
    {
        switch (kind) {
        case ExamKind::kStructure:
            return TakeFault(ReasonId::kStructure, m_counts.structure, fields);
        case ExamKind::kDescription:
            return TakeFault(ReasonId::kDescription, m_counts.description, fields);
        case ExamKind::kMore:
            return TakeMore(fields);
        case ExamKind::kFacts:
            return TakeFacts(fields);
        case ExamKind::kUnpacked:
            return TakeUnpacked(fields);
        case ExamKind::kProgram:
            return TakeProgram(fields);
        case ExamKind::kFolder:
        case ExamKind::kFile:
        case ExamKind::kFastFile:
        case ExamKind::kFast:
            return TakeTarget(kind, fields);
        case ExamKind::kDone:
            m_isDone = true;
            return;
        }
        RefuseMessage("sent a message of no known kind");
    }

    // ---- faults ----

    void TakeFault(ReasonId id, std::size_t& count, FieldsReader& fields)
    {
        const auto rule = fields.Number(static_cast<std::uint64_t>(checks::RuleId::kEnd) - 1);
        const std::string_view text = fields.Text(kLongestFault);
        if (++count > kMostFaults) {
            RefuseMessage("told too many faults");
        }
        m_lastFault = id;
        m_decision.reasons.push_back(
            {id, {checks::RuleOf(static_cast<checks::RuleId>(rule)).id, io::Printable(text)}});
    }

    void TakeMore(FieldsReader& fields)
    {
        const std::uint64_t count = fields.Number();
        if (!m_lastFault.has_value()) {
            RefuseMessage("told more faults of none");
        }
        m_decision.reasons.push_back(
            {*m_lastFault, {"more", "there are " + std::to_string(count) + " more faults"}});
        m_lastFault.reset();
    }

    // ---- what the package is, and is for ----

    void TakeFacts(FieldsReader& fields)
    {
        if (std::exchange(m_hasFacts, true)) {
            RefuseMessage("told twice what the package is");
        }
        PackageFacts& facts = m_decision.facts;
        facts.title = io::Printable(fields.Text(kLongestFact));
        m_version = fields.Text(kLongestFact);
        const std::string model(fields.Text(kLongestFact));
        const std::string osVersion(fields.Text(kLongestFact));
        facts.version = io::Printable(m_version);
        facts.model = io::Printable(model);
        facts.osVersion = io::Printable(osVersion);
        facts.entries = fields.Number(m_panel.policy.limits.entries);
        facts.unpackedBytes = fields.Number(m_panel.policy.limits.unpackedBytes);
        m_descriptionBytes = fields.Number(m_panel.policy.limits.descriptionBytes);
        JudgeIdentity("ModelName", model, m_panel.policy.model.models, ReasonId::kModel);
        JudgeIdentity("OsVersion", osVersion, m_panel.policy.model.osVersions,
                      ReasonId::kOsVersion);
    }

    /// Compares as the authors' check does.
    void JudgeIdentity(const char* key, const std::string& value,
                       const std::optional<std::vector<std::string>>& panel, ReasonId id)
    {
        format::JsonNode text;
        text.kind = format::JsonNode::Kind::kString;
        text.text = value;
        format::JsonNode root;
        root.kind = format::JsonNode::Kind::kObject;
        root.members.emplace_back(key, std::move(text));
        checks::Findings findings;
        checks::CheckIdentityFor(root, m_panel.policy.model, findings);
        if (findings.Has(checks::RuleId::kIdentityPanel)) {
            m_decision.reasons.push_back({id, {io::Printable(value), ListText(panel)}});
        }
    }

    void TakeProgram(FieldsReader& fields)
    {
        const std::string_view name = fields.Text(kLongestFault);
        format::ProgramHead head;
        head.machine = static_cast<unsigned>(fields.Number(UINT16_MAX));
        const std::uint64_t bits = fields.Number(kExam64Bit | kExamBigEndian);
        head.is64Bit = (bits & kExam64Bit) != 0;
        head.isBigEndian = (bits & kExamBigEndian) != 0;
        const auto abi = static_cast<format::FloatAbi>(
            fields.Number(static_cast<std::uint64_t>(format::FloatAbi::kSoft)));
        if (++m_counts.programs > m_panel.policy.limits.entries) {
            RefuseMessage("told too many programs");
        }
        JudgeProgram(name, head, abi);
    }

    void JudgeProgram(std::string_view name, const format::ProgramHead& head, format::FloatAbi abi)
    {
        const format::PanelModel& model = m_panel.policy.model;
        if (model.processor == nullptr) {
            return;
        }
        const std::string processor = head.ProcessorName();
        const bool isFor = head.IsFor(*model.processor);
        const bool isOtherAbi = isFor && abi != format::FloatAbi::kUnknown &&
                                model.floatAbi != format::FloatAbi::kUnknown &&
                                abi != model.floatAbi;
        const bool isFine = isFor || format::IsSmallerBrother(processor, *model.processor);
        // Many would say the same.
        if ((isFine && !isOtherAbi) || ++m_counts.wrongPrograms > kMostFaults) {
            return;
        }
        const auto shown = [isOtherAbi](std::string text, format::FloatAbi kind) {
            return isOtherAbi ? text.append(" (").append(FloatAbiName(kind)).append(")") : text;
        };
        m_decision.reasons.push_back({ReasonId::kProcessor,
                                      {io::Printable(name), shown(processor, abi),
                                       shown(model.processor->name, model.floatAbi)}});
    }

    void JudgeVersion()
    {
        if (m_panel.policy.downgrade == DowngradeRule::kAllow) {
            return;
        }
        const auto unclear = [this](const std::string& version) {
            m_decision.reasons.push_back({ReasonId::kVersionUnclear, {io::Printable(version)}});
        };
        const std::optional<std::string> highest = m_panel.highestVersion(m_decision.facts.name);
        if (!IsVersion(m_version)) {
            unclear(m_version);
        } else if (highest.has_value() && !IsVersion(*highest)) {
            unclear(*highest);
        } else if (highest.has_value() && CompareVersions(m_version, *highest) < 0) {
            m_decision.reasons.push_back({ReasonId::kVersionOlder, {m_version, *highest}});
        }
    }

    // ---- room ----

    void TakeUnpacked(FieldsReader& fields)
    {
        if (std::exchange(m_hasUnpacked, true)) {
            RefuseMessage("told twice what the package unpacks to");
        }
        const std::uint64_t blocks = fields.Number();
        const std::uint64_t inodes = fields.Number();
        m_room.AddBlocks(m_panel.policy.state, blocks, inodes);
    }

    void TakeTarget(ExamKind kind, FieldsReader& fields)
    {
        if (++m_counts.targets > kMostTargets) {
            RefuseMessage("told too many files");
        }
        const std::string path = PathOf(fields);
        m_listBytes = SaturatedSum(m_listBytes, path.size() + 2); // a mark, and the line's end
        if (kind == ExamKind::kFolder) {
            m_room.AddFolder(path);
        } else if (kind == ExamKind::kFastFile) {
            m_room.AddStanding(path);
        } else if (kind == ExamKind::kFast) {
            const std::uint64_t kib = fields.Number();
            m_room.AddFiles(path, kib, fields.Number());
        } else {
            TakeFile(path, fields);
        }
    }

    void TakeFile(const std::string& path, FieldsReader& fields)
    {
        const bool isFolder = fields.Number(1) == 1;
        const std::string name(fields.Text(kLongestPath));
        const std::uint64_t bytes = fields.Number();
        if (name.find('/') != std::string::npos || name == "." || name == "..") {
            RefuseMessage("told a name that is none");
        }
        // A file that is copied to a folder gets there under its own name.
        const bool isInto = !name.empty() && (isFolder || m_room.IsFolder(path));
        m_listBytes = SaturatedSum(m_listBytes, name.size());
        m_room.AddFile(isInto ? (path == "/" ? "" : path) + "/" + name : path, bytes);
    }

    /// Takes a path: full, plain, and no longer than one can be.
    static std::string PathOf(FieldsReader& fields)
    {
        std::string path(fields.Text(kLongestPath));
        if (path.empty() || path.front() != '/' || path.find('\0') != std::string::npos ||
            io::PlainPath(path) != path) {
            RefuseMessage("told a path that is not plain");
        }
        return path;
    }

    /// Adds what the panel keeps itself: the package's copy, and the history.
    void AddState(std::optional<std::uint64_t> packageBytes)
    {
        const Policy& policy = m_panel.policy;
        const FileSystem system = m_panel.fileSystems.Of(policy.state);
        if (packageBytes.has_value()) {
            m_room.AddBlocks(policy.state, BlocksOf(*packageBytes, system.blockSize), 1);
        }
        m_room.AddBlocks(policy.state, BlocksOf(policy.limits.historyBytes, system.blockSize), 1);
    }

    /// Adds the record: the description's copy, and a list with a line for each file and folder.
    void AddRecord()
    {
        const std::string description = m_record + "/" + panel::kDescription;
        const std::string list = m_record + "/" + panel::kInstalledList;
        constexpr std::string_view kHeadings = " #dir\n #file\n";
        const std::size_t own = kHeadings.size() + m_record.size() + description.size() +
                                list.size() + 3; // ends of lines
        m_room.AddFile(description, m_descriptionBytes);
        m_room.AddFile(list, SaturatedSum(m_listBytes, own));
    }

    /// How many there were of what is bounded.
    struct Counts {
        std::size_t structure = 0;
        std::size_t description = 0;
        std::uint64_t programs = 0;
        std::size_t wrongPrograms = 0;
        std::uint64_t targets = 0;
    };

    const Panel& m_panel;
    Decision& m_decision;
    Room m_room;
    std::string m_record; ///< folder of the record
    std::string m_version;
    std::uint64_t m_descriptionBytes = 0;
    std::uint64_t m_listBytes = 0;
    Counts m_counts;
    std::optional<ReasonId> m_lastFault;
    bool m_hasFacts = false;
    bool m_hasUnpacked = false;
    bool m_isDone = false;
};

} // namespace

void DecideContents(const Panel& panel, IConfinement& confinement,
                    const archive::ByteSource& source, int descriptor, Place place,
                    Decision& decision)
{
    const FileSystem state = panel.fileSystems.Of(panel.policy.state);
    const ExamOrder order{panel.policy.limits, !decision.facts.signer.empty(), state.blockSize};
    const std::size_t before = decision.reasons.size();
    ContentsTaker taker(panel, decision);
    confinement.Run(
        descriptor, [&source, &order](IMessages& messages) { Examine(source, order, messages); },
        [&taker](const Message& message) { taker.Take(message); });
    taker.Judge(place == Place::kElsewhere ? std::optional(source.Size()) : std::nullopt);
    std::stable_sort(decision.reasons.begin() + static_cast<std::ptrdiff_t>(before),
                     decision.reasons.end(), [](const Reason& one, const Reason& other) {
                         return static_cast<int>(one.id) < static_cast<int>(other.id);
                     });
}

} // namespace kx::guard
