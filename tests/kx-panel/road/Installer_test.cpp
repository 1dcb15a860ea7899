// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "io/Error.h"
#include "io/Interruption.h"
#include "road/Installer.h"
#include "support/Environment.h"
#include "support/TempDir.h"
#include "support/Thrown.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <stdexcept>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

namespace kx::guard
{

namespace
{

using testing::ElementsAre;

/// Runs shell scripts in the updater's place.
class InstallerTest : public testing::Test
{
protected:
    InstallerEnd Run(const std::string& script)
    {
        return RunInstaller(Terms(m_dir.Write("updater", "#!/bin/sh\n" + script, 0755)));
    }

    InstallerTerms Terms(const std::string& program)
    {
        return {program,
                "/folder/Hello.temp",
                m_lock,
                [this](std::uint64_t /*milliseconds*/, std::string_view line) {
                    m_lines.emplace_back(line);
                },
                [this] { ++m_asked; },
                m_patience};
    }

    TempDir m_dir;
    io::Descriptor m_lock{open(m_dir.Write("lock", "").c_str(), O_RDWR | O_CLOEXEC)};
    std::vector<std::string> m_lines;
    int m_asked = 0;
    std::chrono::milliseconds m_patience = std::chrono::seconds(60);
};

} // namespace

TEST_F(InstallerTest, GetsTheFolderAndNothingOfThisProcess)
{
    const Environment secret("KX_SECRET", "x");
    const Environment language("LANG", "ja_JP.UTF-8");
    const Environment all("LC_ALL", nullptr);
    const Environment zone("TZ", nullptr);
    const Environment collate("LC_COLLATE", nullptr);
    const Environment plugins("QT_PLUGIN_PATH", nullptr);
    const Environment libraries("LD_LIBRARY_PATH", "/opt/qt/lib");

    const InstallerEnd end =
        Run("echo \"$@\"\npwd\numask\ncat\nenv -u PWD -u OLDPWD -u SHLVL -u _ | sort\n"
            "[ /proc/self/fd/200 -ef " +
            (m_dir / "lock") + " ] && echo locked\n");

    EXPECT_EQ(end.status, 0);
    EXPECT_EQ(end.signal, 0);
    EXPECT_FALSE(end.isSomethingLeft);
    ASSERT_EQ(m_lines.size(), 8U);
    EXPECT_THAT(m_lines,
                ElementsAre("-unzipedDir /folder/Hello.temp", "/", "0022", "HOME=/root",
                            "LANG=ja_JP.UTF-8", "LD_LIBRARY_PATH=/opt/qt/lib",
                            "PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin",
                            "locked"));
}

TEST_F(InstallerTest, TellsLinesOfBothOutputsAndTheExitStatus)
{
    const InstallerEnd end = Run("printf 'one\\n\\ntwo'\necho three >&2\nprintf end\nexit 101\n");

    EXPECT_EQ(end.status, 101);
    EXPECT_THAT(m_lines, ElementsAre("one", "", "twothree", "end"));
}

TEST_F(InstallerTest, TellsAnEndlessLineInPieces)
{
    const InstallerEnd end = Run("head -c 10000 /dev/zero | tr '\\0' x\necho\necho next\n");

    EXPECT_EQ(end.status, 0);
    EXPECT_THAT(m_lines, ElementsAre(std::string(4096, 'x'), std::string(4096, 'x'),
                                     std::string(1808, 'x'), "next"));
}

TEST_F(InstallerTest, TellsNoEmptyLineBehindALineThatJustFits)
{
    static_cast<void>(Run("head -c 8192 /dev/zero | tr '\\0' x\necho\necho next\n"));

    EXPECT_THAT(m_lines, ElementsAre(std::string(4096, 'x'), std::string(4096, 'x'), "next"));
}

TEST_F(InstallerTest, TellsTheSignalThatEndedIt)
{
    const InstallerEnd end = Run("kill -9 $$\n");

    EXPECT_EQ(end.signal, SIGKILL);
    EXPECT_EQ(end.status, 0);
}

TEST_F(InstallerTest, CannotBeStarted)
{
    EXPECT_EQ(Thrown([&] { static_cast<void>(RunInstaller(Terms(m_dir / "missing"))); }),
              "3: " + m_dir.Path() + "/missing: cannot start: No such file or directory");
    EXPECT_EQ(Thrown([&] { static_cast<void>(RunInstaller(Terms(m_dir.Write("plain", "text")))); }),
              "3: " + m_dir.Path() + "/plain: cannot start: Permission denied");
}

TEST_F(InstallerTest, IsNotWaitedForBeyondItsOwnEnd)
{
    const InstallerEnd end = Run("sleep 30 &\necho $! > " + (m_dir / "pid") + "\necho done\n");

    EXPECT_EQ(end.status, 0);
    EXPECT_TRUE(end.isSomethingLeft);
    EXPECT_THAT(m_lines, ElementsAre("done"));
    kill(std::stoi(ReadFile(m_dir / "pid")), SIGKILL);
}

TEST_F(InstallerTest, CanStillPrintWhenNobodyReadsAnyMore)
{
    // An unwritten line is no success, and the signal for it would end the shell.
    const InstallerEnd end =
        Run("(while [ ! -e " + (m_dir / "go") + " ]; do sleep 0.05; done; " +
            "head -c 300000 /dev/zero && echo late && touch " + (m_dir / "printed") + ") &\n");
    EXPECT_TRUE(end.isSomethingLeft);

    m_dir.Write("go", "");

    for (int i = 0; i < 200 && !std::filesystem::exists(m_dir / "printed"); ++i) {
        usleep(50000);
    }
    EXPECT_TRUE(std::filesystem::exists(m_dir / "printed"));
}

TEST_F(InstallerTest, IsWaitedForWithItsCommandWhenASignalEndedIt)
{
    // The command is no child of this process until its own parent is gone.
    const InstallerEnd end = Run("(sleep 0.5; echo command done) &\nkill -9 $$\n");

    EXPECT_EQ(end.signal, SIGKILL);
    EXPECT_FALSE(end.isSomethingLeft);
    EXPECT_THAT(m_lines, ElementsAre("command done"));
}

TEST_F(InstallerTest, IsNotWaitedForForEverWhenASignalEndedIt)
{
    m_patience = std::chrono::milliseconds(200);

    const InstallerEnd end = Run("sleep 30 &\necho $! > " + (m_dir / "pid") + "\nkill -9 $$\n");

    EXPECT_EQ(end.signal, SIGKILL);
    EXPECT_TRUE(end.isSomethingLeft);
    kill(std::stoi(ReadFile(m_dir / "pid")), SIGKILL);
}

TEST_F(InstallerTest, IsWaitedForWhenThisProgramIsAskedToEnd)
{
    struct sigaction before {
    };
    struct sigaction ignore {
    };
    sigaction(SIGTERM, nullptr, &before);
    ignore.sa_handler = [](int /*number*/) {};
    sigaction(SIGTERM, &ignore, nullptr);
    InstallerEnd end;
    {
        const io::Interruption interruption;
        end = Run("kill -TERM $PPID\nsleep 0.3\necho done\nexit 5\n");
    }
    sigaction(SIGTERM, &before, nullptr);

    EXPECT_EQ(end.status, 5);
    EXPECT_EQ(m_asked, 1);
    EXPECT_THAT(m_lines, ElementsAre("done"));
}

TEST_F(InstallerTest, IsWaitedForWhateverIsThrown)
{
    InstallerTerms terms = Terms(
        m_dir.Write("updater", "#!/bin/sh\necho one\nsleep 0.3\ntouch " + (m_dir / "done"), 0755));
    terms.onLine = [](std::uint64_t /*milliseconds*/, std::string_view /*line*/) {
        throw std::runtime_error("no memory");
    };

    EXPECT_THROW(static_cast<void>(RunInstaller(terms)), std::runtime_error);
    EXPECT_TRUE(std::filesystem::exists(m_dir / "done"));
}

} // namespace kx::guard
