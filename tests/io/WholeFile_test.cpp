// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "io/Faults.h"
#include "io/WholeFile.h"
#include "support/TempDir.h"
#include "support/Thrown.h"

#include <gtest/gtest.h>

#include <cerrno>

namespace kx::io
{

TEST(ReadWholeFile, ReadsUpToItsLimitAndSaysWhatIsWrong)
{
    const TempDir dir;
    const std::string path = dir.Write("file", "12345");

    EXPECT_EQ(ReadWholeFile(path, 5), "12345");
    EXPECT_EQ(Thrown([&] { static_cast<void>(ReadWholeFile(path, 4)); }),
              "3: " + path + ": is larger than 4 bytes");
    EXPECT_EQ(Thrown([&] { static_cast<void>(ReadWholeFile(dir.Path(), 4)); }),
              "1: " + dir.Path() + ": is not a file");
    EXPECT_EQ(Thrown([&] { static_cast<void>(ReadWholeFile(dir / "none", 4)); }),
              "1: " + (dir / "none") + ": cannot open: No such file or directory");
}

TEST(ReadWholeFile, TellsADiskThatCannotBeRead)
{
    const TempDir dir;
    const std::string path = dir.Write("file", "12345");
    const Faults faults(Call::kRead, {{0, 3}, {EIO}});

    EXPECT_EQ(Thrown([&] { static_cast<void>(ReadWholeFile(path, 5)); }),
              "3: " + path + ": cannot read: Input/output error");
}

TEST(ReadFileHead, ReadsTheBeginningOfAFile)
{
    const TempDir dir;
    const std::string path = dir.Write("file", "12345");

    EXPECT_EQ(ReadFileHead(path, 3), "123");
    EXPECT_EQ(ReadFileHead(path, 9), "12345");
    EXPECT_EQ(Thrown([&] { static_cast<void>(ReadFileHead(dir / "none", 4, "look into it")); }),
              "1: " + (dir / "none") + ": cannot look into it: No such file or directory");
    EXPECT_EQ(Thrown([&] { static_cast<void>(ReadFileHead(dir.Path(), 4)); }),
              "1: " + dir.Path() + ": is not a file");
}

} // namespace kx::io
