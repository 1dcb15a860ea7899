// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "commands/Command.h"
#include "commands/FastText.h"
#include "commands/RecordText.h"
#include "commands/Values.h"
#include "io/Text.h"
#include "registry/Registry.h"

#include <algorithm>
#include <memory>
#include <ostream>

#include <CLI/CLI.hpp>

namespace kx::tool
{

namespace
{

struct InstalledOptions {
    std::string root = "/";
};

picojson::value RecordAsJson(const registry::Record& record)
{
    picojson::object told = IdentityAsJson(record);
    told["folders"] = record.has.has_value() ? JsonCount(record.has->folders) : picojson::value();
    told["files"] = record.has.has_value() ? JsonCount(record.has->files) : picojson::value();
    told["fastFolders"] = FastFoldersAsJson(record.fastFolders);
    told["problems"] = ProblemsAsJson(record);
    told["omittedProblems"] = JsonCount(record.omittedProblems);
    return picojson::value(told);
}

picojson::value ForeignAsJson(const registry::Record& record)
{
    return picojson::value(picojson::object{
        {"name", JsonText(record.name)},
        {"message", JsonText(record.problems.front().what)},
    });
}

void WriteDocument(const Output& output, const io::RootedFolder& root,
                   const std::vector<registry::Record>& records)
{
    picojson::array packages;
    picojson::array foreign;
    for (const registry::Record& record : records) {
        if (record.isRecord) {
            packages.push_back(RecordAsJson(record));
        } else {
            foreign.push_back(ForeignAsJson(record));
        }
    }
    WriteJson(output, picojson::value(picojson::object{
                          {"root", JsonText(root.Folder())},
                          {"registry", JsonText(registry::kRegistryPath)},
                          {"packages", picojson::value(packages)},
                          {"foreign", picojson::value(foreign)},
                      }));
}

void TellRecord(const Output& output, const registry::Record& record)
{
    TellHeading(output, record);
    if (record.identity.has_value()) {
        const registry::Identity& identity = *record.identity;
        output.out << "  comment:   " << io::Printable(identity.comment) << '\n'
                   << "  for:       " << io::Printable(identity.model) << ", system "
                   << io::Printable(identity.osVersion) << '\n'
                   << "  date:      " << io::Printable(identity.date) << '\n';
    }
    if (record.has.has_value()) {
        output.out << "  recorded:  " << io::CountText(record.has->folders, "folder") << ", "
                   << io::CountText(record.has->files, "file") << '\n';
    }
    for (const format::FastSteps& steps : record.fastFolders) {
        output.out << "  unpacked:  " << io::CountText(steps.folder.fileCount, "file") << " to "
                   << io::Printable(steps.folder.target) << '\n';
    }
    TellProblems(output, record);
}

void WriteText(const Output& output, const io::RootedFolder& root,
               const std::vector<registry::Record>& records)
{
    const std::string registry = io::Printable(root.Shown(registry::kRegistryPath));
    const auto count = static_cast<std::uint64_t>(std::count_if(
        records.begin(), records.end(), [](const registry::Record& r) { return r.isRecord; }));
    for (const registry::Record& record : records) {
        if (record.isRecord) {
            TellRecord(output, record);
        }
    }
    for (const registry::Record& record : records) {
        if (!record.isRecord) {
            output.out << io::Printable(record.name) << '\n'
                       << "  " << Coloured(output, Colour::kYellow, "no record") << ": "
                       << io::Printable(record.problems.front().what) << '\n';
        }
    }
    output.out << registry << ": " << (count == 0 ? "no packages" : io::CountText(count, "package"))
               << '\n';
}

io::ExitCode TellInstalled(const InstalledOptions& options, const Output& output)
{
    const io::RootedFolder root = OpenPanel(options.root);
    std::vector<registry::Record> records;
    for (const std::string& name : registry::RegistryNames(root)) {
        records.push_back(registry::ReadRecord(root, name));
    }
    if (output.isJson) {
        WriteDocument(output, root, records);
    } else {
        WriteText(output, root, records);
    }
    const bool isFine =
        std::all_of(records.begin(), records.end(),
                    [](const registry::Record& record) { return record.problems.empty(); });
    return isFine ? io::ExitCode::kFine : io::ExitCode::kProblems;
}

} // namespace

void AddInstalled(CLI::App& program, Invocation& invocation)
{
    CLI::App* const command =
        program.add_subcommand("installed", "List the packages that a panel has recorded");
    const auto options = std::make_shared<InstalledOptions>();
    command
        ->add_option("--root", options->root,
                     "The folder with the panel's files, or a copy of them; / is this machine")
        ->type_name(kFolderValue)
        ->capture_default_str();
    command->add_flag("--json", invocation.isJson, "Write it as JSON");
    command->footer("Exit status: 0 all records are intact, 1 some are damaged, or there is\n"
                    "something else among them, 2 wrong use, 3 could not read.\n\n"
                    "Examples:\n"
                    "  kx-package installed\n"
                    "  kx-package installed --root /mnt/panel-copy\n"
                    "  kx-package installed --json | jq -r '.packages[] | \"\\(.name) "
                    "\\(.version)\"'");
    command->callback([options, &invocation] {
        invocation.run = [options](const Output& output) {
            return TellInstalled(*options, output);
        };
    });
}

} // namespace kx::tool
