// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "compare/PackageContents.h"

#include "compose/DescriptionWriter.h"
#include "compose/ObjectReader.h"
#include "format/Description.h"
#include "format/Kinds.h"
#include "io/Error.h"
#include "io/Path.h"
#include "model/DB_FunctionDatas.h"
#include "model/DB_Hardware.h"
#include "model/DB_StepSets.h"
#include "osa/OSA.h"
#include "panel/Names.h"
#include "unpack/Payload.h"

#include <algorithm>
#include <array>
#include <cstdio>

namespace kx::tool
{

namespace
{

using archive::PackageEntry;

/// Calls @p visit for each element of a list that is of the class.
template <class Element, class List, class Visit>
void ForEach(IPicoJ* list, Visit visit)
{
    const auto* const all = ObjectAs<List>(list);
    for (int i = 0; all != nullptr && i < all->count; ++i) {
        if (auto* const element = ObjectAs<Element>(all->ElementAt(i))) {
            visit(*element, static_cast<std::size_t>(i));
        }
    }
}

/// Adds a fact; the second of a name gets a number.
void AddFact(const std::string& name, std::string value, std::vector<Fact>& facts,
             bool isSecret = false)
{
    std::string numbered = name;
    for (unsigned number = 2;
         std::any_of(facts.begin(), facts.end(),
                     [&numbered](const Fact& fact) { return fact.name == numbered; });
         ++number) {
        numbered = name + " (" + std::to_string(number) + ")";
    }
    facts.push_back({std::move(numbered), std::move(value), isSecret});
}

/// Adds a fact where it is not what a manifest says by saying nothing.
void AddFactIf(bool isSaid, const char* name, std::string value, std::vector<Fact>& facts)
{
    if (isSaid) {
        AddFact(name, std::move(value), facts);
    }
}

/// What is read up to a zero byte.
std::string Read(const std::string& text)
{
    return text.substr(0, text.find('\0'));
}

std::string Octal(unsigned mode)
{
    std::array<char, 8> text{};
    static_cast<void>(std::snprintf(text.data(), text.size(), "%03o", mode & 0777U));
    return text.data();
}

class Contents
{
public:
    explicit Contents(const format::FastPackage& package) : m_package(package), m_payload(package)
    {
    }

    PackageContents Run()
    {
        const format::Description description = format::ReadDescription(m_package);
        const std::string place = m_package.Path() + ":" + archive::kDescriptionName;
        if (!description.root.has_value()) {
            throw io::Error(io::ExitCode::kProblems, place, description.error.what,
                            "kx-package check tells more");
        }
        FillRoot(*description.root, place, m_model);
        m_payload.Take(archive::kDescriptionName);
        m_payload.Take(archive::kUpdaterName);
        AddIdentity();
        const auto* const steps = ObjectAs<DB_StepSets>(m_model.root.DB_StepSets);
        for (int i = 0; steps != nullptr && i < steps->count; ++i) {
            const auto index = static_cast<std::size_t>(i);
            if (const format::FastSteps* const fast = m_package.CopiedBy(index)) {
                AddFast(*fast, *steps->ElementAt(++i));
            } else {
                AddStep(*steps->ElementAt(i), index);
            }
        }
        AddUnused();
        return std::move(m_contents);
    }

private:
    void AddIdentity()
    {
        const DB_KxUserProject& root = m_model.root;
        m_contents.identity = {{"record", format::RecordName(m_package.Path())},
                               {"title", Read(root.Title)},
                               {"version", Read(root.PackageVersion)},
                               {"comment", Read(root.Comment)},
                               {"model", Read(root.ModelName)},
                               {"os-version", Read(root.OsVersion)},
                               {"date", Read(root.Date)}};
        m_contents.updater = m_payload.FileAt(archive::kUpdaterName);
    }

    /// Adds the two steps that bring a fast folder as one that copies a folder.
    /// @param script  the second one
    void AddFast(const format::FastSteps& fast, IPicoJ& script)
    {
        const format::FastFolder& folder = fast.folder;
        const auto* const base = ObjectAs<DB_StepSet>(&script);
        StepFacts step;
        step.number = fast.copy + 1;
        step.kind = format::kCopyFolderKind.name;
        if (base != nullptr) {
            AddCommonFacts(*base, step);
        }
        AddFactIf(!folder.isRecorded, "record", "false", step.facts);
        AddFact("fast", "archive " + folder.archive, step.facts);
        AddFact(folder.target, "from " + fast.origin, step.facts);
        AddFolder(folder.target, fast.Place(), folder.isRecorded);
        m_contents.steps.push_back(std::move(step));
    }

    static void AddCommonFacts(const DB_StepSet& base, StepFacts& step)
    {
        AddFactIf(!Read(base.Comment).empty(), "comment", Read(base.Comment), step.facts);
        AddFactIf(base.CanSkip, "skip", "true", step.facts);
    }

    void AddStep(IPicoJ& object, std::size_t index)
    {
        StepFacts step;
        step.number = index + 1;
        const auto* const base = ObjectAs<DB_StepSet>(&object);
        const format::StepKind* const kind =
            base == nullptr ? nullptr
                            : format::FindKind(format::StepKinds(), &format::StepKind::id,
                                               Read(base->SS_StepSetId));
        if (base != nullptr) {
            AddCommonFacts(*base, step);
        }
        const bool isKnown = kind != nullptr && AddKnown(*kind, &object, index, step);
        step.kind = kind != nullptr ? kind->name : "unknown";
        if (!isKnown) {
            AddFact("description", WriteObject(object), step.facts, true); // of whatever there is
        }
        m_contents.steps.push_back(std::move(step));
    }

