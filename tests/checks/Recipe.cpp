// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "checks/Recipe.h"

#include "checks/Checker.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <optional>

#include <sys/stat.h>
#include <unistd.h>

namespace kx::checks
{

namespace
{

constexpr const char* kDescription = R"({
"$type": "Zt.Plugins.DB_KxUserProject, Plexa",
"ModelName": "TP", "OsVersion": "2", "PackageVersion": "1", "Title": "Hello", "Comment": "c",
"Date": "d",
"DB_StepSets": {"$type": "Zt.Plugins.DB_StepSets, Plexa", "$values": [
 {"$type": "Zt.Plugins.DB_CopyStepSet, Plexa",
  "SS_StepSetId": "Zt.Plugins.SS_CopyFileStepSet,  Plexa", "Comment": "", "CanSkip": false,
  "IsRelativePath": true, "IsRemove": true,
  "PathSetDatas": {"$type": "Zt.Plugins.DB_CopyFunctionDatas, Plexa", "$values": [
   {"$type": "Zt.Plugins.DB_CopyFunctionData, Plexa",
    "SourcePath": "bin/hello", "DestinationPath": "/opt/hello", "Permissions": "755"}]}},
 {"$type": "Zt.Plugins.DB_CopyStepSet, Plexa",
  "SS_StepSetId": "Zt.Plugins.SS_CopyFolderStepSet,  Plexa", "Comment": "", "CanSkip": false,
  "IsRelativePath": true, "IsRemove": true,
  "PathSetDatas": {"$type": "Zt.Plugins.DB_CopyFunctionDatas, Plexa", "$values": [
   {"$type": "Zt.Plugins.DB_CopyFunctionData, Plexa",
    "SourcePath": "share", "DestinationPath": "/opt/share", "Permissions": ""}]}},
 {"$type": "Zt.Plugins.DB_ScriptStepSet, Plexa",
  "SS_StepSetId": "Zt.Plugins.SS_ScriptStepSet,  Plexa", "Comment": "", "CanSkip": false,
  "InstallScriptFunctionData": {"$type": "Zt.Plugins.DB_ScriptFunctionData, Plexa",
   "ScriptData": "#!/bin/sh\ntrue\n"},
  "UninstallScriptFunctionData": {"$type": "Zt.Plugins.DB_ScriptFunctionData, Plexa",
   "ScriptData": "gone"}},
 {"$type": "Zt.Plugins.DB_HardSettingStepSet, Plexa",
  "SS_StepSetId": "Zt.Plugins.SS_HardSettingStepSet,  Plexa", "Comment": "", "CanSkip": false,
  "HardSettingDatas": {"$type": "Zt.Plugins.DB_HardSettingFunctionData, Plexa",
   "DB_HardwareConfigs": {"$type": "Zt.DB_HardwareConfigs, Ruvelo", "$values": [
    {"$type": "Zt.DB_HardwareConfig, Ruvelo",
     "ConfigId": "Zt.Plugins.HW_SoundConfigSet,  Plexa", "IsUsed": true,
     "HardwareItems": {"$type": "Zt.DB_HardwareItems, Drovic", "$values": [
      {"$type": "Zt.DB_HardwareItem, Drovic", "ItemName": "Volume", "Value": "5"}]}},
    {"$type": "Zt.DB_HardwareConfig, Ruvelo",
     "ConfigId": "Zt.Plugins.HW_UserConfigSet,  Plexa", "IsUsed": true,
     "HardwareItems": {"$type": "Zt.DB_HardwareItems, Drovic", "$values": [
      {"$type": "Zt.DB_HardwareItem, Drovic", "ItemName": "User", "Value": "user"},
      {"$type": "Zt.DB_HardwareItem, Drovic", "ItemName": "Password", "Value": "pass"}]}},
    {"$type": "Zt.DB_HardwareConfig, Ruvelo",
     "ConfigId": "Zt.Plugins.HW_AutoStartupModeConfigSet,  Plexa", "IsUsed": true,
     "HardwareItems": {"$type": "Zt.DB_HardwareItems, Drovic", "$values": [
      {"$type": "Zt.DB_HardwareItem, Drovic", "ItemName": "CustomScript",
       "Value": "#!/bin/sh\nstart\n"}]}}]}}}]}}
)";

} // namespace

