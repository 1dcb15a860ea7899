// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "checks/InstallationChecks.h"

#include "checks/ClassChecks.h"
#include "checks/Commands.h"
#include "io/Error.h"
#include "panel/Names.h"
#include "rehearsal/Ending.h"
#include "rehearsal/Rehearsal.h"

#include <algorithm>
#include <string>
#include <vector>

namespace kx::checks
{

namespace
{

bool BeginsWith(const std::string& text, const std::string& start)
{
    return text.compare(0, start.size(), start) == 0;
}

/// Tells whether an error was found at a step, in its record or in its payload.
bool HasErrorAtStep(const Findings& findings, const std::string& path, int index)
{
    const std::string payload = std::to_string(index) + "/";
    return std::any_of(findings.All().begin(), findings.All().end(), [&](const Finding& finding) {
        const Location& place = finding.location;
        return finding.severity == Severity::kError &&
               (place.path.empty() ? BeginsWith(place.file, payload)
                                   : BeginsWith(place.path, path));
    });
}

void ReportStep(const rehearsal::Plan& plan, const format::JsonNode* root, Findings& findings)
{
    const int index = plan.failedStep - 1;
    const std::string path = "DB_StepSets.$values[" + std::to_string(index) + "]";
    if (HasErrorAtStep(findings, path, index)) {
        return;
    }
    const std::vector<const format::JsonNode*> steps = root != nullptr
                                                           ? ElementsOf(root->Member("DB_StepSets"))
                                                           : std::vector<const format::JsonNode*>();
    const auto number = static_cast<std::size_t>(index);
    // Before the line that names the step stands what went wrong in it.
    const std::size_t lines = plan.log.size();
    findings.Add(RuleId::kInstallationFails,
                 number < steps.size() ? LocationIn(*steps[number], path)
                                       : Location::Entry(panel::kDescription),
                 "step " + std::to_string(plan.failedStep) +
                     " fails: " + (lines > 1 ? plan.log[lines - 2] : rehearsal::EndOf(plan)));
}

} // namespace

void CheckInstallation(const archive::Package& package, const format::JsonNode* root,
                       Findings& findings)
{
    rehearsal::Circumstances where;
    where.hasOtherUpdater = true; // what is wrong with the package's own is told by its rules
    const bool hasErrors = findings.Count(Severity::kError) != 0;
    try {
        const rehearsal::Plan plan = rehearsal::Rehearse(package, where);
        if (plan.outcome == rehearsal::Outcome::kStepFailed) {
            ReportStep(plan, root, findings);
        } else if (!plan.IsInstalled() && !hasErrors) {
            findings.Add(RuleId::kInstallationFails, Location::Whole(), rehearsal::EndOf(plan));
        }
    } catch (const io::Error& error) {
        // No panel gets to the end of it either.
        if (error.Code() != io::ExitCode::kProblems) {
            throw;
        }
        if (!hasErrors) {
            findings.Add(RuleId::kInstallationFails, Location::Whole(), error.what());
        }
    }
}

} // namespace kx::checks
