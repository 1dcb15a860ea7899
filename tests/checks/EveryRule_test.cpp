// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT

// One package for each rule: spoiled in the thing that the rule is about, and in nothing else.
#include "checks/Recipe.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>

namespace kx::checks
{

namespace
{

using testing::ElementsAre;
using testing::IsEmpty;

struct RuleCase {
    const char* id;
    const char* severity;
    const char* where; ///< name or path at which it is found
    void (*spoil)(Recipe& recipe);
    bool isAlone = true; ///< no other errors and warnings are found
};

void PrintTo(const RuleCase& row, std::ostream* out)
{
    *out << row.id;
}

constexpr const char* kStep0 = "DB_StepSets.$values[0]";
constexpr const char* kItem0 = "DB_StepSets.$values[0].PathSetDatas.$values[0].SourcePath";
constexpr const char* kTarget0 = "DB_StepSets.$values[0].PathSetDatas.$values[0].DestinationPath";
constexpr const char* kMode0 = "DB_StepSets.$values[0].PathSetDatas.$values[0].Permissions";
constexpr const char* kItem1 = "DB_StepSets.$values[1].PathSetDatas.$values[0].SourcePath";
constexpr const char* kTarget1 = "DB_StepSets.$values[1].PathSetDatas.$values[0].DestinationPath";
constexpr const char* kScript = "DB_StepSets.$values[2].InstallScriptFunctionData.ScriptData";
#define CONFIG(number)                                                                             \
    "DB_StepSets.$values[3].HardSettingDatas.DB_HardwareConfigs.$values[" number "]"
#define ITEM(config, item, key) CONFIG(config) ".HardwareItems.$values[" item "]." key

// NOLINTBEGIN(modernize-raw-string-literal): what is replaced reads as it does in the recipe
const RuleCase kCases[] = {
    {"name-extension", "error", "", [](Recipe& r) { r.fileName = "hello.zip"; }},
    {"name-empty", "error", "", [](Recipe& r) { r.fileName = ".kx-update"; }},
    {"name-shell", "error", "", [](Recipe& r) { r.fileName = "a$b.kx-update"; }},
    {"name-ascii", "error", "", [](Recipe& r) { r.fileName = "\xc3\xa4.kx-update"; }},
    {"name-separator", "error", "", [](Recipe& r) { r.fileName = "a:b.kx-update"; }},
    {"name-temp", "warning", "", [](Recipe& r) { r.fileName = "a.temporary.kx-update"; }},
    {"name-wildcard", "warning", "", [](Recipe& r) { r.fileName = "a[1].kx-update"; }},
    {"name-twin", "warning", "", [](Recipe& r) { r.neighbour = "._hello.kx-update"; }},
    {"name-neighbour", "note", "", [](Recipe& r) { r.neighbour = "other.kx-update"; }},

    {"archive-end", "error", "", [](Recipe& r) { r.damage = [](std::string& zip) { zip.resize(zip.size() - 1 - 21); }; }},
    {"archive-empty", "error", "", [](Recipe& r) { r.description.clear(); r.parts.clear(); }},
    {"archive-parts", "error", "", [](Recipe& r) { r.damage = [](std::string& zip) { archive::Patch(zip, archive::kEndRecord, 4, "\1"); }; }},
    {"archive-parts", "warning", "", [](Recipe& r) { r.damage = [](std::string& zip) { archive::Patch(zip, archive::kEndRecord, 8, "\1"); }; }},
    {"archive-zip64", "error", "", [](Recipe& r) {
         r.damage = [](std::string& zip) {
             zip.insert(zip.find(archive::kEndRecord), "PK\6\7" + archive::Bytes(0, 4) + archive::Bytes(0, 8) + archive::Bytes(1, 4));
         };
     }, false},
    {"archive-directory", "error", "", [](Recipe& r) { r.damage = [](std::string& zip) { archive::Patch(zip, archive::kCentral, 0, "XX", 1); }; }, false},
    {"archive-count", "error", "", [](Recipe& r) { r.damage = [](std::string& zip) { archive::Patch(zip, archive::kEndRecord, 8, "\3"); archive::Patch(zip, archive::kEndRecord, 10, "\3"); }; }},
    {"archive-leading", "error", "", [](Recipe& r) { r.damage = [](std::string& zip) { zip.insert(0, "MZ"); }; }},
    {"archive-trailing", "warning", "", [](Recipe& r) { r.damage = [](std::string& zip) { zip += "more"; }; }},
    {"archive-comment", "error", "", [](Recipe& r) { r.damage = [](std::string& zip) { archive::Patch(zip, archive::kEndRecord, 20, "\1"); }; }},
    {"archive-too-many", "error", "", [](Recipe& r) {
         r.parts.push_back({std::string(65534, 'a') + "/", "", 040755});
         std::string& name = r.parts.back().name;
         for (std::size_t i = 1; i < name.size(); i += 2) {
             name[i] = '/';
         }
     }, false},
    {"archive-gap", "warning", "1/0/a", [](Recipe& r) {
         r.damage = [](std::string& zip) {
             const std::size_t at = zip.rfind(archive::kLocal);
             zip.insert(at, "gap");
             archive::Patch(zip, archive::kCentral, 42, archive::Bytes(at + 3, 4), 3);
             archive::Patch(zip, archive::kEndRecord, 16, archive::Bytes(zip.find(archive::kCentral), 4));
         };
     }},
    {"archive-bomb", "error", "", [](Recipe& r) {
         r.damage = [](std::string& zip) {
             // 20 MB of which each byte says that it becomes a thousand.
             archive::ZipPart part{"0/0/zeros", std::string(20000000, '\0')}; // NOLINT(bugprone-string-constructor)
             part.method = 8;
             zip = archive::ZipOf({part});
             archive::Patch(zip, archive::kLocal, 22, archive::Bytes(0xfffffffe, 4));
             archive::Patch(zip, archive::kCentral, 24, archive::Bytes(0xfffffffe, 4));
         };
     }, false},
    {"entry-header-missing", "error", "1/0/a", [](Recipe& r) { r.damage = [](std::string& zip) { archive::Patch(zip, archive::kLocal, 0, "XX", 3); }; }, false},
    {"entry-damaged", "error", "0/0/hello", [](Recipe& r) { r.Part("0/0/hello").method = 8; }, false},
    {"entry-overlap", "error", "0/0/hello", [](Recipe& r) {
         r.damage = [](std::string& zip) {
             archive::Patch(zip, archive::kLocal, 18, archive::Bytes(206, 4), 1);
             archive::Patch(zip, archive::kLocal, 22, archive::Bytes(206, 4), 1);
         };
     }, false},
    {"entry-crc", "error", "0/0/hello", [](Recipe& r) { r.damage = [](std::string& zip) { zip[zip.find("0/0/hello") + 9] = 'j'; }; }},
    {"entry-header", "warning", "0/0/hello", [](Recipe& r) { r.damage = [](std::string& zip) { archive::Patch(zip, archive::kCentral, 16, "none", 2); }; }},
    {"entry-header", "error", "0/0/hello", [](Recipe& r) { r.damage = [](std::string& zip) { archive::Patch(zip, archive::kLocal, 22, "\7", 2); archive::Patch(zip, archive::kCentral, 24, "\7", 2); }; }},
    {"entry-name-differs", "error", "0/0/hello", [](Recipe& r) { r.damage = [](std::string& zip) { archive::Patch(zip, archive::kLocal, 30, "9", 2); }; }},
    {"entry-extra", "warning", "0/0/hello", [](Recipe& r) { r.Part("0/0/hello").extra = "abc"; }},
    {"entry-encrypted", "error", "0/0/hello", [](Recipe& r) { r.Part("0/0/hello").flags = 1; }},
    {"entry-method", "error", "0/0/hello", [](Recipe& r) { r.Part("0/0/hello").method = 14; }},
    {"entry-bzip2", "warning", "1/0/a", [](Recipe& r) {
         r.Part("1/0/a").method = 12;
         r.Part("1/0/a").packed = std::string("BZh91AY&SY\x19\x93\x9b\x6b\0\0\0\x01\0\x20\0\x20\0\x21\x18\x46\x82\xee\x48\xa7\x0a\x12\x03\x32\x73\x6d\x60", 37);
     }},
    {"entry-deflate64", "warning", "1/0/a", [](Recipe& r) { r.Part("1/0/a").method = 9; r.Part("1/0/a").packed = std::string("\x4b\x04\0", 3); }},
    {"entry-version", "error", "0/0/hello", [](Recipe& r) { r.Part("0/0/hello").version = 63; }},
    {"entry-link", "warning", "1/0/b", [](Recipe& r) { r.parts.push_back({"1/0/b", "a", 0120777}); }},

    {"entry-label", "warning", "1/0/b", [](Recipe& r) {
         r.parts.push_back({"1/0/b", ""});
         r.parts.back().madeOn = 0;
         r.damage = [](std::string& zip) { archive::Patch(zip, archive::kCentral, 38, "\x08", 4); };
     }},

    {"path-empty", "error", "", [](Recipe& r) { r.parts.push_back({"", ""}); }},
    {"path-absolute", "error", "/1/0/a", [](Recipe& r) { r.Part("1/0/a").name = "/1/0/a"; }},
    {"path-up", "error", "../1/0/a", [](Recipe& r) { r.Part("1/0/a").name = "../1/0/a"; }},
    {"path-backslash", "error", "1\\0\\a", [](Recipe& r) { r.Part("1/0/a").madeOn = 0; r.Part("1/0/a").name = "1\\0\\a"; }},
    {"path-backslash", "warning", "1/0/a\\b", [](Recipe& r) { r.Part("1/0/a").name = "1/0/a\\b"; }},
    {"path-control", "warning", "1/0/a\1", [](Recipe& r) { r.Part("1/0/a").name = "1/0/a\1"; }},
    {"path-version", "warning", "1/0/a;1", [](Recipe& r) { r.Part("1/0/a").name = "1/0/a;1"; }},
    {"path-long", "error", nullptr, [](Recipe& r) { r.Part("1/0/a").name = "1/0/" + std::string(256, 'n'); }, false},
    {"path-conflict", "error", "1/0/a", [](Recipe& r) { r.parts.push_back({"1/0/a/b", "b"}); }, false},
    {"path-twice", "warning", "1/0/a", [](Recipe& r) { r.parts.push_back({"1/0/a", "b"}); }},
    {"path-locale", "warning", "1/0/\xc3\xa4", [](Recipe& r) { r.Part("1/0/a").name = "1/0/\xc3\xa4"; }},
    {"path-locale", "error", "1/0/\xe4", [](Recipe& r) { r.Part("1/0/a").name = "1/0/\xe4"; r.Part("1/0/\xe4").madeOn = 0; }},
    {"path-locale", "error", "1/0/\xe4", [](Recipe& r) { r.Part("1/0/a").name = "1/0/\xe4"; r.Part("1/0/\xe4").flags = 0x800; }},
    {"path-locale", "error", "1/0/a", [](Recipe& r) { r.Part("1/0/a").extra = archive::Bytes(0x7075, 2) + archive::Bytes(10, 2) + "\1crc.1/0/b"; }},
    {"path-desktop", "warning", "1/0/.DS_Store", [](Recipe& r) { r.parts.push_back({"1/0/.DS_Store", ""}); }},

    {"updater-missing", "error", "", [](Recipe& r) { r.parts.erase(r.parts.begin()); }},
    {"updater-link", "warning", "kx_Updater", [](Recipe& r) {
         r.Part("kx_Updater").name = "1/0/a2";
         r.parts.push_back({"kx_Updater", "1/0/a2", 0120777});
     }},
    {"updater-link", "error", "kx_Updater", [](Recipe& r) { r.Part("kx_Updater").content = "/usr/bin/kx_Updater"; r.Part("kx_Updater").mode = 0120777; }},
    {"updater-mode", "error", "kx_Updater", [](Recipe& r) { r.Part("kx_Updater").mode = 0100644; }},
    {"updater-program", "error", "kx_Updater", [](Recipe& r) { r.Part("kx_Updater").content = "no program"; }},
    {"updater-script", "warning", "kx_Updater", [](Recipe& r) { r.Part("kx_Updater").content = "#!/bin/sh\n"; }},
    {"updater-script", "error", "kx_Updater", [](Recipe& r) {
         r.Part("kx_Updater") = {"1/0/a2", "#!/bin/sh\n", 0100755};
         r.parts.push_back({"kx_Updater", "1/0/a2", 0120777});
     }, false},
    {"updater-cut", "error", "kx_Updater", [](Recipe& r) { r.Part("kx_Updater").content.resize(199); }},
    {"updater-processor", "error", "kx_Updater", [](Recipe& r) { r.processor = "arm"; }},

    {"description-missing", "error", "", [](Recipe& r) { r.description.clear(); }},
    {"description-link", "warning", "UserPackage.kx-project", [](Recipe& r) {
         r.parts.push_back({"1/0/d", r.description});
         r.description = "1/0/d";
         r.damage = [](std::string& zip) { archive::Patch(zip, archive::kCentral, 38, archive::Bytes(0120777U << 16, 4)); };
     }},
    {"description-link", "error", "UserPackage.kx-project", [](Recipe& r) {
         r.description = "gone";
         r.damage = [](std::string& zip) { archive::Patch(zip, archive::kCentral, 38, archive::Bytes(0120777U << 16, 4)); };
     }},
    {"description-size", "error", "UserPackage.kx-project", [](Recipe& r) { r.description.resize(3); }},
    {"description-encoding", "error", "UserPackage.kx-project", [](Recipe& r) { r.description = "\xff\xfe{}"; }},
    {"description-mark", "error", "UserPackage.kx-project", [](Recipe& r) { r.description.erase(0, 3); }},
    {"description-mark", "warning", "UserPackage.kx-project", [](Recipe& r) { r.description.replace(0, 3, "abc"); }},
    {"description-json", "error", "UserPackage.kx-project", [](Recipe& r) { r.Replace("\"TP\",", "\"TP\""); }},
    {"description-json", "error", "UserPackage.kx-project", [](Recipe& r) { r.Replace("{", "{\"a\": 1e999,"); }},
    {"description-json", "error", "UserPackage.kx-project", [](Recipe& r) { r.Replace("{", "{\"a\": " + std::string(101, '[') + std::string(101, ']') + ","); }},
    {"description-root", "error", "UserPackage.kx-project", [](Recipe& r) { r.description = "\xef\xbb\xbf[]"; }},
    {"description-zero", "warning", "UserPackage.kx-project", [](Recipe& r) { r.description += '\0'; }},
    {"description-trailing", "warning", "UserPackage.kx-project", [](Recipe& r) { r.description += "}"; }},
    {"description-utf8", "warning", "UserPackage.kx-project", [](Recipe& r) { r.Replace("\"d\"", "\"\xe4\""); }},
    {"description-latin1", "note", "Title", [](Recipe& r) { r.Replace("\"Hello\"", "\"H\xc3\xa4llo\""); }},
    {"lists-nested", "warning", ITEM("0", "0", "HardwareItems.$values"), [](Recipe& r) {
         r.Replace(R"({"$type": "Zt.DB_HardwareItem, Drovic", "ItemName": "Volume", "Value": "5"})",
                   R"({"$type": "Zt.DB_HardwareConfig, Ruvelo", "ConfigId": "x", "IsUsed": true, "HardwareItems": {"$type": "Zt.DB_HardwareItems, Drovic", "$values": [{"$type": "Zt.DB_HardwareItem, Drovic", "ItemName": "Volume", "Value": "5"}]}})");
     }, false},

    {"type-missing", "error", kStep0, [](Recipe& r) { r.Replace(R"("$type": "Zt.Plugins.DB_CopyStepSet, Plexa",)", ""); }, false},
    {"type-unknown", "error", "DB_StepSets.$values[0].$type", [](Recipe& r) { r.Replace("DB_CopyStepSet, Plexa", "DB_CopyStepSet,  Plexa"); }, false},
    {"type-place", "error", "DB_StepSets.$values[1].PathSetDatas.$type", [](Recipe& r) {
         r.Replace("CopyFolderStepSet", "CopyFolderStepSet");
         const std::size_t at = r.description.rfind("DB_CopyFunctionDatas");
         r.description.replace(at, 20, "DB_StepSets");
     }, false},
    {"type-place", "warning", "DB_StepSets.$values[2].UninstallScriptFunctionData.$type", [](Recipe& r) {
         const std::size_t at = r.description.rfind(R"("Zt.Plugins.DB_ScriptFunctionData, Plexa",
   "ScriptData": "gone")");
         r.description.replace(at, 42, R"("Zt.DB_HardwareItem, Drovic", "ItemName": "", "Value": "",)");
     }},
    {"field-missing", "error", "Date", [](Recipe& r) { r.Replace("\"Date\": \"d\",", ""); }},
    {"field-type", "error", "Date", [](Recipe& r) { r.Replace("\"Date\": \"d\"", "\"Date\": 1"); }},
    {"field-twice", "warning", "Date", [](Recipe& r) { r.Replace("\"Date\": \"d\"", "\"Date\": 1, \"Date\": \"d\""); }},
    {"field-unknown", "note", "Data", [](Recipe& r) { r.Replace("\"Date\": \"d\"", "\"Data\": 1, \"Date\": \"d\""); }},

    {"step-kind", "error", "DB_StepSets.$values[0].SS_StepSetId", [](Recipe& r) { r.Replace("SS_CopyFileStepSet,  Plexa", "SS_CopyFileStepSet, Plexa"); }},
    {"step-class", "error", "DB_StepSets.$values[0].SS_StepSetId", [](Recipe& r) { r.Replace("SS_CopyFileStepSet", "SS_ScriptStepSet"); }},
    {"step-empty", "note", "DB_StepSets.$values[0].PathSetDatas", [](Recipe& r) {
         r.Replace(R"({"$type": "Zt.Plugins.DB_CopyFunctionData, Plexa",
    "SourcePath": "bin/hello", "DestinationPath": "/opt/hello", "Permissions": "755"})", "");
     }, false},
    {"payload-missing", "error", kItem0, [](Recipe& r) { r.parts.erase(r.parts.begin() + 1); }},
    {"payload-name", "error", kItem0, [](Recipe& r) { r.Replace("bin/hello", "bin/Hello"); }},
    {"payload-folder", "error", kItem1, [](Recipe& r) { r.parts.pop_back(); }},
    {"payload-empty", "warning", kItem1, [](Recipe& r) { r.Part("1/0/a").mode = 040755; r.parts.back() = {"1/0/", "", 040755}; }},
    {"payload-link", "error", "0/0/hello", [](Recipe& r) { r.Part("0/0/hello").mode = 0120777; }, false},
    {"payload-link", "error", "1/0/b", [](Recipe& r) { r.parts.push_back({"1/0/b", "..", 0120777}); }, false},
    {"payload-unused", "warning", "9/0/x", [](Recipe& r) { r.parts.push_back({"9/0/x", ""}); }},
    {"target-empty", "error", kTarget0, [](Recipe& r) { r.Replace("/opt/hello", ""); }},
    {"target-empty", "error", kTarget1, [](Recipe& r) { r.Replace("/opt/share", ""); }},
    {"target-relative", "error", kTarget0, [](Recipe& r) { r.Replace("/opt/hello", "opt/hello"); }},
    {"target-root", "error", kTarget0, [](Recipe& r) { r.Replace("/opt/hello", "/"); }},
    {"target-whole", "note", kTarget1, [](Recipe& r) { r.Replace("/opt/share", "/"); }},
    {"target-folder", "warning", kTarget0, [](Recipe& r) { r.Replace("/opt/hello", "/opt/hello/"); }},
    {"target-folder", "error", kTarget0, [](Recipe& r) { r.Replace("/opt/hello", "/mnt/user"); }},
    {"target-folder-mode", "error", kMode0, [](Recipe& r) { r.Replace("/opt/hello", "/opt/hello/"); r.Replace("\"755\"", "\"644\""); }, false},
    {"target-conflict", "error", kTarget1, [](Recipe& r) { r.Replace("/opt/share", "/opt/hello/share"); }},
    {"target-twice", "warning", kTarget1, [](Recipe& r) { r.Replace("/opt/hello", "/opt/share/a"); }},
    {"target-separator", "warning", kTarget0, [](Recipe& r) { r.Replace("/opt/hello", "/opt/C:hello"); }},
    {"target-shell", "error", kTarget0, [](Recipe& r) { r.Replace("/opt/hello", "/opt/$HOME"); }},
    {"target-line", "warning", kTarget0, [](Recipe& r) { r.Replace("/opt/hello", "/opt/he\\nllo"); }},
    {"target-long", "error", kTarget0, [](Recipe& r) { r.Replace("/opt/hello", "/opt/" + std::string(256, 'n')); }},
    {"target-lost", "warning", kTarget0, [](Recipe& r) { r.Replace("/opt/hello", "/tmp/hello"); }},
    {"target-registry", "warning", kTarget0, [](Recipe& r) { r.Replace("/opt/hello", "/var/lib/KxUserPackages/x"); }},
    {"source-shell", "error", "1/0/$a", [](Recipe& r) { r.Part("1/0/a").name = "1/0/$a"; }},
    {"permissions", "error", kMode0, [](Recipe& r) { r.Replace("\"755\"", "\"rwx\""); }},
    {"permissions", "error", kMode0, [](Recipe& r) { r.Replace("\"755\"", "\"--help\""); }},
    {"permissions-mask", "warning", kMode0, [](Recipe& r) { r.Replace("\"755\"", "\"+x\""); }},
    {"permissions-open", "note", kMode0, [](Recipe& r) { r.Replace("\"755\"", "\"\""); }},
    {"command-long", "warning", "DB_StepSets.$values[3]", [](Recipe& r) { r.Replace("\"5\"", "\"" + std::string(2048, '5') + "\""); }},
    {"command-too-long", "error", "DB_StepSets.$values[3]", [](Recipe& r) { r.Replace("\"5\"", "\"" + std::string(131072, '5') + "\""); }},

