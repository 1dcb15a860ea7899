// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT

// The command line and the usage text.
#include "app/CommandLine.h"
#include "app/Options.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>

using ::testing::Eq;
using ::testing::ExitedWithCode;

namespace
{

struct GoodLine {
    std::string name;
    std::vector<std::string> words;
    std::string unzipedDir;
    std::string upDir;
    std::string updaterPath;
};

struct BadLine {
    std::string name;
    std::vector<std::string> words;
    std::string complaint; ///< the message with its detail
};

constexpr const char* kEither = "Either '-upDir or '-unzipedDir' option must be specified.";

/// The whole usage text, headed by @p complaint.
std::string Usage(const std::string& complaint)
{
    return "\n"
           "kx_Updater:" +
           complaint +
           "\n"
           "\n"
           "kx_Updater Ver.1.1.1\n"
           "\n"
           "Usage    : kx_Updater [[Option]..]\n"
           "\n"
           "Options  :\n"
           "     -upDir <folder>\n"
           "         The folder containing a .kx-update file.\n"
           "         There must be only one .kx-update file in that folder.\n"
           "         Updater asks if you want to start the update for that .kx-update \n"
           "\n"
           "\n";
}

void Parse(const std::vector<std::string>& words)
{
    CommandLine line(words);
    Options options;
    ParseCommandLine(line.Count(), line.Words(), options);
}

} // namespace

class GoodCommandLine : public ::testing::TestWithParam<GoodLine>
{
};

TEST_P(GoodCommandLine, FillsTheOptions)
{
    CommandLine line(GetParam().words);
    Options options;

    ParseCommandLine(line.Count(), line.Words(), options);

    EXPECT_EQ(options.unzipedDir, GetParam().unzipedDir);
    EXPECT_EQ(options.upDir, GetParam().upDir);
    EXPECT_EQ(options.updaterPath, GetParam().updaterPath);
    EXPECT_EQ(options.upFile, "");
}

INSTANTIATE_TEST_SUITE_P(
    Lines, GoodCommandLine,
    ::testing::Values(
        GoodLine{"AnUnpackedPackage", {"-unzipedDir", "/tmp/a"}, "/tmp/a", "", ""},
        GoodLine{"AUsbFolder", {"-upDir", "/usb"}, "", "/usb", ""},
        GoodLine{
            "AnotherUpdater", {"-q_Updater", "/bin/u", "-upDir", "/usb"}, "", "/usb", "/bin/u"},
        GoodLine{"AnotherUpdaterLast", {"-upDir", "/usb", "-q_Updater", "u"}, "", "/usb", "u"},
        GoodLine{"TheLastOfTwoValues", {"-upDir", "/a", "-upDir", "/b"}, "", "/b", ""},
        GoodLine{"AnEmptyValueBesides", {"-upDir", "", "-unzipedDir", "/a"}, "/a", "", ""},
        GoodLine{"AnEmptyValueAtLast",
                 {"-upDir", "/b", "-unzipedDir", "/a", "-upDir", ""},
                 "/a",
                 "",
                 ""},
        GoodLine{"AnEmptyUpdater", {"-upDir", "/a", "-q_Updater", ""}, "", "/a", ""},
        GoodLine{"AnOptionAsValue", {"-upDir", "-unzipedDir"}, "", "-unzipedDir", ""},
        GoodLine{"ItsOwnNameAsValue", {"-upDir", "-upDir"}, "", "-upDir", ""},
        GoodLine{"BytesOutsideUtf8", {"-upDir", "/\xFF %s\n"}, "", "/\xFF %s\n", ""},
        GoodLine{"ALongPath", {"-upDir", std::string(5000, 'p')}, "", std::string(5000, 'p'), ""}),
    [](const auto& test) { return test.param.name; });

class BadCommandLine : public ::testing::TestWithParam<BadLine>
{
};

TEST_P(BadCommandLine, PrintsTheUsageTextAndEndsWith100)
{
    EXPECT_EXIT(Parse(GetParam().words), ExitedWithCode(100), Eq(Usage(GetParam().complaint)));
}

