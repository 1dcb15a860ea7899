// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "osa/OSA.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

using namespace std::string_literals;

namespace
{

struct ReplaceRow {
    const char* name;
    std::string str;
    std::string from;
    std::string to;
    std::string expected;
};

const ReplaceRow kReplacements[] = {
    {"NothingFound", "abc", "x", "y", "abc"},
    {"EmptyText", "", "x", "y", ""},
    {"WholeText", "abc", "abc", "x", "x"},
    {"EveryOne", "a-b-c", "-", "+", "a+b+c"},
    {"AtBothEnds", "-a-", "-", "+", "+a+"},
    {"Neighbours", "---", "-", "+", "+++"},
    {"LeftToRight", "aaa", "aa", "b", "ba"},
    {"Removed", "a--b", "-", "", "ab"},
    {"Longer", "a-b", "-", "<->", "a<->b"},
    {"InsertedTextIsNotSearchedAgain", "aXa", "a", "aa", "aaXaa"},
    {"TextJoinedByARemovalIsNotSearchedAgain", "aabb", "ab", "", "ab"},
    {"FromLongerThanText", "ab", "abc", "x", "ab"},
    {"CaseMatters", "aA", "a", "b", "bA"},
    {"EmptyFrom", "ab", "", "-", "-a-b-"},
    {"EmptyFromInEmptyText", "", "", "-", "-"},
    {"EmptyFromLongTo", "ab", "", "xy", "xyaxybxy"},
    {"EmptyFromAndTo", "ab", "", "", "ab"},
    {"AllEmpty", "", "", "", ""},
    {"ZeroBytes", "a\0b\0"s, "\0"s, "0", "a0b0"},
    {"TextBehindAZeroByte", "a\0b"s, "b", "c", "a\0c"s},
    {"NotUtf8", "\xFF\xFE\xFF", "\xFF", "\x80\x81", "\x80\x81\xFE\x80\x81"},
    {"Percent", "%s%d", "%", "%%", "%%s%%d"},
};

class OsaReplaceStringAll : public ::testing::TestWithParam<ReplaceRow>
{
};

} // namespace

TEST_P(OsaReplaceStringAll, ReplacesEveryOccurrence)
{
    const ReplaceRow& row = GetParam();

    EXPECT_EQ(ReplaceStringAll(row.str, row.from, row.to), row.expected);
}

INSTANTIATE_TEST_SUITE_P(Texts, OsaReplaceStringAll, ::testing::ValuesIn(kReplacements),
                         [](const auto& row) { return std::string(row.param.name); });

TEST(OsaReplaceStringAll, LeavesItsArgumentsAlone)
{
    const std::string str = "a-b";
    const std::string from = "-";
    const std::string to = "+";

    EXPECT_EQ(ReplaceStringAll(str, from, to), "a+b");

    EXPECT_EQ(str, "a-b");
    EXPECT_EQ(from, "-");
    EXPECT_EQ(to, "+");
}

TEST(OsaReplaceStringAll, HandlesATextOfAMegabyteOfOccurrences)
{
    constexpr std::size_t kCount = 1U << 20U;

    EXPECT_EQ(ReplaceStringAll(std::string(kCount, 'a'), "a", "bc").size(), 2 * kCount);
}

namespace
{

struct LineEndRow {
    const char* name;
    std::string text;
    std::string expected;
};

const LineEndRow kLineEnds[] = {
    {"Empty", "", ""},
    {"NoLineEnd", "abc", "abc"},
    {"Unix", "a\nb\n", "a\nb\n"},
    {"Desktop", "a\r\nb\r\n", "a\nb\n"},
    {"OnlyAPair", "\r\n", "\n"},
    {"EmptyLines", "\r\n\r\n", "\n\n"},
    {"LoneCarriageReturn", "a\rb", "a\rb"},
    {"LineFeedFirst", "a\n\rb", "a\n\rb"},
    {"OnlyCompletePairsAndEachOnce", "a\r\r\nb\r", "a\r\nb\r"},
    {"CarriageReturnsBeforeAPair", "\r\r\r\n", "\r\r\n"},
    {"Mixed", "a\r\nb\nc\rd\r\n", "a\nb\nc\rd\n"},
    {"BehindAZeroByte", "a\0\r\nb"s, "a\0\nb"s},
};

class OsaReplaceCrlfToLf : public ::testing::TestWithParam<LineEndRow>
{
};

} // namespace

TEST_P(OsaReplaceCrlfToLf, ReplacesPairs)
{
    EXPECT_EQ(Replace_CRLF_to_LF(GetParam().text), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(Texts, OsaReplaceCrlfToLf, ::testing::ValuesIn(kLineEnds),
                         [](const auto& row) { return std::string(row.param.name); });

TEST(OsaReplaceCrlfToLf, GivesTheSameAnswerAtEveryCall)
{
    EXPECT_EQ(Replace_CRLF_to_LF("a\r\n"), "a\n");
    EXPECT_EQ(Replace_CRLF_to_LF("b\r\n"), "b\n");
    EXPECT_EQ(Replace_CRLF_to_LF(Replace_CRLF_to_LF("c\r\r\n")), "c\n");
}