    {"script-empty", "warning", kScript, [](Recipe& r) { r.Replace("#!/bin/sh\\ntrue\\n", ""); }},
    {"script-interpreter", "warning", kScript, [](Recipe& r) { r.Replace("#!/bin/sh\\ntrue\\n", "true"); }},
    {"script-interpreter", "error", kScript, [](Recipe& r) { r.Replace("#!/bin/sh\\ntrue", "#!sh\\ntrue"); }},
    {"script-interpreter", "note", kScript, [](Recipe& r) { r.Replace("#!/bin/sh\\ntrue", "#! /bin/bash -e\\ntrue"); }},
    {"script-mark", "error", kScript, [](Recipe& r) { r.Replace("#!/bin/sh\\ntrue", "\\ufeff#!/bin/sh\\ntrue"); }},
    {"script-first-line", "error", kScript, [](Recipe& r) { r.Replace("#!/bin/sh\\ntrue", "#!/bin/sh\\r\\r\\ntrue"); }},
    {"script-first-line", "error", ITEM("2", "0", "Value"), [](Recipe& r) { r.Replace("#!/bin/sh\\nstart", "#!/bin/sh\\r\\nstart"); }},
    {"script-carriage", "warning", kScript, [](Recipe& r) { r.Replace("\\ntrue", "\\ntrue\\r"); r.Replace("true\\r\\n", "true\\r \\n"); }},
    {"script-carriage", "error", ITEM("2", "0", "Value"), [](Recipe& r) { r.Replace("start\\n", "start\\r\\n"); }},
    {"script-zero", "error", kScript, [](Recipe& r) { r.Replace("\\ntrue", "\\ntr\\u0000ue"); }},

