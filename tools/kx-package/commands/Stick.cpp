// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "archive/ByteSource.h"
#include "archive/Package.h"
#include "checks/Checker.h"
#include "checks/NameChecks.h"
#include "commands/Command.h"
#include "commands/FindingsText.h"
#include "commands/LocalShells.h"
#include "commands/StickText.h"
#include "commands/Values.h"
#include "common/Progress.h"
#include "io/Interruption.h"
#include "io/Text.h"
#include "stick/Drive.h"
#include "stick/DriveCopy.h"
#include "stick/DrivePlan.h"
#include "stick/SourceFile.h"

#include <memory>
#include <optional>
#include <ostream>
#include <string>

#include <CLI/CLI.hpp>

namespace kx::tool
{

namespace
{

struct StickOptions {
    std::string package;
    std::string drive;
    std::string panel;
    bool isStrict = false;
    bool replaces = false;
};

/// Checks the package's bytes, not what lies beside it.
checks::Findings CheckSource(const SourceFile& source, const std::string& panel)
{
    LocalShells shells;
    checks::Expected expected;
    expected.panel = PanelOf(panel, "");
    expected.shells = &shells;
    checks::Findings findings;
    checks::CheckPackageName(source.Path(), true, findings);
    checks::CheckArchivePackage(source.Path(), archive::FileBytes(source.File().Path()), expected,
                                findings);
    findings.Sort();
    return findings;
}

void RefuseSourceOnDrive(const SourceFile& source, const Drive& drive)
{
    if (source.Device() == drive.Device()) {
        throw io::Error(io::ExitCode::kWrongUse, source.Path(), "lies on the drive itself",
                        "name the package on your disk, and another file on the drive is its copy");
    }
}

/// One bar after the other.
class StickProgress
{
public:
    explicit StickProgress(const Output& output) : m_output(output) {}

    void Show(const std::string& label, double done)
    {
        if (label != m_label) {
            m_label = label;
            m_bar.reset(); // the new one must not begin on the line of the old one
            m_bar.emplace(m_output, label);
        }
        m_bar->Show(done);
    }

private:
    const Output& m_output;
    std::string m_label;
    std::optional<Progress> m_bar;
};

/// Clears the drive and brings the package there, unless it is there already.
void CopyPackage(const SourceFile& source, const Drive& drive, StickReport& report,
                 const Output& output)
{
    const io::Interruption interruption;
    ClearDrive(drive, report.plan, [&report, &output](const std::string& shown) {
        report.removed.insert(shown);
        if (!output.isJson) {
            output.out << io::Printable(shown) << ": removed\n" << std::flush;
        }
    });
    DriveCalls calls(drive.Folder());
    const CopyTarget target{calls, source.Name(), drive.Shown(source.Name()),
                            drive.CanReadPastMemory()};
    StickProgress bar(output);
    const CopyProgress progress{[&bar](double done) { bar.Show("writing", done); },
                                [&bar](double done) { bar.Show("reading back", done); }};
    report.readBack = CompareWithDrive(target, source, progress);
    if (!report.readBack.has_value()) {
        report.readBack = CopyToDrive(target, source, progress);
        report.isWritten = true;
    }
}

io::ExitCode Stick(const StickOptions& options, const Output& output)
{
    const Drive drive(options.drive);
    const SourceFile source(options.package);
    RefuseSourceOnDrive(source, drive);
    StickReport report;
    report.name = source.Name();
    report.doubts = DoubtsAbout(drive.Mounted(), drive.IsOnDisk(), PartitionOf(drive.Device()));
    const Checked checked(source.Path(), CheckSource(source, options.panel), options.isStrict);
    if (checked.findings.Count(checks::Severity::kError) == 0) {
        const auto package = archive::OpenArchive(source.File().Path());
        report.plan = PlanDrive(drive, source, package->Entries(), options.replaces);
    }
    if (!output.isJson) {
        TellBeforeSticking(output, drive, checked, report);
    }
    if (checked.isClean && report.plan.problems.empty() &&
        (report.doubts.empty() || !options.isStrict)) {
        CopyPackage(source, drive, report, output);
    }
    if (output.isJson) {
        TellStickAsJson(output, drive, checked, report);
    } else {
        TellStick(output, drive, report);
    }
    return report.readBack.has_value() ? io::ExitCode::kFine : io::ExitCode::kProblems;
}

} // namespace

void AddStick(CLI::App& program, Invocation& invocation)
{
    CLI::App* const command = program.add_subcommand(
        "stick", "Bring a package to a USB flash drive, and make sure of it");
    const auto options = std::make_shared<StickOptions>();
    command->add_option("package", options->package, "The package file")
        ->type_name(kPackageValue)
        ->required();
    command->add_option("drive", options->drive, "The folder where the drive is mounted")
        ->type_name(kFolderValue)
        ->required();
    command->add_flag("--replace", options->replaces,
                      "Remove other packages, hidden twins and what was left of them");
    AddPanelOption(*command, options->panel);
    command->add_flag("--strict", options->isStrict, "Warnings are problems, too");
    command->add_flag("--json", invocation.isJson, "Write the result as JSON");
    command->footer(
        "The package is checked; the drive is looked at as a panel does it, and must have room for "
        "the package\nand for unpacking it there. Then it is written, read back from the drive and "
        "compared. One line says\nwhen the drive may be pulled.\n"
        "Exit status: 0 the drive is ready, 1 problems found (nothing was written), 2 wrong use, "
        "as a\nfolder where no drive is mounted, 3 could not read or write.\n\n"
        "Examples:\n"
        "  kx-package stick recipes.kx-update /media/usb\n"
        "  kx-package stick --replace recipes.kx-update /media/usb\n"
        "  kx-package stick --panel tp-0700.toml recipes.kx-update /media/usb");
    command->callback([options, &invocation] {
        invocation.run = [options](const Output& output) { return Stick(*options, output); };
    });
}

} // namespace kx::tool
