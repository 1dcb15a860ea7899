// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "commands/StickText.h"

#include "io/Text.h"

#include <ostream>

namespace kx::tool
{

namespace
{

const char* WordForReadBack(ReadBack readBack)
{
    return readBack == ReadBack::kFromDrive ? "drive" : "memory";
}

picojson::value DriveAsJson(const Drive& drive, const StickReport& report)
{
    const DriveRoom room = drive.Room();
    return picojson::value(picojson::object{
        {"folder", JsonText(drive.Path())},
        {"fileSystem", JsonText(drive.Mounted().type)},
        {"source", JsonText(drive.Mounted().source)},
        {"size", JsonNumber(room.total)},
        {"free", JsonNumber(room.free)},
        {"doubts", JsonTexts(report.doubts)},
    });
}

picojson::value StraysAsJson(const Drive& drive, const StickReport& report)
{
    picojson::array strays;
    for (const Stray& stray : report.plan.strays) {
        strays.push_back(picojson::value(picojson::object{
            {"name", JsonText(stray.name)},
            {"kind", JsonText(StrayWord(stray.kind))},
            {"size", JsonNumber(stray.bytes)},
            {"removed", picojson::value(report.removed.count(drive.Shown(stray.name)) != 0)},
        }));
    }
    return picojson::value(strays);
}

picojson::value StickProblemsAsJson(const StickReport& report)
{
    picojson::array problems;
    for (const io::Error& problem : report.plan.problems) {
        problems.push_back(picojson::value(picojson::object{
            {"place", JsonText(problem.Where())},
            {"message", JsonText(problem.what())},
            {"remedy", JsonText(problem.Remedy())},
        }));
    }
    return picojson::value(problems);
}

} // namespace

void TellBeforeSticking(const Output& output, const Drive& drive, const Checked& checked,
                        const StickReport& report)
{
    WriteProblems(output.err, output, checked);
    for (const std::string& doubt : report.doubts) {
        output.err << "kx-package: " << io::Printable(drive.Path() + ": " + doubt) << '\n';
    }
    for (const io::Error& problem : report.plan.problems) {
        output.err << "kx-package: " << io::Printable(problem.Line()) << '\n';
    }
}

void TellStick(const Output& output, const Drive& drive, const StickReport& report)
{
    const std::string folder = io::Printable(drive.Path());
    if (!report.readBack.has_value()) {
        output.err << "kx-package: nothing was written to " << folder << '\n';
        return;
    }
    const bool isFromMemory = *report.readBack == ReadBack::kFromMemory;
    output.out << io::Printable(report.name) << ": "
               << (report.isWritten ? "written to " : "was on ") << folder
               << (report.isWritten ? "" : " already") << " and read back"
               << (isFromMemory ? " from memory, as this file system is not read past it" : "")
               << "; the drive may be pulled\n";
}

void TellStickAsJson(const Output& output, const Drive& drive, const Checked& checked,
                     const StickReport& report)
{
    picojson::object told;
    told["package"] = JsonText(checked.path);
    told["drive"] = DriveAsJson(drive, report);
    told["needed"] = picojson::value(picojson::object{
        {"package", JsonNumber(report.plan.needed.package)},
        {"unpacked", JsonNumber(report.plan.needed.unpacked)},
        {"files", JsonNumber(report.plan.needed.files)},
    });
    told["others"] = StraysAsJson(drive, report);
    told["problems"] = StickProblemsAsJson(report);
    told["ready"] = picojson::value(report.readBack.has_value());
    told["written"] = picojson::value(report.isWritten);
    told["readBack"] = report.readBack.has_value() ? JsonText(WordForReadBack(*report.readBack))
                                                   : picojson::value();
    AddFindings(told, checked);
    WriteJson(output, picojson::value(told));
}

} // namespace kx::tool
