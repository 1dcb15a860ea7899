// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "commands/Command.h"
#include "commands/WrongUse.h"
#include "common/Output.h"
#include "io/Error.h"

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

int Fail(const kx::tool::Output& output, const kx::io::Error& error)
{
    kx::tool::WriteError(output, error);
    return static_cast<int>(error.Code());
}

/// Ends a command: what it printed must have got where it should.
int End(const kx::tool::Output& output, int code)
{
    output.out.flush();
    return output.out ? code
                      : Fail(output, kx::io::Error(kx::io::ExitCode::kNoAccess, "standard output",
                                                   "cannot be written"));
}

int Run(const kx::tool::Invocation& invocation)
{
    const kx::tool::Output output = kx::tool::StandardOutput(invocation.isJson);
    try {
        return End(output, static_cast<int>(invocation.run(output)));
    } catch (const kx::io::Error& error) {
        return Fail(output, error);
    } catch (const std::bad_alloc&) {
        return Fail(output,
                    kx::io::Error(kx::io::ExitCode::kNoAccess, "", "there is not enough memory"));
    } catch (const std::exception& error) {
        return Fail(output, kx::io::Error(kx::io::ExitCode::kNoAccess, "", error.what()));
    }
}

/// Adds all commands, in the order of an author's work: the help lists them so.
void AddCommands(CLI::App& program, kx::tool::Invocation& invocation)
{
    kx::tool::AddNew(program, invocation);
    kx::tool::AddNewPanel(program, invocation);
    kx::tool::AddBuild(program, invocation);
    kx::tool::AddCheck(program, invocation);
    kx::tool::AddShow(program, invocation);
    kx::tool::AddPlan(program, invocation);
    kx::tool::AddTry(program, invocation);
    kx::tool::AddKey(program, invocation);
    kx::tool::AddSign(program, invocation);
    kx::tool::AddStick(program, invocation);
    kx::tool::AddDiff(program, invocation);
    kx::tool::AddUnpack(program, invocation);
    kx::tool::AddInstalled(program, invocation);
    kx::tool::AddVerify(program, invocation);
    kx::tool::AddSchema(program, invocation);
    kx::tool::AddCompletion(program, invocation);
    kx::tool::AddHelp(program, invocation);
    kx::tool::AddVersion(program, invocation);
}

int Start(int argc, char** argv)
{
    CLI::App program("Makes, checks, inspects, rehearses and tries update packages.", "kx-package");
    program.set_version_flag("-V,--version", std::string("kx-package ") + KX_PACKAGE_VERSION,
                             "Show the version and end");
    program.set_help_flag("-h,--help", "Show this help and end");
    program.require_subcommand(1);
    program.footer(
        "\"kx-package help COMMAND\" tells more about a command.\n"
        "Exit status: 0 fine, 1 problems found, 2 wrong use, 3 could not read or write.");

    kx::tool::Invocation invocation;
    AddCommands(program, invocation);
    try {
        program.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) {
            const int code = program.exit(error); // help or version
            return End(kx::tool::StandardOutput(false), code);
        }
        return Fail(kx::tool::StandardOutput(WantsJson(argc, argv)),
                    kx::tool::WrongUse(program, {argv + 1, argv + argc}, error.what()));
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
        return static_cast<int>(kx::io::ExitCode::kNoAccess);
    }
}
