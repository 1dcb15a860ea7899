// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "archive/ByteSource.h"
#include "checks/Checker.h"
#include "checks/NameChecks.h"
#include "commands/Command.h"
#include "commands/FindingsText.h"
#include "commands/LocalShells.h"
#include "commands/Values.h"
#include "common/Progress.h"
#include "io/Interruption.h"
#include "io/Text.h"
#include "stick/Drive.h"
#include "stick/DriveCopy.h"
#include "stick/SourceFile.h"

#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

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
};

/// What came of it.
struct StickReport {
    std::vector<std::string> doubts; ///< whether a panel can read the drive
    bool isWritten = false;          ///< false: the drive had the file already, or nothing was done
    std::optional<ReadBack> readBack;
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

/// Brings the package to the drive, unless it is there already.
void CopyPackage(const SourceFile& source, const Drive& drive, StickReport& report,
                 const Output& output)
{
    const io::Interruption interruption;
    DriveCalls calls(drive.Folder());
    const CopyTarget target{calls, source.Name(), drive.Shown(source.Name()),
                            drive.CanReadPastMemory()};
    Progress writing(output, "writing");
    Progress reading(output, "reading back");
    const CopyProgress progress{[&writing](double done) { writing.Show(done); },
                                [&reading](double done) { reading.Show(done); }};
    report.readBack = CompareWithDrive(target, source, progress);
    if (!report.readBack.has_value()) {
        report.readBack = CopyToDrive(target, source, progress);
        report.isWritten = true;
    }
}

const char* WordFor(ReadBack readBack)
{
    return readBack == ReadBack::kFromDrive ? "drive" : "memory";
}

void TellStickAsJson(const Output& output, const Drive& drive, const Checked& checked,
                     const StickReport& report)
{
    picojson::array doubts;
    for (const std::string& doubt : report.doubts) {
        doubts.push_back(JsonText(doubt));
    }
    const DriveRoom room = drive.Room();
    picojson::object told;
    told["formatVersion"] = JsonNumber(1);
    told["package"] = JsonText(checked.path);
    told["drive"] = picojson::value(picojson::object{
        {"folder", JsonText(drive.Path())},
        {"fileSystem", JsonText(drive.Mounted().type)},
        {"source", JsonText(drive.Mounted().source)},
        {"size", JsonNumber(room.total)},
        {"free", JsonNumber(room.free)},
        {"doubts", picojson::value(doubts)},
    });
    told["ready"] = picojson::value(report.readBack.has_value());
    told["written"] = picojson::value(report.isWritten);
    told["readBack"] =
        report.readBack.has_value() ? JsonText(WordFor(*report.readBack)) : picojson::value();
    AddFindings(told, checked);
    WriteJson(output, picojson::value(told));
}

void TellStick(const Output& output, const Drive& drive, const SourceFile& source,
               const StickReport& report)
{
    const std::string name = io::Printable(source.Name());
    const std::string folder = io::Printable(drive.Path());
    if (!report.readBack.has_value()) {
        output.err << "kx-package: nothing was written to " << folder << '\n';
        return;
    }
    const bool isFromMemory = *report.readBack == ReadBack::kFromMemory;
    output.out << name << ": " << (report.isWritten ? "written to " : "was on ") << folder
               << (report.isWritten ? "" : " already") << " and read back"
               << (isFromMemory ? " from memory, as this file system is not read past it" : "")
               << "; the drive may be pulled\n";
}

io::ExitCode Stick(const StickOptions& options, const Output& output)
{
    const Drive drive(options.drive);
    const SourceFile source(options.package);
    RefuseSourceOnDrive(source, drive);
    StickReport report;
    report.doubts = DoubtsAbout(drive.Mounted(), drive.IsOnDisk(), PartitionOf(drive.Device()));
    const Checked checked(source.Path(), CheckSource(source, options.panel), options.isStrict);
    if (!output.isJson) {
        WriteProblems(output.err, output, checked);
        for (const std::string& doubt : report.doubts) {
            output.err << "kx-package: " << io::Printable(drive.Path() + ": " + doubt) << '\n';
        }
    }
    if (checked.isClean && (report.doubts.empty() || !options.isStrict)) {
        CopyPackage(source, drive, report, output);
    }
    if (output.isJson) {
        TellStickAsJson(output, drive, checked, report);
    } else {
        TellStick(output, drive, source, report);
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
    AddPanelOption(*command, options->panel);
    command->add_flag("--strict", options->isStrict, "Warnings are problems, too");
    command->add_flag("--json", invocation.isJson, "Write the result as JSON");
    command->footer(
        "The package is checked, written, read back from the drive and compared. One line says "
        "when "
        "the drive\nmay be pulled; before that, do not.\n"
        "Exit status: 0 the drive is ready, 1 problems found (nothing was written), 2 wrong use, "
        "as a\nfolder where no drive is mounted, 3 could not read or write.\n\n"
        "Examples:\n"
        "  kx-package stick recipes.kx-update /media/usb\n"
        "  kx-package stick --panel tp-0700.toml recipes.kx-update /media/usb");
    command->callback([options, &invocation] {
        invocation.run = [options](const Output& output) { return Stick(*options, output); };
    });
}

} // namespace kx::tool
