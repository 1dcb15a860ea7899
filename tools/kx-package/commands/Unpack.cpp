// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "commands/Command.h"
#include "commands/Values.h"
#include "common/Progress.h"
#include "compose/DescriptionWriter.h"
#include "compose/LayoutPackage.h"
#include "compose/PackageSource.h"
#include "io/AtomicFolder.h"
#include "io/Error.h"
#include "io/Interruption.h"
#include "io/Text.h"
#include "manifest/Manifest.h"
#include "rehearsal/Rehearsal.h"
#include "unpack/Unpacking.h"

#include <algorithm>
#include <memory>
#include <ostream>
#include <string>

#include <CLI/CLI.hpp>

namespace kx::tool
{

namespace
{

/// What `unpack` is told.
struct UnpackArguments {
    std::string package;
    std::string folder;
    std::uint64_t diskMiB = 2048;
};

io::Error NotTheSame(const archive::Package& package, const std::string& what)
{
    return {io::ExitCode::kProblems, package.Path(),
            "a manifest cannot tell all that is in it: " + what,
            "unzip shows its files, kx-package show what it does"};
}

/// Refuses sources of which build would make another package.
/// @param folder  the unpacked ones
void CompareWithSources(const archive::Package& package, const UnpackedSources& sources,
                        const std::string& folder)
{
    const Manifest manifest = ReadManifest(folder);
    const Layout layout = MakeLayout(manifest, "");
    if (WriteDescription(layout.model->root) != sources.description) {
        throw NotTheSame(package, "its description would be another one");
    }
    const LayoutPackage built(package.Path(), package.IsArchive(), layout, manifest.updater);
    const rehearsal::Plan before = rehearsal::Rehearse(package);
    const rehearsal::Plan after = rehearsal::Rehearse(built);
    const auto isSame = [](const rehearsal::PlannedCommand& one,
                           const rehearsal::PlannedCommand& other) {
        return one.process == other.process && one.step == other.step &&
               one.command == other.command;
    };
    const bool isSamePlan = std::equal(before.commands.begin(), before.commands.end(),
                                       after.commands.begin(), after.commands.end(), isSame) &&
                            before.outcome == after.outcome && before.folders == after.folders &&
                            before.files == after.files;
    if (!isSamePlan) {
        throw NotTheSame(package, "a panel would run other commands");
    }
}

/// Unpacks a package into a folder that nobody sees until it is whole.
UnpackedSources UnpackInto(const archive::Package& package, const UnpackArguments& arguments,
                           const Output& output)
{
    if (package.UnpackStatus() != 0) {
        throw io::Error(io::ExitCode::kProblems, package.Path(), "no panel can unpack it",
                        "kx-package check tells why");
    }
    std::uint64_t total = 1;
    for (const archive::PackageEntry& entry : package.Entries()) {
        total += entry.size;
    }
    const io::Interruption interruption;
    io::AtomicFolder folder(arguments.folder);
    Progress progress(output, "unpacking");
    UnpackOptions options;
    options.mostBytes = arguments.diskMiB << 20U;
    options.tell = [&progress, total](std::uint64_t done) {
        progress.Show(static_cast<double>(done) / static_cast<double>(total));
    };
    UnpackedSources sources = UnpackSources(package, folder.Path(), options);
    CompareWithSources(package, sources, folder.Path());
    folder.Commit();
    return sources;
}

void TellUnpackedAsJson(const Output& output, const UnpackArguments& arguments,
                        const UnpackedSources& sources)
{
    picojson::array steps;
    for (const std::size_t step : sources.verbatim) {
        steps.push_back(JsonNumber(step));
    }
    WriteJson(output, picojson::value(picojson::object{
                          {"folder", JsonText(arguments.folder)},
                          {"manifest", JsonText(kManifestName)},
                          {"payloadFiles", JsonNumber(sources.files)},
                          {"size", JsonNumber(sources.bytes)},
                          {"verbatimSteps", picojson::value(steps)},
                          {"remarks", JsonTexts(sources.remarks)},
                      }));
}

io::ExitCode RunUnpack(const UnpackArguments& arguments, const Output& output)
{
    if (IsSource(arguments.package)) {
        throw io::Error(io::ExitCode::kWrongUse, arguments.package, "is the source of a package",
                        "there is nothing to unpack");
    }
    const std::unique_ptr<archive::Package> package = archive::OpenPackage(arguments.package);
    const UnpackedSources sources = UnpackInto(*package, arguments, output);
    if (output.isJson) {
        TellUnpackedAsJson(output, arguments, sources);
        return io::ExitCode::kFine;
    }
    for (const std::string& remark : sources.remarks) {
        output.err << "kx-package: " << io::Printable(remark) << '\n';
    }
    for (const std::size_t step : sources.verbatim) {
        output.err << "kx-package: step " << step
                   << " is taken as it is: a manifest has no words for all that it says\n";
    }
    const std::string folder = io::Printable(arguments.folder);
    output.out << "Unpacked to " << folder << ": " << kManifestName << ", "
               << io::CountText(sources.files, "payload file")
               << ". To make the package again:\n  kx-package build " << folder << '\n';
    return io::ExitCode::kFine;
}

} // namespace

void AddUnpack(CLI::App& program, Invocation& invocation)
{
    CLI::App* const command =
        program.add_subcommand("unpack", "Make a manifest and its payload of a package");
    const auto arguments = std::make_shared<UnpackArguments>();
    command
        ->add_option("package", arguments->package,
                     "A package file, the folder of an unpacked one, or - for standard input")
        ->type_name(kPackageValue)
        ->required();
    command
        ->add_option("-o,--output", arguments->folder, "The folder to make; an empty one is taken")
        ->type_name(kFolderValue)
        ->required();
    constexpr std::uint64_t kMostMiB = std::uint64_t{1} << 30;
    command->add_option("--disk", arguments->diskMiB, "The most that may be written, in MiB")
        ->capture_default_str()
        ->check(CLI::Range(std::uint64_t{1}, kMostMiB));
    command->add_flag("--json", invocation.isJson, "Write the result as JSON");
    command->footer("What build makes of the folder does the same on a panel; of a package that "
                    "build made, it is\nthe same bytes. Where that cannot be, nothing is "
                    "unpacked.\n\n"
                    "Examples:\n"
                    "  kx-package unpack recipes.kx-update -o recipes\n"
                    "  kx-package unpack --json old.kx-update -o old | jq '.verbatimSteps'");
    command->callback([&invocation, arguments] {
        invocation.run = [arguments](const Output& output) {
            return RunUnpack(*arguments, output);
        };
    });
}

} // namespace kx::tool
