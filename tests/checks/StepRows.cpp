// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT

// The steps, and what they find in the package. Its first step copies "0/0/hello", its second the
// folder "1/0", which holds a file "a".
#include "checks/RuleRow.h"

namespace kx::checks
{

namespace of_steps
{

/// Adds a link to the folder that is copied: "name>target".
void AddLink(Recipe& recipe, const std::string& value)
{
    const std::size_t mark = value.find('>');
    recipe.parts.push_back({value.substr(0, mark), value.substr(mark + 1), 0120777});
}

/// Makes the file that is copied a link.
void LinkFile(Recipe& recipe, const std::string& target)
{
    recipe.Part("0/0/hello").mode = 0120777;
    recipe.Part("0/0/hello").content = target;
}

/// Replaces the file that is copied by others.
void ReplaceFile(Recipe& recipe, const std::string& value)
{
    recipe.parts.erase(recipe.parts.begin() + 1);
    AddAll(recipe, value);
}

/// Replaces all that the folder holds by others.
void ReplaceFolder(Recipe& recipe, const std::string& value)
{
    recipe.parts.pop_back();
    AddAll(recipe, value);
}

/// Gives the file that is copied another name.
void NameFile(Recipe& recipe, const std::string& value)
{
    recipe.Part("0/0/hello").name = "0/0/" + value;
    std::string source = value;
    if (const std::size_t at = source.find_first_of("\"\\"); at != std::string::npos) {
        source.insert(at, "\\");
    }
    recipe.Replace("bin/hello", "bin/" + source);
}

constexpr const char* kStepId = "DB_StepSets.$values[0].SS_StepSetId";
constexpr const char* kCopyFile = "Zt.Plugins.SS_CopyFileStepSet,  Plexa";
constexpr const char* kFileItem = R"({"$type": "Zt.Plugins.DB_CopyFunctionData, Plexa",
    "SourcePath": "bin/hello", "DestinationPath": "/opt/hello", "Permissions": "755"})";
constexpr const char* kSoundItem =
    R"({"$type": "Zt.DB_HardwareItem, Drovic", "ItemName": "Volume", "Value": "5"})";

/// Empties a list; its path tells which.
void EmptySteps(Recipe& recipe)
{
    const std::size_t begin = recipe.description.find("$values\": [") + 11;
    recipe.description.replace(begin, recipe.description.rfind("]}}") - begin, "");
}

void EmptySettings(Recipe& recipe)
{
    const std::size_t begin =
        recipe.description.find("$values\": [", recipe.description.find("DB_HardwareConfigs, ")) +
        11;
    recipe.description.replace(begin, recipe.description.rfind("]}}}]}") - begin, "");
}

