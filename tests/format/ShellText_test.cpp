// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "format/ShellText.h"
#include "io/Text.h"
#include "io/Utf8.h"

#include <gtest/gtest.h>

namespace kx::format
{

namespace
{

struct ShellRow {
    const char* text;
    const char* quoted; ///< what changes between double quotes
    const char* bare;   ///< what changes without quotes
};

TEST(ShellText, KnowsWhatTheShellReads)
{
    const ShellRow rows[] = {
        {"plain", "", ""},      {"a b", "", ""},          {"a\"b", "\"", "\""}, {"a`b", "`", "`"},
        {"$HOME", "$H", "$"},   {"a$", "", ""},           {"a$.b", "", ""},     {"$(x)", "$(", "$"},
        {"${x}", "${", "$"},    {"$1", "$1", "$"},        {"a'b", "", "'"},     {"a\\b", "", "\\"},
        {"a\\$b", "\\$", "\\"}, {"a\\\\b", "\\\\", "\\"}, {"a\\", "\\", "\\"},  {"a;b", "", ";"},
        {"a|b", "", "|"},       {"a&b", "", "&"},         {"a>b", "", ">"},     {"(a)", "", "("},
        {"a\nb", "", "\\n"},    {"a#b", "", ""},          {"a*b", "", ""},      {"$'x'", "", "$"},
    };
    for (const ShellRow& row : rows) {
        EXPECT_EQ(ChangedInDoubleQuotes(row.text), row.quoted) << row.text;
        EXPECT_EQ(ChangedBare(row.text), row.bare) << row.text;
    }
    EXPECT_EQ(ChangedInSingleQuotes("it's"), "'");
    EXPECT_EQ(ChangedInSingleQuotes("a\"$`\\"), "");
    EXPECT_EQ(ChangedByEcho("a\\nb"), "\\n");
    EXPECT_EQ(ChangedByEcho("a\\xb\\"), "");
}

TEST(ShellText, KnowsTheModesOfChmod)
{
    for (const char* const mode : {"755", "0", "7777", "0000755", "u+x", "+x", "a=rx,g-w", "u=g",
                                   "u=rw,go=", "ug+rwX", "u+x-w", " 755 ", "=755", "+t"}) {
        EXPECT_TRUE(IsMode(mode)) << mode;
    }
    for (const char* const mode : {"", " ", "8", "10000", "rwx", "u", "u+", "7 5", "u+q", "u+x,",
                                   ",u+x", "--help", "755;", "u=gx"}) {
        EXPECT_EQ(IsMode(mode), std::string(mode) == "u+") << mode;
    }
}

/// All characters of ASCII that a test takes between two texts.
template <typename Test>
std::string CharactersThat(const char* before, const char* after, Test isTaken)
{
    std::string characters;
    for (char c = 1; c > 0 && c < 0x7f; ++c) {
        characters += isTaken(before + std::string(1, c) + after) ? std::string(1, c) : "";
    }
    return characters;
}

TEST(ShellText, KnowsEveryCharacterThatTheShellReads)
{
    const auto isChanged = [](auto changed) {
        return [changed](const std::string& text) { return !changed(text).empty(); };
    };
    const std::string letters = "ABCDEFGHIJKLMNOPQRSTUVWXYZ_abcdefghijklmnopqrstuvwxyz";

    EXPECT_EQ(CharactersThat("a", ".", isChanged(ChangedInDoubleQuotes)), "\"`");
    EXPECT_EQ(CharactersThat("a\\", "b", isChanged(ChangedInDoubleQuotes)), "\n\"$\\`");
    EXPECT_EQ(CharactersThat("a$", ".", isChanged(ChangedInDoubleQuotes)),
              "!\"#$(*-0123456789?@" + letters.substr(0, 26) + "_`" + letters.substr(27) + "{");
    EXPECT_EQ(CharactersThat("a", "b", isChanged(ChangedInSingleQuotes)), "'");
    EXPECT_EQ(CharactersThat("a", ".", isChanged(ChangedBare)), "\n\"&'();<>\\`|");
    EXPECT_EQ(CharactersThat("a$", ".", isChanged(ChangedBare)),
              "\n!\"#$&'()*-0123456789;<>?@" + letters.substr(0, 26) + "\\_`" + letters.substr(27) +
                  "{|");
    EXPECT_EQ(CharactersThat("a\\", "x", isChanged(ChangedByEcho)), "0\\abcefnrtv");
}

TEST(ShellText, KnowsEveryCharacterOfAMode)
{
    EXPECT_EQ(CharactersThat("", "+x", IsMode), "\t +-=agou");
    EXPECT_EQ(CharactersThat("u", "x", IsMode), "+-=");
    EXPECT_EQ(CharactersThat("u+", "", IsMode), "\t +-01234567=Xgorstuwx");
    EXPECT_EQ(CharactersThat("u+r", "", IsMode), "\t +-=Xrstwx");
    EXPECT_EQ(CharactersThat("", "", IsMode), "+-01234567=");
}

TEST(ShellText, TellsUtf8FromOtherBytes)
{
    for (const char* const text : {"", "a", "\xc3\xa4", "\xe3\x81\x82", "\xf0\x9f\x98\x80"}) {
        EXPECT_TRUE(io::IsUtf8(text)) << text;
    }
    for (const char* const text : {"\xe4", "\xc3", "\xc0\xaf", "\xe0\x80\xaf", "\xed\xa0\x80",
                                   "\xf4\x90\x80\x80", "\x80", "\xf0\x9f\x98", "\xff"}) {
        EXPECT_FALSE(io::IsUtf8(text)) << text;
    }
    EXPECT_TRUE(HasForeignBytes("\xe4"));
    EXPECT_TRUE(HasForeignBytes("a\x80"));
    EXPECT_FALSE(HasForeignBytes("a\x7f"));
}

} // namespace

} // namespace kx::format
