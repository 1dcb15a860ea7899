// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "archive/ByteSource.h"
#include "commands/Command.h"
#include "commands/DecisionText.h"
#include "commands/Door.h"
#include "commands/Remembered.h"
#include "confined/ConfinedProcess.h"
#include "decision/FileSystems.h"
#include "io/Path.h"
#include "reading/ConfinementOf.h"

#include <memory>
#include <string>

#include <CLI/CLI.hpp>

namespace kx::guard
{

namespace
{

/// Decides as an open door does.
Decision DecideBehind(const Door& door, const std::string& path)
{
    const Policy& policy = *door.policy;
    const archive::FileBytes source(path);
    const RealFileSystems fileSystems;
    Remembered remembered({policy.state});
    ConfinedProcess confinement(ConfinementOf(policy.limits));
    Decision decision =
        Decide({policy, door.keys, fileSystems,
                [&remembered](const std::string& name) { return remembered.Highest(name); }},
               confinement, source, source.File().Number(), io::LastPart(path), Place::kElsewhere);
    remembered.AddReasons(decision);
    return decision;
}

/// Decides, or tells why the door is closed.
Decision DecideAt(const Door& door, const std::string& path)
{
    if (door.IsOpen()) {
        return DecideBehind(door, path);
    }
    Decision closed;
    closed.reasons = door.reasons;
    return closed;
}

io::ExitCode Check(const std::string& path, const Output& output)
{
    const Door door = OpenDoor(PanelDoorFiles());
    const Judged judged{path, DecideAt(door, path), door.keys.problems};
    if (output.isJson) {
        WriteJson(output, picojson::value(DecisionAsJson(judged)));
    } else {
        WriteDecision(output, judged, LanguageOfEnvironment());
    }
    return judged.decision.IsAccepted() ? io::ExitCode::kFine : io::ExitCode::kProblems;
}

} // namespace

void AddCheck(CLI::App& program, Invocation& invocation)
{
    CLI::App* const command = program.add_subcommand(
        "check", "Tell whether this panel would install a package, and if not, why");
    const auto path = std::make_shared<std::string>();
    command->add_option("package", *path, "The package's file")
        ->type_name(kPackageValue)
        ->required();
    command->add_flag("--json", invocation.isJson, "Write it as JSON, in English and Japanese");
    command->footer(
        "Nothing is changed. Exit status: 0 it would be installed, 1 it is refused, all\n"
        "reasons are told, 2 wrong use, 3 could not read.\n\n"
        "Examples:\n"
        "  kx-panel check /mnt/usb/demo.kx-update\n"
        "  kx-panel check demo.kx-update --json | jq -r '.reasons[].id'");
    command->callback([path, &invocation] {
        invocation.run = [path](const Output& output) { return Check(*path, output); };
    });
}

} // namespace kx::guard