INSTANTIATE_TEST_SUITE_P(
    Lines, BadCommandLine,
    ::testing::Values(
        BadLine{"NoArguments", {}, kEither},
        BadLine{"UpDirAsLastArgument", {"-upDir"}, "Error option: -upDir"},
        BadLine{"UnzipedDirAsLastArgument", {"-unzipedDir"}, "Error option: -unzipedDir"},
        BadLine{
            "UpdaterAsLastArgument", {"-upDir", "/a", "-q_Updater"}, "Error option: -q_Updater"},
        BadLine{"BothFoldersAndAnOptionWithoutValue",
                {"-upDir", "/a", "-unzipedDir", "/b", "-upDir"},
                "Error option: -upDir"},
        BadLine{"AnUnknownWord", {"-x"}, "Invaild option : -x"},
        BadLine{
            "AnUnknownWordBehindAGoodOption", {"-upDir", "/a", "more"}, "Invaild option : more"},
        BadLine{"AnUnknownWordBehindBothFolders",
                {"-upDir", "/a", "-unzipedDir", "/b", "-x"},
                "Invaild option : -x"},
        BadLine{"TheFirstOfTwoUnknownWords", {"-x", "-y"}, "Invaild option : -x"},
        BadLine{"AnEmptyWord", {""}, "Invaild option : "},
        BadLine{"OtherCase", {"-updir", "/a"}, "Invaild option : -updir"},
        BadLine{"OneLetterMore", {"-upDirs", "/a"}, "Invaild option : -upDirs"},
        BadLine{"AnEqualsSign", {"-upDir=/a"}, "Invaild option : -upDir=/a"},
        BadLine{"TwoDashes", {"--upDir", "/a"}, "Invaild option : --upDir"},
        BadLine{"Help", {"-h"}, "Invaild option : -h"},
        BadLine{"AFormat", {"%s%n"}, "Invaild option : %s%n"},
        BadLine{"BytesOutsideUtf8", {"\xFF"}, "Invaild option : \xFF"},
        BadLine{
            "ALongWord", {std::string(5000, 'w')}, "Invaild option : " + std::string(5000, 'w')},
        BadLine{"BothFolders", {"-upDir", "/a", "-unzipedDir", "/b"}, kEither},
        BadLine{"AnEmptyUpDir", {"-upDir", ""}, kEither},
        BadLine{"BothEmpty", {"-upDir", "", "-unzipedDir", ""}, kEither},
        BadLine{"AnEmptyValueAtLast", {"-upDir", "/a", "-upDir", ""}, kEither},
        BadLine{"OnlyAnotherUpdater", {"-q_Updater", "/bin/u"}, kEither}),
    [](const auto& test) { return test.param.name; });

TEST(BadCommandLineDeath, MayLackEvenTheProgramsName)
{
    Options options;
    const char* const none = nullptr;

    EXPECT_EXIT(ParseCommandLine(0, &none, options), ExitedWithCode(100), Eq(Usage(kEither)));
}

TEST(HelpDeath, PrintsMessageAndDetailWithoutABlankBetween)
{
    EXPECT_EXIT(Help("message", "detail"), ExitedWithCode(100), Eq(Usage("messagedetail")));
}

namespace
{

struct NumberCase {
    const char* text;
    int min;
    int max;
    int result;
    int value; ///< 77 when it is left alone
};

} // namespace

class Number : public ::testing::TestWithParam<NumberCase>
{
};

TEST_P(Number, IsReadFromTheStartOfTheTextAndCompared)
{
    int value = 77;

    EXPECT_EQ(StrToInt10(GetParam().text, &value, GetParam().min, GetParam().max),
              GetParam().result);

    EXPECT_EQ(value, GetParam().value);
}

INSTANTIATE_TEST_SUITE_P(
    Texts, Number,
    ::testing::Values(NumberCase{"12", 0, 100, 1, 12}, NumberCase{"0", 0, 0, 1, 0},
                      NumberCase{"-0", 0, 0, 1, 0}, NumberCase{"0", 0, 100, 1, 0},
                      NumberCase{"100", 0, 100, 1, 100}, NumberCase{"-1", 0, 100, 0, -1},
                      NumberCase{"101", 0, 100, 0, 101}, NumberCase{"-5", -5, 5, 1, -5},
                      NumberCase{"+5", -5, 5, 1, 5}, NumberCase{" \t\n\v\f\r7", 0, 9, 1, 7},
                      NumberCase{"007", 0, 9, 1, 7}, NumberCase{"010", 0, 100, 1, 10},
                      NumberCase{"12abc", 0, 100, 1, 12}, NumberCase{"1.9", 0, 9, 1, 1},
                      NumberCase{"1e3", 0, 9, 1, 1}, NumberCase{"3 4", 0, 9, 1, 3},
                      NumberCase{"0x10", 0, 100, 1, 0}, NumberCase{"5", 9, 0, 0, 5},
                      NumberCase{"", 0, 9, 0, 77}, NumberCase{" ", 0, 9, 0, 77},
                      NumberCase{"abc", 0, 9, 0, 77}, NumberCase{"-", 0, 9, 0, 77},
                      NumberCase{"+", 0, 9, 0, 77}, NumberCase{"- 5", -9, 9, 0, 77},
                      NumberCase{"--5", -9, 9, 0, 77}, NumberCase{"+-5", -9, 9, 0, 77},
                      NumberCase{".5", 0, 9, 0, 77}, NumberCase{"a1", 0, 9, 0, 77},
                      NumberCase{"2147483647", INT_MIN, INT_MAX, 1, INT_MAX},
                      NumberCase{"-2147483648", INT_MIN, INT_MAX, 1, INT_MIN},
                      NumberCase{"2147483648", INT_MIN, INT_MAX, 0, INT_MAX},
                      NumberCase{"-2147483649", INT_MIN, INT_MAX, 0, INT_MIN},
                      NumberCase{"4294967297", 0, 9, 0, INT_MAX},
                      NumberCase{"99999999999999999999", INT_MIN, INT_MAX, 0, INT_MAX},
                      NumberCase{"-99999999999999999999", INT_MIN, INT_MAX, 0, INT_MIN}));
