// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "archive/ZipNames.h"

#include <gtest/gtest.h>

namespace kx::archive
{

namespace
{

struct NameRow {
    const char* raw;
    std::uint8_t madeOn;
    const char* name;
    bool isFolder;
};

TEST(NameOnPanel, IsWhatUnzipMakesOfAName)
{
    constexpr NameRow kRows[] = {
        {"a", 3, "a", false},         {"a/b/", 3, "a/b", true},     {"a//b", 3, "a/b", false},
        {"./a/./b", 3, "a/b", false}, {"/a", 3, "a", false},        {"../a/../b", 3, "a/b", false},
        {"x\\y", 3, "x\\y", false},   {"x\\y", 0, "x/y", false},    {"x\\y/z", 0, "x\\y/z", false},
        {"x\\", 0, "x", true},        {"a;12", 3, "a", false},      {"a;", 3, "a", false},
        {"a;b", 3, "a;b", false},     {"a;1/b", 3, "a;1/b", false}, {"a\1\x7f", 3, "a", false},
        {".", 3, "_", false},         {"q/..", 3, "q/__", false},   {"..;1", 3, "__", false},
        {"a\xff", 3, "a", false},     {".\1./x", 3, "x", false},    {"../", 3, "", true},
        {"", 3, "", false},
    };
    for (const NameRow& row : kRows) {
        ZipMember member;
        member.name = row.raw;
        member.madeOn = row.madeOn;

        const UnpackedName name = NameOnPanel(member);

        EXPECT_EQ(name.name, row.name) << row.raw;
        EXPECT_EQ(name.isFolder, row.isFolder) << row.raw;
    }
}

TEST(IsDiskLabel, DependsOnTheSystem)
{
    ZipMember member;
    member.attributes = 8;
    for (const int system : {0, 5, 6, 11}) {
        member.madeOn = static_cast<std::uint8_t>(system);
        EXPECT_TRUE(IsDiskLabel(member)) << system;
    }
    member.madeOn = 3;
    EXPECT_FALSE(IsDiskLabel(member));
    member.madeOn = 0;
    member.attributes = 0x20;
    EXPECT_FALSE(IsDiskLabel(member));
}

} // namespace

} // namespace kx::archive
