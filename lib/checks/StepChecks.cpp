// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "checks/StepChecks.h"

#include "archive/Links.h"
#include "checks/ClassChecks.h"
#include "checks/Commands.h"
#include "checks/PayloadChecks.h"
#include "checks/SettingChecks.h"
#include "checks/TargetChecks.h"
#include "checks/Targets.h"
#include "checks/UsedPayload.h"
#include "format/Classes.h"
#include "format/FastPackage.h"
#include "format/Kinds.h"
#include "format/ShellText.h"
#include "io/Nearest.h"
#include "io/Path.h"
#include "io/Text.h"
#include "osa/OSA.h"
#include "panel/Names.h"

#include <algorithm>
#include <map>
#include <optional>
#include <set>
#include <vector>

namespace kx::checks
{

namespace
{

std::vector<std::string> StepIds()
{
    std::vector<std::string> ids;
    for (const format::StepKind* const kind : format::StepKinds()) {
        ids.emplace_back(kind->id);
    }
    return ids;
}

/// One item of a copy step.
struct CopyItem {
    const format::JsonNode& node;
    std::string path;   ///< in the description, with a dot at its end
    std::string folder; ///< of its payload: "2/0"

    [[nodiscard]] const std::string& Text(const char* key) const { return node.TextOf(key); }

    [[nodiscard]] Location At(const char* key) const
    {
        const format::JsonNode* const member = node.Member(key);
        return LocationIn(member != nullptr ? *member : node, path + key);
    }
};

class StepCheck
{
public:
    StepCheck(const format::FastPackage& package, const std::string& recordName,
              const Expected& expected, Findings& findings)
        : m_package(package), m_unpacked(std::string(panel::kDriveFolder) + "/" + recordName +
                                         panel::kUnpackedSuffix + "/"),
          m_findings(findings), m_panel(expected.panel), m_payload(package, expected, findings),
          m_settings(expected.panel, m_payload, findings)
    {
    }

    void Check(const format::JsonNode& root)
    {
        const std::vector<const format::JsonNode*> steps = ElementsOf(root.Member("DB_StepSets"));
        if (steps.empty()) {
            m_findings.Add(RuleId::kStepEmpty, LocationIn(root, "DB_StepSets"),
                           "the package has no steps");
        }
        for (std::size_t i = 0; i < steps.size(); ++i) {
            const std::string path = "DB_StepSets.$values[" + std::to_string(i) + "]";
            if (const format::FastSteps* const fast = m_package.CopiedBy(i)) {
                CheckFastCopy(*fast, *steps[i], *steps[i + 1], path);
            } else {
                CheckStep(*steps[i], path, std::to_string(i));
            }
        }
        m_used.ReportUnused(m_package, m_findings);
        m_payload.Report();
        ReportPlaces();
        ReportStartup();
    }

private:
    static Severity FailureOf(const format::JsonNode& step)
    {
        const format::JsonNode* const skip = step.Member("CanSkip");
        return skip != nullptr && skip->flag ? Severity::kWarning : Severity::kError;
    }

    void CheckStep(const format::JsonNode& step, const std::string& path, const std::string& number)
    {
        m_failure = FailureOf(step);
        const format::JsonNode* const id = step.Member("SS_StepSetId");
        if (id == nullptr || !id->IsString()) {
            m_used.AddUnclearStep(number);
            return;
        }
        const format::StepKind* const kind = format::FindKind(
            format::StepKinds(), &format::StepKind::id, std::string_view(id->text.c_str()));
        if (kind == nullptr) {
            m_used.AddUnclearStep(number);
            m_findings.Add(RuleId::kStepKind, LocationIn(*id, path + ".SS_StepSetId"),
                           "'" + id->text + "' is not a known kind of step: " +
                               io::NearestRemedy(id->text, StepIds()));
            return;
        }
        if (format::ClassOf(step) != kind->info) {
            m_used.AddUnclearStep(number);
            m_findings.Add(RuleId::kStepClass, LocationIn(*id, path + ".SS_StepSetId"),
                           std::string("needs a '") + kind->info->type + "', not a '" +
                               step.TextOf("$type") + "'");
            return;
        }
        if (kind == &format::kScriptKind) {
            CheckScriptStep(step, path);
        } else if (kind == &format::kSettingsKind) {
            m_settings.CheckStep(step, path, m_failure);
        } else {
            CheckCopyStep(step, path, number, kind == &format::kCopyFilesKind);
        }
    }

