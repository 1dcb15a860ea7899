// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "compose/UpdaterSearch.h"
#include "support/Program.h"
#include "support/TempDir.h"
#include "support/Thrown.h"

#include <gtest/gtest.h>

#include <filesystem>

namespace kx::tool
{

class UpdaterSearch : public ::testing::Test
{
protected:
    const format::Processor& m_arm = *format::FindProcessor("arm");
    const format::Processor& m_x86 = *format::FindProcessor("x86_64");
    TempDir m_dir;
    Machine m_machine = {m_dir / "bin", &m_x86};
};

TEST_F(UpdaterSearch, TakesTheInstalledUpdaterOfTheProcessor)
{
    m_dir.Write("bin/kx_Updater", "");
    const std::string arm = m_dir.Write("lib/kx_Updater/arm/kx_Updater", "");
    const std::string x86 = m_dir.Write("lib/kx_Updater/x86_64/kx_Updater", "");

    EXPECT_EQ(FindUpdater(m_arm, m_machine), arm);
    EXPECT_EQ(FindUpdater(m_x86, m_machine), x86);
}

TEST_F(UpdaterSearch, TakesTheMachinesOwnForItsOwnProcessorOnly)
{
    const std::string own = m_dir.Write("bin/kx_Updater", "");

    EXPECT_EQ(FindUpdater(m_x86, m_machine), own);
    EXPECT_EQ(Thrown([&] { static_cast<void>(FindUpdater(m_arm, m_machine)); }),
              "3: " + (m_dir / "lib/kx_Updater/arm/kx_Updater") +
                  ": there is no updater for arm; put one there, or name one with --updater PATH");
}

TEST_F(UpdaterSearch, KnowsThePlaceOfTheRunningProgram)
{
    const Machine machine = ThisMachine();

    EXPECT_EQ(machine.toolFolder,
              std::filesystem::canonical("/proc/self/exe").parent_path().string());
    EXPECT_EQ(machine.native, format::NativeProcessor());
}

TEST_F(UpdaterSearch, TakesAProgramForTheProcessor)
{
    const std::string path = m_dir.Write("updater", ProgramFor(m_arm));

    EXPECT_EQ(Thrown([&] { RefuseOtherUpdater(path, m_arm); }), "nothing thrown");
}

TEST_F(UpdaterSearch, RefusesProgramsForOthersAndWhatIsNone)
{
    const std::string path = m_dir.Write("updater", ProgramFor(m_arm));
    EXPECT_EQ(Thrown([&] { RefuseOtherUpdater(path, m_x86); }),
              "1: " + path +
                  ": is a program for arm, not for x86_64; name another one with --updater PATH, "
                  "or correct 'package.processor'");

    const std::string script = m_dir.Write("script", "#!/bin/sh\nexit 0 # much longer than a head");
    EXPECT_EQ(
        Thrown([&] { RefuseOtherUpdater(script, m_arm); }),
        "1: " + script +
            ": is not a program that a panel could start; name an updater with --updater PATH");
    EXPECT_EQ(
        Thrown([&] { RefuseOtherUpdater(m_dir.Path(), m_arm); }),
        "1: " + m_dir.Path() +
            ": is not a program that a panel could start; name an updater with --updater PATH");
    EXPECT_EQ(Thrown([&] { RefuseOtherUpdater(m_dir / "none", m_arm); }),
              "1: " + (m_dir / "none") + ": cannot open the updater: No such file or directory");
}

} // namespace kx::tool
