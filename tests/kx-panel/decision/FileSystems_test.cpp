// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "decision/FileSystems.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

namespace kx::guard
{

TEST(RealFileSystems, FindsTheFileSystemOfWhatIsNotThereYet)
{
    const TempDir folder;
    struct statvfs sizes {
    };
    ASSERT_EQ(statvfs(folder.Path().c_str(), &sizes), 0);
    struct stat info {
    };
    ASSERT_EQ(stat(folder.Path().c_str(), &info), 0);

    const FileSystem system = RealFileSystems().Of(folder / "a/b/c");

    EXPECT_EQ(system.id, info.st_dev);
    EXPECT_EQ(system.blockSize, sizes.f_frsize);
    EXPECT_GT(system.freeBlocks, 0U);
    EXPECT_EQ(system.hasInodes, sizes.f_files != 0);
    EXPECT_EQ((folder.Path() + "/").find(system.mountPoint), 0U);
    EXPECT_EQ(RealFileSystems().Of(system.mountPoint).id, system.id);
}

TEST(RealFileSystems, FollowsLinks)
{
    const TempDir folder;
    ASSERT_EQ(symlink("/proc", (folder / "link").c_str()), 0);

    EXPECT_EQ(RealFileSystems().Of(folder / "link/self").mountPoint, "/proc");
    EXPECT_TRUE(RealFileSystems().Look(folder / "link")->isFolder);
}

TEST(RealFileSystems, LooksAtFiles)
{
    const TempDir folder;
    const std::string file = folder.Write("file", std::string(100000, 'x'));
    const RealFileSystems systems;
    const std::uint64_t block = systems.Of(file).blockSize;

    ASSERT_TRUE(systems.Look(file).has_value());
    EXPECT_FALSE(systems.Look(file)->isFolder);
    EXPECT_GE((systems.Look(file)->blocks + 1) * block, 100000U);
    EXPECT_FALSE(systems.Look(folder / "none").has_value());
    EXPECT_FALSE(systems.Look(folder / "file/below").has_value());
    EXPECT_FALSE(systems.Look(folder / std::string(300, 'x')).has_value());
}

TEST(RealFileSystems, KnowsWhatTakesNoRoom)
{
    const RealFileSystems systems;

    EXPECT_TRUE(systems.Look("/dev/null")->isDevice);
    EXPECT_FALSE(systems.Look("/dev")->isDevice);
    EXPECT_EQ(systems.Of("/proc/sys").freeBlocks, UINT64_MAX);
    EXPECT_FALSE(systems.Of("/proc/sys").hasInodes);
}

} // namespace kx::guard
