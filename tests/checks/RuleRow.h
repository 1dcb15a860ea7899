// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "checks/Recipe.h"

#include <functional>
#include <string>
#include <vector>

namespace kx::checks
{

/// Puts a value into a package that has no fault yet.
using Put = std::function<void(Recipe& recipe, const std::string& value)>;

/// Packages for one rule: each value makes a package of its own.
struct RuleRow {
    /// @param how  for a row that needs no values: one package
    RuleRow(const char* ruleId, const char* found, const char* place, void (*how)(Recipe&),
            bool alone = true);

    RuleRow(const char* ruleId, const char* found, const char* place, std::vector<std::string> all,
            Put how, bool alone = true);

    const char* id;
    const char* severity; ///< kSilent where the rule has nothing to say
    const char* where;    ///< name or path of the finding, '@' for the value; null: anywhere
    std::vector<std::string> values;
    Put put;
    bool isAlone; ///< nothing else is found, but for notes
};

constexpr const char* kError = "error";
constexpr const char* kWarning = "warning";
constexpr const char* kNote = "note";
constexpr const char* kSilent = nullptr; ///< a clean package, as near to the faulty ones as can be
constexpr bool kAmongOthers = false;     ///< other rules apply, too

// Places in the description of a package.
constexpr const char* kStep0 = "DB_StepSets.$values[0]";
constexpr const char* kSource0 = "DB_StepSets.$values[0].PathSetDatas.$values[0].SourcePath";
constexpr const char* kTarget0 = "DB_StepSets.$values[0].PathSetDatas.$values[0].DestinationPath";
constexpr const char* kMode0 = "DB_StepSets.$values[0].PathSetDatas.$values[0].Permissions";
constexpr const char* kSource1 = "DB_StepSets.$values[1].PathSetDatas.$values[0].SourcePath";
constexpr const char* kTarget1 = "DB_StepSets.$values[1].PathSetDatas.$values[0].DestinationPath";
constexpr const char* kScript = "DB_StepSets.$values[2].InstallScriptFunctionData.ScriptData";
#define CONFIG(number)                                                                             \
    "DB_StepSets.$values[3].HardSettingDatas.DB_HardwareConfigs.$values[" number "]"
#define ITEM(config, item, key) CONFIG(config) ".HardwareItems.$values[" item "]." key
constexpr const char* kSound = ITEM("0", "0", "Value");
constexpr const char* kUser = ITEM("1", "0", "Value");
constexpr const char* kPassword = ITEM("1", "1", "Value");
constexpr const char* kStartup = ITEM("2", "0", "Value");

/// Puts the value, which is written as in JSON, in place of a text of the description.
Put Text(const char* from);

/// Puts the value in place of any piece of the description.
Put Piece(const char* from);

/// Gives an entry another name.
Put Renamed(const char* name);

/// Adds an empty file.
Put Added();

/// Adds empty files and folders; their names stand between blanks, those of folders end in '/'.
void AddAll(Recipe& recipe, const std::string& value);

/// Changes bytes of the archive: at @p offset of the @p nth record that begins with @p mark.
Put Patched(const char* mark, std::size_t offset, std::size_t nth = 0);

/// A path of that many bytes below a folder, whose parts are short enough.
std::string PathOf(const std::string& folder, std::size_t size);

// The rows, by theme.
const std::vector<RuleRow>& NameRows();
const std::vector<RuleRow>& ArchiveRows();
const std::vector<RuleRow>& EntryRows();
const std::vector<RuleRow>& SignatureRows();
const std::vector<RuleRow>& PathRows();
const std::vector<RuleRow>& UpdaterRows();
const std::vector<RuleRow>& DescriptionRows();
const std::vector<RuleRow>& ClassRows();
const std::vector<RuleRow>& StepRows();
const std::vector<RuleRow>& TargetRows();
const std::vector<RuleRow>& ScriptRows();
const std::vector<RuleRow>& SettingRows();
const std::vector<RuleRow>& PayloadRows();

} // namespace kx::checks
