// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "format/Summary.h"

#include "archive/Links.h"
#include "format/Description.h"
#include "format/Kinds.h"
#include "io/Error.h"
#include "model/DB_Fields.h"
#include "osa/OSA.h"

#include <algorithm>

namespace kx::format
{

namespace
{

bool FlagOf(const JsonNode& node, const char* key)
{
    const JsonNode* const member = node.Member(key);
    return member != nullptr && member->flag;
}

/// Returns an object that stands in an object; one without members when there is none.
const JsonNode& ChildOf(const JsonNode& node, const char* key)
{
    static const JsonNode kNone;
    const JsonNode* const member = node.Member(key);
    return member != nullptr ? *member : kNone;
}

const std::vector<JsonNode>& ElementsOf(const JsonNode& node, const char* key)
{
    return ChildOf(ChildOf(node, key), kValuesKey).elements;
}

/// Returns everything below a folder of the package.
std::vector<const archive::PackageEntry*> EntriesBelow(const archive::Package& package,
                                                       const std::string& prefix)
{
    const std::vector<archive::PackageEntry>& entries = package.Entries();
    auto place = std::lower_bound(entries.begin(), entries.end(), prefix,
                                  [](const archive::PackageEntry& entry,
                                     const std::string& wanted) { return entry.name < wanted; });
    std::vector<const archive::PackageEntry*> below;
    for (; place != entries.end() && place->name.compare(0, prefix.size(), prefix) == 0; ++place) {
        below.push_back(&*place);
    }
    return below;
}

class Summarizer
{
public:
    Summarizer(const archive::Package& package, Secrets secrets)
        : m_package(package), m_secrets(secrets)
    {
    }

    Summary Run(const JsonNode& root)
    {
        m_summary.recordName = RecordName(m_package.Path());
        m_summary.title = root.TextOf("Title");
        m_summary.version = root.TextOf("PackageVersion");
        m_summary.comment = root.TextOf("Comment");
        m_summary.model = root.TextOf("ModelName");
        m_summary.osVersion = root.TextOf("OsVersion");
        m_summary.date = root.TextOf("Date");
        LookAtUpdater();
        for (const JsonNode& step : ElementsOf(root, "DB_StepSets")) {
            AddStep(step);
        }
        m_summary.fastFolders = FastStepsOf(root);
        return std::move(m_summary);
    }

private:
    void LookAtUpdater()
    {
        const archive::PackageEntry* entry = m_package.Find(archive::kUpdaterName);
        if (entry != nullptr && entry->kind == archive::PackageEntry::Kind::kLink) {
            entry = archive::FollowLink(m_package, *entry).entry;
        }
        if (entry == nullptr || entry->kind != archive::PackageEntry::Kind::kFile) {
            return;
        }
        constexpr unsigned kOwnerExecutes = 0100;
        m_summary.updater = {entry->size, (entry->mode & kOwnerExecutes) != 0,
                             ReadProgramHead(m_package.Read(entry->name, kProgramHeadSize))};
    }

    void AddStep(const JsonNode& node)
    {
        SummaryStep step;
        step.id = node.TextOf("SS_StepSetId");
        step.comment = node.TextOf("Comment");
        step.canSkip = FlagOf(node, "CanSkip");
        const StepKind* const kind = FindKind(StepKinds(), &StepKind::id, step.id);
        if (kind != nullptr) {
            step.kind = kind->name;
        }
        if (kind == &kCopyFilesKind || kind == &kCopyFolderKind) {
            step.isRecorded = FlagOf(node, "IsRemove");
            AddItems(ElementsOf(node, "PathSetDatas"), *kind, step);
        } else if (kind == &kScriptKind) {
            step.install = ChildOf(node, "InstallScriptFunctionData").TextOf("ScriptData");
            step.uninstall = ChildOf(node, "UninstallScriptFunctionData").TextOf("ScriptData");
        } else if (kind == &kSettingsKind) {
            const JsonNode& data = ChildOf(node, "HardSettingDatas");
            for (const JsonNode& config : ElementsOf(data, "DB_HardwareConfigs")) {
                step.settings.push_back(SettingOf(config));
            }
        }
        m_summary.steps.push_back(std::move(step));
    }

    void AddItems(const std::vector<JsonNode>& nodes, const StepKind& kind, SummaryStep& step)
    {
        for (std::size_t i = 0; i < nodes.size(); ++i) {
            SummaryItem item;
            item.source = nodes[i].TextOf("SourcePath");
            item.target = nodes[i].TextOf("DestinationPath");
            const std::string prefix =
                std::to_string(m_summary.steps.size()) + "/" + std::to_string(i) + "/";
            if (&kind == &kCopyFilesKind) {
                item.mode = nodes[i].TextOf("Permissions");
                AddFile(prefix + OSA_GetFilenameExt(item.source.c_str()), item);
            } else {
                AddFolder(prefix, item);
            }
            m_summary.files += item.files;
            m_summary.size += item.size;
            step.items.push_back(std::move(item));
        }
    }

    void AddFile(const std::string& name, SummaryItem& item)
    {
        const archive::PackageEntry* const entry = m_package.Find(name);
        item.isMissing = entry == nullptr || entry->kind == archive::PackageEntry::Kind::kFolder;
        if (!item.isMissing) {
            item.files = 1;
            item.size = entry->size;
        }
    }

    void AddFolder(const std::string& prefix, SummaryItem& item)
    {
        item.isMissing = m_package.Find(prefix.substr(0, prefix.size() - 1)) == nullptr;
        for (const archive::PackageEntry* const entry : EntriesBelow(m_package, prefix)) {
            if (entry->kind != archive::PackageEntry::Kind::kFolder) {
                ++item.files;
                item.size += entry->size;
            }
        }
    }

    [[nodiscard]] SummarySetting SettingOf(const JsonNode& node) const
    {
        SummarySetting setting;
        setting.id = node.TextOf("ConfigId");
        setting.isUsed = FlagOf(node, "IsUsed");
        const SettingKind* const kind = FindKind(SettingKinds(), &SettingKind::id, setting.id);
        if (kind != nullptr) {
            setting.kind = kind->name;
        }
        for (const JsonNode& item : ElementsOf(node, "HardwareItems")) {
            const std::string& name = item.TextOf("ItemName");
            const bool isMasked = m_secrets == Secrets::kMask && IsSecret(name);
            setting.items.emplace_back(name, isMasked ? kMasked : item.TextOf("Value"));
        }
        return setting;
    }

    const archive::Package& m_package;
    Secrets m_secrets;
    Summary m_summary;
};

} // namespace

Summary Summarize(const archive::Package& package, Secrets secrets)
{
    const Description description = ReadDescription(package);
    const auto where = [&package](const TextPosition& at) {
        return package.Path() + ":" + archive::kDescriptionName + ":" + std::to_string(at.line) +
               ":" + std::to_string(at.column);
    };
    if (!description.root.has_value()) {
        throw io::Error(
            io::ExitCode::kProblems, where(description.error.position), description.error.what,
            description.HasByteOrderMark() ? ""
                                           : "the description must begin with a UTF-8 byte "
                                             "order mark");
    }
    if (!description.root->IsObject()) {
        throw io::Error(io::ExitCode::kProblems, where(description.root->position),
                        std::string("is ") + description.root->KindName() + ", not an object",
                        "begin with { and the \"$type\" of the project");
    }
    return Summarizer(package, secrets).Run(*description.root);
}

} // namespace kx::format