const std::vector<RuleRow> kRows = {
    {"step-kind",
     kError,
     kStepId,
     {"", "x", "Zt.Plugins.SS_CopyFileStepSet, Plexa", "Zt.Plugins.SS_CopyFileStepSet,   Plexa",
      "zt.Plugins.SS_CopyFileStepSet,  Plexa", "Zt.Plugins.SS_CopyFileStepSet,  Plexa "},
     Text(kCopyFile),
     kAmongOthers},
    {"step-kind",
     kError,
     "DB_StepSets.$values[1].SS_StepSetId",
     {"SS_CopyFolderStepSet, Plexa"},
     Piece("SS_CopyFolderStepSet,  Plexa")},
    {"step-kind",
     kError,
     "DB_StepSets.$values[2].SS_StepSetId",
     {"SS_ScriptStepSet, Plexa"},
     Piece("SS_ScriptStepSet,  Plexa")},
    {"step-kind",
     kError,
     "DB_StepSets.$values[3].SS_StepSetId",
     {"SS_HardSettingStepSet, Plexa"},
     Piece("SS_HardSettingStepSet,  Plexa")},
    {"step-kind", kSilent, "", {"Zt.Plugins.SS_CopyFileStepSet,  Plexa\\u0000x"}, Text(kCopyFile)},

    {"step-class",
     kError,
     kStepId,
     {"SS_ScriptStepSet", "SS_HardSettingStepSet"},
     Piece("SS_CopyFileStepSet")},
    {"step-class",
     kError,
     "DB_StepSets.$values[2].SS_StepSetId",
     {"SS_CopyFileStepSet", "SS_CopyFolderStepSet", "SS_HardSettingStepSet"},
     Piece("SS_ScriptStepSet")},
    {"step-class",
     kError,
     "DB_StepSets.$values[3].SS_StepSetId",
     {"SS_CopyFileStepSet", "SS_CopyFolderStepSet", "SS_ScriptStepSet"},
     Piece("SS_HardSettingStepSet")},
    {"step-class", kSilent, "", {"SS_CopyFolderStepSet"}, Piece("SS_CopyFileStepSet")},
    {"step-class",
     kSilent,
     "",
     {"SS_CopyFileStepSet"},
     Piece("SS_CopyFolderStepSet"),
     kAmongOthers},

    {"step-empty", kNote, "DB_StepSets", EmptySteps, kAmongOthers},
    {"step-empty",
     kNote,
     "DB_StepSets.$values[0].PathSetDatas",
     {""},
     Piece(kFileItem),
     kAmongOthers},
    {"step-empty", kNote, "DB_StepSets.$values[3].HardSettingDatas.DB_HardwareConfigs.$values",
     EmptySettings},
    {"step-empty", kNote, CONFIG("0") ".HardwareItems.$values", {""}, Piece(kSoundItem)},
    {"step-empty", kSilent, "",
     [](Recipe& r) {
         r.Replace("\"IsUsed\": true", "\"IsUsed\": false");
         r.Replace(kSoundItem, "");
     }},
    {"step-empty", kSilent, "", {"other"}, Text("Volume")},

    {"payload-missing",
     kError,
     kSource0,
     {"", "0/0/", "0/0/hello/", "0/0/x/hello", "0/0/hello/x", "0/0/hello/ 0/0/y"},
     ReplaceFile,
     kAmongOthers},
    {"payload-missing", kError, kSource0, {""}, ReplaceFile},
    {"payload-missing",
     kError,
     kSource0,
     {"", "bin/", "bin\\\\"},
     Piece("bin/hello"),
     kAmongOthers},
    {"payload-missing",
     kSilent,
     "",
     {"hello", "/a/b/hello", R"(C:\\bin\\hello)", "bin\\\\hello"},
     Piece("bin/hello")},
    {"payload-missing", kSilent, "", {"hallo"}, Piece("hello"), kAmongOthers},

    {"payload-name",
     kError,
     kSource0,
     {"bin/Hello", "bin/hello2", "bin/hell", "bin\\\\Hello"},
     Piece("bin/hello")},
    {"payload-name",
     kError,
     kSource0,
     {"0/0/Hello", "0/0/x 0/0/y", "0/0/x/hello 0/0/y"},
     ReplaceFile},
    {"payload-name",
     kSilent,
     "",
     {"0/0/x/hello", "0/0/Hello/x", "0/1/Hello", "0/00/hello", "0/0x"},
     ReplaceFile,
     kAmongOthers},
    {"payload-name", kSilent, "", {"0/0/Hello"}, AddAll, kAmongOthers},

    {"payload-folder",
     kError,
     kSource1,
     {"", "1/1/a", "1/a", "1/00/a"},
     ReplaceFolder,
     kAmongOthers},
    {"payload-folder", kError, kSource1, {""}, ReplaceFolder},
    {"payload-folder", kError, kSource1, {"1/0"}, ReplaceFolder, kAmongOthers},
    {"payload-folder", kSilent, "", {"1/0/b", "1/0/b/c", "1/0/b/"}, ReplaceFolder},
    {"payload-folder", kSilent, "", {"1/0/"}, ReplaceFolder, kAmongOthers},

    {"payload-empty", kWarning, kSource1, {"1/0/"}, ReplaceFolder},
    {"payload-empty", kSilent, "", {"1/0/b", "1/0/b/"}, ReplaceFolder},
    {"payload-empty", kSilent, "", {""}, ReplaceFolder, kAmongOthers},

    {"payload-link",
     kError,
     "0/0/hello",
     {"gone", "../../../hello", "/bin/sh", "hello"},
     LinkFile,
     kAmongOthers},
    {"payload-link", kSilent, "", {"../../1/0/a", ".././../1/0/a"}, LinkFile, kAmongOthers},
    {"payload-link", kSilent, "", {"../../1/0"}, LinkFile, kAmongOthers},
    {"payload-link",
     kError,
     "1/0/b",
     {"1/0/b>..", "1/0/b>.", "1/0/b>gone", "1/0/b>/bin", "1/0/b>../../..", "1/0/b>b"},
     AddLink,
     kAmongOthers},
    {"payload-link", kError, "1/0/b/c", {"1/0/b/c>..", "1/0/b/c>."}, AddLink, kAmongOthers},
    {"payload-link",
     kSilent,
     "",
     {"1/0/b>a", "1/0/b>../../0", "1/0/b>../0/a", "1/0/b/c>../a"},
     AddLink,
     kAmongOthers},
    {"payload-link", kSilent, "", {"9/0/b>gone"}, AddLink, kAmongOthers},

    {"payload-unused",
     kWarning,
     "@",
     {"9/0/x", "0/0/x", "0/1/hello", "0/x", "x", "2/0/x", "3/0/x", "1/x", "1/1/x", "10/0/x",
      "1/00/x"},
     Added()},
    {"payload-unused", kSilent, "", {"1/0/x", "1/0/x/y", "9/0/", "2/"}, AddAll},
    {"payload-unused", kSilent, "",
     [](Recipe& r) {
         r.Replace("SS_CopyFileStepSet", "x");
         r.parts.push_back({"0/7/x", ""});
     },
     kAmongOthers},
    {"payload-unused", kSilent, "",
     [](Recipe& r) {
         r.Replace("SS_CopyFileStepSet", "SS_ScriptStepSet");
         r.parts.push_back({"0/7/x", ""});
     },
     kAmongOthers},
    {"payload-unused", kSilent, "",
     [](Recipe& r) {
         r.Replace("\"SS_StepSetId\"", "\"Id\"");
         r.parts.push_back({"0/7/x", ""});
     },
     kAmongOthers},
    {"payload-unused",
     kWarning,
     "@",
     {"01/x", "0x"},
     [](Recipe& r, const std::string& v) {
         r.Replace("SS_CopyFileStepSet", "x");
         r.parts.push_back({v, ""});
     },
     kAmongOthers},

    {"source-shell", kError, kSource0, {"$a", "a`b", "a\"b", "$(a)"}, NameFile},
    {"source-shell", kError, "@", {"1/0/$a", "1/0/a`", "1/0/a\"", "1/0/$(b)"}, Added()},
    {"source-shell", kError, "@", {"1/0/a\\", "1/0/\\\\"}, Added(), kAmongOthers},
    {"source-shell", kSilent, "", {"a$", "a'b", "a b", "a;b", "a*", "$.a"}, NameFile},
    {"source-shell", kSilent, "", {"1/0/a$", "1/0/a'b", "1/0/a;b", "1/0/$/b"}, Added()},
    {"source-shell", kSilent, "", {"1/0/a\\b"}, Added(), kAmongOthers},

    {"permissions",
     kError,
     kMode0,
     {"rwx", "8", "778", "10000", "u", "u+q", "x+u", "755;", "7 5", " ", "u+x,", ",u+x", "u=gx",
      "--help", "--version", " --help ", "-R"},
     Text("755")},
    {"permissions",
     kSilent,
     "",
     {"0", "755", "0755", "7777", "00007777", " 755 ", "u+x", "u+", "a=rx,g-w", "u=g", "ug+rwX",
      "u+x-w", "o=t"},
     Text("755")},
    {"permissions",
     kWarning,
     kMode0,
     {"true"},
     [](Recipe& r, const std::string& v) {
         r.Replace("\"CanSkip\": false", "\"CanSkip\": " + v);
         r.Replace("755", "rwx");
     }},
    {"permissions",
     kError,
     kMode0,
     {"other"},
     [](Recipe& r, const std::string& v) {
         r.Replace("CanSkip", v);
         r.Replace("755", "rwx");
     },
     kAmongOthers},

    {"permissions-mask",
     kWarning,
     kMode0,
     {"+x", "-w", "=rx", "=755", "u+x,+w", "u+x,-w", "u+x,=r"},
     Text("755")},
    {"permissions-mask",
     kSilent,
     "",
     {"u+x", "g-w", "o=r", "a+x", "u+x,g-w", "u+x-w", "u=rx,o=", "755"},
     Text("755")},

    {"permissions-open", kNote, kMode0, {""}, Text("755")},
    {"permissions-open", kSilent, "", {"0", "777"}, Text("755")},
    {"permissions-open", kSilent, "", {" "}, Text("755"), kAmongOthers},
};

} // namespace of_steps

const std::vector<RuleRow>& StepRows()
{
    return of_steps::kRows;
}

} // namespace kx::checks
