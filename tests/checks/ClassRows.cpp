// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT

// The objects of the description and their fields.
#include "checks/RuleRow.h"

namespace kx::checks
{

namespace of_classes
{

constexpr const char* kType0 = "DB_StepSets.$values[0].$type";
constexpr const char* kItemType = ITEM("0", "0", "$type");
constexpr const char* kItem =
    R"({"$type": "Zt.DB_HardwareItem, Drovic", "ItemName": "Volume", "Value": "5"})";

/// All fields of the description, by the place where each comes first; what stands in a step stands
/// in the first of its kind.
const std::string kConfig0 = CONFIG("0");
const std::string kItem00 = ITEM("0", "0", "");

const std::vector<std::string> kTexts = {
    "ModelName",
    "OsVersion",
    "PackageVersion",
    "Title",
    "Comment",
    "Date",
    "DB_StepSets.$values[0].SS_StepSetId",
    kSource0,
    kTarget0,
    kMode0,
    kScript,
    kConfig0 + ".ConfigId",
    kItem00 + "ItemName",
    kItem00 + "Value",
};
const std::vector<std::string> kFlags = {
    "DB_StepSets.$values[0].CanSkip",
    "DB_StepSets.$values[0].IsRelativePath",
    "DB_StepSets.$values[0].IsRemove",
    kConfig0 + ".IsUsed",
};
const std::vector<std::string> kObjects = {
    "DB_StepSets",
    "DB_StepSets.$values[0].PathSetDatas",
    "DB_StepSets.$values[2].InstallScriptFunctionData",
    "DB_StepSets.$values[2].UninstallScriptFunctionData",
    "DB_StepSets.$values[3].HardSettingDatas",
    "DB_StepSets.$values[3].HardSettingDatas.DB_HardwareConfigs",
    kConfig0 + ".HardwareItems",
    "DB_StepSets.$values",
};

/// The key of a field that a path names, as it is written.
std::string KeyOf(const std::string& path)
{
    return "\"" + path.substr(path.rfind('.') + 1) + "\": ";
}

/// Gives a field another key.
void Rename(Recipe& recipe, const std::string& path)
{
    recipe.Replace(KeyOf(path), "\"other\": ");
}

/// Gives a field another value; what was there gets a key that nobody reads.
Put Value(const char* value)
{
    return [value](Recipe& recipe, const std::string& path) {
        recipe.Replace(KeyOf(path), KeyOf(path) + value + ", \"other\": ");
    };
}

/// Puts settings in settings: so many lists stand in each other, of which the description itself
/// has three. The last list holds @p inner.
void NestLists(Recipe& recipe, std::size_t lists, std::string inner)
{
    for (std::size_t i = 3; i < lists; ++i) {
        inner.insert(0,
                     R"({"$type": "Zt.DB_HardwareConfig, Ruvelo", "ConfigId": "x", "IsUsed": true,
                   "HardwareItems": {"$type": "Zt.DB_HardwareItems, Drovic", "$values": [)");
        inner += "]}}";
    }
    recipe.Replace(kItem, inner);
}

void NestFilled(Recipe& recipe, const std::string& lists)
{
    NestLists(recipe, std::stoul(lists), kItem);
}

void NestEmpty(Recipe& recipe, const std::string& lists)
{
    NestLists(recipe, std::stoul(lists), "");
}

/// Adds lists in lists below a key that nobody reads: 2 ^ count - 1 objects in all.
void Double(Recipe& recipe, const std::string& count)
{
    std::string lists;
    for (std::size_t i = 0; i < std::stoul(count); ++i) {
        lists.insert(0, R"({"a": [)");
        lists += "]}";
    }
    recipe.Replace("{", "{\"other\": " + lists + ",");
}

/// Puts script steps in the script that a removal would run: so many objects stand in each other.
void NestObjects(Recipe& recipe, const std::string& objects)
{
    constexpr const char* kField = R"("UninstallScriptFunctionData": )";
    std::string inner = "{}";
    for (std::size_t i = 4; i < std::stoul(objects); ++i) {
        inner.insert(0, kField).insert(0, R"({"$type": "Zt.Plugins.DB_ScriptStepSet, Plexa", )");
        inner += "}";
    }
    recipe.Replace(kField, kField + inner + ", \"other\": ");
}

/// Puts an item in the place of the list of a setting that is used or not.
void Misplace(Recipe& recipe, const std::string& isUsed)
{
    recipe.Replace(R"("IsUsed": true,
     "HardwareItems": )",
                   R"("IsUsed": )" + isUsed + R"(, "HardwareItems": )" + kItem + R"(, "other": )");
}

const std::vector<RuleRow> kRows = {
    {"lists-nested", kWarning, nullptr, {"4", "5", "15"}, NestFilled, kAmongOthers},
    {"lists-nested", kError, nullptr, {"16", "17"}, NestFilled, kAmongOthers},
    {"lists-nested", kError, nullptr, {"41"}, NestObjects, kAmongOthers},
    {"lists-nested", kSilent, "", {"3"}, NestFilled},
    {"lists-nested", kSilent, "", {"4"}, NestEmpty, kAmongOthers},
    {"lists-nested", kSilent, "", {"40"}, NestObjects, kAmongOthers},

    // What takes too long to read is told where nothing else is wrong.
    {"installation-fails", kError, "", {"22"}, Double},
    {"installation-fails", kSilent, "", {"21"}, Double},
    {"installation-fails", kSilent, "", {"24"}, NestFilled, kAmongOthers},

    {"type-missing",
     kError,
     kStep0,
     {""},
     Piece(R"("$type": "Zt.Plugins.DB_CopyStepSet, Plexa",)"),
     kAmongOthers},
    {"type-missing",
     kError,
     kStep0,
     {R"("")", "5", "null", "{}"},
     Piece(R"("Zt.Plugins.DB_CopyStepSet, Plexa")"),
     kAmongOthers},
    {"type-missing",
     kError,
     "UserPackage.kx-project",
     {"\"\""},
     Piece(R"("Zt.Plugins.DB_KxUserProject, Plexa")"),
     kAmongOthers},
    {"type-missing",
     kSilent,
     "",
     {"x", " "},
     Text("Zt.Plugins.DB_CopyStepSet, Plexa"),
     kAmongOthers},

    {"type-unknown",
     kError,
     kType0,
     {"x", " ", "Zt.Plugins.DB_CopyStepSet,  Plexa", "Zt.Plugins.DB_CopyStepSet,Plexa",
      "Zt.Plugins.DB_CopyStepset, Plexa", "Zt.Plugins.DB_CopyStepSet, Plexa "},
     Text("Zt.Plugins.DB_CopyStepSet, Plexa"),
     kAmongOthers},
    {"type-unknown",
     kError,
     kItemType,
     {"Zt.DB_HardwareItem, Plexa"},
     Text("Zt.DB_HardwareItem, Drovic"),
     kAmongOthers},
    {"type-unknown",
     kSilent,
     "",
     {"Zt.Plugins.DB_CopyStepSet, Plexa\\u0000x"},
     Text("Zt.Plugins.DB_CopyStepSet, Plexa")},

    {"type-place",
     kError,
     kType0,
     {"Zt.Plugins.DB_StepSets, Plexa", "Zt.DB_HardwareItem, Drovic"},
     Text("Zt.Plugins.DB_CopyStepSet, Plexa"),
     kAmongOthers},
    {"type-place", kError, "DB_StepSets.$values[1].PathSetDatas.$type",
     [](Recipe& r) {
         r.description.replace(r.description.rfind("DB_CopyFunctionDatas"), 20, "DB_StepSets");
     },
     kAmongOthers},
    {"type-place", kError, CONFIG("0") ".HardwareItems.$type", {"true"}, Misplace},
    {"type-place", kWarning, CONFIG("0") ".HardwareItems.$type", {"false"}, Misplace},
    {"type-place",
     kWarning,
     "DB_StepSets.$values[2].UninstallScriptFunctionData.$type",
     {R"("UninstallScriptFunctionData": {"$type": "Zt.DB_HardwareItem, Drovic", "ItemName": "", "Value": ""}, "other":)"},
     Piece(R"("UninstallScriptFunctionData":)")},
    {"type-place",
     kError,
     "DB_StepSets.$values[2].InstallScriptFunctionData.$type",
     {R"("InstallScriptFunctionData": {"$type": "Zt.DB_HardwareItem, Drovic", "ItemName": "", "Value": ""}, "other":)"},
     Piece(R"("InstallScriptFunctionData":)")},
    {"type-place",
     kWarning,
     "DB_StepSets.$values[2].UninstallScriptFunctionData.InstallScriptFunctionData.$type",
     {R"("UninstallScriptFunctionData": {"$type": "Zt.Plugins.DB_ScriptStepSet, Plexa", "InstallScriptFunctionData": {"$type": "Zt.DB_HardwareItem, Drovic"}}, "other":)"},
     Piece(R"("UninstallScriptFunctionData":)"),
     kAmongOthers},
    {"type-place",
     kSilent,
     "",
     {"Zt.Plugins.DB_ScriptStepSet, Plexa", "Zt.Plugins.DB_HardSettingStepSet, Plexa"},
     Text("Zt.Plugins.DB_CopyStepSet, Plexa"),
     kAmongOthers},

    {"field-missing", kError, "@", kTexts, Rename, kAmongOthers},
    {"field-missing", kError, "@", kFlags, Rename, kAmongOthers},
    {"field-missing", kError, "@", kObjects, Rename, kAmongOthers},
    {"field-missing", kSilent, "", {R"("Other": "", "Date": "d")"}, Piece(R"("Date": "d")")},
    {"field-missing",
     kSilent,
     "",
     {"1", "null"},
     [](Recipe& r, const std::string& v) { r.Replace("\"d\"", v); },
     kAmongOthers},

    {"field-type", kError, "@", kTexts, Value("1"), kAmongOthers},
    {"field-type", kError, "@", kTexts, Value("true"), kAmongOthers},
    {"field-type", kError, "@", kTexts, Value("null"), kAmongOthers},
    {"field-type", kError, "@", kFlags, Value("1"), kAmongOthers},
    {"field-type", kError, "@", kFlags, Value("\"true\""), kAmongOthers},
    {"field-type", kError, "@", kObjects, Value("null"), kAmongOthers},
    {"field-type", kError, "@", kObjects, Value("\"\""), kAmongOthers},
    {"field-type",
     kError,
     "DB_StepSets.$values",
     {"{}", "true"},
     [](Recipe& r, const std::string& v) { Value(v.c_str())(r, "DB_StepSets.$values"); },
     kAmongOthers},
    {"field-type",
     kError,
     "DB_StepSets.$values[4]",
     {"1", "[]", "null", "\"\""},
     [](Recipe& r, const std::string& v) {
         r.description.replace(r.description.rfind("]}}"), 1, "," + v + "]");
     },
     kAmongOthers},
    {"field-type",
     kSilent,
     "",
     {R"("Date": 1, "Date": "d")"},
     Piece(R"("Date": "d")"),
     kAmongOthers},
    {"field-type",
     kSilent,
     "",
     {"\"\"", "\"1\"", "\"true\""},
     [](Recipe& r, const std::string& v) { r.Replace("\"d\"", v); }},
    {"field-type",
     kSilent,
     "",
     {"true", "false"},
     [](Recipe& r, const std::string& v) {
         r.Replace("\"IsRemove\": true", "\"IsRemove\": " + v);
     }},

    {"field-twice",
     kWarning,
     "Date",
     {R"("Date": 1, "Date": "d")", R"("Date": "d", "Date": "d")"},
     Piece(R"("Date": "d")")},
    {"field-twice",
     kWarning,
     "other",
     {R"("other": 1, "other": 2, "Date": "d")"},
     Piece(R"("Date": "d")")},
    {"field-twice",
     kWarning,
     ITEM("0", "0", "Value"),
     {R"("Value": "5", "Value": "5")"},
     Piece(R"("Value": "5")")},
    {"field-twice",
     kSilent,
     "",
     {R"("date": 1, "Date": "d")", R"("CanSkip": 1, "Date": "d")"},
     Piece(R"("Date": "d")")},

    {"field-unknown",
     kNote,
     "@",
     {"Data", "date", "Date ", "$values", "CanSkip"},
     [](Recipe& r, const std::string& v) { r.Replace("\"Date\"", "\"" + v + R"(": 1, "Date")"); }},
    {"field-unknown",
     kNote,
     "DB_StepSets.DB_StepSets",
     {R"("DB_StepSets": 1, "$values")"},
     Piece(R"("$values")")},
    {"field-unknown",
     kSilent,
     "",
     {"Date", "$type"},
     [](Recipe& r, const std::string& v) { r.Replace("\"Date\"", "\"" + v + R"(": 1, "Date")"); },
     kAmongOthers},
};

} // namespace of_classes

const std::vector<RuleRow>& ClassRows()
{
    return of_classes::kRows;
}

} // namespace kx::checks
