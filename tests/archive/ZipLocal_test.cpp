// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "archive/StructureOf.h"
#include "archive/ZipOf.h"
#include "archive/ZipStructure.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace kx::archive
{

namespace
{

using testing::ElementsAre;
using testing::IsEmpty;

/// Puts bytes right before the central directory of an archive.
void InsertBeforeDirectory(std::string& zip, const std::string& bytes)
{
    const std::size_t directory = zip.find(kCentral);
    zip.insert(directory, bytes);
    Patch(zip, kEndRecord, 16, Bytes(directory + bytes.size(), 4));
}

/// Gives the local header of an archive's only entry, "a", an extra field.
std::string WithLocalExtra(std::string zip, const std::string& extra)
{
    constexpr std::size_t kBehindName = 31;
    zip.insert(kBehindName, extra);
    Patch(zip, kLocal, 28, Bytes(extra.size(), 2));
    Patch(zip, kEndRecord, 16, Bytes(zip.find(kCentral), 4));
    return zip;
}

/// A deflated entry with a descriptor behind it.
std::string WithDescriptor(const std::string& descriptor)
{
    std::string zip = ZipOf({DeflatedPart("text of the entry")});
    Patch(zip, kLocal, 6, Bytes(kZipDescriptor, 2));
    Patch(zip, kLocal, 14, Bytes(0, 12));
    InsertBeforeDirectory(zip, descriptor);
    return zip;
}

/// What a right descriptor of that entry tells, in numbers of this size.
std::string Told(std::size_t numberSize, std::uint64_t more = 0, std::uint64_t morePacked = 0)
{
    const std::string text = "text of the entry";
    const std::string crc = ZipOf({{"a", text}}).substr(14, 4);
    return crc + Bytes(Deflated(text).size() + morePacked, numberSize) +
           Bytes(text.size() + more, numberSize);
}

const std::string kMark = "PK\7\x08";

TEST(ZipLocal, TakesSizesFromTheZip64FieldOfTheHeader)
{
    const std::string text(1000, 'x');
    const std::uint64_t packed = Deflated(text).size();
    std::string zip =
        WithLocalExtra(ZipOf({DeflatedPart(text)}),
                       Bytes(1, 2) + Bytes(16, 2) + Bytes(text.size(), 8) + Bytes(packed, 8));
    Patch(zip, kLocal, 18, Bytes(0xffffffff, 4) + Bytes(0xffffffff, 4));

    const ZipStructure structure = StructureOf(zip);

    EXPECT_THAT(structure.faults, IsEmpty());
    EXPECT_EQ(structure.members.at(0).local.size, text.size());
    EXPECT_EQ(structure.members.at(0).local.packedSize, packed);
    EXPECT_EQ(structure.members.at(0).behind, structure.directoryAt);
}

TEST(ZipLocal, LeavesSizesThatFitToTheHeaderItself)
{
    // Only the number that does not fit stands in the field.
    std::string zip =
        WithLocalExtra(ZipOf({{"a", "one"}}), Bytes(1, 2) + Bytes(8, 2) + Bytes(3, 8));
    Patch(zip, kLocal, 18, Bytes(0xffffffff, 4));

    EXPECT_THAT(FlawsOf(zip), IsEmpty());
    EXPECT_EQ(StructureOf(zip).members.at(0).local.packedSize, 3U);
    EXPECT_EQ(StructureOf(zip).members.at(0).local.size, 3U);
}

TEST(ZipLocal, TellsAZip64FieldThatIsTooShort)
{
    std::string zip = WithLocalExtra(ZipOf({DeflatedPart("text")}),
                                     Bytes(1, 2) + Bytes(12, 2) + Bytes(4, 8) + Bytes(6, 4));
    Patch(zip, kLocal, 18, Bytes(0xffffffff, 4) + Bytes(0xffffffff, 4));

    EXPECT_THAT(FlawsOf(zip), ElementsAre(ZipFlaw::kZip64Extra));
}

TEST(ZipLocal, ReadsTheUnicodeNameOfBothHeaders)
{
    const std::string field =
        Bytes(0x7075, 2) + Bytes(7, 2) + Bytes(1, 1) + Bytes(0, 4) + "\xc3\xa4";
    ZipPart part{"a", "one"};
    part.extra = field;

    const ZipStructure both = StructureOf(WithLocalExtra(ZipOf({part}), field));
    const ZipStructure none = StructureOf(
        WithLocalExtra(ZipOf({{"a", "one"}}), Bytes(0x7075, 2) + Bytes(5, 2) + Bytes(1, 5)));

    EXPECT_EQ(both.members.at(0).unicodeName, "\xc3\xa4");
    EXPECT_EQ(both.members.at(0).local.unicodeName, "\xc3\xa4");
    EXPECT_THAT(both.faults, IsEmpty());
    EXPECT_EQ(none.members.at(0).local.unicodeName, "");
    EXPECT_THAT(none.faults, IsEmpty());
}

TEST(ZipLocal, ReadsNamesAndFieldsOfAnyLength)
{
    const std::string name(600, 'n');
    const ZipStructure longName = StructureOf(ZipOf({{name, "one"}}));
    EXPECT_EQ(longName.members.at(0).local.name, name);
    EXPECT_THAT(longName.faults, IsEmpty());

    // The sizes stand behind a field that is longer than what is read at first.
    std::string zip = WithLocalExtra(ZipOf({{"a", "one"}}),
                                     Bytes(0x9999, 2) + Bytes(600, 2) + std::string(600, 'x') +
                                         Bytes(1, 2) + Bytes(16, 2) + Bytes(3, 8) + Bytes(3, 8));
    Patch(zip, kLocal, 18, Bytes(0xffffffff, 4) + Bytes(0xffffffff, 4));
    EXPECT_THAT(FlawsOf(zip), IsEmpty());
    EXPECT_EQ(StructureOf(zip).members.at(0).local.size, 3U);
}

TEST(ZipLocal, FindsHeadersBehindOtherBytes)
{
    const ZipStructure structure = StructureOf("#!/bin/sh\n" + ZipOf({{"a", "one"}, {"b", "two"}}));

    ASSERT_EQ(structure.members.size(), 2U);
    EXPECT_EQ(structure.members[0].headerAt, 10U);
    EXPECT_EQ(structure.members[1].local.name, "b");
    EXPECT_EQ(structure.members[1].behind, structure.directoryAt);
}

struct DescriptorRow {
    const char* what;
    std::string descriptor;
    bool isWrong;
    std::vector<ZipFlaw> flaws;
};

TEST(ZipLocal, ComparesAllThatADescriptorTells)
{
    std::string otherSum = Told(4);
    otherSum[0] = static_cast<char>(otherSum[0] ^ 1);
    std::string unmarkedOtherSum = Told(8);
    unmarkedOtherSum[3] = static_cast<char>(unmarkedOtherSum[3] ^ 1);
    const DescriptorRow rows[] = {
        {"marked", kMark + Told(4), false, {}},
        {"marked, long", kMark + Told(8), false, {}},
        {"unmarked", Told(4), false, {}},
        {"unmarked, long", Told(8), false, {}},
        {"other sum", kMark + otherSum, true, {}},
        {"other size", kMark + Told(4, 1), true, {}},
        {"other packed size", kMark + Told(4, 0, 1), true, {}},
        {"other size, unmarked", Told(4, 1), true, {}},
        {"other size, long", kMark + Told(8, 1), true, {ZipFlaw::kGap}},
        {"other packed size, long", Told(8, 0, 1), true, {ZipFlaw::kGap}},
        {"other sum, long", unmarkedOtherSum, true, {ZipFlaw::kGap}},
        {"no descriptor", "", true, {ZipFlaw::kOverlap}},
    };
    for (const DescriptorRow& row : rows) {
        const std::string zip = WithDescriptor(row.descriptor);

        EXPECT_EQ(StructureOf(zip).members.at(0).isDescriptorWrong, row.isWrong) << row.what;
        EXPECT_EQ(FlawsOf(zip), row.flaws) << row.what;
    }
}

TEST(ZipLocal, SkipsNothingBehindAFolderWithoutItsDescriptor)
{
    std::string zip = ZipOf({{"d/", "", 040755}, {"d/a", "one"}});
    Patch(zip, kLocal, 6, Bytes(kZipDescriptor, 2));

    const ZipStructure structure = StructureOf(zip);

    ASSERT_EQ(structure.members.size(), 2U);
    EXPECT_TRUE(structure.members[0].isDescriptorWrong);
    EXPECT_EQ(structure.members[0].behind, structure.members[1].headerAt);
    EXPECT_THAT(structure.faults, IsEmpty());
}

} // namespace

} // namespace kx::archive
