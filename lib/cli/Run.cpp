// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "cli/Run.h"

#include "cli/WrongUse.h"
#include "io/Error.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <exception>
#include <new>
#include <ostream>
#include <string>

#include <CLI/CLI.hpp>

namespace kx::cli
{

namespace
{

/// Tells whether JSON is wanted, also from a command line that cannot be followed.
bool WantsJson(int argc, char** argv)
{
    return std::any_of(argv + 1, argv + argc,
                       [](const char* word) { return std::strcmp(word, "--json") == 0; });
}

int Fail(const Output& output, const io::Error& error)
{
    WriteError(output, error);
    return static_cast<int>(error.Code());
}

/// Ends a command: what it printed must have got where it should.
int End(const Output& output, int code)
{
    output.out.flush();
    return output.out ? code
                      : Fail(output, io::Error(io::ExitCode::kNoAccess, "standard output",
                                               "cannot be written"));
}

int Run(const Invocation& invocation, const Output& output)
{
    try {
        return End(output, invocation.run(output).Number());
    } catch (const io::Error& error) {
        return Fail(output, error);
    } catch (const std::bad_alloc&) {
        return Fail(output, io::Error(io::ExitCode::kNoAccess, "", "there is not enough memory"));
    } catch (const std::exception& error) {
        return Fail(output, io::Error(io::ExitCode::kNoAccess, "", error.what()));
    }
}

int Start(const ProgramText& text, const CommandAdder& addCommands, int argc, char** argv)
{
    CLI::App program(text.about, text.name);
    program.set_version_flag("-V,--version", std::string(text.name) + " " + text.version,
                             "Show the version and end");
    program.set_help_flag("-h,--help", "Show this help and end");
    program.require_subcommand(1);
    program.footer("\"" + std::string(text.name) + " help COMMAND\" tells more about a command.\n" +
                   text.ending);

    Invocation invocation;
    addCommands(program, invocation);
    try {
        program.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) {
            const int code = program.exit(error); // help or version
            return End(StandardOutput(text.name, false), code);
        }
        return Fail(StandardOutput(text.name, WantsJson(argc, argv)),
                    WrongUse(program, {argv + 1, argv + argc}, error.what()));
    }
    return Run(invocation, StandardOutput(text.name, invocation.isJson));
}

} // namespace

int RunProgram(const ProgramText& text, const CommandAdder& addCommands, int argc, char** argv)
{
    try {
        return Start(text, addCommands, argc, argv);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s: %s\n", text.name, error.what());
        return static_cast<int>(io::ExitCode::kNoAccess);
    }
}

} // namespace kx::cli
