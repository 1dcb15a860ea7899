// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "cli/Command.h"
#include "cli/Run.h"
#include "commands/Command.h"

namespace
{

constexpr kx::cli::ProgramText kText = {
    "kx-panel", KX_PANEL_VERSION,
    "Decides on a panel which packages are installed, and installs them.",
    "Exit status: 0 yes or done, 1 refused, 2 wrong use, 3 could not read or write,\n"
    "4 another kx-panel is at work; of install also that of the updater."};

/// Adds all commands: the help lists them so.
void AddCommands(CLI::App& program, kx::cli::Invocation& invocation)
{
    kx::guard::AddCheck(program, invocation);
    kx::guard::AddInstall(program, invocation);
    kx::guard::AddStatus(program, invocation);
    kx::guard::AddHistory(program, invocation);
    kx::guard::AddSchema(program, invocation);
    kx::cli::AddCompletion(program, invocation, {{kx::guard::kPackageValue, "'*.kx-update'"}});
    kx::cli::AddHelp(program, invocation, "install");
    kx::cli::AddVersion(program, invocation);
}

} // namespace

int main(int argc, char** argv)
{
    return kx::cli::RunProgram(kText, AddCommands, argc, argv);
}
