// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "checks/Checker.h"
#include "commands/Command.h"
#include "commands/EmptyPackage.h"
#include "commands/ManifestChecks.h"
#include "commands/TrialJson.h"
#include "commands/TrialText.h"
#include "commands/Values.h"
#include "common/Progress.h"
#include "compose/LayoutPackage.h"
#include "compose/PackageSource.h"
#include "compose/UpdaterSearch.h"
#include "format/Summary.h"
#include "io/StandardInput.h"
#include "rehearsal/Rehearsal.h"
#include "trial/Equipment.h"
#include "trial/KeptPanel.h"
#include "trial/ShellTerminal.h"

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

#include <unistd.h>

#include <CLI/CLI.hpp>

namespace kx::tool
{

namespace
{

constexpr unsigned kUsualBootSeconds = 10;
constexpr unsigned kMostBootSeconds = 86400;

struct TryOptions {
    std::string package;
    std::string panel;
    std::string device;
    std::string updater;
    std::size_t failedStep = 0;
    bool hasFailedStep = false;
    bool isTwice = false;
    bool hasShell = false;
    bool isVerbose = false;
    bool isRestarted = false;
    unsigned bootSeconds = kUsualBootSeconds;
    std::optional<std::string> keep;
    TrialBounds bounds;
    std::vector<std::string> environment;
};

void RefuseWrongUse(const TryOptions& options)
{
    if (options.hasShell && !ShellTerminal::IsThere()) {
        throw io::Error(io::ExitCode::kWrongUse, "--shell",
                        "needs a terminal, and standard input is none",
                        "start it from a terminal, or leave --shell out");
    }
    if (options.package != io::kStandardInput) {
        return;
    }
    if (!options.panel.empty()) {
        throw io::Error(io::ExitCode::kWrongUse, "--panel", "needs the package in a file or folder",
                        "name one instead of -");
    }
    if (options.hasFailedStep) {
        throw io::Error(io::ExitCode::kWrongUse, "--fail", "needs the package in a file or folder",
                        "name one instead of -");
    }
    if (isatty(STDIN_FILENO) != 0) {
        throw io::Error(io::ExitCode::kWrongUse, "-", "standard input is a terminal",
                        "name a package, or pipe one in");
    }
}

/// Returns a package by whose name the panel goes its road.
EmptyPackage NamesakeOf(const TrialRequest& request, const PackageSource* source)
{
    if (source != nullptr) {
        return {PackageFileName(source->manifest), true};
    }
    if (request.package == io::kStandardInput) {
        return {io::kStandardInputName, true};
    }
    std::error_code error;
    return {request.package, !std::filesystem::is_directory(request.package, error)};
}

/// Plans what the panel does with the package; with a step that is to fail, the steps, too.
/// @param source  of the package, or null
void PlanTrial(const TryOptions& options, const PackageSource* source, TrialRequest& request)
{
    // Whatever updater the package has, the trial starts one.
    rehearsal::Circumstances where;
    where.hasOtherUpdater = true;
    if (!options.hasFailedStep) {
        request.road = RoadOf(rehearsal::Rehearse(NamesakeOf(request, source), where));
        return;
    }
    const std::unique_ptr<archive::Package> package =
        source == nullptr ? archive::OpenPackage(request.package) : PackageOf(*source);
    const std::size_t count = format::Summarize(*package).steps.size();
    const rehearsal::Plan plan = rehearsal::Rehearse(*package, where);
    request.failure = FailureOfStep(plan, count, options.failedStep);
    request.road = RoadOf(plan);
}

/// Checks what is tried by the description of a panel.
checks::Findings FindingsFor(const std::string& panel, const std::string& package,
                             const PackageSource* source)
{
    checks::Expected expected;
    if (source == nullptr) {
        expected.panel = format::ReadPanelFile(panel);
        return checks::CheckPackage(package, expected);
    }
    expected.panel = PanelFor(source->manifest, panel);
    expected.hasUpdater = !source->updater.empty();
    checks::Findings findings;
    CheckManifest(
        source->manifest, source->layout,
        LayoutPackage(PackageFileName(source->manifest), true, source->layout, source->updater),
        expected, findings);
    return findings;
}

std::string PlaceOf(const checks::Location& location)
{
    if (!location.path.empty()) {
        return location.path;
    }
    return location.at.line == 0 ? location.file
                                 : location.file + ":" + std::to_string(location.at.line) + ":" +
                                       std::to_string(location.at.column);
}

/// Returns what a panel of that description would stumble over: the sandboxed one is another.
std::vector<std::string> RemarksOnPanel(const TryOptions& options, const PackageSource* source)
{
    const std::string panel =
        options.panel.empty() && source != nullptr ? source->manifest.panel : options.panel;
    if (panel.empty()) {
        return {};
    }
    const checks::Findings findings = FindingsFor(panel, options.package, source);
    std::vector<std::string> remarks;
    for (const checks::Finding& finding : findings.All()) {
        if (finding.severity == checks::Severity::kError) {
            std::string remark = "on the panel of " + panel + ": ";
            remark += PlaceOf(finding.location) + " " + finding.what;
            remarks.push_back(remark + " (" + checks::RuleOf(finding.rule).id + ")");
        }
    }
    return remarks;
}

/// Returns the name of the processor that the panel is said to have; empty when that is not said.
std::string ProcessorOf(const TryOptions& options, const PackageSource* source)
{
    format::PanelModel panel;
    if (source != nullptr) {
        panel = PanelFor(source->manifest, options.panel);
    } else if (!options.panel.empty()) {
        panel = format::ReadPanelFile(options.panel);
    }
    if (panel.processor == nullptr && source != nullptr) {
        panel.processor = source->manifest.processor;
    }
    return panel.processor != nullptr ? panel.processor->name : "";
}

void ShowProgress(const TrialProgress& now, Progress& progress)
{
    if (now.isEnding) {
        progress.Show(1, "interrupted, removing the panel");
    } else if (!now.isInstalling) {
        progress.Show(0, "unpacking");
    } else if (now.steps == 0) {
        progress.Show(0, "installing");
    } else {
        progress.Show(static_cast<double>(now.step - 1) / now.steps,
                      "installing, step " + std::to_string(now.step) + " of " +
                          std::to_string(now.steps));
    }
}

io::ExitCode ExitCodeOf(Verdict verdict)
{
    switch (verdict) {
    case Verdict::kInstalled:
        return io::ExitCode::kFine;
    case Verdict::kNotInstalled:
        return io::ExitCode::kProblems;
    case Verdict::kNotJudged:
        break;
    }
    return io::ExitCode::kUnknown;
}

/// Tries the package; a person sees how far it has come.
TrialResult RunWatched(TrialRequest& request, const Output& output)
{
    Progress progress(output, "unpacking");
    // A shell has the terminal to itself.
    if (!request.shellGreeting) {
        request.onProgress = [&progress](const TrialProgress& now) { ShowProgress(now, progress); };
    }
    return RunTrial(request);
}

/// Tells the trial what its package is, or how to make it.
/// @param source  of the package, or null; lives as long as the request
void NamePackage(const TryOptions& options, const PackageSource* source, const Output& output,
                 TrialRequest& request)
{
    if (source == nullptr) {
        request.package =
            options.package == io::kStandardInput ? options.package : NamedPath(options.package);
        return;
    }
    request.build = [source, &output](const std::string& file) {
        Progress progress(output, "packing");
        WritePackage(file, source->manifest, source->layout, source->updater,
                     [&progress](double fraction) { progress.Show(fraction); });
    };
    if (source->updater.empty()) {
        request.whyNoUpdater = std::string("it was built without an updater: this machine has "
                                           "none for ") +
                               source->manifest.processor->name;
    }
}

/// Returns what no panel is to be kept in.
std::vector<std::string> PathsToSpare(const TrialRequest& request, const PackageSource* source)
{
    std::vector<std::string> paths = {request.device};
    if (source != nullptr) {
        paths.push_back(source->manifest.folder);
    } else if (request.package != io::kStandardInput) {
        paths.push_back(request.package);
    }
    return paths;
}

io::ExitCode Try(const TryOptions& options, const Output& output)
{
    RefuseWrongUse(options);
    std::unique_ptr<const PackageSource> source;
    if (options.package != io::kStandardInput && IsSource(options.package)) {
        source = std::make_unique<PackageSource>(ReadSource(options.package));
    }
    TrialRequest request;
    NamePackage(options, source.get(), output, request);
    TrialSubject subject;
    subject.package = options.package;
    subject.panelRemarks = RemarksOnPanel(options, source.get());
    PlanTrial(options, source.get(), request);
    if (request.failure.has_value()) {
        subject.failedStep = options.failedStep;
        subject.failedCommand = request.failure->command;
    }
    const std::string toolFolder = ThisMachine().toolFolder;
    request.device = FindDevice(options.device, toolFolder);
    request.updater = FindTrialUpdater(options.updater, toolFolder);
    request.bounds = options.bounds;
    request.environment = options.environment;
    request.isTwice = options.isTwice;
    request.processor = ProcessorOf(options, source.get());
    request.bootSeconds = options.isRestarted ? options.bootSeconds : 0;
    if (options.hasShell) {
        request.shellGreeting = ShellGreeting;
    }

    if (options.keep.has_value()) {
        request.keepAt = PlaceToKeep(*options.keep, PathsToSpare(request, source.get()));
        subject.keptAt = *options.keep;
        subject.device = request.device;
    }

    const TrialResult result = RunWatched(request, output);
    if (output.isJson) {
        WriteTrialJson(output, subject, result);
    } else {
        WriteTrialText(output, subject, result, options.isVerbose);
    }
    return ExitCodeOf(result.Outcome());
}

void AddBounds(CLI::App& command, TrialBounds& bounds)
{
    constexpr unsigned kMostSeconds = 1000000;
    constexpr unsigned kLeastMiB = 16;
    constexpr unsigned kMostMiB = 1U << 20;
    constexpr unsigned kLeastProcesses = 4;
    constexpr unsigned kMostProcesses = 30000;
    command.add_option("--seconds", bounds.seconds, "The longest time of each installation")
        ->check(CLI::Range(1U, kMostSeconds))
        ->capture_default_str();
    command.add_option("--memory", bounds.memory, "Memory of the panel's processes, in MiB")
        ->check(CLI::Range(kLeastMiB, kMostMiB))
        ->capture_default_str();
    command.add_option("--disk", bounds.disk, "Size of the panel's files, in MiB")
        ->check(CLI::Range(kLeastMiB, kMostMiB))
        ->capture_default_str();
    command.add_option("--processes", bounds.processes, "Number of the panel's processes")
        ->check(CLI::Range(kLeastProcesses, kMostProcesses))
        ->capture_default_str();
}

/// Adds what may follow the installation.
void AddAftermath(CLI::App& command, TryOptions& options)
{
    command.add_flag("--boot", options.isRestarted,
                     "Restart the panel after the installation, and show what its start-up script "
                     "does");
    command
        .add_option("--boot-seconds", options.bootSeconds,
                    "The time that --boot gives the script, which need not end")
        ->check(CLI::Range(1U, kMostBootSeconds))
        ->capture_default_str();
    command.add_flag("--shell", options.hasShell, "Open a shell on the panel after all of it");
    command
        .add_option("--keep", options.keep,
                    "Keep the panel in a new folder, for a shell and for installed and verify")
        ->type_name(kFolderValue);
}

} // namespace

void AddTry(CLI::App& program, Invocation& invocation)
{
    CLI::App* const command = program.add_subcommand(
        "try", "Install a package on a sandboxed panel and show what that changes");
    const auto options = std::make_shared<TryOptions>();
    AddPackage(*command, "package", options->package);
    command->add_flag("--twice", options->isTwice,
                      "Install it again on the same panel, and show what that changes");
    CLI::Option* const fail = command->add_option(
        "--fail", options->failedStep,
        "Let this step fail, counted from 1, at its first command; with --twice the first time");
    AddAftermath(*command, *options);
    command
        ->add_option("--updater", options->updater,
                     "The updater that installs, instead of this machine's own")
        ->type_name(kFileValue);
    command
        ->add_option("--device", options->device,
                     "The folder of the sandboxed device, instead of the installed one")
        ->type_name(kFolderValue);
    command
        ->add_option("--env", options->environment,
                     "NAME=VALUE for the panel's environment, LANG=ja_JP.UTF-8 for example")
        ->allow_extra_args(false);
    AddPanelOption(*command, options->panel);
    AddBounds(*command, options->bounds);
    command->add_flag("-v,--verbose", options->isVerbose,
                      "List every file, and all that the updater printed");
    command->add_flag("--json", invocation.isJson, "Write it as JSON");
    command->footer(
        "Nothing is changed on this machine, and nothing is started outside the sandboxed "
        "panel.\n\n"
        "Exit status: 0 installed, 1 not installed, 2 wrong use, 3 no sandboxed panel, "
        "no updater,\nor something could not be read or written, 4 not judged: the package starts "
        "programs\nthat cannot run here, or that run here and not on its panel.\n\n"
        "Examples:\n"
        "  kx-package try recipes.kx-update\n"
        "  kx-package try recipes/package.toml\n"
        "  kx-package try --twice recipes.kx-update\n"
        "  kx-package try --fail 2 recipes.kx-update\n"
        "  kx-package try --boot recipes.kx-update\n"
        "  kx-package try --shell unpacked/recipes\n"
        "  kx-package try --keep panel recipes.kx-update\n"
        "  kx-package build -o - recipes | kx-package try -\n"
        "  kx-package try --json recipes.kx-update | jq -r "
        "'.installations[].files[].path'");
    command->callback([options, fail, &invocation] {
        options->hasFailedStep = fail->count() > 0;
        invocation.run = [options](const Output& output) { return Try(*options, output); };
    });
}

} // namespace kx::tool
