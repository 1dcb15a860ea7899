// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "schema/Schema.h"

#include "commands/Command.h"
#include "commands/Values.h"
#include "io/AtomicFile.h"
#include "io/Nearest.h"
#include "io/Transfer.h"
#include "schema/JsonSchemas.h"
#include "schema/TomlSchemas.h"

#include <array>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

namespace kx::tool
{

namespace
{

/// A kind of file that there is a schema of.
struct Subject {
    const char* name;
    picojson::value (*make)();
};

constexpr std::array<Subject, 3> kSubjects = {
    {{"description", MakeSchema}, {"manifest", MakeManifestSchema}, {"panel", MakePanelSchema}}};

/// Before the names of the documents that the commands write.
constexpr const char* kJsonPrefix = "json-";

struct SchemaOptions {
    std::string subject = kSubjects.front().name;
    std::string output = io::AtomicFile::kStandardOutput;
};

std::vector<std::string> SubjectNames()
{
    const std::vector<std::string> documents = JsonDocumentNames();
    std::vector<std::string> names;
    names.reserve(kSubjects.size() + documents.size());
    for (const Subject& subject : kSubjects) {
        names.emplace_back(subject.name);
    }
    for (const std::string& document : documents) {
        names.push_back(kJsonPrefix + document);
    }
    return names;
}

picojson::value SchemaOf(const std::string& name)
{
    for (const Subject& subject : kSubjects) {
        if (name == subject.name) {
            return subject.make();
        }
    }
    for (const std::string& document : JsonDocumentNames()) {
        if (name == kJsonPrefix + document) {
            return MakeJsonSchema(document);
        }
    }
    throw io::Error(io::ExitCode::kWrongUse, "schema", "there is none of '" + name + "'",
                    io::NearestRemedy(name, SubjectNames()));
}

io::ExitCode TellSchema(const SchemaOptions& options, const Output& output)
{
    if (options.output.empty()) {
        throw io::Error(io::ExitCode::kWrongUse, "--output", "does not name a file",
                        "name one, or - for standard output");
    }
    const picojson::value schema = SchemaOf(options.subject);
    if (options.output == io::AtomicFile::kStandardOutput) {
        output.out << SerializedJson(schema);
        return io::ExitCode::kFine;
    }
    io::AtomicFile file(options.output);
    io::WriteAll(file.File().Number(), SerializedJson(schema), options.output);
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
        "schema",
        "Write the JSON Schema of what people and tools write, for editors and other tools");
    const auto options = std::make_shared<SchemaOptions>();
    command
        ->add_option("subject", options->subject,
                     "Of what: a package's description, a manifest (package.toml), the "
                     "description of a panel (panel.toml), or what a command writes with --json")
        ->type_name(ChoiceOf(SubjectNames()))
        ->capture_default_str();
    command
        ->add_option("-o,--output", options->output,
                     "The file to write it to, or - for standard output")
        ->type_name(kFileValue)
        ->capture_default_str();
    command->add_flag("--json", invocation.isJson,
                      "Write errors as JSON, too, and the name of the file that was made");
    command->footer(
        "The schema is of draft 2020-12. That of a description is for the JSON behind the byte "
        "order mark of\nUserPackage.kx-project. It takes what the updater takes, but only the "
        "class that\nbelongs in a place, and only kinds of steps and settings that exist.\n\n"
        "Examples:\n"
        "  kx-package schema -o kx-project.schema.json\n"
        "  kx-package schema manifest -o package.schema.json\n"
        "  kx-package schema json-check -o check.schema.json\n"
        "  tail -c +4 pkg/UserPackage.kx-project >description.json\n"
        "  jsonschema -i description.json kx-project.schema.json");
    command->callback([options, &invocation] {
        invocation.run = [options](const Output& output) { return TellSchema(*options, output); };
    });
}

} // namespace kx::tool
