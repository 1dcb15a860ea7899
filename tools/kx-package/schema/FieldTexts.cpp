// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "schema/FieldTexts.h"

#include "model/DB_FunctionDatas.h"
#include "model/DB_Hardware.h"
#include "model/DB_KxUserProject.h"
#include "model/DB_StepSets.h"

#include <algorithm>

namespace kx::tool
{

namespace
{

template <class Owner, class Member>
FieldMember MemberOf(Member Owner::*member)
{
    return static_cast<Member IPicoJ::*>(member);
}

std::vector<FieldText> RootTexts()
{
    using Root = DB_KxUserProject;
    const ClassInfo* const info = &Root::kInfo;
    return {
        {info, MemberOf(&Root::ModelName), "Model",
         "The model of the panel. It is not compared with the panel."},
        {info, MemberOf(&Root::OsVersion), "System version",
         "The version of the panel's system. It is not compared with the panel."},
        {info, MemberOf(&Root::PackageVersion), "Version",
         "The version of the package, shown to people. An older one is not refused."},
        {info, MemberOf(&Root::Title), "Title", "The title of the package, shown to people."},
        {info, MemberOf(&Root::Comment), "Comment", "A comment, shown to people. May be empty."},
        {info, MemberOf(&Root::Date), "Date", "The date of the package, in any form."},
        {info, MemberOf(&Root::DB_StepSets), "Steps",
         "The steps of the installation, in the order of their execution."},
    };
}

std::vector<FieldText> StepTexts()
{
    const ClassInfo* const base = &DB_StepSet::kBaseInfo;
    const ClassInfo* const copy = &DB_CopyStepSet::kInfo;
    const ClassInfo* const script = &DB_ScriptStepSet::kInfo;
    const ClassInfo* const settings = &DB_HardSettingStepSet::kInfo;
    return {
        {base, MemberOf(&DB_StepSet::SS_StepSetId), "Kind of step",
         "What the step does. There are two blanks after the comma."},
        {base, MemberOf(&DB_StepSet::Comment), "Comment", "For people. Not shown on the panel."},
        {base, MemberOf(&DB_StepSet::CanSkip), "May fail",
         "true: an item that fails is reported, and the step goes on and counts as done."},
        {copy, MemberOf(&DB_CopyStepSet::IsRelativePath), "Relative paths",
         "Required, but has no effect."},
        {copy, MemberOf(&DB_CopyStepSet::IsRemove), "Recorded",
         "true: what the step creates is kept in the package's record on the panel."},
        {copy, MemberOf(&DB_CopyStepSet::PathSetDatas), "Items", "What is copied, and where to."},
        {script, MemberOf(&DB_ScriptStepSet::InstallScriptFunctionData), "Script",
         "The script that the installation runs."},
        {script, MemberOf(&DB_ScriptStepSet::UninstallScriptFunctionData), "Counterpart",
         "What would undo the script. Required, but the updater never runs it."},
        {settings, MemberOf(&DB_HardSettingStepSet::HardSettingDatas), "Settings",
         "Holds the settings of the step."},
    };
}

std::vector<FieldText> DataTexts()
{
    const ClassInfo* const item = &DB_CopyFunctionData::kInfo;
    const ClassInfo* const script = &DB_ScriptFunctionData::kInfo;
    const ClassInfo* const data = &DB_HardSettingFunctionData::kInfo;
    const ClassInfo* const setting = &DB_HardwareConfig::kInfo;
    const ClassInfo* const value = &DB_HardwareItem::kInfo;
    return {
        {item, MemberOf(&DB_CopyFunctionData::SourcePath), "Source",
         "Where the author had it. A step that copies files takes the file's name from it."},
        {item, MemberOf(&DB_CopyFunctionData::DestinationPath), "Target",
         "The full path on the panel."},
        {item, MemberOf(&DB_CopyFunctionData::Permissions), "Mode",
         R"(The mode of a copied file, for chmod: "755", "u+x". Empty means 777.)"},
        {script, MemberOf(&DB_ScriptFunctionData::ScriptData), "Text",
         "The text of the script. It begins with the interpreter: #!/bin/sh."},
        {data, MemberOf(&DB_HardSettingFunctionData::DB_HardwareConfigs), "Settings",
         "The settings that the step changes, in order."},
        {setting, MemberOf(&DB_HardwareConfig::ConfigId), "Kind of setting",
         "What the setting is about. There are two blanks after the comma."},
        {setting, MemberOf(&DB_HardwareConfig::IsUsed), "Used",
         "false: the setting is passed over."},
        {setting, MemberOf(&DB_HardwareConfig::HardwareItems), "Items",
         "The names and values of the setting."},
        {value, MemberOf(&DB_HardwareItem::ItemName), "Name", "The name of a value."},
        {value, MemberOf(&DB_HardwareItem::Value), "Value", "Its value, always as a text."},
    };
}

} // namespace

const std::vector<ClassText>& ClassTexts()
{
    static const std::vector<ClassText> kTexts = {
        {&DB_KxUserProject::kInfo, "Package", "What a package is, and the steps that install it."},
        {&DB_StepSets::kInfo, "Steps", "The steps of a package. May be empty."},
        {&DB_CopyStepSet::kInfo, "Copy step", "Copies files, or the contents of folders."},
        {&DB_ScriptStepSet::kInfo, "Script step", "Runs a script on the panel."},
        {&DB_HardSettingStepSet::kInfo, "Settings step", "Changes settings of the panel."},
        {&DB_CopyFunctionDatas::kInfo, "Items to copy", "The items of a copy step."},
        {&DB_CopyFunctionData::kInfo, "Item to copy", "A file or a folder, and its target."},
        {&DB_ScriptFunctionData::kInfo, "Script", "A script."},
        {&DB_HardSettingFunctionData::kInfo, "Settings", "What a settings step changes."},
        {&DB_HardwareConfigs::kInfo, "Settings", "The settings of a step."},
        {&DB_HardwareConfig::kInfo, "Setting", "One setting of the panel."},
        {&DB_HardwareItems::kInfo, "Values", "The names and values of a setting."},
        {&DB_HardwareItem::kInfo, "Value", "One name and its value."},
    };
    return kTexts;
}

const std::vector<FieldText>& FieldTexts()
{
    static const std::vector<FieldText> kTexts = [] {
        std::vector<FieldText> texts = RootTexts();
        for (const std::vector<FieldText>& more : {StepTexts(), DataTexts()}) {
            texts.insert(texts.end(), more.begin(), more.end());
        }
        return texts;
    }();
    return kTexts;
}

const ClassText* TextOf(const ClassInfo& info)
{
    const std::vector<ClassText>& texts = ClassTexts();
    const auto found = std::find_if(texts.begin(), texts.end(),
                                    [&info](const ClassText& text) { return text.info == &info; });
    return found == texts.end() ? nullptr : &*found;
}

const FieldText* TextOf(const ClassInfo& info, const FieldInfo& field)
{
    const std::vector<FieldText>& texts = FieldTexts();
    const auto found =
        std::find_if(texts.begin(), texts.end(), [&info, &field](const FieldText& text) {
            return text.info == &info && text.member == field.member;
        });
    return found == texts.end() ? nullptr : &*found;
}

} // namespace kx::tool
