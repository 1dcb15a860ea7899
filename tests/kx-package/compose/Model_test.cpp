// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "compose/DescriptionWriter.h"
#include "compose/Model.h"
#include "manifest/Manifest.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <regex>

namespace kx::tool
{

namespace
{

ManifestStep StepOf(const format::StepKind& kind)
{
    ManifestStep step;
    step.kind = &kind;
    step.comment = std::string("of ") + kind.name;
    return step;
}

const format::SettingKind* SettingOf(const std::string& name)
{
    return format::FindKind(format::SettingKinds(), &format::SettingKind::name, name);
}

/// A package with a step of every kind, whose flags are all different from each other's.
Manifest ManifestOfAll()
{
    Manifest manifest;
    manifest.title = "T";
    manifest.version = "V";
    manifest.comment = "C";
    manifest.model = "M";
    manifest.osVersion = "O";
    manifest.date = "D";
    ManifestStep files = StepOf(format::kCopyFilesKind);
    files.canSkip = true;
    ManifestStep folders = StepOf(format::kCopyFolderKind);
    folders.isRecorded = false;
    ManifestStep script = StepOf(format::kScriptKind);
    script.canSkip = true;
    script.install = "in";
    script.uninstall = "un";
    ManifestStep settings = StepOf(format::kSettingsKind);
    ManifestSetting sound;
    sound.kind = SettingOf("sound");
    sound.isUsed = false;
    ManifestSetting lan;
    lan.kind = SettingOf("lan");
    lan.values = {{"Address", "1"}, {"Mask", "2"}};
    settings.settings = {sound, lan};
    manifest.steps = {files, folders, script, settings};
    return manifest;
}

/// The description without its types and line breaks.
std::string Told(const ProjectModel& model)
{
    std::string text = WriteDescription(model.root).substr(3);
    text = std::regex_replace(text, std::regex(R"(\s*"\$type": "[^"]*",?)"), "");
    text = std::regex_replace(text, std::regex("\\s*\n\\s*"), "");
    return text;
}

TEST(MakeModel, PutsEveryTextAndFlagOfAManifestInItsPlace)
{
    const std::vector<std::vector<CopyItem>> items = {
        {{"s1", "/t1", "600"}, {"s2", "/t2", "755"}}, {{"s3", "/t3", ""}}, {}, {}};

    const auto model = MakeModel(ManifestOfAll(), ManifestOfAll().steps, items);

    EXPECT_EQ(
        Told(*model),
        R"({"ModelName": "M","OsVersion": "O","PackageVersion": "V","Title": "T","Comment": "C",)"
        R"("Date": "D","DB_StepSets": {"$values": [)"
        R"({"SS_StepSetId": "Zt.Plugins.SS_CopyFileStepSet,  Plexa","Comment": "of copy-files",)"
        R"("CanSkip": true,"IsRelativePath": true,"IsRemove": true,"PathSetDatas": {"$values": [)"
        R"({"SourcePath": "s1","DestinationPath": "/t1","Permissions": "600"},)"
        R"({"SourcePath": "s2","DestinationPath": "/t2","Permissions": "755"}]}},)"
        R"({"SS_StepSetId": "Zt.Plugins.SS_CopyFolderStepSet,  Plexa","Comment": "of copy-folder",)"
        R"("CanSkip": false,"IsRelativePath": true,"IsRemove": false,"PathSetDatas": {"$values": [)"
        R"({"SourcePath": "s3","DestinationPath": "/t3","Permissions": ""}]}},)"
        R"({"SS_StepSetId": "Zt.Plugins.SS_ScriptStepSet,  Plexa","Comment": "of script",)"
        R"("CanSkip": true,"InstallScriptFunctionData": {"ScriptData": "in"},)"
        R"("UninstallScriptFunctionData": {"ScriptData": "un"}},)"
        R"({"SS_StepSetId": "Zt.Plugins.SS_HardSettingStepSet,  Plexa","Comment": "of settings",)"
        R"("CanSkip": false,"HardSettingDatas": {"DB_HardwareConfigs": {"$values": [)"
        R"({"ConfigId": "Zt.Plugins.HW_SoundConfigSet,  Plexa","IsUsed": false,)"
        R"("HardwareItems": {"$values": []}},)"
        R"({"ConfigId": "Zt.Plugins.HW_LanConfigSet,  Plexa","IsUsed": true,)"
        R"("HardwareItems": {"$values": [{"ItemName": "Address","Value": "1"},)"
        R"({"ItemName": "Mask","Value": "2"}]}}]}}}]}})");
}

} // namespace

} // namespace kx::tool
