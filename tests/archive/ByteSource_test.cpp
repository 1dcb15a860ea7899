// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "archive/ByteSource.h"
#include "support/TempDir.h"
#include "support/Thrown.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>

#include <sys/stat.h>

namespace kx::archive
{

TEST(FileBytes, AreReadAtAnyPlaceUpToTheEnd)
{
    const TempDir dir;
    const FileBytes bytes(dir.Write("x", "12345678"));

    EXPECT_EQ(bytes.Size(), 8U);
    EXPECT_EQ(bytes.Read(2, 3), "345");
    EXPECT_EQ(bytes.Read(6, 3), "78");
    EXPECT_EQ(bytes.Read(0, 100), "12345678");
    EXPECT_EQ(bytes.Read(8, 1), "");
    EXPECT_EQ(bytes.Read(UINT64_MAX, 1), "");
}

TEST(FileBytes, EndWhereTheFileWasCutMeanwhile)
{
    const TempDir dir;
    const FileBytes bytes(dir.Write("x", "12345678"));

    std::filesystem::resize_file(dir / "x", 3);

    EXPECT_EQ(bytes.Size(), 8U);
    EXPECT_EQ(bytes.Read(0, 8), "123");
    EXPECT_EQ(bytes.Read(5, 3), "");
}

TEST(FileBytes, AreThoseOfARegularFile)
{
    const TempDir dir;
    const std::string pipe = dir / "pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);

    for (const std::string& path : {pipe, dir.Path()}) {
        EXPECT_EQ(Thrown([&] { const FileBytes bytes(path); }), "1: " + path + ": is not a file");
    }
    EXPECT_EQ(Thrown([&] { const FileBytes bytes(dir / "none"); }),
              "1: " + (dir / "none") + ": cannot open: No such file or directory");
}

} // namespace kx::archive
