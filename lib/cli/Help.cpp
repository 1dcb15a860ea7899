// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "cli/Command.h"
#include "cli/Values.h"
#include "io/Error.h"
#include "io/Nearest.h"

#include <memory>
#include <ostream>
#include <string>

#include <CLI/CLI.hpp>

namespace kx::cli
{

namespace
{

/// Writes what --help writes.
/// @param name  of a command; empty for the program
io::ExitCode TellHelp(const CLI::App& program, const std::string& name, const Output& output)
{
    const CLI::App* const command = name.empty() ? &program : FindCommand(program, name);
    if (command == nullptr) {
        throw io::Error(io::ExitCode::kWrongUse, "", "'" + name + "' is not a command",
                        io::NearestRemedy(name, CommandNames(program)));
    }
    const std::string title =
        name.empty() ? program.get_name() : program.get_name() + " " + command->get_name();
    output.out << command->get_formatter()->make_help(command, title, CLI::AppFormatMode::Normal);
    return io::ExitCode::kFine;
}

} // namespace

void AddHelp(CLI::App& program, Invocation& invocation, const std::string& example)
{
    CLI::App* const command =
        program.add_subcommand("help", "Show the help of the program, or of a command");
    const auto name = std::make_shared<std::string>();
    command->add_option("command", *name, "The command; without it, all are listed")
        ->type_name(kCommandValue);
    const std::string line = "\n  " + program.get_name() + " help";
    command->footer("Examples:" + line + line + " " + example);
    command->callback([&program, &invocation, name] {
        invocation.run = [&program, name](const Output& output) {
            return TellHelp(program, *name, output);
        };
    });
}

void AddVersion(CLI::App& program, Invocation& invocation)
{
    CLI::App* const command = program.add_subcommand("version", "Show the version");
    command->callback([&program, &invocation] {
        invocation.run = [&program](const Output& output) {
            output.out << program.version() << '\n';
            return io::ExitCode::kFine;
        };
    });
}

} // namespace kx::cli
