// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT

// The JSON text of a package description: what the reader takes, refuses and keeps.
#include "engine/q_UpdaterEngine.h"
#include "model/DB_KxUserProject.h"
#include "model/UserPackageProjectReader.h"
#include "support/EngineFixture.h"
#include "support/ProjectBuilder.h"
#include "support/TempDir.h"

#include <memory>

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace
{

using namespace std::string_literals;

constexpr const char* kMark = "\xEF\xBB\xBF";

/// The text of a valid root; @p title is the JSON text of its title, quotation marks included, and
/// @p more further fields with a comma behind each.
std::string RootText(const std::string& title = "\"title\"", const std::string& more = "")
{
    return R"({"$type":"Zt.Plugins.DB_KxUserProject, Plexa",)" + more +
           R"("ModelName":"","OsVersion":"","PackageVersion":"","Title":)" + title +
           R"(,"Comment":"","Date":"","DB_StepSets":)"
           R"({"$type":"Zt.Plugins.DB_StepSets, Plexa","$values":[]}})";
}

/// @p text written @p count times.
std::string Repeated(const std::string& text, int count)
{
    std::string all;
    for (int i = 0; i < count; ++i) {
        all += text;
    }
    return all;
}

/// Objects in objects, @p depth of them.
std::string NestedObjects(int depth)
{
    return Repeated(R"({"a":)", depth) + "0" + Repeated("}", depth);
}

/// Lists in lists, @p depth of them.
std::string Nested(std::size_t depth)
{
    return std::string(depth, '[') + std::string(depth, ']');
}

struct TextCase {
    std::string name;
    std::string text;  ///< the whole JSON text
    std::string title; ///< the title as it is kept
};

std::string NameOfText(const ::testing::TestParamInfo<TextCase>& test)
{
    return test.param.name;
}

} // namespace

class DescriptionText : public EngineFixture, public ::testing::WithParamInterface<TextCase>
{
protected:
    [[nodiscard]] std::unique_ptr<IPicoJ> Read(const std::string& bytes)
    {
        m_path = m_dir.Write("UserPackage.kx-project", bytes);
        return std::unique_ptr<IPicoJ>(UserPackageProjectReader::Imp_Read(m_path.c_str()));
    }

    TempDir m_dir;
    std::string m_path;
};

using AcceptedText = DescriptionText;

TEST_P(AcceptedText, IsReadAndKeepsItsTitle)
{
    const auto root = Read(kMark + GetParam().text);

    EXPECT_THAT(Lines(), IsEmpty());
    ASSERT_NE(ObjectAs<DB_KxUserProject>(root.get()), nullptr);
    EXPECT_EQ(ObjectAs<DB_KxUserProject>(root.get())->Title, GetParam().title);
}

INSTANTIATE_TEST_SUITE_P(
    Titles, AcceptedText,
    ::testing::Values(
        TextCase{"Empty", RootText(R"("")"), ""},
        TextCase{"SimpleEscapes", RootText(R"("\"\\\/\b\f\n\r\t")"), "\"\\/\b\f\n\r\t"},
        TextCase{"CarriageReturnsAreKept", RootText(R"("a\r\nb")"), "a\r\nb"},
        TextCase{"CodeEscapes", RootText(R"("\u0041\u00e9\u3042")"), "A\xC3\xA9\xE3\x81\x82"},
        TextCase{"ASurrogatePair", RootText(R"("\ud83d\ude00")"), "\xF0\x9F\x98\x80"},
        TextCase{"AnEscapedZero", RootText(R"("a\u0000b")"), "a\0b"s},
        TextCase{"Utf8", RootText("\"\xE3\x81\x82\""), "\xE3\x81\x82"},
        TextCase{"BytesOutsideUtf8", RootText("\"\xFF\xC0\x80\xED\xA0\x80\""),
                 "\xFF\xC0\x80\xED\xA0\x80"},
        TextCase{"ADeleteByte", RootText("\"\x7F\""), "\x7F"},
        TextCase{"PercentSigns", RootText(R"("%s%n%5000d")"), "%s%n%5000d"},
        TextCase{"ShellCharacters", RootText(R"("$(reboot) `id` ; \"")"), "$(reboot) `id` ; \""},
        TextCase{"Huge", RootText("\"" + std::string(4000000, 'h') + "\""),
                 std::string(4000000, 'h')}),
    NameOfText);

