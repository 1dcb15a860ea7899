// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "compose/Model.h"

#include "compose/ObjectReader.h"
#include "manifest/Manifest.h"
#include "model/DB_FunctionDatas.h"
#include "model/DB_Hardware.h"
#include "model/DB_StepSets.h"

namespace kx::tool
{

namespace
{

void FillBase(const ManifestStep& step, DB_StepSet& record)
{
    record.SS_StepSetId = step.kind->id;
    record.Comment = step.comment;
    record.CanSkip = step.canSkip;
}

IPicoJ& MakeCopyStep(const ManifestStep& step, const std::vector<CopyItem>& items,
                     ProjectModel& model)
{
    auto& record = model.Make<DB_CopyStepSet>();
    FillBase(step, record);
    record.IsRelativePath = true;
    record.IsRemove = step.isRecorded;
    auto& list = model.Make<DB_CopyFunctionDatas>();
    record.PathSetDatas = &list;
    for (const CopyItem& item : items) {
        auto& data = model.Make<DB_CopyFunctionData>();
        data.SourcePath = item.source;
        data.DestinationPath = item.target;
        data.Permissions = item.mode;
        list.AddJ(&data);
    }
    return record;
}

IPicoJ& MakeScriptStep(const ManifestStep& step, ProjectModel& model)
{
    auto& record = model.Make<DB_ScriptStepSet>();
    FillBase(step, record);
    auto& install = model.Make<DB_ScriptFunctionData>();
    install.ScriptData = step.install;
    record.InstallScriptFunctionData = &install;
    auto& uninstall = model.Make<DB_ScriptFunctionData>();
    uninstall.ScriptData = step.uninstall;
    record.UninstallScriptFunctionData = &uninstall;
    return record;
}

IPicoJ& MakeSetting(const ManifestSetting& setting, ProjectModel& model)
{
    auto& config = model.Make<DB_HardwareConfig>();
    config.ConfigId = setting.kind->id;
    config.IsUsed = setting.isUsed;
    auto& items = model.Make<DB_HardwareItems>();
    config.HardwareItems = &items;
    for (const auto& [name, value] : setting.values) {
        auto& item = model.Make<DB_HardwareItem>();
        item.ItemName = name;
        item.Value = value;
        items.AddJ(&item);
    }
    return config;
}

IPicoJ& MakeSettingsStep(const ManifestStep& step, ProjectModel& model)
{
    auto& record = model.Make<DB_HardSettingStepSet>();
    FillBase(step, record);
    auto& data = model.Make<DB_HardSettingFunctionData>();
    record.HardSettingDatas = &data;
    auto& configs = model.Make<DB_HardwareConfigs>();
    data.DB_HardwareConfigs = &configs;
    for (const ManifestSetting& setting : step.settings) {
        configs.AddJ(&MakeSetting(setting, model));
    }
    return record;
}

} // namespace

std::unique_ptr<ProjectModel> MakeModel(const Manifest& manifest,
                                        const std::vector<ManifestStep>& steps,
                                        const std::vector<std::vector<CopyItem>>& items)
{
    auto model = std::make_unique<ProjectModel>();
    DB_KxUserProject& root = model->root;
    if (manifest.texts.node != nullptr) {
        FillRootTexts(*manifest.texts.node, manifest.texts.path, *model);
    } else {
        root.ModelName = manifest.model;
        root.OsVersion = manifest.osVersion;
        root.PackageVersion = manifest.version;
        root.Title = manifest.title;
        root.Comment = manifest.comment;
        root.Date = manifest.date;
    }
    auto& list = model->Make<DB_StepSets>();
    root.DB_StepSets = &list;
    for (std::size_t i = 0; i < steps.size(); ++i) {
        const ManifestStep& step = steps[i];
        if (step.kind == &kVerbatimKind) {
            list.AddJ(&MakeObject(*step.verbatim.node, step.verbatim.path, *model));
        } else if (step.kind == &format::kScriptKind) {
            list.AddJ(&MakeScriptStep(step, *model));
        } else if (step.kind == &format::kSettingsKind) {
            list.AddJ(&MakeSettingsStep(step, *model));
        } else {
            list.AddJ(&MakeCopyStep(step, items[i], *model));
        }
    }
    return model;
}

} // namespace kx::tool
