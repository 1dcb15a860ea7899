// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT

// The archive as a whole. A package without a fault has four entries: the description, the updater
// (200 bytes), a file of 5 bytes, and one of 1 byte.
#include "checks/RuleRow.h"

namespace kx::checks
{

namespace of_archives
{

using archive::Bytes;
using archive::kCentral;
using archive::kEndRecord;
using archive::kLocal;
using archive::Patch;

constexpr std::size_t kCounts = 8;  ///< place of both numbers of entries in the end record
constexpr std::size_t kOffset = 16; ///< of the directory's place in it
constexpr std::size_t kLast = 3;    ///< which entry is the last one

/// Inserts bytes in front of the directory, and tells where that is now.
void InsertBeforeDirectory(std::string& zip, const std::string& bytes)
{
    const std::size_t at = zip.find(kCentral);
    zip.insert(at, bytes);
    Patch(zip, kEndRecord, kOffset, Bytes(at + bytes.size(), 4));
}

/// Adds the records of large archives.
void AddZip64(std::string& zip, std::uint64_t count, std::uint64_t disk, std::uint64_t disks)
{
    const std::size_t at = zip.find(kCentral);
    const std::size_t endAt = zip.find(kEndRecord);
    zip.insert(endAt, "PK\6\6" + Bytes(44, 8) + Bytes(45, 4) + Bytes(0, 8) + Bytes(count, 8) +
                          Bytes(count, 8) + Bytes(endAt - at, 8) + Bytes(at, 8) + "PK\6\7" +
                          Bytes(disk, 4) + Bytes(endAt, 8) + Bytes(disks, 4));
}

/// Puts a comment of 4 bytes at the last entry, which is told to be longer or shorter.
void Comment(Recipe& recipe, const std::string& told)
{
    recipe.damage = [told](std::string& zip) {
        const std::size_t endAt = zip.find(kEndRecord);
        const std::size_t size = endAt - zip.find(kCentral);
        zip.insert(endAt, "note");
        Patch(zip, kCentral, 32, Bytes(std::stoul(told), 2), kLast);
        Patch(zip, kEndRecord, 12, Bytes(size + 4, 4));
    };
}

/// Appends "more" as a comment of the archive that is told to have another length.
void EndComment(Recipe& recipe, const std::string& told)
{
    recipe.damage = [told](std::string& zip) {
        Patch(zip, kEndRecord, 20, Bytes(std::stoul(told), 2));
        zip += "more";
    };
}

void Append(Recipe& recipe, const std::string& size)
{
    recipe.damage = [size](std::string& zip) { zip.append(std::stoul(size), 'x'); };
}

void SetCounts(Recipe& recipe, const std::string& count)
{
    recipe.damage = [count](std::string& zip) {
        Patch(zip, kEndRecord, kCounts, Bytes(std::stoul(count), 2) + Bytes(std::stoul(count), 2));
    };
}

/// Makes an archive of one entry of "packed size:size".
void SetSizes(Recipe& recipe, const std::string& sizes)
{
    recipe.damage = [sizes](std::string& zip) {
        const std::size_t packed = std::stoul(sizes);
        const std::size_t size = std::stoul(sizes.substr(sizes.find(':') + 1));
        archive::ZipPart part{"0/0/zeros", std::string(packed, '\0')};
        part.method = 8;
        zip = archive::ZipOf({part});
        Patch(zip, kLocal, 22, Bytes(size, 4));
        Patch(zip, kCentral, 24, Bytes(size, 4));
    };
}

/// Adds a folder below that many others.
void Nest(Recipe& recipe, const std::string& levels)
{
    std::string name = "1/0/";
    for (std::size_t i = 0; i < std::stoul(levels); ++i) {
        name += "d/";
    }
    recipe.parts.push_back({name, "", 040755});
}

/// Inserts bytes between the third entry and the last.
void InsertBeforeLast(Recipe& recipe, const std::string& bytes)
{
    recipe.damage = [bytes](std::string& zip) {
        const std::size_t at = zip.rfind(kLocal);
        zip.insert(at, bytes);
        Patch(zip, kCentral, 42, Bytes(at + bytes.size(), 4), kLast);
        Patch(zip, kEndRecord, kOffset, Bytes(zip.find(kCentral), 4));
    };
}

const std::vector<RuleRow> kRows = {
    {"archive-end", kError, "",
     [](Recipe& r) { r.damage = [](std::string& zip) { zip.pop_back(); }; }},
    {"archive-end", kError, "",
     [](Recipe& r) { r.damage = [](std::string& zip) { zip.clear(); }; }},
    {"archive-end", kError, "", {"1", "PK\5\7", "PK\6\6"}, Patched(kEndRecord, 0)},
    {"archive-end", kError, "", {"80000"}, Append},
    {"archive-end", kSilent, "", {"65978"}, Append, kAmongOthers},

    {"archive-empty", kError, "",
     [](Recipe& r) {
         r.description.clear();
         r.parts.clear();
     }},
    {"archive-empty", kSilent, "",
     [](Recipe& r) {
         r.description.clear();
         r.parts.resize(1);
     },
     kAmongOthers},

    {"archive-parts", kError, "", {"\1", "\2", std::string("\0\1", 2)}, Patched(kEndRecord, 4)},
    {"archive-parts", kWarning, "", {"\1", "\3"}, Patched(kEndRecord, 6)},
    {"archive-parts", kWarning, "", {"\1", "\3", "\5"}, Patched(kEndRecord, kCounts)},
    {"archive-parts", kSilent, "", {"3", "5"}, SetCounts, kAmongOthers},
    {"archive-parts", kSilent, "", {"4"}, SetCounts},

    {"archive-zip64", kError, "",
     [](Recipe& r) {
         r.damage = [](std::string& zip) {
             zip.insert(zip.find(kEndRecord), "PK\6\7" + Bytes(0, 4) + Bytes(0, 8) + Bytes(1, 4));
         };
     },
     kAmongOthers},
    {"archive-zip64", kError, "",
     [](Recipe& r) { r.damage = [](std::string& zip) { AddZip64(zip, 5, 0, 1); }; }, kAmongOthers},
    {"archive-zip64", kError, "",
     [](Recipe& r) { r.damage = [](std::string& zip) { AddZip64(zip, 4, 1, 1); }; }, kAmongOthers},
    {"archive-zip64", kError, "",
     [](Recipe& r) { r.damage = [](std::string& zip) { AddZip64(zip, 4, 0, 2); }; }, kAmongOthers},
    {"archive-zip64", kSilent, "",
     [](Recipe& r) { r.damage = [](std::string& zip) { AddZip64(zip, 4, 0, 1); }; }},
    {"archive-zip64",
     kError,
     "1/0/a",
     {std::string("\1\0\4\0size", 8)},
     [](Recipe& r, const std::string& extra) {
         r.Part("1/0/a").extra = extra;
         r.damage = [](std::string& zip) { Patch(zip, kCentral, 24, Bytes(0xffffffff, 4), kLast); };
     },
     kAmongOthers},
    {"archive-zip64", kSilent, "",
     [](Recipe& r) {
         r.Part("1/0/a").extra = Bytes(1, 2) + Bytes(8, 2) + Bytes(1, 8);
         r.damage = [](std::string& zip) { Patch(zip, kCentral, 24, Bytes(0xffffffff, 4), kLast); };
     }},

    {"archive-directory", kError, "", {"XX", "PK\1\3"}, Patched(kCentral, 0, 1), kAmongOthers},
    {"archive-directory", kError, "", {"5", "3"}, Comment},
    {"archive-directory", kError, "",
     [](Recipe& r) { r.damage = [](std::string& zip) { zip.erase(0, 1); }; }, kAmongOthers},
    {"archive-directory", kSilent, "", {"4"}, Comment},

    {"archive-count", kError, "", {"3", "5", "0", "65535"}, SetCounts},
    {"archive-count", kSilent, "", {"4"}, SetCounts},

    {"archive-leading", kError, "",
     [](Recipe& r) { r.damage = [](std::string& zip) { zip.insert(0, "M"); }; }},
    {"archive-leading", kError, "",
     [](Recipe& r) { r.damage = [](std::string& zip) { zip.insert(zip.find(kCentral), "M"); }; },
     kAmongOthers},
    {"archive-leading", kSilent, "",
     [](Recipe& r) { r.damage = [](std::string& zip) { InsertBeforeDirectory(zip, "M"); }; },
     kAmongOthers},

    {"archive-trailing", kWarning, "", {"1", "65978"}, Append},
    {"archive-trailing", kWarning, "", {"3", "0"}, EndComment},
    {"archive-trailing", kSilent, "", {"4"}, EndComment},

    {"archive-comment", kError, "", {"5", "65535"}, EndComment},
    {"archive-comment", kError, "", {"\1"}, Patched(kEndRecord, 20)},
    {"archive-comment", kSilent, "", {"4"}, EndComment},

    // All names have 256 MiB with those of the folders above them, and one level more.
    {"archive-too-many", kError, "", {"16381", "32760"}, Nest, kAmongOthers},
    {"archive-too-many", kSilent, "", {"200"}, Nest},
    {"archive-too-many",
     kSilent,
     "",
     {"3000"},
     [](Recipe& r, const std::string& v) {
         r.description.clear();
         Nest(r, v);
     },
     kAmongOthers},

    {"archive-gap", kWarning, "1/0/a", {"g", "gap"}, InsertBeforeLast},
    {"archive-gap", kWarning, "",
     [](Recipe& r) { r.damage = [](std::string& zip) { InsertBeforeDirectory(zip, "g"); }; }},
    {"archive-gap", kSilent, "", {""}, InsertBeforeLast},
    {"archive-gap", kSilent, "",
     [](Recipe& r) {
         r.Part("1/0/a").flags = 8; // what follows the content belongs to it
         r.damage = [](std::string& zip) {
             InsertBeforeDirectory(zip, "PK\7\x08" + zip.substr(zip.rfind(kLocal) + 14, 12));
         };
     }},

    // Told: 4 GiB of which each byte becomes two hundred, and 1 GiB that each byte becomes a
    // thousand of.
    {"archive-bomb",
     kError,
     "",
     {"21474835:4294967294", "1000000:1073741825"},
     SetSizes,
     kAmongOthers},
    {"archive-bomb",
     kSilent,
     "",
     {"21474836:4294967294", "1000000:1073741824"},
     SetSizes,
     kAmongOthers},
};

} // namespace of_archives

const std::vector<RuleRow>& ArchiveRows()
{
    return of_archives::kRows;
}

} // namespace kx::checks
