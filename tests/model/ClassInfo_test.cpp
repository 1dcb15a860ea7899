// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT

// The tables of the format, as tools see them.
#include "model/DB_KxUserProject.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

using ::testing::ElementsAre;
using ::testing::Pair;

namespace
{

/// One line a field or element: "Title text", "PathSetDatas -> CLASS", "* CLASS".
using FieldLines = std::vector<std::string>;

void AppendFields(const ClassInfo& info, FieldLines& lines)
{
    if (info.base != nullptr) {
        AppendFields(*info.base, lines);
    }
    for (const FieldInfo& field : info.fields) {
        std::string line = field.key;
        if (field.expected != nullptr) {
            line.append(" -> ").append(field.expected->type);
        } else {
            const bool isFlag = std::holds_alternative<bool IPicoJ::*>(field.member);
            line.append(isFlag ? " flag" : " text");
        }
        lines.push_back(line);
    }
}

/// Collects a class and every class that can be reached from it.
void Collect(const ClassInfo& info, std::map<std::string, FieldLines>& classes)
{
    if (classes.count(info.type) != 0) {
        return;
    }
    FieldLines& lines = classes[info.type];
    AppendFields(info, lines);
    for (const ClassInfo* const element : info.elements) {
        lines.push_back(std::string("* ") + element->type);
        Collect(*element, classes);
    }
    for (const FieldInfo& field : info.fields) {
        if (field.expected != nullptr) {
            Collect(*field.expected, classes);
        }
    }
}

} // namespace

TEST(ClassInfo, LeadsFromTheRootToEveryClassOfTheFormat)
{
    std::map<std::string, FieldLines> classes;

    Collect(DB_KxUserProject::kInfo, classes);

    EXPECT_THAT(
        classes,
        ElementsAre(
            Pair("Zt.DB_HardwareConfig, Ruvelo",
                 ElementsAre("ConfigId text", "IsUsed flag",
                             "HardwareItems -> Zt.DB_HardwareItems, Drovic")),
            Pair("Zt.DB_HardwareConfigs, Ruvelo", ElementsAre("* Zt.DB_HardwareConfig, Ruvelo")),
            Pair("Zt.DB_HardwareItem, Drovic", ElementsAre("ItemName text", "Value text")),
            Pair("Zt.DB_HardwareItems, Drovic", ElementsAre("* Zt.DB_HardwareItem, Drovic")),
            Pair("Zt.Plugins.DB_CopyFunctionData, Plexa",
                 ElementsAre("SourcePath text", "DestinationPath text", "Permissions text")),
            Pair("Zt.Plugins.DB_CopyFunctionDatas, Plexa",
                 ElementsAre("* Zt.Plugins.DB_CopyFunctionData, Plexa")),
            Pair("Zt.Plugins.DB_CopyStepSet, Plexa",
                 ElementsAre("SS_StepSetId text", "Comment text", "CanSkip flag",
                             "IsRelativePath flag", "IsRemove flag",
                             "PathSetDatas -> Zt.Plugins.DB_CopyFunctionDatas, Plexa")),
            Pair("Zt.Plugins.DB_HardSettingFunctionData, Plexa",
                 ElementsAre("DB_HardwareConfigs -> Zt.DB_HardwareConfigs, Ruvelo")),
            Pair("Zt.Plugins.DB_HardSettingStepSet, Plexa",
                 ElementsAre("SS_StepSetId text", "Comment text", "CanSkip flag",
                             "HardSettingDatas -> Zt.Plugins.DB_HardSettingFunctionData, Plexa")),
            Pair("Zt.Plugins.DB_KxUserProject, Plexa",
                 ElementsAre("ModelName text", "OsVersion text", "PackageVersion text",
                             "Title text", "Comment text", "Date text",
                             "DB_StepSets -> Zt.Plugins.DB_StepSets, Plexa")),
            Pair("Zt.Plugins.DB_ScriptFunctionData, Plexa", ElementsAre("ScriptData text")),
            Pair("Zt.Plugins.DB_ScriptStepSet, Plexa",
                 ElementsAre(
                     "SS_StepSetId text", "Comment text", "CanSkip flag",
                     "InstallScriptFunctionData -> Zt.Plugins.DB_ScriptFunctionData, Plexa",
                     "UninstallScriptFunctionData -> Zt.Plugins.DB_ScriptFunctionData, Plexa")),
            Pair("Zt.Plugins.DB_StepSets, Plexa",
                 ElementsAre("* Zt.Plugins.DB_CopyStepSet, Plexa",
                             "* Zt.Plugins.DB_ScriptStepSet, Plexa",
                             "* Zt.Plugins.DB_HardSettingStepSet, Plexa"))));
}

TEST(ClassInfo, TellsListsFromRecords)
{
    EXPECT_FALSE(DB_KxUserProject::kInfo.IsList());
    EXPECT_TRUE(DB_KxUserProject::kInfo.fields.data[6].expected->IsList());
}
