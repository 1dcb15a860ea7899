// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "cli/Run.h"
#include "io/Error.h"

#include <gtest/gtest.h>

#include <functional>
#include <iostream>
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

namespace kx::cli
{

/// What a program ended with, and what it said.
struct Told {
    int status;
    std::string out;
    std::string err;

    bool operator==(const Told& other) const
    {
        return status == other.status && out == other.out && err == other.err;
    }
};

void PrintTo(const Told& told, std::ostream* out)
{
    *out << told.status << " '" << told.out << "' '" << told.err << "'";
}

/// Runs a program with the command "look", which does @p work.
Told Ran(std::vector<std::string> words, const std::function<ExitStatus(const Output&)>& work)
{
    words.insert(words.begin(), "kx-some");
    std::vector<char*> argv;
    argv.reserve(words.size());
    for (std::string& word : words) {
        argv.push_back(word.data());
    }
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    const int status = RunProgram(
        {"kx-some", "1.2", "Looks.", "The end."},
        [&work](CLI::App& program, Invocation& invocation) {
            CLI::App* const command = program.add_subcommand("look", "");
            command->add_flag("--json", invocation.isJson);
            command->callback([&invocation, &work] { invocation.run = work; });
        },
        static_cast<int>(argv.size()), argv.data());
    std::cout.flush();
    const std::string err = testing::internal::GetCapturedStderr();
    return {status, testing::internal::GetCapturedStdout(), err};
}

ExitStatus Say(const Output& output)
{
    output.out << (output.isJson ? "{}" : "text");
    return io::ExitCode::kProblems;
}

TEST(RunProgram, EndsWithWhatTheCommandSays)
{
    EXPECT_EQ(Ran({"look"}, Say), (Told{1, "text", ""}));
    EXPECT_EQ(Ran({"look", "--json"}, Say), (Told{1, "{}", ""}));
    EXPECT_EQ(Ran({"look"}, [](const Output&) { return ExitStatus(101); }), (Told{101, "", ""}));
}

TEST(RunProgram, TellsWhatWentWrong)
{
    const auto refuse = [](const Output&) -> ExitStatus {
        throw io::Error(io::ExitCode::kNoAccess, "file", "is locked", "unlock it");
    };

    EXPECT_EQ(Ran({"look"}, refuse), (Told{3, "", "kx-some: file: is locked; unlock it\n"}));
    EXPECT_EQ(Ran({"look"}, [](const Output&) -> ExitStatus { throw std::bad_alloc(); }),
              (Told{3, "", "kx-some: there is not enough memory\n"}));
    EXPECT_EQ(Ran({"look"}, [](const Output&) -> ExitStatus { throw std::runtime_error("no"); }),
              (Told{3, "", "kx-some: no\n"}));
    EXPECT_EQ(Ran({"look", "--no"}, Say),
              (Told{2, "", "kx-some: '--no' is not an option of look; see kx-some help look\n"}));
}

TEST(RunProgram, TellsAMistypedWordAsJsonWhereThatIsWanted)
{
    EXPECT_EQ(Ran({"--json", "lok"}, Say), (Told{2,
                                                 "{\n"
                                                 "  \"error\": {\n"
                                                 "    \"code\": 2,\n"
                                                 "    \"message\": \"'lok' is not a command\",\n"
                                                 "    \"place\": \"\",\n"
                                                 "    \"remedy\": \"did you mean 'look'?\"\n"
                                                 "  },\n"
                                                 "  \"formatVersion\": 1\n"
                                                 "}\n",
                                                 ""}));
}

TEST(RunProgram, HasAVersionAndAHelp)
{
    EXPECT_EQ(Ran({"-V"}, Say), (Told{0, "kx-some 1.2\n", ""}));
    const Told help = Ran({"--help"}, Say);
    EXPECT_EQ(help.status, 0);
    EXPECT_NE(help.out.find("\"kx-some help COMMAND\" tells more about a command.\nThe end.\n"),
              std::string::npos)
        << help.out;
}

TEST(RunProgram, TellsThatItsOutputWasNotWritten)
{
    const Told told = Ran({"look"}, [](const Output& output) {
        output.out.setstate(std::ios::badbit);
        return io::ExitCode::kFine;
    });
    std::cout.clear();

    EXPECT_EQ(told, (Told{3, "", "kx-some: standard output: cannot be written\n"}));
}

} // namespace kx::cli
