// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "cli/Values.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include <CLI/CLI.hpp>

namespace kx::cli
{

using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST(CommandNames, AreInTheOrderOfTheHelp)
{
    CLI::App program;
    const CLI::App* const second = program.add_subcommand("second", "");
    program.add_subcommand("first", "");

    EXPECT_THAT(CommandNames(program), ElementsAre("second", "first"));
    EXPECT_EQ(FindCommand(program, "second"), second);
    EXPECT_EQ(FindCommand(program, "sec"), nullptr);
}

TEST(OptionWords, AreAsTheyAreTyped)
{
    CLI::App program;
    std::string value;

    EXPECT_THAT(OptionWords(*program.add_option("-o,--output", value)),
                ElementsAre("-o", "--output"));
    EXPECT_THAT(OptionWords(*program.add_option("word", value)), IsEmpty());
}

TEST(ChoiceOf, NamesEveryWord)
{
    EXPECT_EQ(ChoiceOf({"one", "two"}), "{one,two}");
    EXPECT_EQ(ChoiceOf({"one"}), "{one}");
}

} // namespace kx::cli
