// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "trial/Road.h"

#include "engine/Installation.h"
#include "osa/PanelNames.h"

#include <algorithm>

namespace kx::tool
{

Road RoadOf(const rehearsal::Plan& plan)
{
    Road road;
    road.isFound = plan.outcome > rehearsal::Outcome::kNotAlone;
    road.archive = plan.packageFile;
    road.folder = Installation::UnpackedFolder(plan.packageFile);
    road.record = plan.record;
    std::vector<std::string> commands;
    for (const rehearsal::PlannedCommand& command : plan.commands) {
        if (command.process == rehearsal::PlannedCommand::Process::kWindow) {
            commands.push_back(command.command);
        }
    }
    const auto unmount = std::find(commands.begin(), commands.end(), PanelNames::kUnmountDrive);
    const auto end = unmount == commands.end() ? unmount : unmount + 1;
    // Right before it the window removes what it unpacked, however far it got.
    const auto leave = road.isFound && unmount != commands.begin() ? unmount - 1 : unmount;
    road.opening.assign(commands.begin(), leave);
    road.leaving.assign(leave, end);
    return road;
}

} // namespace kx::tool
