// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "commands/Command.h"
#include "commands/Values.h"
#include "common/Text.h"
#include "package/Kinds.h"
#include "package/Summary.h"

#include <memory>
#include <ostream>
#include <string_view>

#include <CLI/CLI.hpp>

namespace
{

// ---- JSON ----

template <class Things, class Teller>
picojson::value ArrayOf(const Things& things, Teller tell)
{
    picojson::array array;
    for (const auto& thing : things) {
        array.push_back(tell(thing));
    }
    return picojson::value(array);
}

picojson::value ItemAsJson(const SummaryItem& item)
{
    return picojson::value(picojson::object{
        {"source", JsonText(item.source)},
        {"target", JsonText(item.target)},
        {"mode", JsonText(item.mode)},
        {"isMissing", picojson::value(item.isMissing)},
        {"files", JsonNumber(item.files)},
        {"size", JsonNumber(item.size)},
    });
}

picojson::value SettingAsJson(const SummarySetting& setting)
{
    return picojson::value(picojson::object{
        {"kind", JsonText(setting.kind)},
        {"id", JsonText(setting.id)},
        {"isUsed", picojson::value(setting.isUsed)},
        {"items", ArrayOf(setting.items,
                          [](const auto& item) {
                              return picojson::value(picojson::object{
                                  {"name", JsonText(item.first)},
                                  {"value", JsonText(item.second)},
                              });
                          })},
    });
}

picojson::value StepAsJson(const SummaryStep& step)
{
    return picojson::value(picojson::object{
        {"kind", JsonText(step.kind)},
        {"id", JsonText(step.id)},
        {"comment", JsonText(step.comment)},
        {"canSkip", picojson::value(step.canSkip)},
        {"isRecorded", picojson::value(step.isRecorded)},
        {"items", ArrayOf(step.items, ItemAsJson)},
        {"install", JsonText(step.install)},
        {"uninstall", JsonText(step.uninstall)},
        {"settings", ArrayOf(step.settings, SettingAsJson)},
    });
}

picojson::value UpdaterAsJson(const std::optional<SummaryUpdater>& updater)
{
    if (!updater.has_value()) {
        return {};
    }
    return picojson::value(picojson::object{
        {"size", JsonNumber(updater->size)},
        {"isExecutable", picojson::value(updater->isExecutable)},
        {"processor", updater->program.has_value() ? JsonText(updater->program->ProcessorName())
                                                   : picojson::value()},
    });
}

picojson::value SummaryAsJson(const Package& package, const Summary& summary)
{
    return picojson::value(picojson::object{
        {"package", JsonText(package.Path())},
        {"isArchive", picojson::value(package.IsArchive())},
        {"recordName", JsonText(summary.recordName)},
        {"title", JsonText(summary.title)},
        {"version", JsonText(summary.version)},
        {"comment", JsonText(summary.comment)},
        {"model", JsonText(summary.model)},
        {"osVersion", JsonText(summary.osVersion)},
        {"date", JsonText(summary.date)},
        {"updater", UpdaterAsJson(summary.updater)},
        {"payload", picojson::value(picojson::object{
                        {"files", JsonNumber(summary.files)},
                        {"size", JsonNumber(summary.size)},
                    })},
        {"steps", ArrayOf(summary.steps, StepAsJson)},
        {"recorded", picojson::value(picojson::object{
                         {"folders", ArrayOf(summary.recordedFolders, JsonText)},
                         {"files", ArrayOf(summary.recordedFiles, JsonText)},
                     })},
    });
}

// ---- text ----

void TellUpdater(const Output& output, const std::optional<SummaryUpdater>& updater)
{
    output.out << "  updater:   ";
    if (!updater.has_value()) {
        output.out << Coloured(output, Colour::kRed, "missing") << '\n';
        return;
    }
    output.out << (updater->program.has_value() ? "for " + updater->program->ProcessorName()
                                                : "no program")
               << ", " << SizeText(updater->size);
    if (!updater->isExecutable) {
        output.out << ", " << Coloured(output, Colour::kYellow, "not executable");
    }
    output.out << '\n';
}

void TellIdentity(const Output& output, const Package& package, const Summary& summary)
{
    output.out << Coloured(output, Colour::kBold, Printable(package.Path())) << '\n'
               << "  title:     " << Printable(summary.title) << '\n'
               << "  version:   " << Printable(summary.version) << '\n'
               << "  comment:   " << Printable(summary.comment) << '\n'
               << "  for:       " << Printable(summary.model) << ", system "
               << Printable(summary.osVersion) << '\n'
               << "  date:      " << Printable(summary.date) << '\n'
               << "  record:    " << Printable(summary.recordName) << '\n';
    TellUpdater(output, summary.updater);
    output.out << "  payload:   " << CountText(summary.files, "file") << ", "
               << SizeText(summary.size) << '\n';
}

void TellItem(const Output& output, const SummaryStep& step, const SummaryItem& item)
{
    output.out << "  " << Printable(item.source) << " -> " << Printable(item.target);
    if (step.kind == kCopyFilesKind.name) {
        output.out << ", mode " << (item.mode.empty() ? "777" : Printable(item.mode));
    } else {
        output.out << ", " << CountText(item.files, "file");
    }
    if (item.isMissing) {
        output.out << ", " << Coloured(output, Colour::kRed, "no payload") << '\n';
        return;
    }
    output.out << ", " << SizeText(item.size) << '\n';
}

void TellScript(const Output& output, const char* label, const std::string& text)
{
    output.out << "  " << label << ":\n";
    std::string_view rest = text;
    while (!rest.empty()) {
        const std::size_t end = std::min(rest.find('\n'), rest.size());
        output.out << "    | " << Printable(std::string(rest.substr(0, end))) << '\n';
        rest.remove_prefix(std::min(end + 1, rest.size()));
    }
}

void TellSetting(const Output& output, const SummarySetting& setting)
{
    output.out << "  " << Printable(setting.kind.empty() ? setting.id : setting.kind)
               << (setting.kind.empty() ? " (unknown kind)" : "")
               << (setting.isUsed ? "" : " (not used)") << ":";
    for (const auto& [name, value] : setting.items) {
        output.out << ' ' << Printable(name) << '=' << Printable(value);
    }
    output.out << '\n';
}

void TellStep(const Output& output, const Summary& summary, std::size_t index)
{
    const SummaryStep& step = summary.steps[index];
    const std::string heading =
        "step " + std::to_string(index + 1) + " of " + std::to_string(summary.steps.size()) + ": " +
        (step.kind.empty() ? "unknown kind " + Printable(step.id) : step.kind);
    output.out << '\n'
               << Coloured(output, Colour::kBold, heading) << (step.isRecorded ? ", recorded" : "")
               << (step.canSkip ? ", may fail" : "");
    if (!step.comment.empty()) {
        output.out << " (" << Printable(step.comment) << ")";
    }
    output.out << '\n';
    for (const SummaryItem& item : step.items) {
        TellItem(output, step, item);
    }
    if (step.kind == kScriptKind.name) {
        TellScript(output, "install", step.install);
        TellScript(output, "uninstall", step.uninstall);
    }
    for (const SummarySetting& setting : step.settings) {
        TellSetting(output, setting);
    }
}

void TellList(const Output& output, const char* heading, const std::vector<std::string>& paths)
{
    output.out << "  " << heading << ":\n";
    for (const std::string& path : paths) {
        output.out << "    " << Printable(path) << '\n';
    }
}

ExitCode Show(const std::string& path, const Output& output)
{
    const std::unique_ptr<Package> package = OpenPackage(path);
    const Summary summary = Summarize(*package);
    if (output.isJson) {
        WriteJson(output, SummaryAsJson(*package, summary));
        return ExitCode::kFine;
    }
    TellIdentity(output, *package, summary);
    for (std::size_t i = 0; i < summary.steps.size(); ++i) {
        TellStep(output, summary, i);
    }
    output.out << '\n' << Coloured(output, Colour::kBold, "recorded on the panel") << '\n';
    TellList(output, "folders, where they have to be made", summary.recordedFolders);
    TellList(output, "files", summary.recordedFiles);
    return ExitCode::kFine;
}

} // namespace

void AddShow(CLI::App& program, Invocation& invocation)
{
    CLI::App* const command = program.add_subcommand("show", "Tell what is in a package");
    const auto path = std::make_shared<std::string>();
    command
        ->add_option("package", *path,
                     "A package file, the folder of an unpacked one, or - for standard input")
        ->type_name(kPackageValue)
        ->required();
    command->add_flag("--json", invocation.isJson, "Tell it as JSON");
    command->footer("Passwords are masked.\n\n"
                    "Examples:\n"
                    "  kx-package show recipes.kx-update\n"
                    "  kx-package show --json recipes.kx-update | jq -r '.steps[].kind'");
    command->callback([path, &invocation] {
        invocation.run = [path](const Output& output) { return Show(*path, output); };
    });
}
