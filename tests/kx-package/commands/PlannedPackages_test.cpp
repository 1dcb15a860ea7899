// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "commands/PlannedPackages.h"

#include <gtest/gtest.h>

namespace kx::tool
{

namespace
{

TEST(EmptyPackage, HasADescriptionWithoutStepsAndAnUpdater)
{
    const EmptyPackage package("some/where/Foo.kx-update", true);

    EXPECT_EQ(package.Path(), "some/where/Foo.kx-update");
    EXPECT_TRUE(package.IsArchive());
    ASSERT_EQ(package.Entries().size(), 2U);
    const archive::PackageEntry* const updater = package.Find("kx_Updater");
    ASSERT_NE(updater, nullptr);
    EXPECT_EQ(updater->mode, 0755U);
    const archive::PackageEntry* const description = package.Find("UserPackage.kx-project");
    ASSERT_NE(description, nullptr);
    const std::string text = package.Read(description->name, 1 << 20);
    EXPECT_EQ(text.size(), description->size);
    EXPECT_NE(text.find("\"$values\": []"), std::string::npos);
    EXPECT_EQ(package.Read(description->name, 3), "\xef\xbb\xbf");
    EXPECT_EQ(package.Read("kx_Updater", 3), "");
}

TEST(StartablePackage, ReplacesTheUpdaterAndKeepsTheRest)
{
    const EmptyPackage given("Foo", false);

    const StartablePackage package(given);

    EXPECT_EQ(package.Path(), "Foo");
    EXPECT_FALSE(package.IsArchive());
    ASSERT_EQ(package.Entries().size(), 2U);
    ASSERT_NE(package.Find("kx_Updater"), nullptr);
    EXPECT_EQ(package.Find("kx_Updater")->mode, 0755U);
    EXPECT_EQ(package.Read("UserPackage.kx-project", 9), given.Read("UserPackage.kx-project", 9));
}

} // namespace

} // namespace kx::tool