    {"setting-kind", "error", CONFIG("0") ".ConfigId", [](Recipe& r) { r.Replace("HW_SoundConfigSet,  Plexa", "HW_SoundConfigSet, Plexa"); }},
    {"setting-kind", "warning", CONFIG("0") ".ConfigId", [](Recipe& r) { r.Replace("HW_SoundConfigSet,  Plexa\", \"IsUsed\": true", "x\", \"IsUsed\": false"); }},
    {"setting-shell", "error", ITEM("0", "0", "Value"), [](Recipe& r) { r.Replace("\"5\"", "\"5;reboot\""); }},
    {"setting-blank", "error", ITEM("0", "0", "Value"), [](Recipe& r) { r.Replace("\"5\"", "\"5 6\""); }},
    {"setting-pattern", "warning", ITEM("0", "0", "Value"), [](Recipe& r) { r.Replace("\"5\"", "\"*\""); }},
    {"setting-name", "error", ITEM("0", "0", "ItemName"), [](Recipe& r) { r.Replace("\"Volume\"", "\"#Volume\""); }},
    {"user-quote", "error", ITEM("1", "1", "Value"), [](Recipe& r) { r.Replace("\"pass\"", "\"pa'ss\""); }},
    {"user-escape", "error", ITEM("1", "1", "Value"), [](Recipe& r) { r.Replace("\"pass\"", "\"pa\\\\nss\""); }},
    {"user-escape", "warning", ITEM("1", "1", "Value"), [](Recipe& r) { r.Replace("\"pass\"", "\"pa\\\\ss\""); }},
    {"user-line", "error", ITEM("1", "1", "Value"), [](Recipe& r) { r.Replace("\"pass\"", "\"pa\\nss\""); }},
    {"user-long", "error", ITEM("1", "1", "Value"), [](Recipe& r) { r.Replace("\"pass\"", "\"" + std::string(512, 'p') + "\""); }},
    {"user-missing", "error", CONFIG("1") ".HardwareItems.$values", [](Recipe& r) { r.Replace("\"Password\"", "\"password\""); }, false},
    {"user-name", "error", ITEM("1", "0", "Value"), [](Recipe& r) { r.Replace("\"user\"", "\"u ser\""); }},
    {"user-item", "warning", ITEM("1", "0", "ItemName"), [](Recipe& r) { r.Replace(R"({"$type": "Zt.DB_HardwareItem, Drovic", "ItemName": "User", "Value": "user"},)", R"({"$type": "Zt.DB_HardwareItem, Drovic", "ItemName": "Group", "Value": "x"}, {"$type": "Zt.DB_HardwareItem, Drovic", "ItemName": "User", "Value": "user"},)"); }},
    {"user-password", "note", ITEM("1", "1", "Value"), [](Recipe&) {}},

