// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "stick/Drive.h"
#include "support/Emulated.h"
#include "support/TempDir.h"
#include "support/Thrown.h"

#include <gmock/gmock.h>

#include <string>

namespace kx::tool
{

namespace
{

using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;
using testing::StartsWith;

constexpr const char* kRemedy = "; mount the drive, and name the folder where it is mounted";

std::string Refusal(const DriveCandidate& candidate, const Mount& mount)
{
    return Thrown([&] { RefuseNoDrive(candidate, mount); });
}

std::string Opening(const std::string& path)
{
    return Thrown([&path] { const Drive drive(path); });
}

TEST(RefuseNoDriveOf, AMountPointOfItsOwnIsADrive)
{
    const Mount mount{1, "/", "/media/usb", "vfat", "/dev/sdb1"};

    EXPECT_EQ(Refusal({"usb", "/media/usb", false, true}, mount), "nothing thrown");
}

TEST(RefuseNoDriveOf, AFolderOfADriveIsNone)
{
    const Mount mount{1, "/", "/media/usb", "vfat", "/dev/sdb1"};

    EXPECT_EQ(Refusal({"usb/sub", "/media/usb/sub", false, true}, mount),
              std::string("2: usb/sub: nothing is mounted here; it belongs to '/media/usb'") +
                  kRemedy);
}

TEST(RefuseNoDriveOf, TheMachinesOwnFileSystemIsNone)
{
    const std::string wanted = std::string(": belongs to this machine's own file system") + kRemedy;

    EXPECT_EQ(Refusal({"/", "/", true, true}, {1, "/", "/", "ext4", "/dev/sda2"}), "2: /" + wanted);
    // Mounted a second time.
    EXPECT_EQ(Refusal({"again", "/again", true, true}, {1, "/", "/again", "ext4", "/dev/sda2"}),
              "2: again" + wanted);
}

TEST(RefuseNoDriveOf, APartOfAFileSystemIsNone)
{
    EXPECT_EQ(Refusal({"b", "/b", false, true}, {1, "/sub", "/b", "vfat", "/dev/sdb1"}),
              std::string("2: b: shows only the folder '/sub' of its file system; a panel looks at "
                          "its top") +
                  kRemedy);
}

TEST(RefuseNoDriveOf, WhatShowsTheKernelsInsidesIsNone)
{
    for (const char* const type : {"proc", "sysfs", "devtmpfs", "cgroup2", "efivarfs"}) {
        EXPECT_THAT(Refusal({"k", "/k", false, false}, {1, "/", "/k", type, type}),
                    StartsWith("2: k: is no drive, but the system's own ("))
            << type;
    }
    for (const char* const type : {"tmpfs", "nfs4", "fuse.sshfs", "overlay"}) {
        EXPECT_EQ(Refusal({"k", "/k", false, false}, {1, "/", "/k", type, type}), "nothing thrown")
            << type;
    }
}

TEST(DriveOf, AMachinesOwnFoldersAreRefused)
{
    const TempDir folder;
    folder.Write("file", "");

    if (!IsEmulated()) {
        EXPECT_THAT(Opening("/"), StartsWith("2: /: belongs to this machine's own file system"));
    }
    EXPECT_THAT(Opening("/proc"), StartsWith("2: /proc: is no drive"));
    EXPECT_THAT(Opening(folder.Path()),
                StartsWith("2: " + folder.Path() + ": nothing is mounted here; it belongs to '"));
    EXPECT_THAT(Opening(folder / "none"), EndsWith(": cannot open: No such file or directory"));
    EXPECT_THAT(Opening(folder / "file"), EndsWith(": cannot open: Not a directory"));
}

TEST(DoubtsOf, TheUsualDriveHasNone)
{
    EXPECT_THAT(DoubtsAbout({1, "/", "/m", "vfat", "/dev/sdb1"}, true, Partition::kFirst),
                IsEmpty());
    EXPECT_THAT(DoubtsAbout({1, "/", "/m", "vfat", "/dev/sdb1"}, true, Partition::kUnknown),
                IsEmpty());
}

TEST(DoubtsOf, ADriveThatAPanelMayNotFindOrReadHasThem)
{
    EXPECT_THAT(DoubtsAbout({1, "/", "/m", "exfat", "/dev/sdb2"}, true, Partition::kOther),
                ElementsAre("not every panel reads exfat; FAT32 (vfat) is the usual one",
                            "/dev/sdb2 is not the first partition, and a panel looks for that, "
                            "/dev/sda1"));
    EXPECT_THAT(DoubtsAbout({1, "/", "/m", "vfat", "/dev/sdb"}, true, Partition::kNone),
                ElementsAre("/dev/sdb has no partitions, and a panel looks for the first one, "
                            "/dev/sda1"));
    EXPECT_THAT(DoubtsAbout({1, "/", "/m", "tmpfs", "none"}, false, Partition::kUnknown),
                ElementsAre("tmpfs is on no disk of its own: nothing can be pulled and plugged "
                            "into a panel"));
}

TEST(PartitionsOf, WhatIsNoDiskHasNone)
{
    EXPECT_EQ(PartitionOf(0), Partition::kUnknown);
}

} // namespace

} // namespace kx::tool
