// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT

// The entries of the archive: their headers and contents, and of what kind they are.
#include "checks/RuleRow.h"

namespace kx::checks
{

namespace of_entries
{

using archive::Bytes;
using archive::kCentral;
using archive::kEndRecord;
using archive::kLocal;
using archive::Patch;
using archive::ZipPart;

constexpr const char* kHello = "0/0/hello"; ///< the third entry

/// Gives the third entry a field of its headers, a number.
Put Field(unsigned ZipPart::*field)
{
    return [field](Recipe& recipe, const std::string& value) {
        recipe.Part(kHello).*field = static_cast<unsigned>(std::stoul(value, nullptr, 0));
    };
}

void SetExtra(Recipe& recipe, const std::string& value)
{
    recipe.Part(kHello).extra = value;
}

/// Tells another size of the updater at the updater itself, where 200 bytes are.
void TellSize(Recipe& recipe, const std::string& size)
{
    recipe.damage = [size](std::string& zip) {
        Patch(zip, kLocal, 18, Bytes(std::stoul(size), 4) + Bytes(std::stoul(size), 4), 1);
    };
}

/// Adds an empty entry of a mode.
void AddOfMode(Recipe& recipe, const std::string& mode)
{
    recipe.parts.push_back({"1/0/b", "", static_cast<unsigned>(std::stoul(mode, nullptr, 8))});
}

/// Adds an entry as other systems make them: "system:attributes".
void AddOfSystem(Recipe& recipe, const std::string& value)
{
    recipe.parts.push_back({"1/0/b", ""});
    recipe.parts.back().madeOn = static_cast<unsigned>(std::stoul(value));
    recipe.damage = [value](std::string& zip) {
        Patch(zip, kCentral, 38, Bytes(std::stoul(value.substr(value.find(':') + 1)), 4), 4);
    };
}

void Pack(Recipe& recipe, unsigned method, const std::string& packed)
{
    recipe.Part("1/0/a").method = method;
    recipe.Part("1/0/a").packed = packed;
}

void PackBzip2(Recipe& recipe)
{
    Pack(recipe, 12,
         std::string("BZh91AY&SY\x19\x93\x9b\x6b\0\0\0\x01\0\x20\0\x20\0\x21\x18\x46\x82\xee\x48"
                     "\xa7\x0a\x12\x03\x32\x73\x6d\x60",
                     37));
}

void PackDeflate64(Recipe& recipe)
{
    Pack(recipe, 9, std::string("\x4b\x04\0", 3));
}

void PackDeflate(Recipe& recipe)
{
    Pack(recipe, 8, archive::Deflated("a"));
}

/// Lets sizes and checksum follow the last content; its header has none.
void Follow(Recipe& recipe, bool isTrue)
{
    recipe.Part("1/0/a").flags = 8;
    recipe.damage = [isTrue](std::string& zip) {
        const std::size_t header = zip.rfind(kLocal);
        const std::string told = zip.substr(header + 14, 12);
        const std::size_t at = zip.find(kCentral);
        zip.insert(at, "PK\7\x08" + (isTrue ? told : std::string(12, 'x')));
        zip.replace(header + 14, 12, 12, '\0');
        Patch(zip, kEndRecord, 16, Bytes(at + 16, 4));
    };
}

const std::vector<RuleRow> kRows = {
    {"entry-header-missing",
     kError,
     "1/0/a",
     {"XX", "PK\3\5"},
     Patched(kLocal, 0, 3),
     kAmongOthers},
    {"entry-header-missing",
     kError,
     "1/0/a",
     {std::string("\xff\xff\xff\0", 4)},
     Patched(kCentral, 42, 3),
     kAmongOthers},
    {"entry-header-missing", kSilent, "", {"time"}, Patched(kLocal, 10, 3)},

    {"entry-damaged", kError, kHello, {"8"}, Field(&ZipPart::method), kAmongOthers},
    {"entry-damaged", kError, "1/0/a",
     [](Recipe& r) {
         PackDeflate(r);
         r.Part("1/0/a").packed.pop_back();
     },
     kAmongOthers},
    {"entry-damaged",
     kError,
     "1/0/a",
     {"\2"},
     [](Recipe& r, const std::string& size) {
         r.damage = [size](std::string& zip) {
             Patch(zip, kLocal, 18, size, 3);
             Patch(zip, kLocal, 22, size, 3);
         };
     },
     kAmongOthers},
    {"entry-damaged", kSilent, "", PackDeflate},

    {"entry-overlap", kError, kHello, {"201", "206"}, TellSize, kAmongOthers},
    {"entry-overlap", kSilent, "", {"200"}, TellSize},
    {"entry-overlap", kSilent, "", {"199"}, TellSize, kAmongOthers},

    {"entry-crc", kError, kHello,
     [](Recipe& r) { r.damage = [](std::string& zip) { zip[zip.find(kHello) + 9] = 'j'; }; }},
    {"entry-crc", kError, kHello, {"none"}, Patched(kLocal, 14, 2), kAmongOthers},
    {"entry-crc", kSilent, "", {"none"}, Patched(kCentral, 16, 2), kAmongOthers},

    {"entry-header", kWarning, kHello, {"none"}, Patched(kCentral, 16, 2)},
    {"entry-header", kWarning, kHello, {"\6", "\4"}, Patched(kCentral, 20, 2)},
    {"entry-header", kWarning, kHello, {"\6", "\4"}, Patched(kCentral, 24, 2)},
    {"entry-header", kWarning, kHello, {"\x8"}, Patched(kCentral, 10, 2)},
    {"entry-header", kWarning, kHello, {"\x8"}, Patched(kCentral, 8, 2)},
    {"entry-header", kWarning, "1/0/a", [](Recipe& r) { Follow(r, false); }},
    {"entry-header", kSilent, "", [](Recipe& r) { Follow(r, true); }},
    {"entry-header", kError, kHello,
     [](Recipe& r) {
         r.damage = [](std::string& zip) {
             Patch(zip, kLocal, 22, "\7", 2);
             Patch(zip, kCentral, 24, "\7", 2);
         };
     }},
    {"entry-header", kSilent, "", {"time"}, Patched(kCentral, 12, 2)},
    {"entry-header", kSilent, "", {"\6", "\2"}, Patched(kLocal, 6, 2)},
    {"entry-header", kSilent, "", {"\1"}, Patched(kCentral, 36, 2)},

    {"entry-name-differs", kError, kHello, {"9", "0/0/hellp"}, Patched(kLocal, 30, 2)},
    {"entry-name-differs", kError, kHello, {std::string("\0\x08", 2)}, Patched(kLocal, 6, 2)},
    {"entry-name-differs", kError, kHello, {std::string("\0\x08", 2)}, Patched(kCentral, 8, 2)},
    {"entry-name-differs", kSilent, "", {"0x800"}, Field(&ZipPart::flags)},
    {"entry-name-differs", kSilent, "", {kHello}, Patched(kLocal, 30, 2)},

    {"entry-extra",
     kWarning,
     kHello,
     {"a", "abc", std::string("ab\1\0", 4), std::string("ab\2\0c", 5)},
     SetExtra},
    {"entry-extra",
     kSilent,
     "",
     {"", std::string("ab\0\0", 4), std::string("ab\1\0c", 5)},
     SetExtra},

    {"entry-encrypted", kError, kHello, {"1", "9", "3"}, Field(&ZipPart::flags), kAmongOthers},
    {"entry-encrypted", kSilent, "", {"2", "4", "0x800"}, Field(&ZipPart::flags)},

    {"entry-method",
     kError,
     kHello,
     {"1", "2", "3", "4", "5", "6", "7", "10", "11", "13", "14", "95", "98"},
     Field(&ZipPart::method)},
    {"entry-method", kError, kHello, {"\xe", "\x2"}, Patched(kLocal, 8, 2), kAmongOthers},
    {"entry-method", kSilent, "", PackDeflate},
    {"entry-method", kSilent, "", PackDeflate64, kAmongOthers},
    {"entry-method", kSilent, "", PackBzip2, kAmongOthers},

    {"entry-bzip2", kWarning, "1/0/a", PackBzip2},
    {"entry-bzip2", kSilent, "", PackDeflate},
    {"entry-bzip2", kSilent, "", PackDeflate64, kAmongOthers},

    {"entry-deflate64", kWarning, "1/0/a", PackDeflate64},
    {"entry-deflate64", kSilent, "", PackDeflate},
    {"entry-deflate64", kSilent, "", PackBzip2, kAmongOthers},

    {"entry-version", kError, kHello, {"47", "63", "0x32f"}, Field(&ZipPart::version)},
    // What follows from an entry that does not arrive is not told besides.
    {"entry-version",
     kError,
     "UserPackage.kx-project",
     {std::string(1, char{47})},
     Patched(kCentral, 6, 0)},
    {"entry-version", kError, "kx_Updater", {std::string(1, char{47})}, Patched(kCentral, 6, 1)},
    {"entry-version", kSilent, "", {"46", "10", "0x32e"}, Field(&ZipPart::version)},

    {"entry-link", kWarning, "1/0/b",
     [](Recipe& r) {
         r.parts.push_back({"1/0/b", "a", 0120777});
     }},
    {"entry-link", kSilent, "", {"0100644", "0100755", "0644"}, AddOfMode},
    {"entry-link", kSilent, "", {"0:2717843456"}, AddOfSystem},
    {"entry-link", kSilent, "",
     [](Recipe& r) {
         r.Part("kx_Updater").name = "1/0/a2";
         r.parts.push_back({"kx_Updater", "1/0/a2", 0120777});
     },
     kAmongOthers},

    {"entry-label", kWarning, "1/0/b", {"0:8", "0:9", "5:8", "6:8", "11:8"}, AddOfSystem},
    {"entry-label", kSilent, "", {"0:0", "0:7", "0:32", "3:2175008776", "7:8"}, AddOfSystem},
};

} // namespace of_entries

const std::vector<RuleRow>& EntryRows()
{
    return of_entries::kRows;
}

} // namespace kx::checks
