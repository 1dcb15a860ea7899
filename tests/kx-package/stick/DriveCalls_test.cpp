// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "io/Faults.h"
#include "stick/DriveCalls.h"
#include "support/TempDir.h"

#include <gmock/gmock.h>

#include <array>
#include <cerrno>
#include <filesystem>
#include <string>
#include <system_error>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kx::tool
{

namespace
{

using testing::UnorderedElementsAre;

class DriveCallsTest : public testing::Test
{
protected:
    DriveCallsTest()
        : m_folder(open(m_drive.Path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)),
          m_calls(m_folder)
    {
    }

    /// The errno with which a name is not opened; 0 when it is.
    [[nodiscard]] int ErrorOf(const std::string& name) const
    {
        return m_calls.Open(name).IsOpen() ? 0 : errno;
    }

    TempDir m_drive;
    io::Descriptor m_folder;
    DriveCalls m_calls;
};

TEST_F(DriveCallsTest, AllNamesAreListedAgainAndAgain)
{
    m_drive.Write("a", "");
    m_drive.Write(".b", "");
    m_drive.Write("c/d", "");

    for (int i = 0; i < 2; ++i) {
        std::vector<std::string> names;
        EXPECT_EQ(m_calls.List(names), 0);
        EXPECT_THAT(names, UnorderedElementsAre("a", ".b", "c"));
    }
}

TEST_F(DriveCallsTest, OnlyFilesAreOpened)
{
    m_drive.Write("file", "");
    m_drive.MakeDir("folder");
    ASSERT_EQ(symlink("file", (m_drive / "link").c_str()), 0);
    ASSERT_EQ(mkfifo((m_drive / "pipe").c_str(), 0600), 0);

    EXPECT_EQ(ErrorOf("file"), 0);
    EXPECT_EQ(ErrorOf("folder"), EISDIR);
    EXPECT_EQ(ErrorOf("link"), ELOOP);
    EXPECT_NE(ErrorOf("pipe"), 0);
    EXPECT_EQ(ErrorOf("none"), ENOENT);
}

TEST_F(DriveCallsTest, PastTheMemoryIsAskedOfTheKernel)
{
    m_drive.Write("file", "");
    const io::Descriptor file = m_calls.Open("file");

    const io::Descriptor past = m_calls.OpenAgain(file, true);
    const int error = errno;
    const io::Descriptor plain = m_calls.OpenAgain(file, false);

    if (past.IsOpen()) {
        EXPECT_NE(fcntl(past.Number(), F_GETFL) & O_DIRECT, 0);
    } else {
        EXPECT_EQ(error, EINVAL);
    }
    EXPECT_EQ(fcntl(plain.Number(), F_GETFL) & O_DIRECT, 0);
}

TEST_F(DriveCallsTest, WhatIsSyncedIsAskedOfTheKernel)
{
    const io::NewFile made = m_calls.Make("a");
    ASSERT_EQ(m_calls.Write(made.file, "new").error, 0);
    std::error_code error;
    const std::string file = std::filesystem::read_symlink(made.file.Path(), error).string();
    const io::Placing placing;

    EXPECT_EQ(m_calls.Sync(made.file), 0);
    EXPECT_EQ(m_calls.SyncNames(), 0);
    EXPECT_EQ(m_calls.SyncAll(), 0);

    EXPECT_THAT(placing.Calls(),
                testing::ElementsAre("sync " + file + ", 3 bytes", "sync " + m_drive.Path(),
                                     "sync all of " + m_drive.Path()));
}

TEST_F(DriveCallsTest, WhatTheKernelDoesNotSyncIsToldByItsNumber)
{
    m_drive.Write("file", "");
    const io::Descriptor file = m_calls.Open("file");
    const io::Faults single(io::Call::kSync, {{EIO}, {ENOSPC}});
    const io::Faults all(io::Call::kSyncAll, {{EDQUOT}});

    EXPECT_EQ(m_calls.Sync(file), EIO);
    EXPECT_EQ(m_calls.SyncNames(), ENOSPC);
    EXPECT_EQ(m_calls.SyncAll(), EDQUOT);
}

TEST_F(DriveCallsTest, AFileOfThisNameIsReplacedByTheNewOne)
{
    m_drive.Write("a", "older");
    io::NewFile made = m_calls.Make("a");
    ASSERT_EQ(m_calls.Write(made.file, "new").error, 0);
    ASSERT_EQ(m_calls.Sync(made.file), 0);
    ASSERT_EQ(m_calls.GiveName("a", made), 0);

    EXPECT_EQ(m_calls.Rename(made.path, "a"), 0);

    EXPECT_THAT(m_drive.Tree(), testing::ElementsAre("a f 644 new"));
    EXPECT_EQ(m_calls.SyncNames(), 0);
    EXPECT_EQ(m_calls.SyncAll(), 0);
    EXPECT_EQ(m_calls.Rename(made.path, "a"), ENOENT);
    EXPECT_EQ(m_calls.Remove(made.path), ENOENT);
    std::array<char, 8> bytes{};
    const io::Transferred read = m_calls.ReadAt(m_calls.Open("a"), bytes.data(), bytes.size(), 1);
    EXPECT_EQ(std::string(bytes.data(), read.count), "ew");
}

} // namespace

} // namespace kx::tool