    void CheckScriptStep(const format::JsonNode& step, const std::string& path)
    {
        const format::JsonNode* const data = step.Member("InstallScriptFunctionData");
        const format::JsonNode* const script =
            data != nullptr ? data->Member("ScriptData") : nullptr;
        if (script != nullptr && script->IsString()) {
            m_payload.AddScript(script->text, ScriptUse::kStep,
                                LocationIn(*script, path + ".InstallScriptFunctionData.ScriptData"),
                                m_failure);
        }
    }

    void CheckCopyStep(const format::JsonNode& step, const std::string& path,
                       const std::string& number, bool isFiles)
    {
        const std::vector<const format::JsonNode*> items = ElementsOf(step.Member("PathSetDatas"));
        if (items.empty()) {
            m_findings.Add(RuleId::kStepEmpty, LocationIn(step, path + ".PathSetDatas"),
                           "the step has no items");
        }
        for (std::size_t j = 0; j < items.size(); ++j) {
            const std::string index = std::to_string(j);
            CopyItem item = {*items[j], path, number};
            item.path.append(".PathSetDatas.$values[").append(index).append("].");
            item.folder.append("/").append(index);
            if (isFiles) {
                CheckFileItem(item);
            } else {
                CheckFolderItem(item);
            }
        }
    }

    // ---- copy file ----

    void CheckFileItem(const CopyItem& item)
    {
        const std::string name = OSA_GetFilenameExt(item.Text("SourcePath").c_str());
        const std::string& target = item.Text("DestinationPath");
        m_isSystemFolder = false;
        const std::string entry = item.folder + "/" + name;
        m_used.AddFile(entry);
        const archive::PackageEntry* const file = CheckPayloadFile(item, name, entry);
        CheckPermissions(item);
        if (const std::string changed = format::ChangedInDoubleQuotes(name); !changed.empty()) {
            m_findings.Add(RuleId::kSourceShell, item.At("SourcePath"), "contains " + changed);
        }
        const Location place = item.At("DestinationPath");
        CheckCommand("cp -f \"" + m_unpacked + entry + "\" \"" + target + "\" ", place, m_failure,
                     m_findings);
        if (!CheckTarget(target, false, place, m_failure, m_findings)) {
            return;
        }
        if (io::PlainPath(target) == "/") {
            m_findings.Add(RuleId::kTargetRoot, place, "is the root folder");
        } else {
            CheckFileTarget(item, target, name, file);
        }
    }

    /// @return the file that is copied, null when there is none
    const archive::PackageEntry* CheckPayloadFile(const CopyItem& item, const std::string& name,
                                                  const std::string& entry)
    {
        if (name.empty()) {
            m_findings.AddAs(m_failure, RuleId::kPayloadMissing, item.At("SourcePath"),
                             "does not name a file");
            return nullptr;
        }
        const archive::PackageEntry* found = m_package.Find(entry);
        if (found != nullptr && found->kind == archive::PackageEntry::Kind::kLink) {
            found = archive::FollowLink(m_package, *found).entry;
            if (found == nullptr) {
                m_findings.AddAs(m_failure, RuleId::kPayloadLink, Location::Entry(entry),
                                 "is a link that leads to nothing in the package");
                return nullptr;
            }
        }
        if (found != nullptr && found->kind == archive::PackageEntry::Kind::kFile) {
            return found;
        }
        const std::vector<std::string> others = FilesIn(item.folder);
        if (found != nullptr || others.empty()) {
            m_findings.AddAs(m_failure, RuleId::kPayloadMissing, item.At("SourcePath"),
                             found != nullptr ? "'" + entry + "' is not a file"
                                              : "there is no '" + entry + "' in the package");
            return nullptr;
        }
        const std::string nearest = io::Nearest(name, others);
        m_findings.AddAs(m_failure, RuleId::kPayloadName, item.At("SourcePath"),
                         "there is no '" + entry + "', but there is '" + item.folder + "/" +
                             (nearest.empty() ? others.front() : nearest) + "'");
        // They are what the item means, so they are not unused besides.
        m_used.AddFolder(item.folder);
        return nullptr;
    }

