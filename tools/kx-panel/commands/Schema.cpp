// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "cli/Output.h"
#include "cli/Values.h"
#include "commands/Command.h"
#include "commands/Documents.h"
#include "io/Error.h"
#include "io/Nearest.h"

#include <algorithm>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

namespace kx::guard
{

namespace
{

io::ExitCode TellSchema(const std::string& name, const Output& output)
{
    const std::vector<std::string> names = DocumentNames();
    if (std::find(names.begin(), names.end(), name) == names.end()) {
        throw io::Error(io::ExitCode::kWrongUse, "schema", "there is none of '" + name + "'",
                        io::NearestRemedy(name, names));
    }
    output.out << cli::SerializedJson(DocumentSchema(name));
    return io::ExitCode::kFine;
}

} // namespace

void AddSchema(CLI::App& program, Invocation& invocation)
{
    CLI::App* const command = program.add_subcommand(
        "schema", "Write the JSON Schema of what a command writes with --json");
    const auto name = std::make_shared<std::string>();
    command->add_option("document", *name, "Whose")
        ->type_name(cli::ChoiceOf(DocumentNames()))
        ->required();
    command->footer(
        "The schema is of draft 2020-12. That of error is of what every command writes\n"
        "when it cannot do its work.\n\n"
        "Examples:\n"
        "  kx-panel schema install >install.schema.json\n"
        "  jsonschema -i answer.json install.schema.json");
    command->callback([name, &invocation] {
        invocation.run = [name](const Output& output) { return TellSchema(*name, output); };
    });
}

} // namespace kx::guard
