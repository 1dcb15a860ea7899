// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "trial/ShellFailure.h"

#include "common/Error.h"
#include "common/Text.h"

#include <algorithm>

namespace
{

bool MakesFolder(const std::string& command)
{
    constexpr std::string_view kMake = "mkdir -p ";
    return command.compare(0, kMake.size(), kMake) == 0;
}

bool IsReached(const Plan& plan, const std::string& step)
{
    const std::string line = "**** Installation step " + step + "/";
    return std::any_of(plan.log.begin(), plan.log.end(), [&line](const std::string& told) {
        return told.compare(0, line.size(), line) == 0;
    });
}

} // namespace

ShellFailure FailureOfStep(const Plan& plan, std::size_t stepCount, std::size_t step)
{
    const std::string name = "step " + std::to_string(step);
    if (step < 1 || step > stepCount) {
        throw Error(ExitCode::kWrongUse, "--fail",
                    "there is no " + name + ", the package has " + CountText(stepCount, "step"));
    }
    if (!IsReached(plan, std::to_string(step))) {
        throw Error(ExitCode::kWrongUse, "--fail", "the installation ends before " + name,
                    "see kx-package plan and kx-package check");
    }
    const PlannedCommand* chosen = nullptr;
    for (const PlannedCommand& command : plan.commands) {
        const bool isOfStep = command.process == PlannedCommand::Process::kInstaller &&
                              command.step == static_cast<int>(step);
        if (isOfStep && (chosen == nullptr ||
                         (MakesFolder(chosen->command) && !MakesFolder(command.command)))) {
            chosen = &command;
        }
    }
    if (chosen == nullptr) {
        throw Error(ExitCode::kWrongUse, "--fail", name + " runs no command that could fail",
                    "kx-package plan tells the commands of every step");
    }
    ShellFailure failure{chosen->command, 1};
    for (const PlannedCommand* before = plan.commands.data(); before != chosen; ++before) {
        const bool isSame =
            before->process == chosen->process && before->command == chosen->command;
        failure.number += isSame ? 1 : 0;
    }
    return failure;
}