    /// The names of the files that lie in a folder of the package itself, not below.
    [[nodiscard]] std::vector<std::string> FilesIn(const std::string& folder) const
    {
        constexpr std::size_t kMost = 1000;
        std::vector<std::string> names;
        const std::string prefix = folder + "/";
        for (auto entry = FirstIn(prefix);
             entry != m_package.Entries().end() && names.size() < kMost &&
             entry->name.compare(0, prefix.size(), prefix) == 0;
             ++entry) {
            if (entry->kind != archive::PackageEntry::Kind::kFolder &&
                entry->name.find('/', prefix.size()) == std::string::npos) {
                names.push_back(entry->name.substr(prefix.size()));
            }
        }
        return names;
    }

    [[nodiscard]] std::vector<archive::PackageEntry>::const_iterator
    FirstIn(const std::string& prefix) const
    {
        const std::vector<archive::PackageEntry>& entries = m_package.Entries();
        return std::lower_bound(entries.begin(), entries.end(), prefix,
                                [](const archive::PackageEntry& entry, const std::string& name) {
                                    return entry.name < name;
                                });
    }

    void CheckPermissions(const CopyItem& item)
    {
        const std::string& mode = item.Text("Permissions");
        const Location place = item.At("Permissions");
        if (mode.empty()) {
            m_findings.Add(RuleId::kPermissionsOpen, place, "is empty");
        } else if (format::IsChmodQuestion(mode)) {
            m_findings.Add(RuleId::kPermissions, place,
                           "'" + mode + "' is a question to chmod: no mode is set");
        } else if (!format::IsMode(mode)) {
            m_findings.AddAs(m_failure, RuleId::kPermissions, place,
                             "'" + mode + "' is not a mode");
        } else if (mode.find_first_of("+-=") == 0 || mode.find(",+") != std::string::npos ||
                   mode.find(",-") != std::string::npos || mode.find(",=") != std::string::npos) {
            m_findings.Add(RuleId::kPermissionsMask, place, "does not say for whom");
        }
    }

    void CheckFileTarget(const CopyItem& item, const std::string& target, const std::string& name,
                         const archive::PackageEntry* payload)
    {
        const Location place = item.At("DestinationPath");
        std::string file = target;
        bool isFolder = target.back() == '/';
        if (isFolder) {
            file += name;
        }
        TargetState state = m_targets.AddFile(file);
        if (!isFolder && state == TargetState::kFolder) {
            isFolder = true;
            file = target + "/" + name;
            state = m_targets.AddFile(file);
        }
        if (isFolder) {
            // Without a mark at its end the target is the name of a file, which is not made.
            m_findings.AddAs(target.back() == '/' ? Severity::kWarning : Severity::kError,
                             RuleId::kTargetFolder, place, "'" + target + "' is a folder");
            CheckFolderMode(item, target);
        }
        ReportTarget(state, file, place);
        if (payload != nullptr) {
            Bring(*payload, io::PlainPath(file), MakesExecutable(item.Text("Permissions")), place);
        }
    }

    static bool MakesExecutable(const std::string& mode)
    {
        const bool isOctal = mode.find_first_not_of("01234567 \t") == std::string::npos;
        return isOctal ? mode.empty() || mode.find_first_of("1357") != std::string::npos
                       : mode.find_first_of("xX") != std::string::npos;
    }

    /// Notes a file that arrives on the panel, and judges where.
    /// @param payload  a file of the package
    /// @param target   plain full path
    void Bring(const archive::PackageEntry& payload, const std::string& target, bool isExecutable,
               const Location& place)
    {
        m_payload.AddFile(payload, target, isExecutable);
        m_brought.insert_or_assign(target, Brought{payload.size, place, m_failure});
        if (IsSystemFile(target) && !m_isSystemFolder) {
            m_findings.Add(RuleId::kTargetSystem, place, "'" + target + "' is the panel's own");
        }
        for (const std::string& folder : m_panel.protectedPlaces) {
            // Of a folder with many files one finding says it all.
            if (io::IsIn(target, folder) && m_protected.insert(place.path + folder).second) {
                std::string what = "'" + target;
                what.append("' is in '").append(folder).append("'");
                m_findings.Add(RuleId::kTargetProtected, place, what);
            }
        }
        if (target == panel::kStartupScript) {
            m_copiedStartup = place;
        }
    }