INSTANTIATE_TEST_SUITE_P(
    Documents, AcceptedText,
    ::testing::Values(
        TextCase{"TrailingText", RootText() + "} and more", "title"},
        TextCase{"ASecondDocument", RootText() + RootText("\"second\""), "title"},
        TextCase{"ATrailingZeroByte", RootText() + "\0{{{"s, "title"},
        TextCase{"LeadingBlanks", " \t\r\n" + RootText(), "title"},
        TextCase{"UnknownNumbers", RootText("\"title\"", R"("a":0,"b":-1.5e300,"c":1e-999,)"),
                 "title"},
        TextCase{"UnknownNulls", RootText("\"title\"", R"("":null,"a":[null],)"), "title"},
        TextCase{"AnEarlierTitle", RootText("\"title\"", R"("Title":"early",)"), "title"},
        TextCase{"AnEarlierTitleOfAnotherType", RootText("\"title\"", R"("Title":[1],)"), "title"},
        TextCase{"EscapesInAKey", RootText("\"title\"", R"("Titl\u0065":"early",)"), "title"},
        TextCase{"AHundredListsInTheRoot", RootText("\"title\"", "\"a\":" + Nested(100) + ","),
                 "title"},
        TextCase{"NineHundredNinetyNineObjectsInTheRoot",
                 RootText("\"title\"", "\"a\":" + NestedObjects(999) + ","), "title"},
        TextCase{"ObjectsAndListsTogether",
                 RootText("\"title\"", "\"a\":" + Repeated("[{\"a\":", 90) + NestedObjects(819) +
                                           Repeated("}]", 90) + ","),
                 "title"},
        TextCase{"AThousandListsSideBySide",
                 RootText("\"title\"", "\"a\":[" + Repeated("[],", 1000) + "{}],"), "title"},
        TextCase{"BracketsInATitle", RootText("\"\\\"" + std::string(2000, '[') + "\\\\\""),
                 "\"" + std::string(2000, '[') + "\\"},
        TextCase{"DeepTrailingLists", RootText() + std::string(2000, '['), "title"}),
    NameOfText);

TEST_F(DescriptionText, SkipsThreeBytesUnread)
{
    for (const std::string& start : {"\xEF\xBB\xBF"s, "abc"s, "\0\0\0"s, "{{{"s}) {
        EXPECT_NE(Read(start + RootText()), nullptr);
    }
    EXPECT_THAT(Lines(), IsEmpty());
}

TEST_F(DescriptionText, MayHaveItsKeysInAnyOrder)
{
    const std::string reversed =
        R"({"DB_StepSets":{"$values":[],"$type":"Zt.Plugins.DB_StepSets, Plexa"},"Date":"d",)"
        R"("Comment":"c","Title":"t","PackageVersion":"p","OsVersion":"o","ModelName":"m",)"
        R"("$type":"Zt.Plugins.DB_KxUserProject, Plexa"})";

    const auto root = Read(kMark + reversed);

    ASSERT_NE(ObjectAs<DB_KxUserProject>(root.get()), nullptr);
    EXPECT_EQ(ObjectAs<DB_KxUserProject>(root.get())->ModelName, "m");
}

struct BadText {
    std::string name;
    std::string text;
};

class RefusedText : public EngineFixture, public ::testing::WithParamInterface<BadText>
{
};

