// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "commands/Command.h"
#include "commands/FastText.h"
#include "commands/SignerText.h"
#include "commands/Values.h"
#include "compose/PackageSource.h"
#include "format/Kinds.h"
#include "format/Summary.h"
#include "io/Error.h"
#include "io/Text.h"
#include "rehearsal/Ending.h"
#include "rehearsal/Rehearsal.h"

#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <CLI/CLI.hpp>

namespace kx::tool
{

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

/// Returns the word for a kind; a description may name one that nobody knows.
picojson::value KindAsJson(const std::string& kind)
{
    return JsonText(kind.empty() ? "unknown" : kind);
}

picojson::value ItemAsJson(const format::SummaryItem& item)
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

picojson::value SettingAsJson(const format::SummarySetting& setting)
{
    return picojson::value(picojson::object{
        {"kind", KindAsJson(setting.kind)},
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

picojson::value StepAsJson(const format::SummaryStep& step)
{
    return picojson::value(picojson::object{
        {"kind", KindAsJson(step.kind)},
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

picojson::value UpdaterAsJson(const std::optional<format::SummaryUpdater>& updater)
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

/// What a panel records of the package: a fresh one, to which everything is new.
struct Recorded {
    std::vector<std::string> folders;
    std::vector<std::string> files;
    std::string whyNothing; ///< a sentence; empty where the package is recorded
};

Recorded RecordedOf(const OpenedPackage& opened)
{
    Recorded recorded;
    try {
        rehearsal::Circumstances where;
        where.hasOtherUpdater = IsUpdaterElsewhere(opened);
        rehearsal::Plan plan = rehearsal::Rehearse(*opened.package, where);
        recorded.whyNothing = plan.IsInstalled() ? "" : rehearsal::EndOf(plan);
        recorded.folders = std::move(plan.folders);
        recorded.files = std::move(plan.files);
    } catch (const io::Error& error) {
        // All else about the package can be told.
        if (error.Code() != io::ExitCode::kProblems) {
            throw;
        }
        recorded.whyNothing = error.Line(); // no panel gets to the end of it
    }
    return recorded;
}

picojson::value SummaryAsJson(const archive::Package& package, const format::Summary& summary,
                              const Recorded& recorded, const std::optional<SignerReport>& signers)
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
        {"signature", SignersAsJson(signers)},
        {"steps", ArrayOf(summary.steps, StepAsJson)},
        {"fastFolders", FastFoldersAsJson(summary.fastFolders)},
        {"recorded", picojson::value(picojson::object{
                         {"folders", ArrayOf(recorded.folders, JsonText)},
                         {"files", ArrayOf(recorded.files, JsonText)},
                         {"why", recorded.whyNothing.empty() ? picojson::value()
                                                             : JsonText(recorded.whyNothing)},
                     })},
    });
}

// ---- text ----

void TellUpdater(const Output& output, const OpenedPackage& opened,
                 const std::optional<format::SummaryUpdater>& updater)
{
    output.out << "  updater:   ";
    if (IsUpdaterElsewhere(opened)) {
        output.out << "none for " << opened.source->manifest.processor->name
                   << " on this machine\n";
        return;
    }
    if (!updater.has_value()) {
        output.out << Coloured(output, Colour::kRed, "missing") << '\n';
        return;
    }
    output.out << (updater->program.has_value() ? "for " + updater->program->ProcessorName()
                                                : "no program")
               << ", " << io::SizeText(updater->size);
    if (!updater->isExecutable) {
        output.out << ", " << Coloured(output, Colour::kYellow, "not executable");
    }
    output.out << '\n';
}

void TellIdentity(const Output& output, const OpenedPackage& opened, const format::Summary& summary)
{
    output.out << Coloured(output, Colour::kBold, io::Printable(opened.package->Path())) << '\n'
               << "  title:     " << io::Printable(summary.title) << '\n'
               << "  version:   " << io::Printable(summary.version) << '\n'
               << "  comment:   " << io::Printable(summary.comment) << '\n'
               << "  for:       " << io::Printable(summary.model) << ", system "
               << io::Printable(summary.osVersion) << '\n'
               << "  date:      " << io::Printable(summary.date) << '\n'
               << "  record:    " << io::Printable(summary.recordName) << '\n';
    TellUpdater(output, opened, summary.updater);
    output.out << "  payload:   " << io::CountText(summary.files, "file") << ", "
               << io::SizeText(summary.size) << '\n';
}

void TellItem(const Output& output, const format::SummaryStep& step,
              const format::SummaryItem& item)
{
    output.out << "  " << io::Printable(item.source) << " -> " << io::Printable(item.target);
    if (step.kind == format::kCopyFilesKind.name) {
        output.out << ", mode " << (item.mode.empty() ? "777" : io::Printable(item.mode));
    } else {
        output.out << ", " << io::CountText(item.files, "file");
    }
    if (item.isMissing) {
        output.out << ", " << Coloured(output, Colour::kRed, "no payload") << '\n';
        return;
    }
    output.out << ", " << io::SizeText(item.size) << '\n';
}

void TellScript(const Output& output, const char* label, const std::string& text)
{
    output.out << "  " << label << ":\n";
    std::string_view rest = text;
    while (!rest.empty()) {
        const std::size_t end = std::min(rest.find('\n'), rest.size());
        output.out << "    | " << io::Printable(std::string(rest.substr(0, end))) << '\n';
        rest.remove_prefix(std::min(end + 1, rest.size()));
    }
}

void TellSetting(const Output& output, const format::SummarySetting& setting)
{
    output.out << "  " << io::Printable(setting.kind.empty() ? setting.id : setting.kind)
               << (setting.kind.empty() ? " (unknown kind)" : "")
               << (setting.isUsed ? "" : " (not used)") << ":";
    for (const auto& [name, value] : setting.items) {
        output.out << ' ' << io::Printable(name) << '=' << io::Printable(value);
    }
    output.out << '\n';
}

/// Tells of the two steps that bring a fast folder as of one.
void TellFastSteps(const Output& output, const format::Summary& summary,
                   const format::FastSteps& steps)
{
    const format::SummaryStep& script = summary.steps[steps.copy + 1];
    const format::FastFolder& folder = steps.folder;
    const std::string heading = "steps " + std::to_string(steps.copy + 1) + " and " +
                                std::to_string(steps.copy + 2) + " of " +
                                std::to_string(summary.steps.size()) + ": " +
                                format::kCopyFolderKind.name + ", fast";
    output.out << '\n'
               << Coloured(output, Colour::kBold, heading) << (script.canSkip ? ", may fail" : "");
    if (!script.comment.empty()) {
        output.out << " (" << io::Printable(script.comment) << ")";
    }
    output.out << "\n  " << io::Printable(steps.origin) << " -> " << io::Printable(folder.target)
               << ", " << io::CountText(folder.fileCount, "file") << ", by way of "
               << io::Printable(folder.archive) << ", "
               << (summary.steps[steps.copy].items[0].isMissing
                       ? Coloured(output, Colour::kRed, "no payload")
                       : io::SizeText(folder.size))
               << '\n';
}

void TellStep(const Output& output, const format::Summary& summary, std::size_t index)
{
    const format::SummaryStep& step = summary.steps[index];
    const std::string heading =
        "step " + std::to_string(index + 1) + " of " + std::to_string(summary.steps.size()) + ": " +
        (step.kind.empty() ? "unknown kind " + io::Printable(step.id) : step.kind);
    output.out << '\n'
               << Coloured(output, Colour::kBold, heading) << (step.isRecorded ? ", recorded" : "")
               << (step.canSkip ? ", may fail" : "");
    if (!step.comment.empty()) {
        output.out << " (" << io::Printable(step.comment) << ")";
    }
    output.out << '\n';
    for (const format::SummaryItem& item : step.items) {
        TellItem(output, step, item);
    }
    if (step.kind == format::kScriptKind.name) {
        TellScript(output, "install", step.install);
        TellScript(output, "uninstall", step.uninstall);
    }
    for (const format::SummarySetting& setting : step.settings) {
        TellSetting(output, setting);
    }
}

void TellList(const Output& output, const char* heading, const std::vector<std::string>& paths)
{
    output.out << "  " << heading << ":\n";
    for (const std::string& path : paths) {
        output.out << "    " << io::Printable(path) << '\n';
    }
}

io::ExitCode Show(const std::string& path, const std::string& keys, format::Secrets secrets,
                  const Output& output)
{
    const OpenedPackage opened = OpenAsPackage(path);
    const format::Summary summary = format::Summarize(*opened.package, secrets);
    const Recorded recorded = RecordedOf(opened);
    const std::optional<SignerReport> signers = SignersOf(*opened.package, keys);
    if (output.isJson) {
        WriteJson(output, SummaryAsJson(*opened.package, summary, recorded, signers));
        return io::ExitCode::kFine;
    }
    TellIdentity(output, opened, summary);
    TellSigners(output, signers);
    auto fast = summary.fastFolders.begin();
    for (std::size_t i = 0; i < summary.steps.size(); ++i) {
        if (fast != summary.fastFolders.end() && fast->copy == i) {
            TellFastSteps(output, summary, *fast++);
            ++i; // their script
        } else {
            TellStep(output, summary, i);
        }
    }
    output.out << '\n' << Coloured(output, Colour::kBold, "recorded on the panel") << '\n';
    if (!recorded.whyNothing.empty()) {
        output.out << "  nothing. " << io::Printable(recorded.whyNothing) << '\n';
        return io::ExitCode::kFine;
    }
    TellList(output, "folders, where they have to be made", recorded.folders);
    TellList(output, "files", recorded.files);
    if (!summary.fastFolders.empty()) {
        output.out << '\n' << Coloured(output, Colour::kBold, "unpacked on the panel") << '\n';
        TellFastFolders(output, summary.fastFolders);
    }
    return io::ExitCode::kFine;
}

} // namespace

void AddShow(CLI::App& program, Invocation& invocation)
{
    CLI::App* const command = program.add_subcommand("show", "Show what is in a package");
    const auto path = std::make_shared<std::string>();
    const auto keys = std::make_shared<std::string>();
    const auto areSecretsShown = std::make_shared<bool>(false);
    AddPackage(*command, "package", *path);
    command->add_option("--keys", *keys, "The folder of public keys by which signers are known")
        ->type_name(kFolderValue);
    command->add_flag("--show-secrets", *areSecretsShown, "Show passwords, too");
    command->add_flag("--json", invocation.isJson, "Write it as JSON");
    command->footer("Passwords are masked.\n\n"
                    "Examples:\n"
                    "  kx-package show recipes.kx-update\n"
                    "  kx-package show recipes/package.toml\n"
                    "  kx-package show --json recipes.kx-update | jq -r '.steps[].kind'");
    command->callback([path, keys, areSecretsShown, &invocation] {
        invocation.run = [path, keys, areSecretsShown](const Output& output) {
            return Show(*path, *keys,
                        *areSecretsShown ? format::Secrets::kShow : format::Secrets::kMask, output);
        };
    });
}

} // namespace kx::tool