    /// Returns the place that a file fills: that with the longest path above it, or null.
    [[nodiscard]] const format::PanelPlace* PlaceOf(const std::string& target) const
    {
        const format::PanelPlace* nearest = nullptr;
        for (const format::PanelPlace& place : m_panel.places) {
            if (io::IsIn(target, place.path) &&
                (nearest == nullptr || place.path.size() > nearest->path.size())) {
                nearest = &place;
            }
        }
        return nearest;
    }

    void ReportPlaces()
    {
        std::map<const format::PanelPlace*, std::uint64_t> filled;
        std::map<const format::PanelPlace*, const Brought*> last;
        for (const auto& [target, file] : m_brought) {
            if (const format::PanelPlace* const place = PlaceOf(target)) {
                filled[place] += file.size;
                last[place] = &file;
            }
        }
        for (const auto& [place, bytes] : filled) {
            if (bytes > place->bytes) {
                m_findings.AddAs(last[place]->failure, RuleId::kTargetSpace, last[place]->place,
                                 "'" + place->path + "' gets " + io::SizeText(bytes) +
                                     ", and holds " + io::SizeText(place->bytes));
            }
        }
    }

    void ReportStartup()
    {
        if (m_copiedStartup.has_value() && m_settings.Startup().has_value()) {
            m_findings.Add(RuleId::kStartupTwice, *m_copiedStartup,
                           "a setting writes the start-up script, too");
        }
    }

    /// The folder gets the mode that was meant for the file.
    void CheckFolderMode(const CopyItem& item, const std::string& target)
    {
        const std::string& mode = item.Text("Permissions");
        const bool isOctal =
            format::IsMode(mode) && mode.find_first_not_of("01234567 \t") == std::string::npos;
        constexpr unsigned long kEnter = 0111;
        if (isOctal && (std::stoul(mode, nullptr, 8) & kEnter) != kEnter) {
            m_findings.Add(RuleId::kTargetFolderMode, item.At("Permissions"),
                           "'" + target + "' gets mode " + mode);
        }
    }

    void ReportTarget(TargetState state, const std::string& target, const Location& place)
    {
        if (state == TargetState::kBelowFile || state == TargetState::kFolder) {
            m_findings.AddAs(m_failure, RuleId::kTargetBelowFile, place,
                             "'" + target +
                                 "' or a folder above it is something else by that step");
        } else if (state == TargetState::kTwice) {
            m_findings.Add(RuleId::kTargetTwice, place, "'" + target + "' is written twice");
        }
    }

    // ---- copy folder ----

    void CheckFolderItem(const CopyItem& item)
    {
        m_isFast = false;
        CheckFolder(item, item.Text("DestinationPath"));
    }

    /// Checks the step that copies the archive of a fast folder, as one that copies its files.
    /// @param script  the step that unpacks it, whose failure is that of both
    void CheckFastCopy(const format::FastSteps& fast, const format::JsonNode& copy,
                       const format::JsonNode& script, const std::string& path)
    {
        const CopyItem item = {*ElementsOf(copy.Member("PathSetDatas")).front(),
                               path + ".PathSetDatas.$values[0].", fast.Place()};
        const std::string& archive = fast.folder.archive;
        const Location place = item.At("DestinationPath");
        m_failure = FailureOf(script);
        m_isFast = true;
        CheckCommand("cp -f \"" + m_unpacked + item.folder + "/" + format::kFastArchiveName +
                         "\" \"" + archive + "\" ",
                     place, m_failure, m_findings);
        if (CheckTarget(archive, false, place, m_failure, m_findings)) {
            const TargetState state = m_targets.AddFile(archive);
            if (state != TargetState::kTwice) { // the archives of two folders may take turns
                ReportTarget(state, archive, place);
            }
            m_brought.insert_or_assign(io::PlainPath(archive),
                                       Brought{fast.folder.size, place, m_failure});
        }
        CheckFolder(item, fast.folder.target);
    }