TEST_P(RefusedText, CannotBeAnalyzed)
{
    const TempDir dir;
    const std::string path = dir.Write("UserPackage.kx-project", kMark + GetParam().text);

    EXPECT_EQ(UserPackageProjectReader::Imp_Read(path.c_str()), nullptr);

    EXPECT_THAT(Lines(), ElementsAre(" Unable to analyze the data in " + path + " file."));
}

INSTANTIATE_TEST_SUITE_P(
    Texts, RefusedText,
    ::testing::Values(
        BadText{"ANumberOutOfRange", RootText("\"title\"", R"("a":1e999,)")},
        BadText{"ANegativeNumberOutOfRange", RootText("\"title\"", R"("a":-1e999,)")},
        BadText{"ANumberOutOfRangeAlone", "1e999"},
        BadText{"ABrokenNumber", RootText("\"title\"", R"("a":1-2,)")},
        BadText{"AMinusSign", RootText("\"title\"", R"("a":-,)")},
        BadText{"AHundredAndOneListsInTheRoot",
                RootText("\"title\"", "\"a\":" + Nested(101) + ",")},
        BadText{"AMillionOpenLists", std::string(1000000, '[')},
        BadText{"AThousandObjectsInTheRoot",
                RootText("\"title\"", "\"a\":" + NestedObjects(1000) + ",")},
        BadText{"AMillionOpenObjects", Repeated(R"({"a":)", 1000000)},
        BadText{"AMillionNestedObjects", NestedObjects(1000000)},
        BadText{"ObjectsAndListsTogether",
                RootText("\"title\"", "\"a\":" + Repeated("[{\"a\":", 90) + NestedObjects(820) +
                                          Repeated("}]", 90) + ",")},
        BadText{"AnUnknownEscape", RootText(R"("\x41")")},
        BadText{"AShortCodeEscape", RootText(R"("\u12")")},
        BadText{"ACodeEscapeWithoutHexDigits", RootText(R"("\u00zz")")},
        BadText{"ALoneHighSurrogate", RootText(R"("\ud83d")")},
        BadText{"ALoneLowSurrogate", RootText(R"("\ude00")")},
        BadText{"TwoHighSurrogates", RootText(R"("\ud83d\ud83d")")},
        BadText{"AHighSurrogateBeforeText", RootText(R"("\ud83dabcd")")},
        BadText{"ALineBreakInAText", RootText("\"a\nb\"")},
        BadText{"ATabInAText", RootText("\"a\tb\"")}, BadText{"SingleQuotes", RootText("'title'")},
        BadText{"ACommaAtTheEnd", "{\"a\":1,}"}, BadText{"AMissingComma", "{\"a\":1 \"b\":2}"},
        BadText{"AMissingColon", "{\"a\" 1}"}, BadText{"AKeyWithoutQuotes", "{a:1}"},
        BadText{"AComment", "/* */" + RootText()},
        BadText{"AnOpenObject", RootText().substr(0, RootText().size() - 1)},
        BadText{"ABackslashAtTheEnd", "{\"a\":\"\\"}, BadText{"AWordInOtherCase", "{\"a\":True}"},
        BadText{"AnotherByteOrderMark", kMark + RootText()}),
    [](const auto& test) { return test.param.name; });

TEST_F(DescriptionText, IsRefusedInRootOnlyModeTooWhenItsStepsAreNoJson)
{
    q_UpdaterEngine::ChildlenMode = 1;

    EXPECT_EQ(Read(kMark + R"({"$type":"Zt.Plugins.DB_KxUserProject, Plexa","DB_StepSets":{)"s),
              nullptr);

    EXPECT_THAT(Lines(), ElementsAre(" Unable to analyze the data in " + m_path + " file."));
}

// A text in a message must not be taken for a format, nor end at a zero byte of its own.
TEST_F(DescriptionText, MayNameAStrangeClass)
{
    EXPECT_EQ(Read(kMark + R"({"$type":"%n\u0000x"})"s), nullptr);

    EXPECT_EQ(Lines().front(), "%n is unknown class.");
}
