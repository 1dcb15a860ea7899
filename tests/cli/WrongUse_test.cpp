// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "cli/WrongUse.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include <CLI/CLI.hpp>

namespace kx::cli
{

/// What a program with one command says about words that it cannot follow.
std::string RefusalOf(std::vector<std::string> words)
{
    CLI::App program("", "kx-some");
    bool isJson = false;
    program.require_subcommand(1);
    program.add_subcommand("look", "")->add_flag("--json", isJson);
    try {
        // The library takes them from the end.
        program.parse(std::vector<std::string>(words.rbegin(), words.rend()));
    } catch (const CLI::ParseError& error) {
        const io::Error told = WrongUse(program, words, error.what());
        EXPECT_EQ(told.Code(), io::ExitCode::kWrongUse);
        return told.Line();
    }
    return "";
}

TEST(WrongUse, NamesWhatIsWrongAndTheNearestWord)
{
    EXPECT_EQ(RefusalOf({"loko"}), "'loko' is not a command; did you mean 'look'?");
    EXPECT_EQ(RefusalOf({"look", "--jsno"}),
              "'--jsno' is not an option of look; did you mean '--json'?");
    EXPECT_EQ(RefusalOf({"look", "--quick"}),
              "'--quick' is not an option of look; see kx-some help look");
    EXPECT_EQ(RefusalOf({"--json", "look"}),
              "'--json' stands before the command; write kx-some look --json");
    EXPECT_EQ(RefusalOf({"look", "here"}),
              "'here' is one word too many for look; see kx-some help look");
    EXPECT_EQ(RefusalOf({}), "A subcommand is required; see kx-some help");
}

} // namespace kx::cli