    void CheckFolder(const CopyItem& item, const std::string& target)
    {
        m_used.AddFolder(item.folder);
        const Location place = item.At("DestinationPath");
        const bool isUsable = CheckTarget(target, true, place, m_failure, m_findings);
        if (isUsable && io::PlainPath(target) == "/") {
            m_findings.Add(RuleId::kTargetWhole, place, "is the root folder");
        }
        m_isSystemFolder = isUsable && IsSystemFolder(io::PlainPath(target));
        if (m_isSystemFolder) {
            m_findings.Add(RuleId::kTargetSystem, place,
                           "a folder is copied over the panel's own '" + io::PlainPath(target) +
                               "'");
        }
        const archive::PackageEntry* found = m_package.Find(item.folder);
        if (found != nullptr && found->kind == archive::PackageEntry::Kind::kLink) {
            found = archive::FollowLink(m_package, *found).entry;
        }
        if (found == nullptr || found->kind != archive::PackageEntry::Kind::kFolder) {
            m_findings.Add(RuleId::kPayloadFolder, item.At("SourcePath"),
                           "there is no folder '" + item.folder + "' in the package");
            return;
        }
        if (isUsable && !m_targets.AddFolder(target)) {
            ReportTarget(TargetState::kBelowFile, target, place);
            return;
        }
        const std::string prefix = item.folder + "/";
        std::size_t count = 0;
        for (auto entry = FirstIn(prefix); entry != m_package.Entries().end() &&
                                           entry->name.compare(0, prefix.size(), prefix) == 0;
             ++entry) {
            ++count;
            CheckFolderEntry(
                *entry, isUsable ? target + "/" + entry->name.substr(prefix.size()) : "", place);
        }
        if (count == 0) {
            m_findings.Add(RuleId::kPayloadEmpty, item.At("SourcePath"),
                           "the folder '" + item.folder + "' is empty");
        }
    }

    void CheckFolderEntry(const archive::PackageEntry& entry, const std::string& target,
                          const Location& place)
    {
        if (const std::string changed = format::ChangedInDoubleQuotes(entry.name);
            !changed.empty()) {
            m_findings.Add(RuleId::kSourceShell, Location::Entry(entry.name),
                           "contains " + changed);
        }
        if (entry.kind == archive::PackageEntry::Kind::kFolder) {
            if (!target.empty() && !m_targets.AddFolder(target)) {
                ReportTarget(TargetState::kBelowFile, io::PlainPath(target), place);
            }
            return;
        }
        const archive::PackageEntry* end = &entry;
        if (entry.kind == archive::PackageEntry::Kind::kLink) {
            end = archive::FollowLink(m_package, entry).entry;
            if (end == nullptr || io::IsIn(entry.name, end->name)) {
                m_findings.AddAs(m_failure, RuleId::kPayloadLink, Location::Entry(entry.name),
                                 end == nullptr ? "is a link that leads to nothing in the package"
                                                : "is a link to a folder that it lies in");
                return;
            }
        }
        if (!m_isFast) {
            CheckCommand("cp -f \"" + m_unpacked + entry.name + "\" \"" + target + "\" ",
                         Location::Entry(entry.name), m_failure, m_findings);
        }
        if (!target.empty()) {
            ReportTarget(m_targets.AddFile(target), io::PlainPath(target), place);
            if (end->kind == archive::PackageEntry::Kind::kFile) {
                constexpr unsigned kExecute = 0111;
                Bring(*end, io::PlainPath(target), (end->mode & kExecute) != 0, place);
            }
        }
    }

    /// A file that arrives on the panel.
    struct Brought {
        std::uint64_t size;
        Location place;
        Severity failure; ///< of the step
    };

    const format::FastPackage& m_package;
    std::string m_unpacked; ///< where the package lies when its commands run, as a rule
    Findings& m_findings;
    Severity m_failure = Severity::kError; ///< of what makes the present step fail
    Targets m_targets;
    UsedPayload m_used;
    const format::PanelModel& m_panel;
    PayloadCheck m_payload;
    SettingsCheck m_settings;
    std::map<std::string, Brought> m_brought; ///< by their plain full paths
    std::set<std::string> m_protected;        ///< items and places that were told
    std::optional<Location> m_copiedStartup;
    bool m_isFast = false;         ///< the present item's files travel in one archive
    bool m_isSystemFolder = false; ///< the present item's target was told as a whole
};

} // namespace

void CheckSteps(const format::JsonNode& root, const archive::Package& package,
                const std::string& recordName, const Expected& expected, Findings& findings)
{
    const format::FastPackage shown(package, format::FastStepsOf(root));
    StepCheck(shown, recordName, expected, findings).Check(root);
}

} // namespace kx::checks
