// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "Recipe.h"

#include "checks/Checker.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <algorithm>

#include <unistd.h>
#include <zlib.h>

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

std::string HeaderFields(const ZipPart& part, const std::string& packed)
{
    const auto crc =
        crc32_z(0, reinterpret_cast<const Bytef*>(part.content.data()), part.content.size());
    return Bytes(part.version, 2) + Bytes(part.flags, 2) + Bytes(part.method, 2) + Bytes(0, 4) +
           Bytes(crc, 4) + Bytes(packed.size(), 4) + Bytes(part.content.size(), 4) +
           Bytes(part.name.size(), 2);
}

} // namespace

std::string Bytes(std::uint64_t number, std::size_t count)
{
    std::string bytes;
    for (std::size_t i = 0; i < count; ++i) {
        bytes += static_cast<char>(number & 0xffU);
        number >>= 8;
    }
    return bytes;
}

std::string ZipOf(const std::vector<ZipPart>& parts)
{
    std::string zip;
    std::string directory;
    for (const ZipPart& part : parts) {
        const std::string& packed = part.packed.empty() ? part.content : part.packed;
        const std::string fields = HeaderFields(part, packed);
        directory += kCentral + Bytes(20 | part.madeOn << 8, 2) + fields +
                     Bytes(part.extra.size(), 2) + Bytes(0, 6) +
                     Bytes(std::uint64_t{part.mode} << 16, 4) + Bytes(zip.size(), 4) + part.name +
                     part.extra;
        zip.append(kLocal).append(fields).append(2, '\0').append(part.name).append(packed);
    }
    return zip + directory + kEndRecord + Bytes(0, 4) + Bytes(parts.size(), 2) +
           Bytes(parts.size(), 2) + Bytes(directory.size(), 4) + Bytes(zip.size(), 4) + Bytes(0, 2);
}

void Patch(std::string& zip, const char* mark, std::size_t offset, const std::string& bytes,
           std::size_t nth)
{
    std::size_t at = zip.find(mark);
    for (std::size_t i = 0; i < nth; ++i) {
        at = zip.find(mark, at + 1);
    }
    ASSERT_NE(at, std::string::npos);
    zip.replace(at + offset, bytes.size(), bytes);
}

std::string ProgramBytes(unsigned machine)
{
    std::string head = "\x7f"
                       "ELF\2\1\1" +
                       std::string(9, '\0') + Bytes(2, 2) + Bytes(machine, 2);
    head.resize(32, '\0');
    // One segment, which is all of the file.
    head += Bytes(64, 8) + Bytes(0, 8) + Bytes(0, 4) + Bytes(64, 2) + Bytes(56, 2) + Bytes(1, 2);
    head.resize(64, '\0');
    head += Bytes(1, 4) + Bytes(5, 4) + Bytes(0, 24) + Bytes(200, 8) + Bytes(200, 8) + Bytes(0, 8);
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

ZipPart& Recipe::Part(const std::string& name)
{
    return *std::find_if(parts.begin(), parts.end(),
                         [&name](const ZipPart& part) { return part.name == name; });
}

std::string Recipe::Archive() const
{
    std::vector<ZipPart> all = parts;
    if (!description.empty()) {
        all.insert(all.begin(), {"UserPackage.kx-project", description});
    }
    std::string zip = ZipOf(all);
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
    return CheckPackage(folder / fileName, FindProcessor(processor));
}

Findings Recipe::CheckFolder() const
{
    const TempDir folder;
    folder.Write("hello/UserPackage.kx-project", description);
    for (const ZipPart& part : parts) {
        if ((part.mode & 0170000U) == 0120000U) {
            folder.MakeDir("hello/" + part.name.substr(0, part.name.rfind('/')));
            EXPECT_EQ(symlink(part.content.c_str(), (folder / ("hello/" + part.name)).c_str()), 0);
        } else {
            folder.Write("hello/" + part.name, part.content, part.mode & 0777U);
        }
    }
    return CheckPackage(folder / "hello/", FindProcessor(processor));
}

std::vector<std::string> Problems(const Findings& findings)
{
    std::vector<std::string> problems;
    for (const Finding& finding : findings.All()) {
        if (finding.severity != Severity::kNote) {
            const std::string where =
                finding.place.path.empty() ? finding.place.file : finding.place.path;
            problems.push_back(std::string(SeverityName(finding.severity)) + " " +
                               RuleOf(finding.rule).id + " " + where);
        }
    }
    return problems;
}
