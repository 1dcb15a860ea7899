// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "stick/DrivePlan.h"
#include "stick/Room.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

namespace kx::tool
{

namespace
{

using archive::PackageEntry;
using testing::ElementsAre;
using testing::IsEmpty;
using Kind = PackageEntry::Kind;

constexpr std::uint64_t kCluster = 4096;

PackageEntry Entry(const std::string& name, std::uint64_t size = 0, Kind kind = Kind::kFile)
{
    PackageEntry entry;
    entry.name = name;
    entry.size = size;
    entry.kind = kind;
    return entry;
}

std::vector<std::string> Limits(const std::string& type, const std::vector<PackageEntry>& entries,
                                const std::string& name = "a.kx-update", std::uint64_t size = 1)
{
    std::vector<std::string> lines;
    for (const io::Error& problem : LimitProblems(type, name, size, entries, "usb/a")) {
        lines.emplace_back(problem.what());
    }
    return lines;
}

std::vector<std::string> Lines(const RoomVerdict& verdict)
{
    std::vector<std::string> lines;
    for (const io::Error& problem : verdict.problems) {
        lines.push_back(problem.Line());
    }
    return lines;
}

TEST(NeededRoomOf, FilesAndFoldersTakeWholeClusters)
{
    const std::vector<PackageEntry> entries = {
        Entry("0", 0, Kind::kFolder), Entry("0/a", 1), Entry("0/b", kCluster),
        Entry("0/c", kCluster + 1),   Entry("empty"),  Entry("l", 5, Kind::kLink),
    };

    const RoomNeeded needed = NeededRoom(kCluster + 1, entries, "vfat", kCluster);

    EXPECT_EQ(needed.package, 2 * kCluster);
    // Files 1 + 1 + 2 + 0, the link 1, two folders, and the top of the drive.
    EXPECT_EQ(needed.unpacked, (4 + 1 + 2 + 1) * kCluster);
    EXPECT_EQ(needed.files, 8U);
    EXPECT_EQ(NeededRoom(0, {}, "vfat", kCluster).unpacked, 2 * kCluster);
}

TEST(NeededRoomOf, FoldersGrowWithTheNamesInThem)
{
    // 13 letters: two slots of 32 bytes on FAT, three on exFAT; with "." and ".." 128 fill a
    // cluster.
    std::vector<PackageEntry> entries = {Entry("0", 0, Kind::kFolder)};
    for (int i = 0; i < 63; ++i) {
        entries.push_back(Entry("0/" + std::string(10, 'n') + std::to_string(100 + i)));
    }
    EXPECT_EQ(NeededRoom(1, entries, "vfat", kCluster).unpacked, 3 * kCluster);
    EXPECT_EQ(NeededRoom(1, entries, "exfat", kCluster).unpacked, 4 * kCluster);

    entries.push_back(Entry("0/x"));
    EXPECT_EQ(NeededRoom(1, entries, "vfat", kCluster).unpacked, 4 * kCluster);
}

TEST(LimitsOf, OtherFileSystemsAreNotJudged)
{
    EXPECT_THAT(
        Limits("ext4", {Entry("a:b"), Entry("A:b"), Entry("l", 1, Kind::kLink)}, "a:.", UINT64_MAX),
        IsEmpty());
}

TEST(LimitsOf, AFileOf4GiBDoesNotFitOnFat)
{
    constexpr std::uint64_t kMost = UINT32_MAX;
    const std::vector<PackageEntry> entries = {Entry("big", kMost + 1), Entry("fits", kMost)};

    EXPECT_THAT(Limits("vfat", entries, "a.kx-update", kMost + 1),
                ElementsAre("FAT takes no file of 4 GiB and more",
                            "'big' in it: FAT takes no file of 4 GiB and more"));
    EXPECT_THAT(Limits("vfat", {}, "a.kx-update", kMost), IsEmpty());
    EXPECT_THAT(Limits("exfat", entries, "a.kx-update", kMost + 1), IsEmpty());
}

TEST(LimitsOf, NamesThatFatDoesNotTake)
{
    for (const char* const type : {"vfat", "exfat"}) {
        EXPECT_THAT(
            Limits(type,
                   {Entry("0", 0, Kind::kFolder), Entry("0/a:b"), Entry("0/b\x01"), Entry("0/c."),
                    Entry("0/d "), Entry("0/e.f g"), Entry("0/" + std::string(255, 'x')),
                    Entry("0/" + std::string(256, 'y')), Entry("d?", 0, Kind::kFolder),
                    Entry("l", 1, Kind::kLink)},
                   "a\\b.kx-update"),
            ElementsAre("this file system takes no '\\' in names",
                        "'0/a:b' in it: this file system takes no ':' in names",
                        "'0/b\x01' in it: this file system takes no '\\x01' in names",
                        "'0/c.' in it: this file system takes no dot at the end of names",
                        "'0/d ' in it: this file system takes no blank at the end of names",
                        "'0/" + std::string(256, 'y') +
                            "' in it: this file system takes no name so long",
                        "'d?' in it: this file system takes no '?' in names",
                        "'l' in it: this file system knows no links"))
            << type;
    }
}

TEST(LimitsOf, LengthsAreThoseOfUtf16)
{
    const auto many = [](const std::string& letter, int count) {
        std::string name = "0/";
        for (int i = 0; i < count; ++i) {
            name += letter;
        }
        return Entry(name);
    };

    EXPECT_THAT(Limits("vfat", {many("\u65e5", 255), many("\U0001f600", 127), many("\xff", 255)}),
                IsEmpty());
    EXPECT_EQ(
        Limits("vfat", {many("\u65e5", 256), many("\U0001f600", 128), many("\xff", 256)}).size(),
        3U);
}

TEST(LimitsOf, NamesThatDifferInCaseAloneAreOne)
{
    EXPECT_THAT(
        Limits("vfat", {Entry("0", 0, Kind::kFolder), Entry("0/Lib", 0, Kind::kFolder),
                        Entry("0/Lib/x"), Entry("0/lib", 0, Kind::kFolder), Entry("0/lib/X"),
                        Entry("0/lib/y"), Entry("README"), Entry("readme"), Entry("readme2")}),
        ElementsAre("'0/lib' in it: to this file system it is the same as '0/Lib', and one "
                    "is lost",
                    "'readme' in it: to this file system it is the same as 'README', and "
                    "one is lost"));
}

TEST(LimitsOf, AFolderOfFatHasAnEnd)
{
    std::vector<PackageEntry> entries = {Entry("0", 0, Kind::kFolder)};
    for (int i = 0; i < 32767; ++i) { // two slots each, and two for the dots
        entries.push_back(Entry("0/" + std::to_string(i)));
    }
    EXPECT_THAT(Limits("vfat", entries), IsEmpty());

    entries.push_back(Entry("0/x"));
    EXPECT_THAT(Limits("vfat", entries),
                ElementsAre("'0' in it: FAT has no room for so many names in one folder"));
    EXPECT_THAT(Limits("exfat", entries), IsEmpty());
}

TEST(LimitsOf, ADriveWithoutLongNamesCannotHaveThePackage)
{
    EXPECT_THAT(Limits("msdos", {}),
                ElementsAre("without long names, as the drive is mounted, it cannot have its name; "
                            "mounted as vfat it can"));
}

TEST(LimitsOf, OfManyThereIsANumber)
{
    const std::vector<PackageEntry> entries(50, Entry("l", 1, Kind::kLink));

    const std::vector<std::string> lines = Limits("vfat", entries);

    ASSERT_EQ(lines.size(), 21U);
    EXPECT_EQ(lines.back(), "79 more like these"); // each is also the same as the first
}

class RoomTest : public testing::Test
{
protected:
    RoomTest()
    {
        m_balance.needed = {10 * kCluster, 30 * kCluster, 5};
        m_balance.room.cluster = kCluster;
    }

