// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "cli/Command.h"
#include "io/Error.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include <CLI/CLI.hpp>

namespace kx::cli
{

using ::testing::EndsWith;

/// What a program with one command answers to "help" and "version".
class Help : public ::testing::Test
{
protected:
    Help()
    {
        m_program.require_subcommand(1);
        m_program.set_version_flag("--version", "kx-some 1.2");
        m_program.add_subcommand("look", "Look")->footer("The end.");
        AddHelp(m_program, m_invocation, "look");
        AddVersion(m_program, m_invocation);
    }

    std::string Answer(const std::string& line)
    {
        m_program.parse(line);
        std::ostringstream out;
        EXPECT_EQ(m_invocation.run({out, out}).Number(), 0);
        return out.str();
    }

private:
    CLI::App m_program{"", "kx-some"};
    Invocation m_invocation;
};

TEST_F(Help, IsThatOfTheCommand)
{
    EXPECT_THAT(Answer("help look"), EndsWith("\n\nThe end.\n"));
    EXPECT_THAT(Answer("help help"),
                EndsWith("\nExamples:\n  kx-some help\n  kx-some help look\n"));
}

TEST_F(Help, TellsTheNearestCommand)
{
    try {
        Answer("help loko");
        FAIL();
    } catch (const io::Error& error) {
        EXPECT_EQ(error.Line(), "'loko' is not a command; did you mean 'look'?");
    }
}

TEST_F(Help, IsNotTheVersion)
{
    EXPECT_EQ(Answer("version"), "kx-some 1.2\n");
}

} // namespace kx::cli
