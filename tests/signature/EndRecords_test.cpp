// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "archive/ZipOf.h"
#include "signature/EndRecords.h"
#include "signature/SignedOf.h"
#include "support/Thrown.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>

namespace kx::signature
{

namespace
{

EndRecords RecordsOf(const std::string& zip)
{
    const archive::MemoryBytes source(zip);
    return {source, "p"};
}

std::string EndErrorOf(const std::string& zip)
{
    return Thrown([&zip] { static_cast<void>(RecordsOf(zip)); });
}

std::string EndRefused(const std::string& why)
{
    return "1: p: " + why + "; build the package with kx-package";
}

struct BadEnd {
    const char* name;
    bool isZip64;
    std::function<void(std::string& zip)> change;
    const char* why;
};

/// Replaces bytes, counted from the end of the archive.
std::function<void(std::string&)> AtEnd(std::size_t fromEnd, const std::string& bytes)
{
    return [fromEnd, bytes](std::string& zip) {
        zip.replace(zip.size() - fromEnd, bytes.size(), bytes);
    };
}

} // namespace

TEST(EndRecords, TellWhereTheDirectoryStands)
{
    const std::string zip = SmallZip();
    const EndRecords records = RecordsOf(zip);

    EXPECT_EQ(records.DirectoryAt(), zip.find(archive::kCentral));
    EXPECT_EQ(records.At(), zip.size() - 22);
    EXPECT_FALSE(records.IsZip64());
    EXPECT_EQ(records.WithDirectoryAt(records.DirectoryAt(), "p"), zip.substr(zip.size() - 22));
}

TEST(EndRecords, TellItInZip64Too)
{
    const std::string zip = WithZip64End(SmallZip());
    const EndRecords records = RecordsOf(zip);

    EXPECT_EQ(records.DirectoryAt(), zip.find(archive::kCentral));
    EXPECT_EQ(records.At(), zip.size() - 98);
    EXPECT_TRUE(records.IsZip64());
    EXPECT_EQ(records.WithDirectoryAt(records.DirectoryAt(), "p"), zip.substr(zip.size() - 98));
}

TEST(EndRecords, ChangeNothingButTheDirectorysPlace)
{
    const std::string zip = SmallZip();
    std::string moved = zip.substr(zip.size() - 22);
    moved.replace(16, 4, archive::Bytes(0x12345678, 4));

    EXPECT_EQ(RecordsOf(zip).WithDirectoryAt(0x12345678, "p"), moved);
    const std::string large = WithZip64End(zip);
    const std::uint64_t size = RecordsOf(large).At() - RecordsOf(large).DirectoryAt();
    std::string movedLarge = large.substr(large.size() - 98);
    movedLarge.replace(48, 8, archive::Bytes(0x123456789a, 8));
    movedLarge.replace(64, 8, archive::Bytes(0x123456789a + size, 8));
    EXPECT_EQ(RecordsOf(large).WithDirectoryAt(0x123456789a, "p"), movedLarge);
}

TEST(EndRecords, RefuseAPlaceThatTheyCannotTell)
{
    const EndRecords records = RecordsOf(SmallZip());
    std::string half = WithZip64End(SmallZip());
    half.replace(half.size() - 6, 4, archive::Bytes(half.find(archive::kCentral), 4));

    EXPECT_EQ(Thrown([&] { static_cast<void>(records.WithDirectoryAt(0xfffffffe, "p")); }),
              "nothing thrown");
    for (const std::string& zip : {SmallZip(), half}) {
        EXPECT_EQ(
            Thrown([&] { static_cast<void>(RecordsOf(zip).WithDirectoryAt(0xffffffff, "p")); }),
            "1: p: is too large to be signed: its archive can tell no place beyond 4 GiB; leave "
            "something out of the package");
    }
}

TEST(EndRecords, RefuseWhateverIsNotOneArchiveToTheEndOfTheFile)
{
    constexpr const char* kNoEnd = "does not end in an archive's end record without a comment";
    constexpr const char* kZip64 = "its zip64 end records contradict the end record";
    constexpr const char* kPlace = "its directory does not stand where its end record says";
    constexpr const char* kParts = "says that it is one part of several archives";
    const std::vector<BadEnd> ends = {
        {"byte behind", false, [](std::string& zip) { zip += 'x'; }, kNoEnd},
        {"comment", false,
         [](std::string& zip) {
             AtEnd(2, "\1")(zip);
             zip += 'x';
         },
         kNoEnd},
        {"comment told", false, AtEnd(2, "\1"), kNoEnd},
        {"no mark", false, AtEnd(22, "x"), kNoEnd},
        {"byte in front", false, [](std::string& zip) { zip.insert(0, "x"); }, kPlace},
        {"byte missing", false, [](std::string& zip) { zip.erase(0, 1); }, kPlace},
        {"disk", false, AtEnd(18, "\1"), kParts},
        {"other disk", false, AtEnd(16, "\1"), kParts},
        {"count", false, AtEnd(14, "\1"), kParts},
        {"size", false, AtEnd(10, "\xff\xff\xff\xff"), "lacks the end records of zip64"},
        {"place", false, AtEnd(6, "\xff\xff\xff\xff"), "lacks the end records of zip64"},
        {"no zip64 record", true, AtEnd(98, "x"), kZip64},
        {"zip64 size", true, AtEnd(94, "\x2d"), kZip64},
        {"zip64 disk", true, AtEnd(82, "\1"), kZip64},
        {"locator's place", true, AtEnd(34, "\1"), kZip64},
        {"locator's disk", true, AtEnd(38, "\1"), kZip64},
        {"locator's disks", true, AtEnd(26, "\2"), kZip64},
        {"count differs", true, AtEnd(14, std::string("\1\0\1\0", 4)), kZip64},
        {"place differs", true, AtEnd(6, std::string("\1\0\0\0", 4)), kZip64},
        {"zip64 place", true, AtEnd(50, "\1"), kPlace},
        {"zip64 size of the directory", true, AtEnd(51, "\xff"), kPlace},
    };
    for (const BadEnd& end : ends) {
        std::string zip = end.isZip64 ? WithZip64End(SmallZip()) : SmallZip();
        ASSERT_EQ(EndErrorOf(zip), "nothing thrown");

        end.change(zip);

        EXPECT_EQ(EndErrorOf(zip), EndRefused(end.why)) << end.name;
    }
    for (std::size_t size = 0; size < 22; ++size) {
        EXPECT_EQ(EndErrorOf(SmallZip().substr(0, size)),
                  EndRefused("is too short for an archive"));
    }
}

TEST(EndRecords, OfAnEmptyArchiveAreAllThereIs)
{
    const EndRecords records = RecordsOf(archive::ZipOf({}));

    EXPECT_EQ(records.At(), 0U);
    EXPECT_EQ(records.DirectoryAt(), 0U);
}

} // namespace kx::signature
