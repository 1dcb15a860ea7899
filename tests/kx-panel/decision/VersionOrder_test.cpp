// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "decision/VersionOrder.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include <unistd.h>

namespace kx::guard
{

namespace
{

char OrderMark(int difference)
{
    return difference < 0 ? '<' : difference > 0 ? '>' : '=';
}

struct OrderCase {
    const char* one;
    char order;
    const char* other;
};

/// What `dpkg --compare-versions` says.
constexpr OrderCase kOrders[] = {
    {"1.0", '>', "1.0~rc1"},
    {"1.0~~", '<', "1.0~"},
    {"1.0~", '<', "1.0"},
    {"1.0", '<', "1.0a"},
    {"1.0a", '<', "1.0+b"},
    {"1.0", '=', "1.0-0"},
    {"1.0-1", '>', "1.0-1~"},
    {"1.0-1~", '>', "1.0"},
    {"1.0", '=', "1.00"},
    {"1.0.a", '>', "1.0.1"},
    {"1:0.1", '>', "2"},
    {"0:1.0", '=', "1.0"},
    {"10", '>', "9"},
    {"1.10", '>', "1.9"},
    {"1.0a9", '<', "1.0a10"},
    {"1.0-1.1", '>', "1.0-1+b1"},
    {"1.2.3-4-5", '>', "1.2.3-4"},
    {"1.2.3-4", '>', "1.2.3"},
    {"1a", '<', "1+"},
    {"1.", '<', "1.."},
    {"1-a", '>', "1-~"},
    {"1:1:1", '>', "1:1"},
    {"99999999999999999999999", '<', "100000000000000000000000"},
    {"1.0-00", '=', "1.0"},
    {"0", '>', "0~"},
    {"1.0Z", '<', "1.0z"},
    {"20260101", '>', "2026.1.1"},
    {"1.0.0-rc1", '>', "1.0.0"},
    {"1.0.0~rc1", '<', "1.0.0"},
    {"007", '=', "7"},
    {"1.0-1a", '>', "1.0-1"},
    {"2147483647:0", '>', "2147483646:9"},
};

/// Runs `dpkg --compare-versions` on each pair.
/// @return an answer for each: '<', '=', '>'
std::string AnswersOfDpkg(const std::vector<std::array<std::string, 2>>& pairs)
{
    const TempDir folder;
    std::string lines;
    for (const auto& [one, other] : pairs) {
        lines.append(one).append(" ").append(other).append("\n");
    }
    const std::string file = folder.Write("pairs", lines);
    const std::string command = "while read -r a b; do "
                                "if dpkg --compare-versions \"$a\" lt \"$b\"; then printf '<'; "
                                "elif dpkg --compare-versions \"$a\" eq \"$b\"; then printf '='; "
                                "else printf '>'; fi; done <" +
                                file;
    const std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(command.c_str(), "r"), pclose);
    std::string answers(pairs.size() + 1, '\0');
    answers.resize(std::fread(answers.data(), 1, answers.size(), pipe.get()));
    return answers;
}

/// Draws a version that is likely to be close to others.
std::string Drawn(std::mt19937& random)
{
    const auto draw = [&random](const std::vector<const char*>& from) {
        return std::string(from[random() % from.size()]);
    };
    std::string text = draw({"", "", "", "0:", "1:"}) + draw({"0", "1", "01", "10"});
    for (unsigned more = random() % 4; more > 0; --more) {
        text += draw({".", "~", "+", "a", "Z", "-", ".0", "9", "10", "0"});
    }
    return text.back() == '-' ? text + "1" : text + draw({"", "", "-0", "-1", "-1~", "-a"});
}

} // namespace

TEST(CompareVersions, OrdersAsDebianDoes)
{
    for (const OrderCase& known : kOrders) {
        EXPECT_EQ(OrderMark(CompareVersions(known.one, known.other)), known.order)
            << known.one << " and " << known.other;
    }
}

TEST(CompareVersions, SaysTheContraryOfThePairTurnedAround)
{
    for (const OrderCase& known : kOrders) {
        const char turned = known.order == '<' ? '>' : known.order == '>' ? '<' : '=';
        EXPECT_EQ(OrderMark(CompareVersions(known.other, known.one)), turned)
            << known.other << " and " << known.one;
    }
}

TEST(CompareVersions, AgreesWithDpkgOnDrawnVersions)
{
    if (access("/usr/bin/dpkg", X_OK) != 0) {
        GTEST_SKIP() << "there is no dpkg on this machine";
    }
    constexpr std::size_t kDrawn = 250;
    std::mt19937 random(20260101); // NOLINT(bugprone-random-generator-seed): the same each time
    std::vector<std::array<std::string, 2>> pairs;
    for (std::size_t i = 0; i < kDrawn; ++i) {
        pairs.push_back({Drawn(random), Drawn(random)});
    }

    const std::string answers = AnswersOfDpkg(pairs);

    ASSERT_EQ(answers.size(), pairs.size());
    for (std::size_t i = 0; i < pairs.size(); ++i) {
        const auto& [one, other] = pairs[i];
        EXPECT_TRUE(IsVersion(one)) << one;
        EXPECT_EQ(OrderMark(CompareVersions(one, other)), answers[i]) << one << " and " << other;
    }
}

TEST(CompareVersions, TakesTextsThatAreNoVersions)
{
    for (const char* const text : {"", ":", "-", "::", "a", "\xff", " ", "1:", "1-"}) {
        EXPECT_EQ(CompareVersions(text, text), 0) << text;
        EXPECT_EQ(OrderMark(CompareVersions(text, "1")), OrderMark(-CompareVersions("1", text)))
            << text;
    }
}

TEST(IsVersion, TakesWhatDebianTakes)
{
    for (const char* const text :
         {"0", "1.0", "1:2:3", "1~", "1-~", "1-2-3", "2147483647:1", "1.0+git20260101-1~bpo1"}) {
        EXPECT_TRUE(IsVersion(text)) << text;
    }
    EXPECT_TRUE(IsVersion(std::string(kLongestVersion, '1')));
}

TEST(IsVersion, RefusesEverythingElse)
{
    for (const char* const text :
         {"",     "a1",  "v1.0",        ":1",      "1:",           "1.0-",
          "-1",   "1_0", "1.0-a_b",     "1.0-1:2", "2147483648:1", "99999999999999999999:1",
          "0:-1", "x:1", "+1:2",        "-1:2",    " 1",           "1 ",
          "1 0",  "1\n", "1.0\xc3\xa9", "1/2"}) {
        EXPECT_FALSE(IsVersion(text)) << text;
    }
    EXPECT_FALSE(IsVersion(std::string_view("1\0"
                                            "2",
                                            3)));
    EXPECT_FALSE(IsVersion(std::string(kLongestVersion + 1, '1')));
}

} // namespace kx::guard
