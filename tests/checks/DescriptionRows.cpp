// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT

// The description as a file and as JSON.
#include "checks/RuleRow.h"

namespace kx::checks
{

namespace of_descriptions
{

constexpr const char* kFile = "UserPackage.kx-project";
constexpr const char* kMark = "\xef\xbb\xbf";

/// Checks the package for a panel.
void OnPanel(Recipe& recipe, const std::string& panel)
{
    recipe.panel = panel;
}

void SetBytes(Recipe& recipe, const std::string& bytes)
{
    recipe.description = bytes;
}

/// Puts other bytes in place of the byte order mark.
void SetMark(Recipe& recipe, const std::string& bytes)
{
    recipe.description.replace(0, 3, bytes);
}

void Append(Recipe& recipe, const std::string& bytes)
{
    recipe.description += bytes;
}

/// Packs the description under another name.
void Name(Recipe& recipe, const std::string& name)
{
    recipe.parts.push_back({name, recipe.description});
    recipe.description.clear();
}

/// Puts a link in the description's place; the description itself is "1/0/d".
void Link(Recipe& recipe, const std::string& target)
{
    recipe.parts.push_back({"1/0/d", recipe.description});
    recipe.description = target;
    recipe.damage = [](std::string& zip) {
        archive::Patch(zip, archive::kCentral, 38, archive::Bytes(0120777U << 16, 4));
    };
}

/// Adds a key, with its value, in front of all others.
void AddKey(Recipe& recipe, const std::string& value)
{
    recipe.Replace("{", "{\"other\": " + value + ",");
}

/// Adds arrays in arrays.
void AddArrays(Recipe& recipe, const std::string& count)
{
    const std::size_t size = std::stoul(count);
    AddKey(recipe, std::string(size, '[') + std::string(size, ']'));
}

/// Makes the description a number with as many characters behind it; what counts as a value comes
/// on top of the number.
Put Repeated(std::size_t count)
{
    return [count](Recipe& recipe, const std::string& value) {
        recipe.description = kMark + std::string("1") + std::string(count, value.front());
    };
}

/// Makes the description a text of more pieces than values are taken.
void SetText(Recipe& recipe, const std::string& piece)
{
    recipe.description = kMark + std::string("\"");
    for (int i = 0; i < 1000001; ++i) {
        recipe.description += piece;
    }
    recipe.description += "\"";
}

/// Gives a field of the root a value that the window has to show.
void SetForeign(Recipe& recipe, const std::string& field)
{
    const std::string key = "\"" + field + "\": \"";
    recipe.Replace(key, key + "\xc3\xa4");
}

const std::vector<RuleRow> kRows = {
    {"description-missing", kError, "", [](Recipe& r) { r.description.clear(); }},
    {"description-missing",
     kError,
     "",
     {"userpackage.kx-project", "UserPackage.kx-projec", "d/UserPackage.kx-project",
      "UserPackage.kx-project/a"},
     Name},
    {"description-missing", kSilent, "", {"./UserPackage.kx-project"}, Name},

    {"description-link", kWarning, kFile, {"1/0/d", "./1/0/d"}, Link},
    {"description-link", kError, kFile, {"gone", "/etc/d", "1/0", "../1/0/d"}, Link},
    {"description-link", kSilent, "",
     [](Recipe& r) {
         r.parts.push_back({"1/0/l", "a", 0120777});
     },
     kAmongOthers},

    {"description-size", kError, kFile, {"1", "abc", kMark}, SetBytes},
    {"description-size", kSilent, "", {"abc1", kMark + std::string("1")}, SetBytes, kAmongOthers},
    {"description-size", kError, kFile, {",", "[", "{"}, Repeated(1000000)},
    {"description-size", kSilent, "", {",", "[", "{"}, Repeated(999999), kAmongOthers},
    {"description-size", kSilent, "", {"]", "}", ":", "1"}, Repeated(1000001), kAmongOthers},
    {"description-size", kSilent, "", {",", "\\\"["}, SetText, kAmongOthers},

    {"description-encoding",
     kError,
     kFile,
     {"\xff\xfe{}", "\xfe\xff{}", "\xff\xfe\xbf{}"},
     SetBytes},
    {"description-encoding",
     kSilent,
     "",
     {"\xff\xff{}", "\xfe\xfe{}", "a\xff\xfe{}"},
     SetBytes,
     kAmongOthers},

    {"description-mark", kError, kFile, {"", " ", "\n", "\t\t", " \n"}, SetMark},
    {"description-mark",
     kError,
     kFile,
     {"{\n \"a\": 1}", "{ \"a\": 1}", "{\r\n\t\"$type\": \"x\"\n}", R"({"$type": "x"})", "  {}",
      "{\n\n}", "{\"\": {}}"},
     SetBytes},
    {"description-mark", kWarning, kFile, {"abc", "\n\n\n", "\xef\xbb\xbe"}, SetMark},
    {"description-mark", kSilent, "", {kMark}, SetMark},
    {"description-mark", kSilent, "", {"no JSON", "\xef\xbb{}", "[ 1,2]"}, SetBytes, kAmongOthers},

    {"identity-empty", kWarning, "Title", {"", " ", "\\n"}, Text("Hello")},
    {"identity-empty", kWarning, "PackageVersion", {"\"\""}, Piece("\"1\"")},
    {"identity-empty", kSilent, "", {"0", "-"}, Text("Hello")},
    {"identity-empty", kSilent, "", {""}, Text("c")}, // the comment

    {"identity-panel",
     kWarning,
     "ModelName",
     {"models = [\"TP2\"]", "models = []", "models = [\"tp\"]"},
     OnPanel},
    {"identity-panel", kWarning, "OsVersion", {"os-versions = [\"2.0\"]"}, OnPanel},
    {"identity-panel",
     kSilent,
     "",
     {R"(models = ["TP2", "TP"])", "os-versions = [\"2\"]", "users = [\"user\"]"},
     OnPanel},

    {"description-json",
     kError,
     kFile,
     {"\"TP\"", "\"TP\",,", "TP,", "\"TP\", //\n", "'TP',", "\"T\nP\","},
     Piece("\"TP\",")},
    {"description-json",
     kError,
     kFile,
     {"1e999", "-1e999", ".5", "True", "nul", R"("\x")", R"("\ud800")", "[1,]", "{\"a\": 1,}"},
     AddKey},
    {"description-json", kError, kFile, {"101", "250"}, AddArrays},
    {"description-json", kSilent, "", {"100"}, AddArrays},
    {"description-json",
     kSilent,
     "",
     {"1e308", "-0.5", "01", "1", "true", "null", R"("\n")", "[1]", "{\"a\": 1}"},
     AddKey},

    {"description-root",
     kError,
     kFile,
     {"[]", "\"x\"", "1", "true", "null", "[{}]"},
     [](Recipe& r, const std::string& v) { r.description = kMark + v; }},
    {"description-root",
     kSilent,
     "",
     {"{}", " {}"},
     [](Recipe& r, const std::string& v) { r.description = kMark + v; },
     kAmongOthers},

    {"description-zero", kWarning, kFile, {std::string("\0", 1), std::string("\0more", 5)}, Append},
    {"description-zero", kSilent, "", {"\n"}, Append},
    {"description-zero", kSilent, "", {"\\u0000"}, Text("c")},

    {"description-trailing", kWarning, kFile, {"}", "x", "\v", "\n\n{}"}, Append},
    {"description-trailing", kSilent, "", {"", " ", "\t", "\r\n", "\n\n"}, Append},

    {"description-utf8", kWarning, kFile, {"\xe4", "\xc3", "\x80"}, Text("d")},
    {"description-utf8", kSilent, "", {"\xc3\xa4", "\xe2\x82\xac", "\x7f"}, Text("d")},

    {"description-latin1", kNote, "@", {"Title", "PackageVersion", "Comment"}, SetForeign},
    {"description-latin1", kSilent, "", {"Date", "ModelName", "OsVersion"}, SetForeign},
    {"description-latin1", kSilent, "", {"H~llo\x7f"}, Text("Hello")},
};

} // namespace of_descriptions

const std::vector<RuleRow>& DescriptionRows()
{
    return of_descriptions::kRows;
}

} // namespace kx::checks