namespace
{

/// A shell that stumbles over the word "wrong", and is called by what it is asked for.
class FakeShells final : public IShells
{
public:
    [[nodiscard]] bool Has(const std::string& shell) override { return shell != "busybox"; }
    [[nodiscard]] std::optional<SyntaxMistake> Read(const std::string& shell,
                                                    const std::string& script) override
    {
        const std::size_t at = script.find("wrong");
        if (at == std::string::npos) {
            return {};
        }
        const auto line = std::count(script.begin(), script.begin() + static_cast<long>(at), '\n');
        return SyntaxMistake{shell, static_cast<std::size_t>(line) + 1, "unexpected"};
    }
};

/// Checks a package in a folder by what a recipe knows besides.
Findings CheckIn(const TempDir& folder, const std::string& path, const Recipe& recipe)
{
    FakeShells shells;
    Expected expected;
    if (!recipe.panelFiles.empty()) {
        for (const std::string& file : recipe.panelFiles) {
            folder.Write("panel/root/" + file, "");
        }
    }
    if (!recipe.panel.empty() || !recipe.panelFiles.empty()) {
        const std::string root = recipe.panelFiles.empty() ? "" : "root = \"root\"\n";
        expected.panel =
            format::ReadPanelFile(folder.Write("panel/panel.toml", root + recipe.panel));
    }
    if (!recipe.processor.empty()) {
        expected.panel.processor = format::FindProcessor(recipe.processor);
        expected.panel.floatAbi = format::FloatAbiOfWord(recipe.processor);
    }
    expected.name = recipe.ownName;
    expected.shells = &shells;
    const signature::TrustedKeys keys =
        recipe.trusted ? recipe.trusted() : signature::TrustedKeys();
    expected.keys = recipe.trusted || recipe.requiresSignature ? &keys : nullptr;
    expected.requiresSignature = recipe.requiresSignature;
    return CheckPackage(path, expected);
}

} // namespace

std::string ProgramBytes(unsigned machine)
{
    std::string head = "\x7f"
                       "ELF\2\1\1" +
                       std::string(9, '\0') + archive::Bytes(2, 2) + archive::Bytes(machine, 2);
    head.resize(32, '\0');
    // One segment, which is all of the file.
    head += archive::Bytes(64, 8) + archive::Bytes(0, 8) + archive::Bytes(0, 4) +
            archive::Bytes(64, 2) + archive::Bytes(56, 2) + archive::Bytes(1, 2);
    head.resize(64, '\0');
    head += archive::Bytes(1, 4) + archive::Bytes(5, 4) + archive::Bytes(0, 24) +
            archive::Bytes(200, 8) + archive::Bytes(200, 8) + archive::Bytes(0, 8);
    // Every updater knows the description's name.
    head += "UserPackage.kx-project";
    head.resize(200, '\0');
    return head;
}

Recipe::Recipe()
    : description(std::string("\xef\xbb\xbf") + kDescription), parts{{"kx_Updater",
                                                                      ProgramBytes(62), 0100755},
                                                                     {"0/0/hello", "hello"},
                                                                     {"1/0/a", "a"}}
{
}

void Recipe::Replace(const std::string& from, const std::string& to)
{
    const std::size_t at = description.find(from);
    ASSERT_NE(at, std::string::npos) << from;
    description.replace(at, from.size(), to);
}

archive::ZipPart& Recipe::Part(const std::string& name)
{
    return *std::find_if(parts.begin(), parts.end(),
                         [&name](const archive::ZipPart& part) { return part.name == name; });
}

std::string Recipe::Archive() const
{
    std::vector<archive::ZipPart> all = parts;
    if (!description.empty()) {
        all.insert(all.begin(), {"UserPackage.kx-project", description});
    }
    std::string zip = archive::ZipOf(all);
    if (damage != nullptr) {
        damage(zip);
    }
    return zip;
}

Findings Recipe::Check() const
{
    const TempDir folder;
    folder.Write(fileName, Archive());
    if (!neighbour.empty()) {
        folder.Write(neighbour, "");
    }
    return CheckIn(folder, folder / fileName, *this);
}

Findings Recipe::CheckFolder() const
{
    const TempDir folder;
    folder.Write(folderName + "/UserPackage.kx-project", description);
    for (const archive::ZipPart& part : parts) {
        if ((part.mode & 0170000U) == 0120000U) {
            folder.MakeDir(folderName + "/" + part.name.substr(0, part.name.rfind('/')));
            EXPECT_EQ(
                symlink(part.content.c_str(), (folder / (folderName + "/" + part.name)).c_str()),
                0);
        } else if ((part.mode & 0170000U) == 0010000U) {
            EXPECT_EQ(mkfifo((folder / (folderName + "/" + part.name)).c_str(), 0600), 0);
        } else {
            folder.Write(folderName + "/" + part.name, part.content, part.mode & 0777U);
        }
    }
    return CheckIn(folder, folder / (folderName + "/"), *this);
}

std::vector<std::string> Problems(const Findings& findings)
{
    std::vector<std::string> problems;
    for (const Finding& finding : findings.All()) {
        if (finding.severity != Severity::kNote) {
            const std::string where =
                finding.location.path.empty() ? finding.location.file : finding.location.path;
            problems.push_back(std::string(SeverityName(finding.severity)) + " " +
                               RuleOf(finding.rule).id + " " + where);
        }
    }
    return problems;
}

} // namespace kx::checks
