// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "unpack/TomlText.h"

#include <gtest/gtest.h>

#include <string>

#include <toml++/toml.h>

namespace kx::tool
{

namespace
{

/// Returns what TOML reads as the text of a key.
std::string ParsedAgain(const std::string& key, const std::string& value)
{
    const toml::table table = toml::parse(key + " = " + value + "\n");
    return table.begin()->second.value_or(std::string("no text"));
}

} // namespace

class TomlTexts : public ::testing::TestWithParam<const char*>
{
};

TEST_P(TomlTexts, AreReadBackAsTheyWere)
{
    const std::string text = GetParam();

    EXPECT_EQ(ParsedAgain("key", TomlText(text)), text);
    EXPECT_EQ(ParsedAgain("key", TomlLines(text)), text);
    EXPECT_EQ(ParsedAgain(TomlKey(text), "\"x\""), "x");
    EXPECT_EQ(toml::parse(TomlKey(text) + " = 1").begin()->first.str(), text);
}

INSTANTIATE_TEST_SUITE_P(Texts, TomlTexts,
                         ::testing::Values("", "plain", "a \"b\" c", "\"", "\"\"\"", "a\"\"", "\\",
                                           "a\\\nb\\", "\n", "\n\na\n", "a\r\nb\rc", "\t\x01\x7f",
                                           "a\n\"\"\"\"\"\nb\"", "\xc3\xa4", "a.b", "'", "#",
                                           "\"\n\"", "a \n  b"));

TEST(TomlLines, StandBetweenThreeQuotes)
{
    EXPECT_EQ(TomlLines("a\n\"b\" c\n"), "\"\"\"\na\n\"b\" c\n\"\"\"");
    EXPECT_EQ(TomlLines("one line"), "\"one line\"");
}

TEST(TomlKeys, StandInQuotesWhereTheyMust)
{
    EXPECT_EQ(TomlKey("Level-1_b"), "Level-1_b");
    EXPECT_EQ(TomlKey("a b"), "\"a b\"");
}

TEST(TomlDates, AreTextsWhereTheyAreNoDays)
{
    EXPECT_EQ(TomlDate("2026/11/21"), "2026-11-21");
    for (const char* const date :
         {"", "today", "2026/13/01", "2026/00/01", "2026/01/00", "2026/04/31", "2024/02/29",
          "2026-11-21", "2026/1/21x", "20x6/11/21", "2026/11/21 "}) {
        EXPECT_EQ(TomlDate(date), TomlText(date));
    }
}

} // namespace kx::tool
