// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "decision/Reason.h"
#include "io/Utf8.h"
#include "support/Environment.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

namespace kx::guard
{

namespace
{

using ::testing::Each;
using ::testing::HasSubstr;
using ::testing::Not;

std::vector<ReasonId> AllReasons()
{
    std::vector<ReasonId> all;
    all.reserve(static_cast<std::size_t>(ReasonId::kEnd));
    for (int id = 0; id < static_cast<int>(ReasonId::kEnd); ++id) {
        all.push_back(static_cast<ReasonId>(id));
    }
    return all;
}

/// A reason whose values show where they are put.
Reason Marked(ReasonId id)
{
    Reason reason{id, {}};
    for (std::size_t i = 0; i < ReasonValueCount(id); ++i) {
        reason.values.push_back("<" + std::to_string(i) + ">");
    }
    return reason;
}

/// Which of the values a text shows.
std::set<std::string> ValuesIn(const Reason& reason, const std::string& text)
{
    std::set<std::string> found;
    for (const std::string& value : reason.values) {
        if (text.find(value) != std::string::npos) {
            found.insert(value);
        }
    }
    return found;
}

bool HasJapanese(const std::string& text)
{
    return text.find("\xe3\x81") != std::string::npos || text.find("\xe3\x82") != std::string::npos;
}

} // namespace

TEST(Reason, HasAWordOfItsOwnForEach)
{
    std::set<std::string> words;
    for (const ReasonId id : AllReasons()) {
        const std::string word = ReasonWord(id);
        EXPECT_TRUE(words.insert(word).second) << word;
        EXPECT_EQ(word.find_first_not_of("abcdefghijklmnopqrstuvwxyz-"), std::string::npos) << word;
    }

    EXPECT_EQ(words.size(), static_cast<std::size_t>(ReasonId::kEnd));
    EXPECT_STREQ(ReasonWord(ReasonId::kPanelFile), "panel-file");
    EXPECT_STREQ(ReasonWord(ReasonId::kSignatureMissing), "signature-missing");
    EXPECT_STREQ(ReasonWord(ReasonId::kOsVersion), "os-version");
    EXPECT_STREQ(ReasonWord(ReasonId::kInodes), "inodes");
}

TEST(Reason, HasTextsInBothLanguages)
{
    for (const ReasonId id : AllReasons()) {
        const Reason reason = Marked(id);
        for (const auto text : {WhatText, RemedyText}) {
            const std::string english = text(reason, Language::kEnglish);
            const std::string japanese = text(reason, Language::kJapanese);
            EXPECT_EQ(english.back(), '.') << english;
            EXPECT_FALSE(HasJapanese(english)) << english;
            EXPECT_TRUE(HasJapanese(japanese)) << japanese;
            EXPECT_TRUE(io::IsUtf8(japanese)) << japanese;
        }
    }
}

TEST(Reason, ShowsAllItsValuesInBothLanguagesAndNoPlaceWithoutOne)
{
    for (const ReasonId id : AllReasons()) {
        const Reason reason = Marked(id);
        for (const Language language : {Language::kEnglish, Language::kJapanese}) {
            const std::string what = WhatText(reason, language);
            EXPECT_EQ(ValuesIn(reason, what).size(), reason.values.size()) << what;
            EXPECT_THAT((std::vector<std::string>{what, RemedyText(reason, language)}),
                        Each(Not(HasSubstr("?"))));
            EXPECT_THAT(what, Not(HasSubstr("{")));
        }
    }
}

TEST(Reason, NamesItsValues)
{
    const Reason reason{ReasonId::kRoom, {"/", "4.0 KiB", "1 byte", "4096", "1"}};

    EXPECT_EQ(
        WhatText(reason, Language::kEnglish),
        "The installation needs 4.0 KiB (4096 bytes) on '/', where 1 byte (1 bytes) are free.");
    EXPECT_EQ(WhatText(reason, Language::kJapanese),
              "'/' に 4.0 KiB (4096 バイト) 必要ですが、空きは 1 byte (1 バイト) です。");
}

TEST(Reason, ShowsAMissingValueAsAQuestionMark)
{
    EXPECT_EQ(WhatText({ReasonId::kName, {}}, Language::kEnglish), "'?' is no name for a package.");
}

TEST(Reason, DoesNotLookForPlacesInValues)
{
    EXPECT_EQ(WhatText({ReasonId::kName, {"{0}{1}"}}, Language::kEnglish),
              "'{0}{1}' is no name for a package.");
}

TEST(Reason, EscapesWhatATerminalWouldFollow)
{
    EXPECT_EQ(WhatText({ReasonId::kName, {"a\x1b[2J\n\xff"}}, Language::kEnglish),
              "'a\\x1b[2J\\n\\xff' is no name for a package.");
}

TEST(Reason, CutsLongValuesBetweenCharacters)
{
    const std::string letters(kLongestShown - 1, 'x');

    EXPECT_EQ(WhatText({ReasonId::kName, {letters + "\xc3\xa9"}}, Language::kEnglish),
              "'" + letters + "...' is no name for a package.");
    EXPECT_LT(WhatText({ReasonId::kName, {std::string(1 << 20, '\1')}}, Language::kEnglish).size(),
              kLongestShown + 50);
}

TEST(LanguageOfEnvironment, IsTheFirstThatIsSaid)
{
    struct Case {
        const char* all;
        const char* messages;
        const char* lang;
        Language language;
    };
    constexpr Case kCases[] = {
        {nullptr, nullptr, nullptr, Language::kEnglish},
        {nullptr, nullptr, "ja_JP.UTF-8", Language::kJapanese},
        {nullptr, "C", "ja_JP.UTF-8", Language::kEnglish},
        {nullptr, "ja", "C", Language::kJapanese},
        {"ja_JP", "C", "C", Language::kJapanese},
        {"", "", "ja_JP.UTF-8", Language::kJapanese},
        {"de_DE.UTF-8", "ja_JP.UTF-8", "ja_JP.UTF-8", Language::kEnglish},
    };
    for (const Case& given : kCases) {
        const Environment all("LC_ALL", given.all);
        const Environment messages("LC_MESSAGES", given.messages);
        const Environment lang("LANG", given.lang);

        EXPECT_EQ(LanguageOfEnvironment(), given.language);
    }
}

} // namespace kx::guard
