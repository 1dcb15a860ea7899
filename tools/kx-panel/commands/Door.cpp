// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "commands/Door.h"

#include "io/Error.h"
#include "panel/Names.h"
#include "policy/PolicyFile.h"

namespace kx::guard
{

namespace
{

/// Adds a reason for each of the errors.
void AddReasons(Door& door, ReasonId id, const io::Error& error)
{
    const auto* const several = dynamic_cast<const io::Errors*>(&error);
    const std::vector<io::Error> all =
        several == nullptr ? std::vector<io::Error>{error} : several->All();
    for (const io::Error& each : all) {
        door.reasons.push_back({id, {each.Line()}});
    }
}

} // namespace

DoorFiles PanelDoorFiles()
{
    return {[] { return ReadPolicy(panel::kPanelDescription); },
            [](SignatureRule rule) { return ReadPanelKeys(panel::kTrustedKeys, rule); }};
}

Door OpenDoor(const DoorFiles& files)
{
    Door door;
    try {
        door.policy = files.readPolicy();
    } catch (const io::Error& error) {
        AddReasons(door, ReasonId::kPanelFile, error);
    }
    try {
        door.keys = files.readKeys(door.policy.has_value() ? door.policy->signatures
                                                           : SignatureRule::kRequired);
    } catch (const io::Error& error) {
        AddReasons(door, ReasonId::kKeyFolder, error);
    }
    return door;
}

} // namespace kx::guard
