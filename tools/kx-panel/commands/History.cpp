// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "journal/History.h"

#include "commands/Command.h"
#include "commands/Door.h"
#include "commands/HistoryText.h"
#include "io/Error.h"
#include "io/Text.h"
#include "journal/State.h"
#include "panel/Names.h"
#include "policy/PolicyFile.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <ostream>
#include <string>

#include <CLI/CLI.hpp>

namespace kx::guard
{

namespace
{

/// Opens what this panel remembers; nothing when it remembers nothing yet.
std::optional<StateFolder> OpenMemory()
{
    return OpenStateToRead({ReadPolicy(panel::kPanelDescription).state});
}

io::ExitCode TellAll(const Output& output)
{
    History history;
    if (const std::optional<StateFolder> state = OpenMemory()) {
        history = ReadHistory(*state);
    }
    if (output.isJson) {
        picojson::array entries;
        for (const PastInstallation& past : history.entries) {
            entries.push_back(PastAsJson(past, false));
        }
        WriteJson(output, picojson::value(
                              picojson::object{{"entries", picojson::value(entries)},
                                               {"problems", cli::JsonTexts(history.problems)}}));
    } else {
        for (const PastInstallation& past : history.entries) {
            output.out << SummaryLine(past) << '\n';
        }
        output.out << io::CountText(history.entries.size(), "installation") << '\n';
        for (const std::string& problem : history.problems) {
            output.err << output.program << ": " << io::Printable(problem) << '\n';
        }
    }
    return history.problems.empty() ? io::ExitCode::kFine : io::ExitCode::kProblems;
}

io::ExitCode TellOne(std::uint64_t id, const Output& output)
{
    std::optional<PastInstallation> past;
    if (const std::optional<StateFolder> state = OpenMemory()) {
        past = ReadHistoryEntry(*state, id);
    }
    if (!past.has_value()) {
        throw io::Error(io::ExitCode::kProblems, "history",
                        "there is no installation " + std::to_string(id),
                        "\"kx-panel history\" lists those that are remembered");
    }
    if (output.isJson) {
        WriteJson(output, picojson::value(picojson::object{{"entry", PastAsJson(*past, true)}}));
    } else {
        WritePast(output, *past);
    }
    return io::ExitCode::kFine;
}

} // namespace

void AddHistory(CLI::App& program, Invocation& invocation)
{
    CLI::App* const command = program.add_subcommand(
        "history", "List what was installed or refused, or tell one installation whole");
    const auto id = std::make_shared<std::optional<std::uint64_t>>();
    command->add_option("id", *id, "Number of an installation; without it, all are listed")
        ->type_name("ID");
    command->add_flag("--json", invocation.isJson, "Write it as JSON");
    command->footer(
        "Exit status: 0 fine, 1 there is no such installation, an entry is damaged, or\n"
        "the panel's description is, 2 wrong use, 3 could not read.\n\n"
        "Examples:\n"
        "  kx-panel history\n"
        "  kx-panel history 12\n"
        "  kx-panel history 12 --json | jq -r '.entry.lines[].text'");
    command->callback([id, &invocation] {
        invocation.run = [id](const Output& output) {
            return id->has_value() ? TellOne(**id, output) : TellAll(output);
        };
    });
}

} // namespace kx::guard
