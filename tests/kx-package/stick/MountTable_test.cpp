// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "stick/MountTable.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

namespace kx::tool
{

namespace
{

using testing::ElementsAre;
using testing::IsEmpty;

std::vector<std::string> MountTexts(std::string_view table)
{
    std::vector<std::string> texts;
    for (const Mount& mount : ReadMounts(table)) {
        texts.push_back(std::to_string(mount.id) + "|" + mount.root + "|" + mount.folder + "|" +
                        mount.type + "|" + mount.source);
    }
    return texts;
}

TEST(ReadMountsOf, ALineHasAnyNumberOfFieldsBeforeTheMark)
{
    EXPECT_THAT(MountTexts("36 35 8:1 / /media/usb rw,noatime - vfat /dev/sda1 rw\n"
                           "37 35 8:2 /sub /b rw shared:1 master:2 - ext4 /dev/sda2 ro\n"),
                ElementsAre("36|/|/media/usb|vfat|/dev/sda1", "37|/sub|/b|ext4|/dev/sda2"));
}

TEST(ReadMountsOf, BlanksAndTheLikeStandAsOctalDigits)
{
    EXPECT_THAT(
        MountTexts(R"(1 2 0:9 / /media/MY\040STICK\011\134x\12 rw - fuse.a\040b c\043d rw)"),
        ElementsAre("1|/|/media/MY STICK\t\\x\\12|fuse.a b|c#d"));
}

TEST(ReadMountsOf, LinesThatMakeNoSenseAreLeftOut)
{
    EXPECT_THAT(MountTexts(""), IsEmpty());
    EXPECT_THAT(MountTexts("\n1 2 3\n1 2 0:9 / /a rw vfat /dev/sda1 rw\nx 2 0:9 / /a rw - t s o\n"
                           "1 2 0:9 / /a rw - t\n7 2 0:9 / /b rw - t s o"),
                ElementsAre("7|/|/b|t|s"));
}

} // namespace

} // namespace kx::tool
