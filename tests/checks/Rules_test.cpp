// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "checks/Rules.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <set>
#include <sstream>

namespace kx::checks
{

namespace
{

constexpr std::size_t kCount = static_cast<std::size_t>(RuleId::kEnd);

/// Joins the lines of a page's paragraphs: what matters is the words.
std::string Joined(const std::string& page)
{
    std::istringstream in(page);
    std::string joined;
    for (std::string line; std::getline(in, line);) {
        joined += line.empty() ? "\n" : (joined.empty() || joined.back() == '\n' ? "" : " ") + line;
    }
    return joined;
}

/// The section that the page must have for a rule.
std::string Section(const Rule& rule)
{
    std::string severity = SeverityName(rule.severity);
    severity[0] = static_cast<char>(severity[0] - 'a' + 'A');
    return "### `" + std::string(rule.id) + "`\n**" + severity + ".** " + rule.meaning +
           "\nOn the panel: " + rule.happens + "\nRemedy: " + rule.remedy + "\n";
}

TEST(Rules, HaveIdentifiersOfTheirOwn)
{
    std::set<std::string> ids;
    for (std::size_t i = 0; i < kCount; ++i) {
        const std::string id = RuleOf(static_cast<RuleId>(i)).id;
        EXPECT_TRUE(ids.insert(id).second) << id;
        EXPECT_EQ(id.find_first_not_of("abcdefghijklmnopqrstuvwxyz0123456789-"), std::string::npos);
    }
}

TEST(Rules, StandOnTheirPageWordForWordAndInTheSameOrder)
{
    const std::string page = Joined(ReadFile(KX_SOURCE_DIR "/docs/checks.md")) + "\n";

    std::size_t last = 0;
    std::size_t sections = 0;
    for (std::size_t i = 0; i < kCount; ++i) {
        const std::string section = Section(RuleOf(static_cast<RuleId>(i)));
        const std::size_t at = page.find(section);
        ASSERT_NE(at, std::string::npos) << section;
        EXPECT_GT(at, last) << section;
        last = at;
    }
    for (std::size_t at = page.find("### "); at != std::string::npos;
         at = page.find("### ", at + 1)) {
        ++sections;
    }
    EXPECT_EQ(sections, kCount) << "the page explains what does not exist";
}

TEST(Rules, SaySentences)
{
    for (std::size_t i = 0; i < kCount; ++i) {
        const Rule& rule = RuleOf(static_cast<RuleId>(i));
        for (const std::string text : {rule.meaning, rule.happens, rule.remedy}) {
            EXPECT_TRUE(text.back() == '.') << rule.id << ": " << text;
        }
    }
}

} // namespace

} // namespace kx::checks
