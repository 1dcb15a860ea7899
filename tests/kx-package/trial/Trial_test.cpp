// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "support/TempDir.h"
#include "support/Thrown.h"
#include "trial/Trial.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

namespace kx::tool
{

namespace
{

TEST(NamedPath, EndsInTheNameOfThePackage)
{
    const TempDir folder;
    const std::string root = std::filesystem::canonical(folder.Path()).string();
    std::filesystem::create_directories(root + "/pkg/0");
    std::ofstream(root + "/a.kx-update") << "x";

    EXPECT_EQ(NamedPath(root + "/pkg"), root + "/pkg");
    EXPECT_EQ(NamedPath(root + "/pkg//"), root + "/pkg");
    EXPECT_EQ(NamedPath(root + "/pkg/."), root + "/pkg");
    EXPECT_EQ(NamedPath(root + "/pkg/0/.."), root + "/pkg");
    EXPECT_EQ(NamedPath(root + "/a.kx-update"), root + "/a.kx-update");
}

TEST(NamedPath, RefusesWhatIsNoPackage)
{
    EXPECT_EQ(Thrown([] { static_cast<void>(NamedPath("/nowhere")); }),
              "3: /nowhere: cannot open: No such file or directory");
    EXPECT_EQ(Thrown([] { static_cast<void>(NamedPath("")); }),
              "3: cannot open: No such file or directory");
    EXPECT_EQ(Thrown([] { static_cast<void>(NamedPath("//")); }),
              "3: //: is not a package; name a package or the folder of an unpacked one");
    EXPECT_EQ(Thrown([] { static_cast<void>(NamedPath("/dev/null")); }),
              "3: /dev/null: is neither a file nor a folder; name a package or the folder of an "
              "unpacked one");
}

} // namespace

} // namespace kx::tool
