// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "commands/Command.h"
#include "common/Error.h"
#include "common/Nearest.h"
#include "common/Output.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <exception>
#include <iostream>
#include <new>

#include <CLI/CLI.hpp>

namespace
{

/// Tells whether JSON is wanted, also from a command line that cannot be followed.
bool WantsJson(int argc, char** argv)
{
    return std::any_of(argv + 1, argv + argc,
                       [](const char* word) { return std::strcmp(word, "--json") == 0; });
}

/// Tells what is wrong with a command line that CLI11 refuses, a mistyped command by its name.
Error WrongUse(const CLI::App& program, int argc, char** argv, const std::string& what)
{
    std::vector<std::string> names;
    for (const CLI::App* const command :
         program.get_subcommands([](const CLI::App*) { return true; })) {
        names.push_back(command->get_name());
    }
    const char* const* const word =
        std::find_if(argv + 1, argv + argc, [](const char* each) { return *each != '-'; });
    if (word == argv + argc || std::find(names.begin(), names.end(), *word) != names.end()) {
        return {ExitCode::kWrongUse, "", what, "see kx-package --help"};
    }
    return {ExitCode::kWrongUse, "", std::string("'") + *word + "' is no command",
            NearestRemedy(*word, names)};
}

int Fail(const Output& output, const Error& error)
{
    WriteError(output, error);
    return static_cast<int>(error.Code());
}

int Run(const Invocation& invocation)
{
    const Output output = StandardOutput(invocation.isJson);
    try {
        const ExitCode code = invocation.run(output);
        output.out.flush();
        if (!output.out) {
            return Fail(output, Error(ExitCode::kNoAccess, "standard output", "cannot be written"));
        }
        return static_cast<int>(code);
    } catch (const Error& error) {
        return Fail(output, error);
    } catch (const std::bad_alloc&) {
        return Fail(output, Error(ExitCode::kNoAccess, "", "there is not enough memory"));
    } catch (const std::exception& error) {
        return Fail(output, Error(ExitCode::kNoAccess, "", error.what()));
    }
}

int Start(int argc, char** argv)
{
    CLI::App program("Makes, checks, looks into and rehearses update packages.", "kx-package");
    program.set_version_flag("--version", std::string("kx-package ") + KX_PACKAGE_VERSION);
    program.set_help_flag("-h,--help", "Show this help and end");
    program.require_subcommand(1);
    program.footer(
        "Exit status: 0 fine, 1 problems found, 2 wrong use, 3 could not read or write.");

    Invocation invocation;
    AddBuild(program, invocation);
    AddCheck(program, invocation);
    AddCompletion(program, invocation);
    AddInstalled(program, invocation);
    AddNew(program, invocation);
    AddPlan(program, invocation);
    AddSchema(program, invocation);
    AddShow(program, invocation);
    AddTry(program, invocation);
    AddVerify(program, invocation);
    try {
        program.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) {
            return program.exit(error); // help or version
        }
        return Fail(StandardOutput(WantsJson(argc, argv)),
                    WrongUse(program, argc, argv, error.what()));
    }
    return Run(invocation);
}

} // namespace

int main(int argc, char** argv)
{
    try {
        return Start(argc, argv);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "kx-package: %s\n", error.what());
        return static_cast<int>(ExitCode::kNoAccess);
    }
}
