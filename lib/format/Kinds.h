// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "model/DB_Fields.h"

#include <string>
#include <string_view>
#include <vector>

namespace kx::format
{

// The kinds of steps and settings: the word that people write, and what the updater knows it by.

/// One kind of install step.
struct StepKind {
    const char* name;        ///< "copy-files"
    const char* id;          ///< value of "SS_StepSetId"
    const ClassInfo* info;   ///< class of the step's record
    const char* describedAs; ///< "copies files"
};

/// One kind of hardware setting.
struct SettingKind {
    const char* name; ///< "backlight"
    const char* id;   ///< value of "ConfigId"
};

extern const StepKind kCopyFilesKind;
extern const StepKind kCopyFolderKind;
extern const StepKind kScriptKind;
extern const StepKind kSettingsKind;
extern const SettingKind kAutoStartKind; ///< writes the start-up script
extern const SettingKind kUserKind;      ///< changes a password

/// Item of an auto-start setting that is the start-up script itself.
constexpr const char* kCustomScriptItem = "CustomScript";

/// Items of a user setting.
constexpr const char* kUserNameItem = "User";
constexpr const char* kPasswordItem = "Password";

/// All kinds, in the updater's order.
[[nodiscard]] const std::vector<const StepKind*>& StepKinds();
[[nodiscard]] const std::vector<const SettingKind*>& SettingKinds();

/// Returns the names of all kinds.
template <class Kind>
[[nodiscard]] std::vector<std::string> NamesOf(const std::vector<const Kind*>& kinds)
{
    std::vector<std::string> names;
    names.reserve(kinds.size());
    for (const Kind* const kind : kinds) {
        names.emplace_back(kind->name);
    }
    return names;
}

/// Finds a kind by its name or its identifier; null when there is none.
template <class Kind>
[[nodiscard]] const Kind* FindKind(const std::vector<const Kind*>& kinds, const char* Kind::*key,
                                   std::string_view wanted)
{
    for (const Kind* const kind : kinds) {
        if (wanted == kind->*key) {
            return kind;
        }
    }
    return nullptr;
}

/// Tells whether the value of the setting's item must not be shown: a password, however its name
/// is written.
[[nodiscard]] bool IsSecret(std::string_view itemName);

} // namespace kx::format
