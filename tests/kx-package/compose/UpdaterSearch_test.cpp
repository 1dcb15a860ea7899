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
                  ": there is no updater for arm; make one with 'scripts/cross armhf' in the "
                  "sources, or take the one of the package kx-updater for armhf, and put it there "
                  "or name it with --updater PATH");
}

TEST_F(UpdaterSearch, TellsHowToGetOneForAProcessorThatIsNotBuiltFor)
{
    const format::Processor& riscv = *format::FindProcessor("riscv64");

    EXPECT_EQ(Thrown([&] { static_cast<void>(FindUpdater(riscv, m_machine)); }),
              "3: " + (m_dir / "lib/kx_Updater/riscv64/kx_Updater") +
                  ": there is no updater for riscv64; put one there, or name one with --updater "
                  "PATH");
}

TEST_F(UpdaterSearch, TakesWhatWasBuiltForAnotherProcessorBesideItself)
{
    const std::string arm = m_dir.Write("armhf/kx_Updater", "");
    const std::string aarch64 = m_dir.Write("arm64/kx_Updater", "");
    const format::Processor& large = *format::FindProcessor("aarch64");
    EXPECT_NE(Thrown([&] { static_cast<void>(FindUpdater(m_arm, m_machine)); }), "nothing thrown");

    m_dir.Write("bin/kx-package.sources", "/sources\n");

    EXPECT_EQ(FindUpdater(m_arm, m_machine), arm);
    EXPECT_EQ(FindUpdater(large, m_machine), aarch64);
    const std::string installed = m_dir.Write("lib/kx_Updater/arm/kx_Updater", "");
    EXPECT_EQ(FindUpdater(m_arm, m_machine), installed);
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
