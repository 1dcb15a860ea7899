// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT

// What the entries are called.
#include "checks/RuleRow.h"

namespace kx::checks
{

namespace of_paths
{

using archive::Bytes;

/// Calls a file of a folder that is copied by another name.
const Put kName = Renamed("1/0/a");

/// The same, with the name written as UTF-8 or on another system.
Put NameAs(unsigned flags, unsigned madeOn)
{
    return [=](Recipe& recipe, const std::string& value) {
        recipe.Part("1/0/a").flags = flags;
        recipe.Part("1/0/a").madeOn = madeOn;
        recipe.Part("1/0/a").name = value;
    };
}

/// Gives the file a second name.
void NameTwice(Recipe& recipe, const std::string& value)
{
    recipe.Part("1/0/a").extra = Bytes(0x7075, 2) + Bytes(value.size() + 5, 2) + "\1crc." + value;
}

constexpr unsigned kUtf8 = 0x800;
constexpr unsigned kDos = 0;
constexpr unsigned kUnix = 3;

const std::vector<RuleRow> kRows = {
    {"path-empty", kError, nullptr, {"", "/", "//"}, Added(), kAmongOthers},
    {"path-empty", kError, nullptr, {"\1", "./\1"}, Added(), kAmongOthers},
    {"path-empty", kSilent, "", {"./"}, AddAll},

    {"path-absolute", kError, "@", {"/1/0/a", "//1/0/a"}, kName},
    {"path-absolute", kSilent, "", {"./1/0/a", "1//0/a"}, kName},

    {"path-up", kError, "@", {"../1/0/a", "1/../1/0/a", "1/0/../a"}, kName, kAmongOthers},
    {"path-up",
     kSilent,
     "",
     {"1/0/..a", "1/0/a..", "1/0/...", "1/0/.../a", "1/./0/a", "1/0/.."},
     kName},

    {"path-backslash", kError, "@", {"1\\0\\a", R"(1\0\\a)"}, NameAs(0, kDos)},
    {"path-backslash", kWarning, "@", {"1/0/a\\b", "1/0/\\a"}, kName},
    {"path-backslash", kWarning, "@", {"1/0/a\\b"}, NameAs(0, kDos)},
    {"path-backslash", kSilent, "", {"1/0/a"}, NameAs(0, kDos)},
    {"path-backslash", kSilent, "", {"1/0/a|b", "1/0/a:b"}, kName},

    {"path-control",
     kWarning,
     "@",
     {"1/0/a\1", "1/0/a\x1f", "1/0/a\x7f", "1/0/a\n", std::string("1/0/a\0b", 7)},
     kName,
     kAmongOthers},
    {"path-control", kSilent, "", {"1/0/a ", "1/0/a~"}, kName},

    {"path-version", kWarning, "@", {"1/0/a;1", "1/0/a;", "1/0/a;09", "1/0/a;b;1"}, kName},
    {"path-version",
     kSilent,
     "",
     {"1/0/a1", "1/0/a;b", "1/0/a;1b", "1/0/a;1/b", "1/0/a;-1"},
     kName},

    {"path-long",
     kError,
     "@",
     {"1/0/" + std::string(256, 'n'), "1/0/" + std::string(256, 'n') + "/a"},
     kName,
     kAmongOthers},
    {"path-long", kError, "@", {PathOf("1/0", 4001)}, kName, kAmongOthers},
    {"path-long",
     kSilent,
     "",
     {"1/0/" + std::string(255, 'n'), "1/0/" + std::string(255, 'n') + "/a"},
     kName},
    {"path-long", kSilent, "", {PathOf("1/0", 4000)}, kName, kAmongOthers},

    {"path-conflict",
     kError,
     "1/0/a",
     {"1/0/a/b", "1/0/a/", "1/0/a-b 1/0/a/c", "1/0/a! 1/0/a.b 1/0/a/b/c"},
     AddAll,
     kAmongOthers},
    {"path-conflict",
     kError,
     "1/0/d",
     {"1/0/d/x 1/0/d", "1/0/d 1/0/d-b 1/0/d/"},
     AddAll,
     kAmongOthers},
    {"path-conflict", kError, "1/0/d/", {"1/0/d/ 1/0/d"}, AddAll, kAmongOthers},
    {"path-conflict",
     kSilent,
     "",
     {"1/0/ab/c", "1/0/a-b 1/0/a-c/d", "1/0/a.b/c", "1/0/A/b", "1/0/d/ 1/0/d/ 1/0/d/e"},
     AddAll},
    {"path-conflict", kSilent, "", {"1/0/a"}, AddAll, kAmongOthers},

    {"path-twice", kWarning, "@", {"1/0/a", "1/0//a", "1/0/./a"}, Added()},
    {"path-twice", kWarning, "@", {"1/0/a;1", "1/0/a\1"}, Added(), kAmongOthers},
    {"path-twice", kSilent, "", {"1/0/A", "1/0/b", "1/0/a.", "1/0/b/a", "1/0/d/ 1/0/d/"}, AddAll},

    {"path-locale", kWarning, "@", {"1/0/\xc3\xa4", "1/0/\xe4", "1/0/\x80"}, kName},
    {"path-locale", kWarning, "@", {"1/0/\xc3\xa4"}, NameAs(kUtf8, kUnix)},
    {"path-locale", kWarning, "@", {"1/0/\xc3\xa4"}, NameAs(kUtf8, kDos)},
    {"path-locale", kError, "@", {"1/0/\xe4", "1/0/\xc3\xa4"}, NameAs(0, kDos)},
    {"path-locale", kError, "@", {"1/0/\xe4", "1/0/\xc3"}, NameAs(kUtf8, kUnix)},
    {"path-locale", kError, "1/0/a", {"1/0/b", "1/0/\xc3\xa4"}, NameTwice},
    {"path-locale", kSilent, "", {"1/0/a"}, NameTwice},
    {"path-locale", kSilent, "", {"1/0/~"}, NameAs(kUtf8, kUnix)},
    {"path-locale", kSilent, "", {"1/0/~"}, NameAs(0, kDos)},
    {"path-locale", kSilent, "", {"1/0/\x7f"}, kName, kAmongOthers},

    {"path-desktop",
     kWarning,
     "@",
     {"1/0/.DS_Store", "1/0/Thumbs.db", "1/0/desktop.ini", "1/0/._a", "1/0/d/.DS_Store"},
     Added()},
    {"path-desktop",
     kWarning,
     "@",
     {"__MACOSX/a", "__MACOSX/d/a", ".DS_Store", "Thumbs.db"},
     Added(),
     kAmongOthers},
    {"path-desktop",
     kSilent,
     "",
     {"1/0/DS_Store", "1/0/.DS_Store2", "1/0/Thumbs.dbx", "1/0/desktop.in", "1/0/._/a", "1/0/_.a",
      "1/0/.a", "1/0/__MACOSX/a"},
     Added()},
    {"path-desktop", kSilent, "", {"__MACOSX2/a"}, Added(), kAmongOthers},
    {"path-desktop", kSilent, "", {"1/0/.DS_Store/"}, AddAll},
};

} // namespace of_paths

const std::vector<RuleRow>& PathRows()
{
    return of_paths::kRows;
}

} // namespace kx::checks
