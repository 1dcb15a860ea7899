// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "model/DB_StepSets.h"

#include "model/DB_FunctionDatas.h"

namespace
{

constexpr FieldInfo kStepSetFields[] = {
    MakeField("SS_StepSetId", &DB_StepSet::SS_StepSetId),
    MakeField("Comment", &DB_StepSet::Comment),
    MakeField("CanSkip", &DB_StepSet::CanSkip),
};

constexpr FieldInfo kCopyStepSetFields[] = {
    MakeField("IsRelativePath", &DB_CopyStepSet::IsRelativePath),
    MakeField("IsRemove", &DB_CopyStepSet::IsRemove),
    MakeField("PathSetDatas", &DB_CopyStepSet::PathSetDatas, &::DB_CopyFunctionDatas::kInfo),
};

constexpr FieldInfo kScriptStepSetFields[] = {
    MakeField("InstallScriptFunctionData", &DB_ScriptStepSet::InstallScriptFunctionData,
              &::DB_ScriptFunctionData::kInfo),
    MakeField("UninstallScriptFunctionData", &DB_ScriptStepSet::UninstallScriptFunctionData,
              &::DB_ScriptFunctionData::kInfo),
};

constexpr FieldInfo kHardSettingStepSetFields[] = {
    MakeField("HardSettingDatas", &DB_HardSettingStepSet::HardSettingDatas,
              &::DB_HardSettingFunctionData::kInfo),
};

constexpr const ClassInfo* kStepSetsElements[] = {&DB_CopyStepSet::kInfo, &DB_ScriptStepSet::kInfo,
                                                  &DB_HardSettingStepSet::kInfo};

} // namespace

const ClassInfo DB_StepSet::kBaseInfo = {nullptr, nullptr, ViewOf(kStepSetFields), {}};

int DB_StepSet::Initialize(std::map<std::string, picojson::value>& obj)
{
    // Qualified, so that the JSON type may stay incomplete here.
    return ::InitializeRecord(*this, kBaseInfo, obj);
}

const ClassInfo DB_CopyStepSet::kInfo = {
    "Zt.Plugins.DB_CopyStepSet, Plexa", &DB_StepSet::kBaseInfo, ViewOf(kCopyStepSetFields), {}};

const ClassInfo DB_ScriptStepSet::kInfo = {
    "Zt.Plugins.DB_ScriptStepSet, Plexa", &DB_StepSet::kBaseInfo, ViewOf(kScriptStepSetFields), {}};

const ClassInfo DB_HardSettingStepSet::kInfo = {"Zt.Plugins.DB_HardSettingStepSet, Plexa",
                                                &DB_StepSet::kBaseInfo,
                                                ViewOf(kHardSettingStepSetFields),
                                                {}};

const ClassInfo DB_StepSets::kInfo = {
    "Zt.Plugins.DB_StepSets, Plexa", nullptr, {}, ViewOf(kStepSetsElements)};
