// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "trial/ShellFailure.h"

#include "io/Error.h"
#include "io/Text.h"

#include <string_view>

namespace kx::tool
{

namespace
{

bool MakesFolder(const std::string& command)
{
    constexpr std::string_view kMake = "mkdir -p ";
    return command.compare(0, kMake.size(), kMake) == 0;
}

} // namespace

ShellFailure FailureOfStep(const rehearsal::Plan& plan, std::size_t stepCount, std::size_t step)
{
    const std::string name = "step " + std::to_string(step);
    if (step < 1 || step > stepCount) {
        throw io::Error(io::ExitCode::kWrongUse, "--fail",
                        "there is no " + name + ", the package has " +
                            io::CountText(stepCount, "step"));
    }
    if (static_cast<int>(step) > plan.lastStep) {
        throw io::Error(io::ExitCode::kWrongUse, "--fail", "the installation ends before " + name,
                        "see kx-package plan and kx-package check");
    }
    const rehearsal::PlannedCommand* chosen = nullptr;
    for (const rehearsal::PlannedCommand& command : plan.commands) {
        const bool isOfStep = command.process == rehearsal::PlannedCommand::Process::kInstaller &&
                              command.step == static_cast<int>(step);
        if (isOfStep && (chosen == nullptr ||
                         (MakesFolder(chosen->command) && !MakesFolder(command.command)))) {
            chosen = &command;
        }
    }
    if (chosen == nullptr) {
        throw io::Error(io::ExitCode::kWrongUse, "--fail",
                        name + " runs no command that could fail",
                        "kx-package plan shows the commands of every step");
    }
    ShellFailure failure{chosen->command, 1, static_cast<int>(step)};
    for (const rehearsal::PlannedCommand* before = plan.commands.data(); before != chosen;
         ++before) {
        const bool isSame =
            before->process == chosen->process && before->command == chosen->command;
        failure.number += isSame ? 1 : 0;
    }
    return failure;
}

} // namespace kx::tool
