// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "archive/StructureOf.h"
#include "archive/ZipOf.h"
#include "archive/ZipStructure.h"
#include "io/Error.h"
#include "support/TempDir.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/stat.h>

namespace kx::archive
{

namespace
{

using testing::ElementsAre;
using testing::IsEmpty;

std::string GoodZip()
{
    return ZipOf({{"a", "one"}, {"b/", "", 040755}, {"b/c", "three"}});
}

/// An archive whose sizes and places stand in zip64 records.
std::string Zip64()
{
    ZipPart part{"a", "one"};
    part.extra = Bytes(1, 2) + Bytes(24, 2) + Bytes(3, 8) + Bytes(3, 8) + Bytes(0, 8);
    std::string zip = ZipOf({part});
    Patch(zip, kCentral, 20, Bytes(0xffffffff, 4));
    Patch(zip, kCentral, 24, Bytes(0xffffffff, 4));
    Patch(zip, kCentral, 42, Bytes(0xffffffff, 4));
    const std::size_t directory = zip.find(kCentral);
    const std::size_t end = zip.find(kEndRecord);
    Patch(zip, kEndRecord, 8, Bytes(0xffffffff, 4) + Bytes(0xffffffff, 4) + Bytes(0xffffffff, 4));
    zip.insert(end, "PK\6\6" + Bytes(44, 8) + Bytes(45, 2) + Bytes(45, 2) + Bytes(0, 8) +
                        Bytes(1, 8) + Bytes(1, 8) + Bytes(end - directory, 8) +
                        Bytes(directory, 8) + "PK\6\7" + Bytes(0, 4) + Bytes(end, 8) + Bytes(1, 4));
    return zip;
}

TEST(ZipStructure, ReadsWhatAnArchiveHolds)
{
    const std::string zip = GoodZip();

    const ZipStructure structure = ReadZipStructure(MemoryBytes(zip));

    EXPECT_THAT(structure.faults, IsEmpty());
    ASSERT_EQ(structure.members.size(), 3U);
    const ZipMember& last = structure.members[2];
    EXPECT_EQ(last.name, "b/c");
    EXPECT_EQ(last.local.name, "b/c");
    EXPECT_EQ(last.size, 5U);
    EXPECT_EQ(last.attributes >> 16, 0100644U);
    EXPECT_EQ(zip.substr(static_cast<std::size_t>(last.contentAt), 5), "three");
    EXPECT_EQ(last.behind, structure.directoryAt);
    EXPECT_EQ(structure.endAt, zip.find(kEndRecord));
}

TEST(ZipStructure, ReadsZip64Records)
{
    const std::string zip = Zip64();

    const ZipStructure structure = ReadZipStructure(MemoryBytes(zip));

    EXPECT_THAT(structure.faults, IsEmpty());
    EXPECT_TRUE(structure.isZip64);
    ASSERT_EQ(structure.members.size(), 1U);
    EXPECT_EQ(structure.members[0].size, 3U);
    EXPECT_EQ(structure.members[0].packedSize, 3U);
    EXPECT_EQ(structure.members[0].headerAt, 0U);
}

struct FlawRow {
    const char* what;
    void (*damage)(std::string& zip);
    std::vector<ZipFlaw> flaws;
};

TEST(ZipStructure, TellsEveryFlaw)
{
    const FlawRow rows[] = {
        {"no archive", [](std::string& zip) { zip = "text"; }, {ZipFlaw::kNoEnd}},
        {"empty", [](std::string& zip) { zip.clear(); }, {ZipFlaw::kNoEnd}},
        {"cut", [](std::string& zip) { zip.pop_back(); }, {ZipFlaw::kNoEnd}},
        {"end too far", [](std::string& zip) { zip.append(80000, '\0'); }, {ZipFlaw::kNoEnd}},
        {"trailing", [](std::string& zip) { zip += "x"; }, {ZipFlaw::kTrailing}},
        {"leading", [](std::string& zip) { zip.insert(0, "x"); }, {ZipFlaw::kLeading}},
        {"comment",
         [](std::string& zip) { Patch(zip, kEndRecord, 20, "\2"); },
         {ZipFlaw::kCutComment}},
        {"last disk",
         [](std::string& zip) { Patch(zip, kEndRecord, 4, "\2"); },
         {ZipFlaw::kManyDisks}},
        {"other disk",
         [](std::string& zip) { Patch(zip, kEndRecord, 6, "\2"); },
         {ZipFlaw::kOtherParts}},
        {"count",
         [](std::string& zip) {
             Patch(zip, kEndRecord, 8, "\2");
             Patch(zip, kEndRecord, 10, "\2");
         },
         {ZipFlaw::kCount}},
        {"directory too large",
         [](std::string& zip) { Patch(zip, kEndRecord, 12, "\xff\xff"); },
         {ZipFlaw::kMissingBytes}},
        {"directory too far",
         [](std::string& zip) { Patch(zip, kEndRecord, 16, "\xff\xff"); },
         {ZipFlaw::kMissingBytes}},
        {"directory cut",
         [](std::string& zip) { Patch(zip, kCentral, 32, "\1", 2); },
         {ZipFlaw::kDirectory}},
        {"directory rest",
         [](std::string& zip) { Patch(zip, kCentral, 0, "x", 2); },
         {ZipFlaw::kDirectory, ZipFlaw::kCount, ZipFlaw::kGap}},
        {"no header",
         [](std::string& zip) { Patch(zip, kLocal, 0, "x", 1); },
         {ZipFlaw::kNoLocal, ZipFlaw::kGap}},
        {"header outside",
         [](std::string& zip) { Patch(zip, kCentral, 45, "\x7f", 1); },
         {ZipFlaw::kNoLocal, ZipFlaw::kGap}},
        {"content outside",
         [](std::string& zip) { Patch(zip, kLocal, 18, "\xff", 2); },
         {ZipFlaw::kContentCut}},
        {"name outside",
         [](std::string& zip) { Patch(zip, kLocal, 26, "\xff\xff", 2); },
         {ZipFlaw::kContentCut}},
        {"bzip2 outside",
         [](std::string& zip) {
             Patch(zip, kLocal, 8, Bytes(12, 2), 2);
             Patch(zip, kLocal, 18, Bytes(0x7fffffff, 4), 2);
         },
         {ZipFlaw::kContentCut}},
        {"overlap", [](std::string& zip) { Patch(zip, kLocal, 18, "\5"); }, {ZipFlaw::kOverlap}},
        {"same header",
         [](std::string& zip) { Patch(zip, kCentral, 42, Bytes(0, 4), 2); },
         {ZipFlaw::kOverlap, ZipFlaw::kGap}},
        {"folder over all", [](std::string& zip) { Patch(zip, kLocal, 28, "\xff", 1); }, {}},
        {"gap", [](std::string& zip) { Patch(zip, kLocal, 18, "\1"); }, {ZipFlaw::kGap}},
    };
    for (const FlawRow& row : rows) {
        std::string zip = GoodZip();
        row.damage(zip);
        EXPECT_EQ(FlawsOf(zip), row.flaws) << row.what;
    }
}

TEST(ZipStructure, TellsFlawsOfZip64)
{
    const FlawRow rows[] = {
        {"disks", [](std::string& zip) { Patch(zip, "PK\6\7", 16, "\2"); }, {ZipFlaw::kZip64End}},
        {"record lost",
         [](std::string& zip) { Patch(zip, "PK\6\7", 8, "\1"); },
         {ZipFlaw::kZip64End}},
        {"record damaged",
         [](std::string& zip) { Patch(zip, "PK\6\6", 0, "x"); },
         {ZipFlaw::kZip64End}},
        {"record too long",
         [](std::string& zip) { Patch(zip, "PK\6\6", 4, "-"); },
         {ZipFlaw::kZip64End}},
        {"other count",
         [](std::string& zip) { Patch(zip, kEndRecord, 10, Bytes(7, 2)); },
         {ZipFlaw::kZip64End}},
        {"field too short",
         [](std::string& zip) { Patch(zip, kCentral, 49, Bytes(16, 2)); },
         {ZipFlaw::kZip64Extra}},
    };
    for (const FlawRow& row : rows) {
        std::string zip = Zip64();
        row.damage(zip);
        EXPECT_THAT(FlawsOf(zip), testing::Contains(row.flaws[0])) << row.what;
    }
}

TEST(ZipStructure, SkipsDescriptorsOfAllForms)
{
    for (const std::string& descriptor : {std::string("PK\7\x08"), std::string()}) {
        for (const std::size_t size : {std::size_t{4}, std::size_t{8}}) {
            std::string zip = ZipOf({{"a", "one"}});
            const std::string sum = zip.substr(14, 4);
            const std::string told = descriptor + sum + Bytes(3, size) + Bytes(3, size);
            Patch(zip, kLocal, 6, Bytes(kZipDescriptor, 2));
            Patch(zip, kLocal, 14, Bytes(0, 12));
            const std::size_t directory = zip.find(kCentral);
            zip.insert(directory, told);
            Patch(zip, kEndRecord, 16, Bytes(directory + told.size(), 4));

            EXPECT_THAT(FlawsOf(zip), IsEmpty()) << told.size();
            EXPECT_FALSE(ReadZipStructure(MemoryBytes(zip)).members[0].isDescriptorWrong);

            zip[directory + descriptor.size()] ^= 1;
            EXPECT_TRUE(ReadZipStructure(MemoryBytes(zip)).members[0].isDescriptorWrong);
        }
    }
}

TEST(ZipStructure, SurvivesEveryCutAndEveryChangedByte)
{
    for (const std::string& whole : {GoodZip(), Zip64()}) {
        for (std::size_t i = 0; i < whole.size(); ++i) {
            static_cast<void>(ReadZipStructure(MemoryBytes(whole.substr(0, i))));
            static_cast<void>(ReadZipStructure(MemoryBytes(whole.substr(i))));
            for (const int bit : {1, 0x80, 0xff}) {
                std::string zip = whole;
                zip[i] = static_cast<char>(zip[i] ^ bit);
                static_cast<void>(ReadZipStructure(MemoryBytes(zip)));
            }
        }
    }
}

TEST(FileBytes, ReadsPiecesOfAFile)
{
    const TempDir folder;
    const FileBytes bytes(folder.Write("file", "0123456789"));

    EXPECT_EQ(bytes.Size(), 10U);
    EXPECT_EQ(bytes.Read(3, 4), "3456");
    EXPECT_EQ(bytes.Read(8, 4), "89");
    EXPECT_EQ(bytes.Read(10, 4), "");
}

TEST(FileBytes, RefusesWhatIsNoFile)
{
    const TempDir folder;
    ASSERT_EQ(mkfifo((folder / "fifo").c_str(), 0600), 0);

    EXPECT_THROW(FileBytes(folder / "missing"), io::Error);
    EXPECT_THROW(FileBytes(folder / "fifo"), io::Error);
    EXPECT_THROW(FileBytes(folder.MakeDir("folder")), io::Error);
}

} // namespace

} // namespace kx::archive
