// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "format/Kinds.h"

#include "model/DB_StepSets.h"
#include "steps/HW.h"
#include "steps/SS.h"

#include <strings.h>

namespace kx::format
{

// The record classes' tables are filled before main, possibly after these; only their addresses
// are taken here.
const StepKind kCopyFilesKind = {"copy-files", SS_CopyFileStepSet::kStepSetId,
                                 &DB_CopyStepSet::kInfo, "copies files"};
const StepKind kCopyFolderKind = {"copy-folder", SS_CopyFolderStepSet::kStepSetId,
                                  &DB_CopyStepSet::kInfo, "copies the contents of folders"};
const StepKind kScriptKind = {"script", SS_ScriptStepSet::kStepSetId, &DB_ScriptStepSet::kInfo,
                              "runs a script"};
const StepKind kSettingsKind = {"settings", SS_HardSettingStepSet::kStepSetId,
                                &DB_HardSettingStepSet::kInfo, "changes settings"};

const SettingKind kAutoStartKind = {"auto-start", HW_AutoStartupModeConfigSet::kConfigId};
const SettingKind kUserKind = {"user", HW_UserConfigSet::kConfigId};

namespace
{

constexpr SettingKind kCollectedKinds[] = {
    {"backlight", HW_BacklightConfigSet::kConfigId},  {"cursor", HW_CursorConfigSet::kConfigId},
    {"language", HW_LanguageConfigSet::kConfigId},    {"lan", HW_LanConfigSet::kConfigId},
    {"sound", HW_SoundConfigSet::kConfigId},          {"s-start", HW_SStartConfigSet::kConfigId},
    {"touch-beep", HW_TouchBeepConfigSet::kConfigId},
};

} // namespace

const std::vector<const StepKind*>& StepKinds()
{
    static const std::vector<const StepKind*> kKinds = {&kCopyFilesKind, &kCopyFolderKind,
                                                        &kScriptKind, &kSettingsKind};
    return kKinds;
}

const std::vector<const SettingKind*>& SettingKinds()
{
    static const std::vector<const SettingKind*> kKinds = [] {
        std::vector<const SettingKind*> kinds = {&kAutoStartKind};
        for (const SettingKind& kind : kCollectedKinds) {
            kinds.push_back(&kind);
        }
        kinds.push_back(&kUserKind);
        return kinds;
    }();
    return kKinds;
}

bool IsSecret(std::string_view itemName)
{
    const std::string_view password = kPasswordItem;
    return itemName.size() == password.size() &&
           strncasecmp(itemName.data(), password.data(), password.size()) == 0;
}

} // namespace kx::format
