// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "cli/Command.h"
#include "io/Error.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include <CLI/CLI.hpp>

namespace kx::cli
{

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

/// What a program with one command writes for a shell.
class Completion : public ::testing::Test
{
protected:
    static std::string Of(const std::string& shell)
    {
        CLI::App program("", "kx-some");
        Invocation invocation;
        std::string value;
        CLI::App* const command = program.add_subcommand("look", "");
        command->add_option("thing", value)->type_name("THING");
        command->add_option("--file", value)->type_name("FILE");
        command->add_option("--folder", value)->type_name("DIR:PATH");
        command->add_option("--kind", value)->type_name("{one,two}");
        command->add_option("--free", value)->type_name("TEXT");
        command->add_flag("--json", invocation.isJson);
        AddCompletion(program, invocation, {{"THING", "'*.thing' '*.t'"}});
        AddHelp(program, invocation, "look");
        program.parse("completion " + shell);
        std::ostringstream out;
        EXPECT_EQ(invocation.run({out, out}).Number(), 0);
        return out.str();
    }
};

TEST_F(Completion, IsNamedAfterTheProgram)
{
    EXPECT_THAT(Of("bash"),
                AllOf(StartsWith("# bash completion of kx-some, made by "
                                 "\"kx-some completion bash\""),
                      HasSubstr("\n_kx_some() {\n"), HasSubstr("complete -F _kx_some kx-some\n"),
                      Not(HasSubstr("@PROGRAM")), Not(HasSubstr("@FUNCTION"))));
    EXPECT_THAT(Of("zsh"), AllOf(StartsWith("#compdef kx-some\n"), HasSubstr("== _kx-some ]]"),
                                 HasSubstr("    compdef _kx_some kx-some\n")));
}

TEST_F(Completion, OffersWhatTheTypesOfValuesSay)
{
    EXPECT_THAT(Of("bash"),
                AllOf(HasSubstr("        'look --file') _kx_some_files '*'; return ;;\n"),
                      HasSubstr("        'look --folder') _kx_some_files; return ;;\n"),
                      HasSubstr("        'look --kind') _kx_some_words 'one two'; return ;;\n"),
                      HasSubstr("        'look --free') return ;;\n"),
                      Not(HasSubstr("look --json"))));
    EXPECT_THAT(Of("bash"),
                AllOf(HasSubstr("                *) _kx_some_files '*.thing' '*.t' ;;\n"),
                      HasSubstr("                *) _kx_some_words 'look completion help' ;;\n"),
                      HasSubstr("                *) _kx_some_words 'bash zsh' ;;\n")));
}

TEST_F(Completion, KnowsTwoShells)
{
    EXPECT_THROW(static_cast<void>(Of("fish")), io::Error);
}

} // namespace kx::cli
