// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "road/Install.h"

#include "commands/Command.h"
#include "commands/DecisionText.h"
#include "commands/Door.h"
#include "commands/InstallText.h"
#include "confined/ConfinedProcess.h"
#include "decision/FileSystems.h"
#include "io/Interruption.h"
#include "reading/ConfinementOf.h"

#include <csignal>
#include <memory>
#include <string>

#include <CLI/CLI.hpp>

namespace kx::guard
{

namespace
{

/// Installs as an open door lets it.
Installation InstallBehind(const Door& door, const std::string& path, IRoadObserver& observer)
{
    const Policy& policy = *door.policy;
    const RealFileSystems fileSystems;
    ConfinedProcess confinement(ConfinementOf(policy.limits));
    PanelJudge judge(policy, door.keys, fileSystems, confinement);
    return Install(policy, PlacesOf(policy), judge, path, observer);
}

/// What becomes of every file before a closed door.
Installation RefusedBy(const Door& door)
{
    Installation refused;
    refused.decision.reasons = door.reasons;
    refused.ending = {Outcome::kRefused, static_cast<int>(io::ExitCode::kProblems), Speaker::kPanel,
                      ""};
    return refused;
}

cli::ExitStatus TellInstallation(const std::string& path, const Output& output)
{
    // Whoever listens may go away, and the service may be stopped: what became of the installation
    // is noted, and told to who asks for the exit status.
    static_cast<void>(std::signal(SIGPIPE, SIG_IGN));
    const io::Interruption interruption;
    const Door door = OpenDoor(PanelDoorFiles());
    RoadText observer(output);
    const Installed installed{path,
                              door.IsOpen() ? InstallBehind(door, path, observer) : RefusedBy(door),
                              door.keys.problems};
    if (output.isJson) {
        WriteJson(output, picojson::value(InstalledAsJson(installed)));
    } else {
        WriteInstalled(output, installed, LanguageOfEnvironment());
    }
    io::Interruption::Answer();
    return cli::ExitStatus(installed.installation.ending.status);
}

} // namespace

void AddInstall(CLI::App& program, Invocation& invocation)
{
    CLI::App* const command = program.add_subcommand(
        "install", "Install a package that this panel lets in, without a window");
    const auto path = std::make_shared<std::string>();
    command->add_option("file", *path, "The package's file")->type_name(kPackageValue)->required();
    command->add_flag("--json", invocation.isJson,
                      "Write what became of it as JSON, and nothing else");
    command->footer(
        "Exit status: 0 installed, 1 refused, all reasons are told, 2 wrong use, 3 could not\n"
        "read or write, 4 another kx-panel is at work; or the updater's, 100 to 102 as a rule:\n"
        "\"from\" in the JSON and the history tell whose it is.\n\n"
        "Examples:\n"
        "  kx-panel install /mnt/usb/demo.kx-update\n"
        "  kx-panel install demo.kx-update --json | jq -r .result");
    command->callback([path, &invocation] {
        invocation.run = [path](const Output& output) { return TellInstallation(*path, output); };
    });
}

} // namespace kx::guard
