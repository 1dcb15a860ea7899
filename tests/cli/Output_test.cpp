// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "cli/Output.h"
#include "io/TemporaryFile.h"
#include "support/Environment.h"
#include "support/Streams.h"

#include <gtest/gtest.h>

#include <sstream>

#include <unistd.h>

namespace kx::cli
{

TEST(StandardOutput, IsColouredOnATerminalUnlessThatIsNotWanted)
{
    const TerminalStream terminal(STDOUT_FILENO);
    const ReplacedStream file(STDERR_FILENO, io::MakeTemporaryFile());
    const Environment unset("NO_COLOR", nullptr);
    EXPECT_TRUE(StandardOutput("kx", false).hasColour);
    EXPECT_FALSE(StandardOutput("kx", false).isWatched);
    EXPECT_FALSE(StandardOutput("kx", false).isJson);
    EXPECT_FALSE(StandardOutput("kx", true).hasColour);
    EXPECT_TRUE(StandardOutput("kx", true).isJson);
    const Environment empty("NO_COLOR", "");
    EXPECT_TRUE(StandardOutput("kx", false).hasColour);
    const Environment set("NO_COLOR", "0");
    EXPECT_FALSE(StandardOutput("kx", false).hasColour);
}

TEST(StandardOutput, IsWatchedWhereErrorsGoToATerminal)
{
    const ReplacedStream file(STDOUT_FILENO, io::MakeTemporaryFile());
    const TerminalStream terminal(STDERR_FILENO);
    const Environment unset("NO_COLOR", nullptr);

    EXPECT_TRUE(StandardOutput("kx", false).isWatched);
    EXPECT_FALSE(StandardOutput("kx", false).hasColour);
    EXPECT_FALSE(StandardOutput("kx", true).isWatched);
}

TEST(Coloured, IsTheTextAloneWhereThereAreNoColours)
{
    std::ostringstream out;

    EXPECT_EQ(Coloured({out, out}, Colour::kRed, "t"), "t");
    const Output output{out, out, false, true, false};
    EXPECT_EQ(Coloured(output, Colour::kBold, "t"), "\x1b[1mt\x1b[0m");
    EXPECT_EQ(Coloured(output, Colour::kRed, "t"), "\x1b[31mt\x1b[0m");
    EXPECT_EQ(Coloured(output, Colour::kYellow, "t"), "\x1b[33mt\x1b[0m");
    EXPECT_EQ(Coloured(output, Colour::kGreen, "t"), "\x1b[32mt\x1b[0m");
    EXPECT_EQ(Coloured(output, Colour::kGrey, "t"), "\x1b[90mt\x1b[0m");
}

TEST(StandardOutput, KnowsWhatTheProgramIsCalled)
{
    EXPECT_EQ(StandardOutput("kx-some", false).program, "kx-some");
}

TEST(WriteError, IsOneSafeLineForPeople)
{
    std::ostringstream out;
    std::ostringstream err;

    WriteError({out, err, false, false, false, "kx-some"},
               io::Error(io::ExitCode::kProblems, "a\x1b", "is wrong", "mend it"));

    EXPECT_EQ(out.str(), "");
    EXPECT_EQ(err.str(), "kx-some: a\\x1b: is wrong; mend it\n");
}

TEST(WriteError, KeepsJsonReadableWhateverThePlaceIsCalled)
{
    std::ostringstream out;
    std::ostringstream err;

    WriteError({out, err, true, false, false},
               io::Error(io::ExitCode::kProblems, "a\xff", "is wrong", "mend it"));

    EXPECT_EQ(out.str(), "{\n"
                         "  \"error\": {\n"
                         "    \"code\": 1,\n"
                         "    \"message\": \"is wrong\",\n"
                         "    \"place\": \"a\\\\xff\",\n"
                         "    \"remedy\": \"mend it\"\n"
                         "  },\n"
                         "  \"formatVersion\": 1\n"
                         "}\n");
    EXPECT_EQ(err.str(), "");
}

TEST(JsonText, KeepsEverythingButBytesThatAreNoUtf8)
{
    EXPECT_EQ(JsonText("ä\n\x1b\\").get<std::string>(), "ä\n\x1b\\");
    EXPECT_EQ(JsonText("a\xff\n\xc3z\xe4").get<std::string>(), "a\\xff\n\\xc3z\\xe4");
    EXPECT_EQ(JsonText("").get<std::string>(), "");
    EXPECT_EQ(JsonTextOrNull("x").get<std::string>(), "x");
    EXPECT_TRUE(JsonTextOrNull("").is<picojson::null>());
}

TEST(WriteJson, TellsItsVersionAndEscapesAllControlCharacters)
{
    std::ostringstream out;

    WriteJson({out, out},
              picojson::value(picojson::object{{"text", JsonText("\x1b[2J\xc2\x9b\xc2\xa0\x7f")}}));

    EXPECT_EQ(out.str(), "{\n"
                         "  \"formatVersion\": 1,\n"
                         "  \"text\": \"\\u001b[2J\\u009b\xc2\xa0\\u007f\"\n"
                         "}\n");
}

} // namespace kx::cli
