// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "trial/FailedSteps.h"

#include "format/Kinds.h"
#include "osa/PanelNames.h"

#include <algorithm>

namespace kx::tool
{

namespace
{

using Form = StepFailure::Form;

bool StartsWith(const std::string& text, const std::string& start)
{
    return text.compare(0, start.size(), start) == 0;
}

/// Tells whether steps of a kind can fail that way.
bool Fits(Form form, const std::string& kind)
{
    switch (form) {
    case Form::kCopy:
        return StartsWith(kind, "copy-");
    case Form::kScript:
        return kind == "script";
    case Form::kSetting:
        return kind == "settings";
    case Form::kOther:
        break;
    }
    return true;
}

/// The commands of a step that was run.
std::vector<std::string> CommandsOf(const RunTrace& trace, int step)
{
    std::vector<std::string> commands;
    for (const TracedCommand& command : trace.commands) {
        if (command.step == step && !command.text.empty()) {
            commands.push_back(command.text);
        }
    }
    return commands;
}

/// Tells whether a command copies what the updater's line names as "SOURCE to TARGET": one file, or
/// one below a folder.
bool Copies(const std::string& command, const std::string& copied)
{
    constexpr std::string_view kTo = " to ";
    for (std::size_t at = copied.find(kTo); at != std::string::npos;
         at = copied.find(kTo, at + 1)) {
        const std::string source = copied.substr(0, at);
        const std::string target = copied.substr(at + kTo.size());
        const std::string copy = std::string("cp -f \"").append(source);
        if (command == std::string(copy).append("\" \"").append(target).append("\" ") ||
            StartsWith(command, copy + "/")) {
            return true;
        }
    }
    return false;
}

/// The last command for an item: nothing of it is run after one that failed.
std::string CommandOfCopy(const std::vector<std::string>& commands, const std::string& copied)
{
    std::string found;
    for (std::size_t i = 0; i < commands.size(); ++i) {
        if (Copies(commands[i], copied)) {
            const bool isMode = i + 1 < commands.size() && StartsWith(commands[i + 1], "chmod ");
            found = commands[isMode ? i + 1 : i];
        }
    }
    return found;
}

std::string CommandOf(const StepFailure& failure, const std::vector<std::string>& commands)
{
    if (failure.form == Form::kCopy) {
        return CommandOfCopy(commands, failure.subject);
    }
    if (failure.form == Form::kSetting) {
        const auto password =
            std::find_if(commands.begin(), commands.end(), [](const std::string& command) {
                return command.find(" | chpasswd") != std::string::npos;
            });
        return password != commands.end() ? *password : "";
    }
    return commands.empty() ? "" : commands.back();
}

} // namespace

void AddMadeFailure(const ShellFailure& failure, bool wentOn, std::vector<StepFailure>& failures)
{
    const auto place =
        std::find_if(failures.begin(), failures.end(),
                     [&failure](const StepFailure& one) { return one.step >= failure.step; });
    if (place != failures.end() && place->step == failure.step) {
        return;
    }
    StepFailure made;
    made.step = failure.step;
    made.why = "made to fail";
    made.isSkipped = wentOn;
    made.command = failure.command;
    failures.insert(place, made);
}

void CompleteFailures(const std::vector<format::SummaryStep>& steps, const RunTrace& trace,
                      std::vector<StepFailure>& failures)
{
    const auto isOthers = [&steps](const StepFailure& failure) {
        const auto index = static_cast<std::size_t>(failure.step) - 1;
        return index >= steps.size() || !Fits(failure.form, steps[index].kind) ||
               (failure.form != Form::kOther && failure.isSkipped && !steps[index].canSkip);
    };
    failures.erase(std::remove_if(failures.begin(), failures.end(), isOthers), failures.end());
    for (StepFailure& failure : failures) {
        failure.kind = steps[static_cast<std::size_t>(failure.step) - 1].kind;
        const format::SettingKind* const setting =
            failure.form == Form::kSetting
                ? format::FindKind(format::SettingKinds(), &format::SettingKind::id,
                                   failure.subject)
                : nullptr;
        if (setting != nullptr) {
            failure.why = std::string("the setting '") + setting->name + "' failed";
        }
        if (failure.command.empty()) {
            failure.command = CommandOf(failure, CommandsOf(trace, failure.step));
        }
    }
}

} // namespace kx::tool
