// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "../FakeFileSystems.h"
#include "decision/Room.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <ostream>

namespace kx::guard
{

namespace
{

using ::testing::ElementsAre;
using ::testing::IsEmpty;

/// What an installation needs of one file system.
struct Needed {
    std::uint64_t blocks;
    std::uint64_t inodes;

    bool operator==(const Needed& other) const
    {
        return blocks == other.blocks && inodes == other.inodes;
    }
};

void PrintTo(const Needed& needed, std::ostream* out)
{
    *out << needed.blocks << " blocks, " << needed.inodes << " inodes";
}

using Adding = std::function<void(Room& room)>;

/// Returns how many free blocks or inodes are the least with which there is room.
std::uint64_t Least(std::uint64_t& free, const FakeFileSystems& systems, const Adding& add)
{
    const std::uint64_t before = free;
    const auto fits = [&] {
        Room room(systems);
        add(room);
        return room.Reasons().empty();
    };
    for (free = 0; !fits() && free < 1000;) {
        ++free;
    }
    const std::uint64_t least = free;
    free = before;
    return least;
}

/// Measures what the file system at a mount point must have free.
Needed NeededAt(FakeFileSystems& systems, const std::string& mountPoint, const Adding& add)
{
    FileSystem& system = systems.At(mountPoint);
    return {Least(system.freeBlocks, systems, add), Least(system.freeInodes, systems, add)};
}

} // namespace

TEST(Room, CountsWholeBlocksAndAnInodeForAFile)
{
    FakeFileSystems systems;

    EXPECT_EQ(NeededAt(systems, "/", [](Room& room) { room.AddFile("/a", 0); }), (Needed{0, 1}));
    EXPECT_EQ(NeededAt(systems, "/", [](Room& room) { room.AddFile("/a", 1); }), (Needed{1, 1}));
    EXPECT_EQ(NeededAt(systems, "/", [](Room& room) { room.AddFile("/a", 4096); }), (Needed{1, 1}));
    EXPECT_EQ(NeededAt(systems, "/", [](Room& room) { room.AddFile("/a", 4097); }), (Needed{2, 1}));
}

TEST(Room, CountsFoldersThatAreNotThereOnce)
{
    FakeFileSystems systems;
    systems.MakeFolder("/opt");

    EXPECT_EQ(NeededAt(systems, "/",
                       [](Room& room) {
                           room.AddFile("/opt/a/b/one", 1);
                           room.AddFile("/opt/a/b/two", 1);
                           room.AddFolder("/opt/a");
                           room.AddFolder("/opt");
                           room.AddFolder("/opt/a/c");
                       }),
              (Needed{2 + 3, 2 + 3}));
}

TEST(Room, CountsAFileOnceHoweverOftenItIsWritten)
{
    FakeFileSystems systems;

    EXPECT_EQ(NeededAt(systems, "/",
                       [](Room& room) {
                           room.AddFile("/a", 5000);
                           room.AddFile("/a", 1);
                           room.AddFile("/a", 9000);
                       }),
              (Needed{3, 1}));
}

TEST(Room, TakesWhatIsOverwrittenForFree)
{
    FakeFileSystems systems;
    systems.MakeFile("/a", 2);

    EXPECT_EQ(NeededAt(systems, "/", [](Room& room) { room.AddFile("/a", 20480); }),
              (Needed{3, 0}));
    EXPECT_EQ(NeededAt(systems, "/", [](Room& room) { room.AddFile("/a", 4096); }), (Needed{0, 0}));
}

TEST(Room, CountsNothingThatIsWrittenToADevice)
{
    FakeFileSystems systems;
    systems.MakeDevice("/dev/mmcblk0p2");

    EXPECT_EQ(NeededAt(systems, "/", [](Room& room) { room.AddFile("/dev/mmcblk0p2", 1 << 30); }),
              (Needed{1, 1})); // the folder
    EXPECT_EQ(NeededAt(systems, "/",
                       [](Room& room) {
                           room.AddStanding("/dev/mmcblk0p2");
                           room.AddFiles("/dev", 1, 1);
                       }),
              (Needed{1 + 1, 1 + 1}));
}

TEST(Room, CountsFilesOfUnknownSizes)
{
    FakeFileSystems systems;
    systems.MakeFile("/opt/old", 2);
    systems.MakeFolder("/opt");

    // Four files of 1 KiB may take a block each.
    EXPECT_EQ(NeededAt(systems, "/", [](Room& room) { room.AddFiles("/opt", 4, 4); }),
              (Needed{4, 4}));
    EXPECT_EQ(NeededAt(systems, "/",
                       [](Room& room) {
                           room.AddStanding("/opt/old");
                           room.AddStanding("/opt/new");
                           room.AddStanding("/opt");
                           room.AddFiles("/opt", 4, 4);
                           room.AddFiles("/opt", 4, 1);
                       }),
              (Needed{2 + 2, 3 + 1}));
}

TEST(Room, KeepsFileSystemsApart)
{
    FakeFileSystems systems;
    systems.Mount("/var").blockSize = 1024;
    const Adding add = [](Room& room) {
        room.AddFile("/opt/a", 1);
        room.AddFile("/var/lib/b", 1025);
        room.AddBlocks("/var", 7, 2);
    };

    EXPECT_EQ(NeededAt(systems, "/", add), (Needed{2, 2}));
    EXPECT_EQ(NeededAt(systems, "/var", add), (Needed{2 + 1 + 7, 2 + 2}));
}

TEST(Room, TellsWhatIsMissing)
{
    FakeFileSystems systems;
    FileSystem& data = systems.Mount("/var");
    data.freeBlocks = 1;
    data.freeInodes = 1;
    systems.At("/").freeInodes = 0;
    Room room(systems);
    room.AddFile("/a", 1);
    room.AddFile("/var/a", 5000);
    room.AddFile("/var/b", 5000);

    const std::vector<Reason> reasons = room.Reasons();

    ASSERT_EQ(reasons.size(), 3U);
    EXPECT_EQ(reasons[0].id, ReasonId::kRoom);
    EXPECT_THAT(reasons[0].values, ElementsAre("/var", "16.0 KiB", "4.0 KiB", "16384", "4096"));
    EXPECT_EQ(reasons[1].id, ReasonId::kInodes);
    EXPECT_THAT(reasons[1].values, ElementsAre("/", "1", "0"));
    EXPECT_EQ(reasons[2].id, ReasonId::kInodes);
    EXPECT_THAT(reasons[2].values, ElementsAre("/var", "2", "1"));
}

TEST(Room, DoesNotCountInodesWhereThereAreNone)
{
    FakeFileSystems systems;
    systems.At("/").hasInodes = false;
    systems.At("/").freeInodes = 0;
    Room room(systems);

    room.AddFile("/a", 1);

    EXPECT_THAT(room.Reasons(), IsEmpty());
}

TEST(Room, DoesNotLetHugeNumbersComeAround)
{
    FakeFileSystems systems;
    systems.At("/").blockSize = 0;
    systems.At("/").freeBlocks = UINT64_MAX - 1;
    Room room(systems);

    room.AddFile("/a", UINT64_MAX);
    room.AddFile("/b", UINT64_MAX);
    room.AddBlocks("/", UINT64_MAX, UINT64_MAX);
    room.AddFiles("/c", UINT64_MAX, UINT64_MAX);
    const std::vector<Reason> reasons = room.Reasons();

    ASSERT_EQ(reasons.size(), 2U);
    EXPECT_EQ(reasons[0].id, ReasonId::kRoom);
    EXPECT_EQ(reasons[1].id, ReasonId::kInodes);
}

TEST(Room, KnowsFoldersThatWillBeThere)
{
    FakeFileSystems systems;
    systems.MakeFolder("/opt");
    systems.MakeFile("/file", 1);
    Room room(systems);
    room.AddFile("/new/a", 1);

    EXPECT_TRUE(room.IsFolder("/opt"));
    EXPECT_TRUE(room.IsFolder("/new"));
    EXPECT_FALSE(room.IsFolder("/file"));
    EXPECT_FALSE(room.IsFolder("/new/a"));
}

} // namespace kx::guard
