// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "commands/Command.h"

#include <CLI/CLI.hpp>

void AddShow(CLI::App& program, Invocation& invocation)
{
    CLI::App* const command = program.add_subcommand("show", "Tell what is in a package");
    command->add_flag("--json", invocation.isJson, "Tell it as JSON");
    command->callback([&invocation] {
        invocation.run = [](const Output& /*output*/) { return ExitCode::kFine; };
    });
}
