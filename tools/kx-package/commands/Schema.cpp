// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "schema/Schema.h"

#include "commands/Command.h"
#include "commands/Values.h"
#include "io/AtomicFile.h"
#include "io/Transfer.h"

#include <memory>
#include <ostream>

#include <CLI/CLI.hpp>

namespace kx::tool
{

namespace
{

struct SchemaOptions {
    std::string output = io::AtomicFile::kStandardOutput;
};

io::ExitCode TellSchema(const SchemaOptions& options, const Output& output)
{
    if (options.output.empty()) {
        throw io::Error(io::ExitCode::kWrongUse, "--output", "does not name a file",
                        "name one, or - for standard output");
    }
    if (options.output == io::AtomicFile::kStandardOutput) {
        WriteJson(output, MakeSchema());
        return io::ExitCode::kFine;
    }
    io::AtomicFile file(options.output);
    io::WriteAll(file.File().Number(), MakeSchema().serialize(true), options.output);
    file.Commit();
    if (output.isJson) {
        WriteJson(output, picojson::value(picojson::object{{"file", JsonText(options.output)}}));
    }
    return io::ExitCode::kFine;
}

} // namespace

void AddSchema(CLI::App& program, Invocation& invocation)
{
    CLI::App* const command = program.add_subcommand(
        "schema", "Write the JSON Schema of package descriptions, for editors and other tools");
    const auto options = std::make_shared<SchemaOptions>();
    command
        ->add_option("-o,--output", options->output,
                     "The file to write it to, or - for standard output")
        ->type_name(kFileValue)
        ->capture_default_str();
    command->add_flag("--json", invocation.isJson,
                      "Write errors as JSON, too, and the name of the file that was made");
    command->footer(
        "The schema is of draft 2020-12. It is for the JSON behind the byte order mark "
        "of\nUserPackage.kx-project. It takes what the updater takes, but only the "
        "class that\nbelongs in a place, and only kinds of steps and settings that exist.\n\n"
        "Examples:\n"
        "  kx-package schema -o kx-project.schema.json\n"
        "  tail -c +4 pkg/UserPackage.kx-project >description.json\n"
        "  jsonschema -i description.json kx-project.schema.json");
    command->callback([options, &invocation] {
        invocation.run = [options](const Output& output) { return TellSchema(*options, output); };
    });
}

} // namespace kx::tool