    /// @return false where the step's object is not one of its kind
    bool AddKnown(const format::StepKind& kind, IPicoJ* object, std::size_t index, StepFacts& step)
    {
        if (auto* const copy = ObjectAs<DB_CopyStepSet>(object)) {
            AddFactIf(!copy->IsRemove, "record", "false", step.facts);
            ForEach<DB_CopyFunctionData, DB_CopyFunctionDatas>(
                copy->PathSetDatas, [&](const DB_CopyFunctionData& item, std::size_t number) {
                    AddItem(kind, item, std::to_string(index) + "/" + std::to_string(number),
                            copy->IsRemove, step);
                });
            return &kind == &format::kCopyFilesKind || &kind == &format::kCopyFolderKind;
        }
        if (auto* const script = ObjectAs<DB_ScriptStepSet>(object)) {
            AddScript("install", script->InstallScriptFunctionData, step);
            AddScript("uninstall", script->UninstallScriptFunctionData, step);
            return &kind == &format::kScriptKind;
        }
        auto* const settings = ObjectAs<DB_HardSettingStepSet>(object);
        auto* const data = settings == nullptr
                               ? nullptr
                               : ObjectAs<DB_HardSettingFunctionData>(settings->HardSettingDatas);
        if (data == nullptr) {
            return false;
        }
        ForEach<DB_HardwareConfig, DB_HardwareConfigs>(
            data->DB_HardwareConfigs, [&](const DB_HardwareConfig& config, std::size_t /*number*/) {
                AddSetting(config, step);
            });
        return &kind == &format::kSettingsKind;
    }

    void AddItem(const format::StepKind& kind, const DB_CopyFunctionData& item,
                 const std::string& folder, bool isRecorded, StepFacts& step)
    {
        const std::string target = Read(item.DestinationPath);
        const std::string mode = item.Permissions.empty() ? "777" : Read(item.Permissions);
        const std::string source = Read(item.SourcePath);
        if (&kind == &format::kCopyFolderKind) {
            AddFact(target, "from " + source, step.facts);
            AddFolder(target, folder, isRecorded);
            return;
        }
        AddFact(target, "from " + source + ", mode " + mode, step.facts);
        const std::string name = OSA_GetFilenameExt(source.c_str());
        const PackageEntry* const entry = m_payload.FileAt(folder + "/" + name);
        m_payload.Take(folder + "/" + name);
        if (entry == nullptr) {
            return;
        }
        // A mode for a folder is the folder's.
        const bool isInto = !target.empty() && target.back() == '/';
        AddFile(isInto ? target + name : target,
                {entry, "", entry->size, isInto ? Octal(entry->mode) : mode, isRecorded});
    }

    void AddFolder(const std::string& target, const std::string& folder, bool isRecorded)
    {
        m_contents.folders.insert(io::PlainPath("/" + target));
        for (const PayloadPart& part : m_payload.TakeBelow(folder)) {
            const std::string path = target + "/" + part.name;
            if (part.entry == nullptr) {
                AddFoldersAbove(path + "/x");
            } else {
                AddFile(path,
                        {part.entry, "", part.entry->size, Octal(part.entry->mode), isRecorded});
            }
        }
    }

    void AddFile(const std::string& path, PackageFile file)
    {
        const std::string plain = io::PlainPath("/" + path);
        m_contents.files.insert_or_assign(plain, std::move(file));
        AddFoldersAbove(plain);
    }

    void AddFoldersAbove(const std::string& path)
    {
        const std::string plain = io::PlainPath("/" + path);
        for (std::size_t slash = plain.rfind('/'); slash != 0 && slash != std::string::npos;
             slash = plain.rfind('/', slash - 1)) {
            m_contents.folders.insert(plain.substr(0, slash));
        }
    }

    static void AddScript(const std::string& name, IPicoJ* object, StepFacts& step)
    {
        const auto* const script = ObjectAs<DB_ScriptFunctionData>(object);
        if (script != nullptr) {
            step.scripts.push_back({name, Replace_CRLF_to_LF(script->ScriptData)});
        }
    }

    void AddSetting(const DB_HardwareConfig& config, StepFacts& step)
    {
        const format::SettingKind* const kind = format::FindKind(
            format::SettingKinds(), &format::SettingKind::id, Read(config.ConfigId));
        const std::string name = kind != nullptr ? kind->name : Read(config.ConfigId);
        AddFact(name, config.IsUsed ? "used" : "not used", step.facts);
        ForEach<DB_HardwareItem, DB_HardwareItems>(
            config.HardwareItems, [&](const DB_HardwareItem& item, std::size_t /*number*/) {
                const std::string key = name + " " + Read(item.ItemName);
                if (kind == &format::kAutoStartKind && item.ItemName == format::kCustomScriptItem) {
                    step.scripts.push_back({"start-up", item.Value});
                    if (config.IsUsed) {
                        AddFile(panel::kStartupScript,
                                {nullptr, item.Value, item.Value.size(), "777", false});
                    }
                    return;
                }
                const bool isSecret = format::IsSecret(Read(item.ItemName));
                AddFact(key, Read(item.Value), step.facts, isSecret);
                if (config.IsUsed) {
                    m_contents.settings[key] = {key, Read(item.Value), isSecret};
                }
            });
    }

    void AddUnused()
    {
        std::vector<std::string> lost; // links that lead nowhere, which are none of anybody's files
        for (const PayloadPart& part : m_payload.TakeRest(lost)) {
            m_contents.unused[part.name] = {part.entry, "", part.entry->size,
                                            Octal(part.entry->mode), false};
        }
    }

    const format::FastPackage& m_package;
    ProjectModel m_model;
    Payload m_payload;
    PackageContents m_contents;
};

} // namespace

PackageContents ContentsOf(const format::FastPackage& package)
{
    return Contents(package).Run();
}

} // namespace kx::tool
