// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "commands/EmptyPackage.h"

#include <gtest/gtest.h>

namespace kx::tool
{

namespace
{

TEST(EmptyPackage, HasADescriptionWithoutStepsAndNothingElse)
{
    const EmptyPackage package("some/where/Foo.kx-update", true);

    EXPECT_EQ(package.Path(), "some/where/Foo.kx-update");
    EXPECT_TRUE(package.IsArchive());
    ASSERT_EQ(package.Entries().size(), 1U);
    const archive::PackageEntry* const description = package.Find("UserPackage.kx-project");
    ASSERT_NE(description, nullptr);
    const std::string text = package.Read(description->name, 1 << 20);
    EXPECT_EQ(text.size(), description->size);
    EXPECT_NE(text.find("\"$values\": []"), std::string::npos);
    EXPECT_EQ(package.Read(description->name, 3), "\xef\xbb\xbf");
    EXPECT_EQ(package.Read("kx_Updater", 3), "");
}

} // namespace

} // namespace kx::tool
