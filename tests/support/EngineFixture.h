// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "engine/ILogger.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

/// Keeps what the engine logs: a formatted line each for OutLine, the text as it stands for OutMsg.
class LineLogger final : public ILogger
{
public:
    [[gnu::format(printf, 2, 3)]] void OutLine(const char* format, ...) override;
    void OutMsg(const char* text) override;

    [[nodiscard]] const std::vector<std::string>& Lines() const { return m_lines; }

private:
    std::vector<std::string> m_lines;
};

/// A test on the engine: project classes registered once per process, a logger of its own, and the
/// recording lists, the current package and the reading mode as at the start of the program.
class EngineFixture : public ::testing::Test
{
protected:
    EngineFixture();
    ~EngineFixture() override;

    /// The lines logged so far.
    [[nodiscard]] const std::vector<std::string>& Lines() const { return m_logger.Lines(); }

    /// The recorded files and folders.
    [[nodiscard]] static std::vector<std::string> Files();
    [[nodiscard]] static std::vector<std::string> Folders();

private:
    LineLogger m_logger;
};
