// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "cli/Command.h"
#include "cli/Run.h"
#include "commands/Command.h"
#include "commands/Values.h"

namespace
{

constexpr kx::cli::ProgramText kText = {
    "kx-package", KX_PACKAGE_VERSION,
    "Makes, checks, inspects, rehearses and tries update packages.",
    "Exit status: 0 fine, 1 problems found, 2 wrong use, 3 could not read or write."};

/// Adds all commands, in the order of an author's work: the help lists them so.
void AddCommands(CLI::App& program, kx::cli::Invocation& invocation)
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
    kx::cli::AddCompletion(program, invocation,
                           {{kx::tool::kPackageValue, "'*.kx-update' '*.toml'"},
                            {kx::tool::kManifestValue, "'*.toml'"}});
    kx::cli::AddHelp(program, invocation, "build");
    kx::cli::AddVersion(program, invocation);
}

} // namespace

int main(int argc, char** argv)
{
    return kx::cli::RunProgram(kText, AddCommands, argc, argv);
}
