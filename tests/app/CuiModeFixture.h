// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "app/Globals.h"
#include "app/RunModes.h"
#include "engine/q_UpdaterEngine.h"
#include "model/PicoJFactory.h"
#include "support/EngineFixture.h"
#include "support/ProjectBuilder.h"
#include "support/TempDir.h"

#include <string>
#include <vector>

/// What a run in console mode gave.
struct CuiRun {
    int result;
    std::string output; ///< all of standard output
};

/// A base fixture with an engine that has not been started, and an unpacked package in a folder
/// named Package, which the options name.
template <class Base>
class T_CuiMode : public Base
{
protected:
    T_CuiMode()
    {
        q_UpdaterEngine::PicoJTbl = &m_table;
        G::Opts = Options();
        G::Opts.unzipedDir = Package();
    }
    ~T_CuiMode() override
    {
        q_UpdaterEngine::PicoJTbl = m_saved;
        G::Opts = Options();
    }

    [[nodiscard]] std::string Package() const { return m_dir / "kx_test_package.temp"; }

    void WriteBytes(const std::string& bytes)
    {
        static_cast<void>(m_dir.Write("kx_test_package.temp/UserPackage.kx-project", bytes));
    }

    void WriteSteps(const std::vector<ProjectBuilder::Object>& steps)
    {
        WriteBytes(ProjectBuilder::File(ProjectBuilder::Root(steps)));
    }

    /// Runs console mode with its standard output caught.
    static CuiRun Run()
    {
        ::testing::internal::CaptureStdout();
        const int result = CuiMode(nullptr);
        return {result, ::testing::internal::GetCapturedStdout()};
    }

    TempDir m_dir;
    PicoJFactory m_table;

private:
    PicoJFactory* m_saved = q_UpdaterEngine::PicoJTbl;
};
