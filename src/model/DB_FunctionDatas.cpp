// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "model/DB_FunctionDatas.h"

#include "model/DB_Hardware.h"

namespace
{

constexpr FieldInfo kCopyFunctionDataFields[] = {
    MakeField("SourcePath", &DB_CopyFunctionData::SourcePath),
    MakeField("DestinationPath", &DB_CopyFunctionData::DestinationPath),
    MakeField("Permissions", &DB_CopyFunctionData::Permissions),
};

constexpr const ClassInfo* kCopyFunctionDatasElements[] = {&DB_CopyFunctionData::kInfo};

constexpr FieldInfo kScriptFunctionDataFields[] = {
    MakeField("ScriptData", &DB_ScriptFunctionData::ScriptData),
};

constexpr FieldInfo kHardSettingFunctionDataFields[] = {
    MakeField("DB_HardwareConfigs", &DB_HardSettingFunctionData::DB_HardwareConfigs,
              &::DB_HardwareConfigs::kInfo),
};

} // namespace

const ClassInfo DB_CopyFunctionData::kInfo = {
    "Zt.Plugins.DB_CopyFunctionData, Plexa", nullptr, ViewOf(kCopyFunctionDataFields), {}};

const ClassInfo DB_CopyFunctionDatas::kInfo = {
    "Zt.Plugins.DB_CopyFunctionDatas, Plexa", nullptr, {}, ViewOf(kCopyFunctionDatasElements)};

const ClassInfo DB_ScriptFunctionData::kInfo = {
    "Zt.Plugins.DB_ScriptFunctionData, Plexa", nullptr, ViewOf(kScriptFunctionDataFields), {}};

const ClassInfo DB_HardSettingFunctionData::kInfo = {"Zt.Plugins.DB_HardSettingFunctionData, Plexa",
                                                     nullptr,
                                                     ViewOf(kHardSettingFunctionDataFields),
                                                     {}};
