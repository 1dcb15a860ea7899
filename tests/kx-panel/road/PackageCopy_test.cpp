// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "io/Error.h"
#include "io/Faults.h"
#include "road/PackageCopy.h"
#include "support/TempDir.h"
#include "support/Thrown.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <fstream>

#include <fcntl.h>
#include <sys/stat.h>

namespace kx::guard
{

namespace
{

StateFolder FolderIn(const TempDir& dir)
{
    const std::string path = dir.MakeDir("state");
    return {io::Descriptor(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)), path};
}

/// A drive whose bytes are others each time they are read.
class FickleBytes final : public archive::ByteSource
{
public:
    explicit FickleBytes(std::uint64_t size) : m_size(size) {}

    [[nodiscard]] std::uint64_t Size() const override { return m_size; }
    [[nodiscard]] std::string Read(std::uint64_t offset, std::size_t count) const override
    {
        EXPECT_EQ(offset, m_read) << "read once, from the beginning to the end";
        const auto size = std::min<std::uint64_t>(count, m_size - offset);
        m_read = offset + size;
        std::string bytes(static_cast<std::size_t>(size), static_cast<char>('a' + m_times++));
        return bytes;
    }

private:
    std::uint64_t m_size;
    mutable std::uint64_t m_read = 0;
    mutable int m_times = 0;
};

} // namespace

TEST(PackageCopy, ReadsEveryByteOnce)
{
    const TempDir dir;
    const StateFolder folder = FolderIn(dir);

    CopyPackage(FickleBytes((1 << 18) + 1), folder, "package", [] {});

    EXPECT_EQ(ReadFile(dir / "state/package"), std::string(1 << 18, 'a') + "b");
}

TEST(PackageCopy, IsOnTheDiskWhole)
{
    const TempDir dir;
    const StateFolder folder = FolderIn(dir);
    const io::Placing placing;

    CopyPackage(FickleBytes((1 << 18) + 1), folder, "package", [] {});

    EXPECT_THAT(placing.Calls(),
                testing::ElementsAre("sync " + (dir / "state/package") + ", 262145 bytes"));
}

TEST(PackageCopy, TellsThatTheDiskDoesNotTakeIt)
{
    const TempDir dir;
    const StateFolder folder = FolderIn(dir);
    const io::Faults faults(io::Call::kSync, {{EIO}});

    EXPECT_EQ(Thrown([&] { CopyPackage(FickleBytes(10), folder, "package", [] {}); }),
              "3: " + (dir / "state/package") + ": cannot write: Input/output error");
}

TEST(PackageCopy, IsRootsAlone)
{
    const TempDir dir;
    const auto source = OpenPackageBytes(dir.Write("source", "bytes"));

    CopyPackage(*source, FolderIn(dir), "package", [] {});

    EXPECT_THAT(dir.Tree(), testing::ElementsAre("source f 644 bytes", "state d 755",
                                                 "state/package f 600 bytes"));
}

TEST(PackageCopy, RefusesASourceThatBecomesShorter)
{
    const TempDir dir;
    const std::string path = dir.Write("source", std::string(1 << 20, 'x'));
    const auto source = OpenPackageBytes(path);
    const StateFolder folder = FolderIn(dir);

    EXPECT_EQ(Thrown([&] {
                  CopyPackage(*source, folder, "package",
                              [&path] { std::filesystem::resize_file(path, 300000); });
              }),
              "3: " + path +
                  ": became shorter while it was read; leave the file and its drive alone, and "
                  "begin again");
}

TEST(PackageCopy, TakesNoMoreThanTheSourceHadAtFirst)
{
    const TempDir dir;
    const std::string path = dir.Write("source", "short");
    const auto source = OpenPackageBytes(path);

    CopyPackage(*source, FolderIn(dir), "package",
                [&path] { std::ofstream(path, std::ios::app) << "and more"; });

    EXPECT_EQ(ReadFile(dir / "state/package"), "short");
}

TEST(PackageCopy, EndsWhenItIsAskedTo)
{
    const TempDir dir;
    const StateFolder folder = FolderIn(dir);

    EXPECT_EQ(Thrown([&] {
                  CopyPackage(FickleBytes(10), folder, "package",
                              [] { throw io::Error(io::ExitCode::kNoAccess, "", "stopped"); });
              }),
              "3: stopped");
}

TEST(PackageCopy, IsWrittenThroughNoLink)
{
    const TempDir dir;
    const StateFolder folder = FolderIn(dir);
    std::filesystem::create_symlink("../outside", dir / "state/package");

    EXPECT_EQ(Thrown([&] { CopyPackage(FickleBytes(10), folder, "package", [] {}); }),
              "3: " + dir.Path() + "/state/package: cannot write: File exists");
    EXPECT_FALSE(std::filesystem::exists(dir / "outside"));
}

TEST(PackageCopy, OpensNothingButFiles)
{
    const TempDir dir;
    ASSERT_EQ(mkfifo((dir / "pipe").c_str(), 0600), 0);

    EXPECT_EQ(Thrown([&] { static_cast<void>(OpenPackageBytes(dir / "pipe")); }),
              "1: " + dir.Path() + "/pipe: is not a file");
    EXPECT_EQ(Thrown([&] { static_cast<void>(OpenPackageBytes(dir.Path())); }),
              "1: " + dir.Path() + ": is not a file");
}

} // namespace kx::guard
