// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "commands/Command.h"
#include "commands/Door.h"
#include "commands/StatusText.h"
#include "io/Error.h"
#include "journal/Baseline.h"
#include "journal/History.h"
#include "journal/State.h"

#include <functional>
#include <optional>
#include <string>
#include <utility>

#include <CLI/CLI.hpp>

namespace kx::guard
{

namespace
{

/// Does a part of the reading; what it cannot read is a problem and no end of the rest.
void Attempt(PanelStatus& status, const std::function<void()>& part)
{
    try {
        part();
    } catch (const io::Error& error) {
        status.problems.push_back(error.Line());
    }
}

/// Reads what a panel remembers; nothing is locked or written.
void ReadMemory(PanelStatus& status, const StateFolder& state)
{
    Attempt(status, [&] { status.isAtWork = IsAtWork(state); });
    Attempt(status, [&] {
        if (!status.isAtWork) {
            status.interrupted = FindBegun(state);
        }
    });
    Attempt(status, [&] { status.versions = AllVersions(state); });
    Attempt(status, [&] {
        History history = ReadHistory(state);
        if (!history.entries.empty()) {
            status.last = std::move(history.entries.front());
        }
        status.problems.insert(status.problems.end(), history.problems.begin(),
                               history.problems.end());
    });
}

PanelStatus ReadStatus()
{
    PanelStatus status{OpenDoor(PanelDoorFiles())};
    if (!status.door.policy.has_value()) {
        return status;
    }
    try {
        if (const std::optional<StateFolder> state = OpenStateToRead({status.door.policy->state})) {
            ReadMemory(status, *state);
        }
    } catch (const io::Error& error) {
        status.door.reasons.push_back({ReasonId::kState, {error.Line()}});
    }
    return status;
}

io::ExitCode TellStatus(const Output& output)
{
    const PanelStatus status = ReadStatus();
    if (output.isJson) {
        WriteJson(output, picojson::value(StatusAsJson(status)));
    } else {
        WriteStatus(output, status, LanguageOfEnvironment());
    }
    return status.door.IsOpen() && status.problems.empty() ? io::ExitCode::kFine
                                                           : io::ExitCode::kProblems;
}

} // namespace

void AddStatus(CLI::App& program, Invocation& invocation)
{
    CLI::App* const command = program.add_subcommand(
        "status", "Tell whether packages are let in, whose, and what was installed last");
    command->add_flag("--json", invocation.isJson, "Write it as JSON");
    command->footer("Exit status: 0 the door is open, 1 it is closed, or what is remembered is\n"
                    "damaged, 2 wrong use, 3 could not read.\n\n"
                    "Examples:\n"
                    "  kx-panel status\n"
                    "  kx-panel status --json | jq .versions");
    command->callback([&invocation] { invocation.run = TellStatus; });
}

} // namespace kx::guard
