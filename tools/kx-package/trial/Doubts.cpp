// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "trial/Doubts.h"

#include "format/Processor.h"

#include <algorithm>

namespace kx::tool
{

namespace
{

/// Tells whether a panel cannot run a program for a reason that this one does not have.
bool IsForOther(const StartedProgram& program, const std::string& processor)
{
    const format::Processor* const panel = format::FindProcessor(processor);
    return !processor.empty() && program.processor != processor &&
           (panel == nullptr || !format::IsSmallerBrother(program.processor, *panel));
}

/// Returns what a program raises a doubt by, behind "starts programs for …"; nothing when it
/// raises none.
std::string DoubtOf(const StartedProgram& program, const std::string& processor)
{
    if (IsForOther(program, processor)) {
        return program.processor + ", the package is for " + processor;
    }
    if (!program.canRun) {
        return program.processor;
    }
    if (!program.missingLoader.empty()) {
        return program.processor + " that need " + program.missingLoader +
               ", which is not on this panel";
    }
    return {};
}

void AddOnce(std::vector<std::string>& texts, const std::string& text)
{
    if (std::find(texts.begin(), texts.end(), text) == texts.end()) {
        texts.push_back(text);
    }
}

} // namespace

std::vector<std::string> DoubtsOf(const std::vector<StartedProgram>& programs,
                                  const std::string& processor, const std::string& who)
{
    std::vector<std::string> doubts;
    for (const StartedProgram& program : programs) {
        if (const std::string doubt = DoubtOf(program, processor); !doubt.empty()) {
            const std::string starter =
                program.step == 0 ? who : "step " + std::to_string(program.step);
            AddOnce(doubts, std::string(starter).append(" starts programs for ").append(doubt));
        }
    }
    return doubts;
}

std::vector<std::string> RemarksOnDoubts(const std::vector<StartedProgram>& programs,
                                         const std::string& processor)
{
    std::vector<std::string> remarks;
    std::vector<std::string> remedies;
    for (const StartedProgram& program : programs) {
        if (DoubtOf(program, processor).empty()) {
            continue;
        }
        AddOnce(remarks, program.path + " is a program for " + program.processor);
        if (IsForOther(program, processor)) {
            AddOnce(remedies, "a panel with " + processor +
                                  " cannot run it: put in the program "
                                  "that was built for the panel");
        } else if (!program.canRun && format::FindProcessor(program.processor) != nullptr) {
            AddOnce(remedies, "this machine cannot run it: with qemu-user installed (Linux 6.7 or "
                              "later), or after scripts/setup foreign, it can");
        } else if (program.canRun) {
            AddOnce(remedies, "its loader would have to be in the package, or on this machine");
        }
    }
    remarks.insert(remarks.end(), remedies.begin(), remedies.end());
    return remarks;
}

} // namespace kx::tool