    [[nodiscard]] std::vector<std::string> Problems() const
    {
        return Lines(JudgeRoom(m_balance, "usb"));
    }

    RoomBalance m_balance;
};

TEST_F(RoomTest, ThePackageAndWhatItUnpacksToMustFit)
{
    m_balance.room.free = 40 * kCluster;
    EXPECT_THAT(Problems(), IsEmpty());

    m_balance.room.free = 39 * kCluster;
    EXPECT_THAT(
        Problems(),
        ElementsAre("usb: the package takes 40.0 KiB and, where the panel unpacks it beside "
                    "itself, 120.0 KiB; that is 4.0 KiB more than there is; remove what "
                    "else is on the drive, or take a larger one"));

    m_balance.freed = kCluster;
    EXPECT_THAT(Problems(), IsEmpty());
}

TEST_F(RoomTest, AnOlderPackageLeavesItsRoomToTheUnpackedOne)
{
    m_balance.room.free = 10 * kCluster;
    m_balance.older = 30 * kCluster;

    const RoomVerdict verdict = JudgeRoom(m_balance, "usb");

    EXPECT_THAT(verdict.problems, IsEmpty());
    EXPECT_FALSE(verdict.removesOlder);
}

TEST_F(RoomTest, AnOlderPackageGoesFirstOnlyWhenItMay)
{
    m_balance.room.free = 9 * kCluster;
    m_balance.older = 31 * kCluster;
    EXPECT_THAT(Problems(),
                ElementsAre("usb: there is no room for the package beside the older one, which "
                            "stays until the new one is whole: 40.0 KiB are needed, 36.0 KiB are "
                            "free; --replace removes the older one before"));

    m_balance.mayRemoveOlder = true;
    const RoomVerdict verdict = JudgeRoom(m_balance, "usb");
    EXPECT_THAT(verdict.problems, IsEmpty());
    EXPECT_TRUE(verdict.removesOlder);

    // It may be the package itself.
    m_balance.isSameSize = true;
    m_balance.mayRemoveOlder = false;
    EXPECT_THAT(Problems(), IsEmpty());
    EXPECT_FALSE(JudgeRoom(m_balance, "usb").removesOlder);
}

TEST_F(RoomTest, SomeFileSystemsHaveAnEndOfFiles)
{
    m_balance.room.free = 100 * kCluster;
    m_balance.room.files = 4;
    EXPECT_THAT(Problems(), IsEmpty());

    m_balance.room.countsFiles = true;
    EXPECT_THAT(Problems(), ElementsAre("usb: unpacking makes 5 files and folders; its file system "
                                        "has room for 4; take another drive"));
    m_balance.room.files = 5;
    EXPECT_THAT(Problems(), IsEmpty());
}

} // namespace

} // namespace kx::tool
