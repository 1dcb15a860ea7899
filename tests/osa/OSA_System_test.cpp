// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "osa/OSA_System.h"
#include "support/TempDir.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <string>
#include <vector>

#include <unistd.h>

using ::testing::ElementsAre;

// The shell and the clock stay out of a test of the real functions, too.
extern "C" {
// NOLINTBEGIN(bugprone-reserved-identifier): the linker's names for a wrapped function
int __wrap_system(const char* command);
unsigned __wrap_sleep(unsigned seconds);
int __wrap_usleep(useconds_t microseconds);
// NOLINTEND(bugprone-reserved-identifier)
}

namespace
{

std::vector<std::string> calls; // NOLINT(cert-err58-cpp): an empty list does not throw

constexpr int kStatus = 0x2A00;

} // namespace

int __wrap_system(const char* command)
{
    calls.push_back(std::string("system ") + command);
    return kStatus;
}

unsigned __wrap_sleep(unsigned seconds)
{
    calls.push_back("sleep " + std::to_string(seconds));
    return 0;
}

int __wrap_usleep(useconds_t microseconds)
{
    calls.push_back("usleep " + std::to_string(microseconds));
    return 0;
}

class OsaSystem : public ::testing::Test
{
protected:
    OsaSystem() { calls.clear(); }
};

TEST_F(OsaSystem, HandsTheCommandToTheShellAndPassesItsStatusOn)
{
    EXPECT_EQ(OSA_SystemRun("echo '100%' \"$HOME\""), kStatus);

    EXPECT_THAT(calls, ElementsAre("system echo '100%' \"$HOME\""));
}

TEST_F(OsaSystem, SleepsSecondsAndMicroseconds)
{
    OSA_SystemSleep(3);
    OSA_SystemPause(1500);

    EXPECT_THAT(calls, ElementsAre("sleep 3", "usleep 1500"));
}

TEST_F(OsaSystem, ExaminesWhatALinkLeadsTo)
{
    const TempDir dir;
    const std::string file = dir.Write("file", "12345");
    ASSERT_EQ(symlink(file.c_str(), (dir / "link").c_str()), 0);
    struct stat info {
    };

    EXPECT_EQ(OSA_SystemStat((dir / "link").c_str(), &info), 0);

    EXPECT_TRUE(S_ISREG(info.st_mode));
    EXPECT_EQ(info.st_size, 5);
    EXPECT_EQ(OSA_SystemStat((dir / "none").c_str(), &info), -1);
    EXPECT_EQ(errno, ENOENT);
}

TEST_F(OsaSystem, OpensAFileInTheModeAskedFor)
{
    const TempDir dir;

    std::FILE* const file = OSA_SystemOpen((dir / "file").c_str(), "w");
    ASSERT_NE(file, nullptr);
    std::fputs("text", file);
    std::fclose(file);

    EXPECT_EQ(ReadFile(dir / "file"), "text");
    EXPECT_EQ(OSA_SystemOpen((dir / "none").c_str(), "r"), nullptr);
    EXPECT_EQ(errno, ENOENT);
}

TEST_F(OsaSystem, ListsAFolderInOrder)
{
    const TempDir dir;
    for (const char* const name : {"b", "c", "a"}) {
        dir.Write(name, "");
    }
    dirent** entries = nullptr;

    const int count = OSA_SystemList(dir.Path().c_str(), &entries);

    std::vector<std::string> names;
    for (int index = 0; index < count; ++index) {
        names.emplace_back(entries[index]->d_name);
        std::free(entries[index]);
    }
    std::free(entries);
    EXPECT_THAT(names, ElementsAre(".", "..", "a", "b", "c"));
    EXPECT_EQ(OSA_SystemList((dir / "none").c_str(), &entries), -1);
    EXPECT_EQ(errno, ENOENT);
}