    {"installation-fails", "error", "", [](Recipe& r) { r.Replace("/opt/hello", "/var/lib/KxUserPackages/hello"); }, false},
    {"installation-fails", "error", kStep0, [](Recipe& r) { r.Replace("/opt/hello", "/mnt/usb/hello.temp/0/0/hello"); }, false},
};
// NOLINTEND(modernize-raw-string-literal)

class EveryRule : public testing::TestWithParam<RuleCase>
{
};

TEST_P(EveryRule, IsFoundWhereItAppliesAndThereAlone)
{
    const RuleCase& row = GetParam();
    Recipe recipe;
    row.spoil(recipe);

    const Findings findings = recipe.Check();

    std::vector<std::string> found;
    for (const Finding& finding : findings.All()) {
        const Location& place = finding.location;
        found.push_back(std::string(SeverityName(finding.severity)) + " " +
                        RuleOf(finding.rule).id + " " +
                        (row.where == nullptr ? ""
                         : place.path.empty() ? place.file
                                              : place.path));
    }
    const std::string expected =
        std::string(row.severity) + " " + row.id + " " + (row.where == nullptr ? "" : row.where);
    EXPECT_THAT(found, testing::Contains(expected));
    if (row.isAlone) {
        const bool isNote = std::string(row.severity) == "note";
        EXPECT_EQ(Problems(findings).size(), isNote ? 0 : 1) << testing::PrintToString(found);
    }
}

INSTANTIATE_TEST_SUITE_P(Rules, EveryRule, testing::ValuesIn(kCases),
                         [](const testing::TestParamInfo<RuleCase>& row) {
                             std::string name = row.param.id + std::string("_") +
                                                row.param.severity + "_" +
                                                std::to_string(row.index);
                             for (char& c : name) {
                                 c = c == '-' ? '_' : c;
                             }
                             return name;
                         });

TEST(EveryRuleTable, HoldsEveryRule)
{
    std::set<std::string> tested;
    for (const RuleCase& row : kCases) {
        tested.insert(row.id);
    }
    std::set<std::string> known;
    for (std::size_t i = 0; i < static_cast<std::size_t>(RuleId::kEnd); ++i) {
        known.insert(RuleOf(static_cast<RuleId>(i)).id);
    }
    EXPECT_EQ(tested, known);
}

TEST(CheckPackage, FindsNoProblemInAGoodPackage)
{
    EXPECT_THAT(Problems(Recipe().Check()), IsEmpty());
    EXPECT_THAT(Problems(Recipe().CheckFolder()), IsEmpty());
}

TEST(CheckPackage, OnlyWarnsOfAFailureThatTheStepMaySkip)
{
    Recipe recipe;
    recipe.Replace("\"CanSkip\": false", "\"CanSkip\": true");
    recipe.Replace("bin/hello", "bin/other");

    EXPECT_THAT(Problems(recipe.Check()),
                ElementsAre(std::string("warning payload-name ") + kItem0));
}

TEST(CheckPackage, TellsAllProblemsAtOnce)
{
    Recipe recipe;
    recipe.fileName = "a$b.kx-update";
    recipe.Replace("\"755\"", "\"rwx\"");
    recipe.Replace("\"5\"", "\"5 6\"");
    recipe.Part("kx_Updater").mode = 0100644;

    EXPECT_THAT(Problems(recipe.Check()),
                ElementsAre("error name-shell ", "error updater-mode kx_Updater",
                            std::string("error permissions ") + kMode0,
                            "error setting-blank " ITEM("0", "0", "Value")));
}

TEST(CheckPackage, KeepsABoundedNumberOfFindingsOfARule)
{
    Recipe recipe;
    for (int i = 0; i < 150; ++i) {
        recipe.parts.push_back({"unused" + std::to_string(i), ""});
    }

    const Findings findings = recipe.Check();

    EXPECT_EQ(Problems(findings).size(), Findings::kMostOfARule);
    EXPECT_EQ(findings.Count(Severity::kWarning), 150U);
    EXPECT_EQ(findings.Omitted(RuleId::kPayloadUnused), 50U);
}

TEST(CheckPackage, TakesTheLongestPassword)
{
    Recipe recipe;
    recipe.Replace("\"pass\"", "\"" + std::string(511, 'p') + "\"");

    EXPECT_THAT(Problems(recipe.Check()), IsEmpty());
}

TEST(CheckPackage, SaysWhatFailsWhereNoRuleDoes)
{
    Recipe recipe;
    recipe.Replace("/opt/hello", "/mnt/usb/hello.temp/0/0/hello");
    EXPECT_THAT(Problems(recipe.Check()),
                ElementsAre(std::string("error installation-fails ") + kStep0,
                            std::string("warning target-lost ") + kTarget0));
    EXPECT_EQ(recipe.Check().All().front().what,
              "step 1 fails: File copy error(= 256) is corrupted. From "
              "/mnt/usb/hello.temp/0/0/hello to /mnt/usb/hello.temp/0/0/hello  (Permissions=755)");

    Recipe unrecorded;
    unrecorded.Replace("/opt/hello", "/var/lib/KxUserPackages/hello");
    EXPECT_EQ(unrecorded.Check().All().front().what,
              "The steps succeed, but the package cannot be recorded.");
}

TEST(CheckPackage, OfAStepThatFailsAnErrorOfAnotherStepSaysNothing)
{
    Recipe recipe;
    recipe.Replace("/opt/hello", "/mnt/usb/hello.temp/0/0/hello");
    recipe.Replace("\"5\"", "\"5 6\"");

    EXPECT_THAT(Problems(recipe.Check()),
                ElementsAre("error setting-blank " ITEM("0", "0", "Value"),
                            std::string("error installation-fails ") + kStep0,
                            std::string("warning target-lost ") + kTarget0));
}

TEST(CheckPackage, OnlyWarnsOfAMissingUpdaterInAFolder)
{
    Recipe recipe;
    recipe.parts.erase(recipe.parts.begin());

    EXPECT_THAT(Problems(recipe.CheckFolder()), ElementsAre("warning updater-missing "));
}

TEST(CheckPackage, FollowsTheLinksOfAFolder)
{
    Recipe recipe;
    recipe.Part("0/0/hello").content = "../../1/0/a";
    recipe.Part("0/0/hello").mode = 0120777;
    EXPECT_THAT(Problems(recipe.CheckFolder()), ElementsAre("warning entry-link 0/0/hello"));

    recipe.Part("0/0/hello").content = "../../../hello";
    EXPECT_THAT(Problems(recipe.CheckFolder()),
                ElementsAre("error payload-link 0/0/hello", "warning entry-link 0/0/hello"));
}

} // namespace

} // namespace kx::checks
