// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "compose/ComposedPackage.h"
#include "support/TempDir.h"
#include "support/Thrown.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace kx::tool
{

namespace
{

using testing::ElementsAre;

} // namespace

TEST(ComposedPackage, HoldsWhatTheArchiveWillHold)
{
    const TempDir dir;
    const std::string file = dir.Write("hello", "Hello", 0600);
    const ComposedPackage package("demo.kx-update",
                                  {{"0/0/hello", file, std::nullopt, false, true},
                                   {"1/0/empty/", "", std::nullopt, true, false},
                                   {"UserPackage.kx-project", "", "{}", false, false}});

    std::vector<std::string> told;
    for (const archive::PackageEntry& entry : package.Entries()) {
        const bool isFolder = entry.kind == archive::PackageEntry::Kind::kFolder;
        told.push_back(entry.name + (isFolder ? "/ " : " ") + std::to_string(entry.mode) + " " +
                       std::to_string(entry.size));
    }
    EXPECT_THAT(told, ElementsAre("0/ 0 0", "0/0/ 0 0", "0/0/hello 493 5", "1/ 0 0", "1/0/ 0 0",
                                  "1/0/empty/ 493 0", "UserPackage.kx-project 420 2"));
    EXPECT_TRUE(package.IsArchive());
    EXPECT_EQ(package.Path(), "demo.kx-update");
    EXPECT_EQ(package.Read("0/0/hello", 100), "Hello");
    EXPECT_EQ(package.Read("0/0/hello", 2), "He");
    EXPECT_EQ(package.Read("UserPackage.kx-project", 1), "{");
    EXPECT_EQ(package.SourceOf("0/0/hello"), file);
    EXPECT_EQ(package.SourceOf("UserPackage.kx-project"), "");
    EXPECT_EQ(package.SourceOf("none"), "");
    EXPECT_EQ(Thrown([&] { static_cast<void>(package.Read("none", 1)); }),
              "3: demo.kx-update:none: is not a file of the package");
    EXPECT_EQ(Thrown([&] { static_cast<void>(package.Read("1/0/empty", 1)); }),
              "3: demo.kx-update:1/0/empty: is not a file of the package");
}

TEST(ComposedPackage, SaysWhichFileIsGone)
{
    const TempDir dir;
    EXPECT_EQ(Thrown([&] {
                  const ComposedPackage package(
                      "demo.kx-update", {{"0/0/a", dir / "none", std::nullopt, false, false}});
              }),
              "3: " + dir.Path() + "/none: cannot look at: No such file or directory");
}

} // namespace kx::tool
