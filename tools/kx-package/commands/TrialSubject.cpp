// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "commands/TrialSubject.h"

#include "format/Secrets.h"

namespace kx::tool
{

std::string ShownCommand(std::string command)
{
    command.erase(command.find_last_not_of(' ') + 1);
    return format::MaskedCommand(command);
}

const char* VerdictText(Verdict verdict)
{
    switch (verdict) {
    case Verdict::kInstalled:
        return "installed";
    case Verdict::kNotInstalled:
        return "not installed";
    case Verdict::kNotJudged:
        break;
    }
    return "not judged";
}

std::vector<std::string> RemarksOn(const Installation& installation, const TrialSubject& subject)
{
    std::vector<std::string> remarks = installation.remarks;
    remarks.insert(remarks.end(), subject.panelRemarks.begin(), subject.panelRemarks.end());
    if (subject.failedStep == 0 || !installation.isUnpacked) {
        return remarks;
    }
    const std::string command =
        "step " + std::to_string(subject.failedStep) + ", " + ShownCommand(subject.failedCommand);
    if (!installation.isRefused) {
        remarks.push_back("the command that was to fail was not reached: " + command);
        return remarks;
    }
    remarks.push_back("made to fail: " + command);
    if (installation.isInstalled) {
        remarks.emplace_back("the installation went on: the step may be skipped, or the updater "
                             "does not look at this command's result");
    }
    return remarks;
}

} // namespace kx::tool
