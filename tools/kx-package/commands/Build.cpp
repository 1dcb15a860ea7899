// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "commands/Command.h"
#include "commands/FindingsText.h"
#include "commands/LocalShells.h"
#include "commands/ManifestChecks.h"
#include "commands/Values.h"
#include "common/Progress.h"
#include "compose/LayoutPackage.h"
#include "compose/PackageSource.h"
#include "compose/UpdaterSearch.h"
#include "io/AtomicFile.h"
#include "io/Text.h"
#include "manifest/Manifest.h"

#include <algorithm>
#include <filesystem>
#include <memory>
#include <ostream>
#include <system_error>

#include <unistd.h>

#include <CLI/CLI.hpp>

namespace kx::tool
{

namespace
{

namespace fs = std::filesystem;

struct BuildOptions {
    std::string manifest = ".";
    std::string output;
    std::string updater;
    PanelOptions panel;
    bool isStrict = false;
};

/// What was built, for the report.
struct Built {
    std::string path;
    std::string updater;
    std::size_t files = 0; ///< of the payload
    archive::WrittenArchive archive;
    std::vector<std::string> remarks;
    checks::Findings findings;
};

bool IsStandardOutput(const std::string& path)
{
    return path == io::AtomicFile::kStandardOutput;
}

/// Returns the path of the package: the one that was asked for, or one named after the manifest.
std::string OutputPath(const BuildOptions& options, const Manifest& manifest)
{
    const std::string name = PackageFileName(manifest);
    if (options.output.empty() || IsStandardOutput(options.output)) {
        return options.output.empty() ? name : options.output;
    }
    std::error_code error;
    if (options.output.back() == '/' || fs::is_directory(options.output, error)) {
        return (fs::path(options.output) / name).string();
    }
    const fs::path path(options.output);
    if (path.extension() != archive::kPackageExtension) {
        throw io::Error(io::ExitCode::kWrongUse, options.output,
                        std::string("the name does not end in ") + archive::kPackageExtension,
                        "the panel would not find the package");
    }
    RefuseBadPackageName(path.stem().string(), io::ExitCode::kWrongUse, options.output,
                         "choose another one");
    return options.output;
}

void RefuseTerminal(const BuildOptions& options, const Output& output)
{
    if (!IsStandardOutput(options.output)) {
        return;
    }
    if (output.isJson) {
        throw io::Error(io::ExitCode::kWrongUse, "",
                        "--json and the package cannot share standard output",
                        "write the package to a file");
    }
    if (isatty(STDOUT_FILENO) != 0) {
        throw io::Error(io::ExitCode::kWrongUse, "", "a package cannot be written to a terminal",
                        "redirect standard output");
    }
}

/// What a package is made of.
struct BuildPlan {
    Manifest manifest;
    format::PanelModel panel;
    Layout layout;
};

/// Reads the manifest and finds the files that it names.
/// @param path  gets the package's
/// @throws Errors for all that is wrong
BuildPlan MakePlan(const BuildOptions& options, std::string& path)
{
    Mistakes mistakes;
    BuildPlan plan;
    plan.manifest = ReadManifest(options.manifest, mistakes);
    plan.panel = PanelFor(plan.manifest, options.panel, mistakes);
    if (const format::Processor* const processor = ReadProcessor(options.panel.processor)) {
        plan.manifest.processor = processor;
    }
    path = plan.manifest.name.empty() ? std::string() : OutputPath(options, plan.manifest);
    plan.layout = MakeLayout(plan.manifest, path, mistakes);
    mistakes.ThrowAny();
    return plan;
}

/// Checks what was built.
checks::Findings CheckBuilt(const BuildPlan& plan, const std::string& path,
                            const std::string& updater)
{
    LocalShells shells;
    checks::Expected expected;
    expected.panel = plan.panel;
    expected.name = plan.manifest.name;
    expected.shells = &shells;
    const std::string file = IsStandardOutput(path) ? PackageFileName(plan.manifest) : path;
    checks::Findings findings;
    CheckManifest(plan.manifest, plan.layout, LayoutPackage(file, true, plan.layout, updater),
                  expected, findings);
    findings.Sort();
    return findings;
}

Built BuildPackage(const BuildOptions& options, const Output& output)
{
    Built built;
    const BuildPlan plan = MakePlan(options, built.path);
    const std::vector<archive::ArchiveItem>& payload = plan.layout.payload;
    built.files = static_cast<std::size_t>(
        std::count_if(payload.begin(), payload.end(),
                      [](const archive::ArchiveItem& item) { return !item.isFolder; }));
    built.updater = UpdaterFor(plan.manifest, options.updater);
    for (const Remark& remark : plan.layout.remarks) {
        built.remarks.push_back(remark.where + ": " + remark.what);
    }

    Progress progress(output, "packing");
    built.archive = WritePackage(built.path, plan.manifest, plan.layout, built.updater,
                                 [&progress](double fraction) { progress.Show(fraction); });
    built.findings = CheckBuilt(plan, built.path, built.updater);
    return built;
}

void TellAsJson(const Built& built, const Checked& checked, const Output& output)
{
    picojson::object told;
    told["file"] = JsonText(built.path);
    told["size"] = JsonNumber(built.archive.size);
    told["unpackedSize"] = JsonNumber(built.archive.unpacked);
    told["payloadFiles"] = JsonNumber(built.files);
    told["updater"] = JsonText(built.updater);
    told["remarks"] = JsonTexts(built.remarks);
    AddFindings(told, checked);
    WriteJson(output, picojson::value(told));
}

io::ExitCode Build(const BuildOptions& options, const Output& output)
{
    RefuseTerminal(options, output);
    const Built built = BuildPackage(options, output);
    const Checked checked(built.path, built.findings, options.isStrict);
    const io::ExitCode code = checked.isClean ? io::ExitCode::kFine : io::ExitCode::kProblems;
    if (output.isJson) {
        TellAsJson(built, checked, output);
        return code;
    }
    if (!IsStandardOutput(built.path)) {
        output.out << io::Printable(built.path) << ": " << io::SizeText(built.archive.size) << ", "
                   << io::CountText(built.files, "payload file") << '\n';
        output.out.flush();
    }
    WriteProblems(output.err, output, checked);
    return code;
}

} // namespace

void AddBuild(CLI::App& program, Invocation& invocation)
{
    CLI::App* const command = program.add_subcommand("build", "Make a package from its manifest");
    const auto options = std::make_shared<BuildOptions>();
    command
        ->add_option("manifest", options->manifest,
                     "The manifest, or the folder with its package.toml; this folder when "
                     "nothing is named")
        ->type_name(kManifestValue);
    command
        ->add_option("-o,--output", options->output,
                     "The package, the folder for it, or - for standard output; NAME.kx-update "
                     "in this folder when nothing is named")
        ->type_name(kFileValue);
    command
        ->add_option("--updater", options->updater,
                     "The updater to put into the package, instead of the installed one of the "
                     "manifest's processor")
        ->type_name(kFileValue);
    command
        ->add_option("--processor", options->panel.processor,
                     "The panel's processor, instead of the manifest's")
        ->type_name(ChoiceOf(format::ProcessorNames()));
    AddPanelOption(*command, options->panel.file);
    command->add_flag("--strict", options->isStrict,
                      "Warnings of the check at the end are problems, too");
    command->add_flag("--json", invocation.isJson, "Write the result as JSON");
    command->footer(
        "At the end the package is checked, as \"kx-package check\" does it: errors and "
        "warnings are told.\n"
        "Exit status: 0 made, 1 problems found (in the manifest: not made; by the "
        "check: made),\n2 wrong use, 3 could not read or write.\n\n"
        "Examples:\n"
        "  kx-package build\n"
        "  kx-package build recipes -o /media/usb/\n"
        "  kx-package build recipes --updater build/arm/kx_Updater\n"
        "  SOURCE_DATE_EPOCH=$(git log -1 --format=%ct) kx-package build");
    command->callback([options, &invocation] {
        invocation.run = [options](const Output& output) { return Build(*options, output); };
    });
}

} // namespace kx::tool
