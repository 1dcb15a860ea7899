// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "commands/Command.h"
#include "commands/FastText.h"
#include "commands/RecordText.h"
#include "commands/Values.h"
#include "io/Text.h"
#include "registry/Comparison.h"

#include <memory>
#include <ostream>
#include <system_error>

#include <CLI/CLI.hpp>

namespace kx::tool
{

namespace
{

using Kind = io::RootedFolder::Kind;

struct VerifyOptions {
    std::string name;
    std::string root = "/";
};

/// The word for what was recorded.
const char* RecordedAs(const registry::ListEntry& entry)
{
    return entry.isFolder ? "folder" : "file";
}

/// The word for the state of an entry that is not as recorded.
const char* StateOf(const registry::Deviation& deviation)
{
    switch (deviation.standing.kind) {
    case Kind::kMissing:
        return "missing";
    case Kind::kUnknown:
        return "unknown";
    case Kind::kFile:
    case Kind::kFolder:
    case Kind::kOther:
        break;
    }
    return "other-kind";
}

/// What is there instead, or why that is not known.
std::string FoundAt(const registry::Deviation& deviation)
{
    switch (deviation.standing.kind) {
    case Kind::kFile:
        return "a file";
    case Kind::kFolder:
        return "a folder";
    case Kind::kOther:
        return "a device, a pipe or a socket";
    case Kind::kMissing:
    case Kind::kUnknown:
        break;
    }
    return std::generic_category().message(deviation.standing.error);
}

picojson::value TallyAsJson(const registry::Tally& tally)
{
    return picojson::value(picojson::object{
        {"recorded", JsonCount(tally.Sum())},
        {"present", JsonCount(tally.present)},
        {"missing", JsonCount(tally.missing)},
        {"otherKind", JsonCount(tally.otherKind)},
        {"unknown", JsonCount(tally.unknown)},
    });
}

picojson::value DeviationAsJson(const registry::Deviation& deviation)
{
    return picojson::value(picojson::object{
        {"path", JsonText(deviation.entry.path)},
        {"kind", JsonText(RecordedAs(deviation.entry))},
        {"line", deviation.entry.line == 0 ? picojson::value() : JsonCount(deviation.entry.line)},
        {"state", JsonText(StateOf(deviation))},
        {"found", JsonText(FoundAt(deviation))},
    });
}

void WriteDocument(const Output& output, const io::RootedFolder& root,
                   const registry::Comparison& comparison)
{
    picojson::array deviations;
    for (const registry::Deviation& deviation : comparison.deviations) {
        deviations.push_back(DeviationAsJson(deviation));
    }
    picojson::object told = IdentityAsJson(comparison.record);
    told["root"] = JsonText(root.Folder());
    told["record"] = JsonText(registry::RecordPath(comparison.record.name));
    told["folders"] = TallyAsJson(comparison.folders);
    told["files"] = TallyAsJson(comparison.files);
    told["fastFolders"] = FastFoldersAsJson(comparison.record.fastFolders);
    told["deviations"] = picojson::value(deviations);
    told["omittedDeviations"] = JsonCount(comparison.omitted);
    told["problems"] = ProblemsAsJson(comparison.record);
    told["omittedProblems"] = JsonCount(comparison.record.omittedProblems);
    WriteJson(output, picojson::value(told));
}

void TellDeviation(const Output& output, const registry::Deviation& deviation)
{
    const registry::ListEntry& entry = deviation.entry;
    const std::string path = io::Printable(entry.path);
    const std::string line =
        entry.line == 0 ? ", unpacked" : ", line " + std::to_string(entry.line);
    output.out << "  ";
    switch (deviation.standing.kind) {
    case Kind::kMissing:
        output.out << Coloured(output, Colour::kRed, "missing") << ":   " << path << " ("
                   << RecordedAs(entry) << line << ")\n";
        return;
    case Kind::kUnknown:
        output.out << Coloured(output, Colour::kYellow, "unknown") << ":   " << path << " ("
                   << RecordedAs(entry) << line << "): " << FoundAt(deviation) << '\n';
        return;
    case Kind::kFile:
    case Kind::kFolder:
    case Kind::kOther:
        output.out << Coloured(output, Colour::kRed, "replaced") << ":  " << path << " ("
                   << RecordedAs(entry) << line << ") is " << FoundAt(deviation) << '\n';
        return;
    }
}

/// "5 of 6 folders", "2 of 2 files"
std::string PresentOf(const registry::Tally& tally, const char* thing)
{
    return std::to_string(tally.present) + " of " + io::CountText(tally.Sum(), thing);
}

void WriteText(const Output& output, const registry::Comparison& comparison)
{
    const registry::Record& record = comparison.record;
    TellHeading(output, record);
    TellProblems(output, record);
    for (const registry::Deviation& deviation : comparison.deviations) {
        TellDeviation(output, deviation);
    }
    if (comparison.omitted != 0) {
        output.out << "  (" << comparison.omitted << " more are not listed)\n";
    }
    output.out << io::Printable(record.name) << ": " << PresentOf(comparison.folders, "folder")
               << " and " << PresentOf(comparison.files, "file") << " are there\n";
}

io::ExitCode Verify(const VerifyOptions& options, const Output& output)
{
    const io::RootedFolder root = OpenPanel(options.root);
    const registry::Comparison comparison = registry::CompareRecord(root, options.name);
    if (output.isJson) {
        WriteDocument(output, root, comparison);
    } else {
        WriteText(output, comparison);
    }
    if (comparison.HasProblems()) {
        return io::ExitCode::kProblems;
    }
    return comparison.Unknown() != 0 ? io::ExitCode::kNoAccess : io::ExitCode::kFine;
}

} // namespace

void AddVerify(CLI::App& program, Invocation& invocation)
{
    CLI::App* const command = program.add_subcommand(
        "verify", "Compare the record of an installed package with the panel's files");
    const auto options = std::make_shared<VerifyOptions>();
    command->add_option("name", options->name, "The name of the record")->required();
    command
        ->add_option("--root", options->root,
                     "The folder with the panel's files, or a copy of them; / is this machine")
        ->type_name(kFolderValue)
        ->capture_default_str();
    command->add_flag("--json", invocation.isJson, "Write it as JSON");
    command->footer(
        "A record lists paths and nothing else: not what was in the files, nor their "
        "modes.\n"
        "Exit status: 0 everything is there, 1 something is missing or replaced, or the "
        "record is damaged,\n2 wrong use or no such record, 3 something could not be "
        "looked at.\n\n"
        "Examples:\n"
        "  kx-package verify recipes\n"
        "  kx-package verify --root /mnt/panel-copy recipes\n"
        "  kx-package verify --json recipes | jq -r '.deviations[].path'");
    command->callback([options, &invocation] {
        invocation.run = [options](const Output& output) { return Verify(*options, output); };
    });
}

} // namespace kx::tool
