// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "commands/Command.h"
#include "commands/FastText.h"
#include "commands/ManifestChecks.h"
#include "commands/Values.h"
#include "compose/PackageSource.h"
#include "format/Description.h"
#include "format/Secrets.h"
#include "io/Hex.h"
#include "io/Text.h"
#include "io/Utf8.h"
#include "rehearsal/Ending.h"
#include "rehearsal/Rehearsal.h"

#include <algorithm>
#include <memory>
#include <ostream>
#include <string>
#include <string_view>

#include <CLI/CLI.hpp>

namespace kx::tool
{

namespace
{

using Process = rehearsal::PlannedCommand::Process;

struct PlanOptions {
    std::string package;
    std::string panel;
    bool areSecretsShown = false;
    rehearsal::Circumstances where;
};

const char* NameOf(Process process)
{
    return process == Process::kWindow ? "window" : "installer";
}

picojson::value JsonOf(const rehearsal::PlannedCommand& command)
{
    picojson::object told;
    told["process"] = picojson::value(NameOf(command.process));
    told["step"] =
        command.step == 0 ? picojson::value() : picojson::value(static_cast<double>(command.step));
    told["command"] = JsonText(command.command);
    // JSON has no text for a command that is no UTF-8.
    told["commandHex"] =
        io::IsUtf8(command.command) ? picojson::value() : picojson::value(io::Hex(command.command));
    told["afterScript"] = picojson::value(command.isAfterScript);
    told["readDifferently"] = picojson::value(command.isReadDifferently);
    told["unknownResult"] = picojson::value(command.isUnknown);
    return picojson::value(told);
}

/// Returns the fast folders that a plan gets to unpack.
std::vector<format::FastSteps> FastFoldersOf(const archive::Package& package,
                                             const rehearsal::Plan& plan)
{
    if (plan.lastStep == 0) {
        return {};
    }
    const format::Description description = format::ReadDescription(package);
    std::vector<format::FastSteps> folders = description.root.has_value()
                                                 ? format::FastStepsOf(*description.root)
                                                 : std::vector<format::FastSteps>();
    const auto isBeyond = [&plan](const format::FastSteps& steps) {
        return steps.copy + 2 > static_cast<std::size_t>(plan.lastStep);
    };
    folders.erase(std::remove_if(folders.begin(), folders.end(), isBeyond), folders.end());
    return folders;
}

picojson::value JsonOf(const rehearsal::Plan& plan, const std::vector<format::FastSteps>& fast)
{
    picojson::array commands;
    for (const rehearsal::PlannedCommand& command : plan.commands) {
        commands.push_back(JsonOf(command));
    }
    picojson::object told;
    told["packageFile"] = JsonText(plan.packageFile);
    told["record"] = JsonText(plan.record);
    told["found"] = picojson::value(plan.outcome > rehearsal::Outcome::kNotAlone);
    told["unpacked"] = picojson::value(plan.IsUnpacked());
    told["aborted"] = picojson::value(plan.outcome == rehearsal::Outcome::kAborted);
    told["shown"] = picojson::value(plan.IsShown());
    told["started"] = picojson::value(plan.IsStarted());
    told["failedStep"] = plan.failedStep == 0
                             ? picojson::value()
                             : picojson::value(static_cast<double>(plan.failedStep));
    told["installed"] = picojson::value(plan.IsInstalled());
    told["commands"] = picojson::value(commands);
    told["log"] = JsonTexts(plan.log);
    told["recordedFolders"] = JsonTexts(plan.folders);
    told["recordedFiles"] = JsonTexts(plan.files);
    told["fastFolders"] = FastFoldersAsJson(fast);
    return picojson::value(told);
}

std::string RemarksOn(const rehearsal::PlannedCommand& command)
{
    std::string remarks;
    if (command.isAfterScript) {
        remarks += "  [depends on an earlier script]";
    }
    if (command.isReadDifferently) {
        remarks += "  [the shell reads this differently]";
    }
    if (command.isUnknown) {
        remarks += "  [result not known]";
    }
    return remarks;
}

void WriteText(const Output& output, const rehearsal::Plan& plan,
               const std::vector<format::FastSteps>& fast)
{
    const rehearsal::PlannedCommand* before = nullptr;
    for (const rehearsal::PlannedCommand& command : plan.commands) {
        if (before == nullptr || before->process != command.process ||
            before->step != command.step) {
            std::string title = NameOf(command.process);
            if (command.step != 0) {
                title += ", step " + std::to_string(command.step);
            }
            output.out << Coloured(output, Colour::kBold, title) << '\n';
        }
        output.out << "  " << io::Printable(command.command)
                   << Coloured(output, Colour::kYellow, RemarksOn(command)) << '\n';
        before = &command;
    }
    output.out << '\n' << io::Printable(rehearsal::EndOf(plan)) << '\n';
    if (plan.IsInstalled()) {
        output.out << "Recorded in " << io::Printable(plan.record) << ":\n";
        for (const auto* const list : {&plan.folders, &plan.files}) {
            for (const std::string& path : *list) {
                output.out << "  " << io::Printable(path)
                           << (list == &plan.folders ? "  (folder)" : "") << '\n';
            }
        }
    }
    TellFastFolders(output, fast);
}

/// Returns where the package is planned: what the panel's description says counts less.
rehearsal::Circumstances CircumstancesOf(const PlanOptions& options, const OpenedPackage& opened)
{
    rehearsal::Circumstances where = options.where;
    const format::PanelModel panel = opened.source == nullptr
                                         ? PanelOf(options.panel, "")
                                         : PanelFor(opened.source->manifest, options.panel);
    where.root = where.root.empty() ? panel.root : where.root;
    // What is built elsewhere gets its updater there.
    where.hasOtherUpdater = IsUpdaterElsewhere(opened);
    return where;
}

io::ExitCode RunPlan(const PlanOptions& options, const Output& output)
{
    const OpenedPackage opened = OpenAsPackage(options.package);
    rehearsal::Plan plan = rehearsal::Rehearse(*opened.package, CircumstancesOf(options, opened));
    for (rehearsal::PlannedCommand& command : plan.commands) {
        if (!options.areSecretsShown) {
            command.command = format::MaskedCommand(command.command);
        }
    }
    const std::vector<format::FastSteps> fast = FastFoldersOf(*opened.package, plan);
    if (output.isJson) {
        WriteJson(output, JsonOf(plan, fast));
    } else {
        WriteText(output, plan, fast);
    }
    return plan.IsInstalled() ? io::ExitCode::kFine : io::ExitCode::kProblems;
}

} // namespace

void AddPlan(CLI::App& program, Invocation& invocation)
{
    CLI::App* const command = program.add_subcommand(
        "plan", "Show the shell commands that a panel would run, without running anything");
    const auto options = std::make_shared<PlanOptions>();
    AddPackage(*command, "package", options->package);
    command
        ->add_option("--at", options->where.drive, "The panel's folder in which the package lies")
        ->type_name("PATH")
        ->capture_default_str()
        ->check([](const std::string& path) {
            return !path.empty() && path[0] == '/' ? std::string() : "must be an absolute path";
        });
    command
        ->add_option("--root", options->where.root,
                     "A folder with the files of a panel; without it, a fresh panel")
        ->type_name(kFolderValue)
        ->check(RefuseNoFolder);
    command
        ->add_option("--panel", options->panel,
                     "The description of the panel (see new-panel), instead of the manifest's: the "
                     "copy of its files that it names counts, unless --root names one")
        ->type_name(kFileValue);
    command->add_flag("--show-secrets", options->areSecretsShown, "Show passwords, too");
    command->add_flag("--json", invocation.isJson, "Write it as JSON");
    command->footer("Nothing is run and nothing is changed. Scripts, passwords and settings are "
                    "taken to succeed;\nwhat depends on what a script did before is marked. "
                    "Passwords are masked.\n\n"
                    "Examples:\n"
                    "  kx-package plan Hello.kx-update\n"
                    "  kx-package plan hello/package.toml\n"
                    "  kx-package plan --root panel/root Hello.kx-update\n"
                    "  kx-package plan --json hello.kx-update | jq -r '.commands[].command'");
    command->callback([&invocation, options] {
        invocation.run = [options](const Output& output) { return RunPlan(*options, output); };
    });
}

} // namespace kx::tool
