// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "unpack/StepWords.h"

#include "format/Kinds.h"
#include "io/Text.h"
#include "io/Utf8.h"
#include "osa/OSA.h"

#include <algorithm>
#include <set>

namespace kx::tool
{

namespace
{

/// Returns the elements of a list as objects of one class; nothing when there are none, or others.
template <class Element, class List>
std::vector<Element*> ElementsOf(IPicoJ* list)
{
    std::vector<Element*> elements;
    const auto* const all = ObjectAs<List>(list);
    for (int i = 0; all != nullptr && i < all->count; ++i) {
        auto* const element = ObjectAs<Element>(all->ElementAt(i));
        if (element == nullptr) {
            return {};
        }
        elements.push_back(element);
    }
    return elements;
}

bool IsOfKind(const DB_StepSet& step, const format::StepKind& kind)
{
    return step.SS_StepSetId == kind.id && IsSayable(step.Comment);
}

bool IsTarget(const std::string& target)
{
    return IsSayable(target) && target.substr(0, 1) == "/" && io::UnsafeCharacter(target).empty();
}

bool IsOctalMode(const std::string& mode)
{
    return (mode.size() == 3 || mode.size() == 4) &&
           mode.find_first_not_of("01234567") == std::string::npos;
}

/// Tells whether a manifest can say which file an item copies.
bool IsFileOrigin(const std::string& source)
{
    const std::string name = OSA_GetFilenameExt(source.c_str());
    return IsSayable(source) && !name.empty() && name != "." && name != ".." &&
           io::UnsafeCharacter(name).empty();
}

bool IsFileItem(const DB_CopyFunctionData& item)
{
    return IsFileOrigin(item.SourcePath) && IsTarget(item.DestinationPath) &&
           item.DestinationPath.back() != '/' &&
           (item.Permissions.empty() || IsOctalMode(item.Permissions));
}

bool IsFolderItem(const DB_CopyFunctionData& item)
{
    const std::string& target = item.DestinationPath;
    return IsSayable(item.SourcePath) && !item.SourcePath.empty() && IsTarget(target) &&
           (target == "/" || target.back() != '/');
}

CopyWords CopyWordsOf(IPicoJ* object, const format::StepKind& kind,
                      bool (*isSayable)(const DB_CopyFunctionData&))
{
    CopyWords words;
    auto* const step = ObjectAs<DB_CopyStepSet>(object);
    if (step == nullptr || !IsOfKind(*step, kind)) {
        return words;
    }
    words.items = ElementsOf<DB_CopyFunctionData, DB_CopyFunctionDatas>(step->PathSetDatas);
    const bool isAllSayable =
        std::all_of(words.items.begin(), words.items.end(),
                    [isSayable](const DB_CopyFunctionData* item) { return isSayable(*item); });
    if (words.items.empty() || !isAllSayable) {
        return words;
    }
    step->IsRelativePath = true;
    words.step = step;
    return words;
}

/// Makes line feeds of a script's line ends.
void Normalise(DB_ScriptFunctionData& script)
{
    script.ScriptData = Replace_CRLF_to_LF(script.ScriptData);
}

bool IsSayableSetting(const DB_HardwareConfig& config, const std::vector<DB_HardwareItem*>& items)
{
    std::set<std::string> names;
    return format::FindKind(format::SettingKinds(), &format::SettingKind::id, config.ConfigId) !=
               nullptr &&
           std::all_of(items.begin(), items.end(), [&names](const DB_HardwareItem* item) {
               return IsSayable(item->ItemName) && IsSayable(item->Value) &&
                      names.insert(item->ItemName).second;
           });
}

} // namespace

bool IsSayable(const std::string& text)
{
    return text.find('\0') == std::string::npos && io::IsUtf8(text);
}

bool IsSayableScript(const std::string& text)
{
    constexpr std::size_t kLongest = std::size_t{8} << 20;
    return IsSayable(text) && text.size() <= kLongest &&
           Replace_CRLF_to_LF(text).find("\r\n") == std::string::npos;
}

CopyWords FileWordsOf(IPicoJ* step)
{
    CopyWords words = CopyWordsOf(step, format::kCopyFilesKind, IsFileItem);
    for (DB_CopyFunctionData* const item : words.items) {
        if (words.step != nullptr && item->Permissions.empty()) {
            item->Permissions = "777"; // what it means
        }
    }
    return words;
}

CopyWords FolderWordsOf(IPicoJ* step)
{
    CopyWords words = CopyWordsOf(step, format::kCopyFolderKind, IsFolderItem);
    for (DB_CopyFunctionData* const item : words.items) {
        if (words.step != nullptr) {
            item->Permissions.clear(); // nobody reads it
        }
    }
    return words;
}

ScriptWords ScriptWordsOf(IPicoJ* step)
{
    ScriptWords words;
    auto* const record = ObjectAs<DB_ScriptStepSet>(step);
    if (record == nullptr || !IsOfKind(*record, format::kScriptKind)) {
        return words;
    }
    words.install = ObjectAs<DB_ScriptFunctionData>(record->InstallScriptFunctionData);
    words.uninstall = ObjectAs<DB_ScriptFunctionData>(record->UninstallScriptFunctionData);
    if (words.install != nullptr && words.uninstall != nullptr &&
        IsSayableScript(words.install->ScriptData) &&
        IsSayableScript(words.uninstall->ScriptData)) {
        Normalise(*words.install);
        Normalise(*words.uninstall);
        words.step = record;
    }
    return words;
}

SettingsWords SettingsWordsOf(IPicoJ* step)
{
    SettingsWords words;
    auto* const record = ObjectAs<DB_HardSettingStepSet>(step);
    auto* const data = record == nullptr
                           ? nullptr
                           : ObjectAs<DB_HardSettingFunctionData>(record->HardSettingDatas);
    if (data == nullptr || !IsOfKind(*record, format::kSettingsKind)) {
        return words;
    }
    for (const DB_HardwareConfig* const config :
         ElementsOf<DB_HardwareConfig, DB_HardwareConfigs>(data->DB_HardwareConfigs)) {
        const auto* const list = ObjectAs<DB_HardwareItems>(config->HardwareItems);
        const std::vector<DB_HardwareItem*> items =
            ElementsOf<DB_HardwareItem, DB_HardwareItems>(config->HardwareItems);
        if (list == nullptr || static_cast<std::size_t>(list->count) != items.size() ||
            !IsSayableSetting(*config, items)) {
            return words;
        }
        words.settings.push_back({config, {items.begin(), items.end()}});
    }
    words.step = words.settings.empty() ? nullptr : record;
    return words;
}

} // namespace kx::tool
