// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "rehearsal/Ending.h"

#include "format/ShellText.h"
#include "panel/Names.h"

namespace kx::rehearsal
{

namespace
{

/// Returns the end of a sentence that says why: the panel's own last line.
std::string WhyOf(const Plan& plan)
{
    return plan.log.empty() ? "." : ": " + plan.log.back();
}

/// Returns a sentence that says where the description leads to when it is a link.
std::string LinkRemark(const Plan& plan)
{
    return plan.descriptionLink.empty() ? ""
                                        : " " + std::string(panel::kDescription) +
                                              " is a link to '" + plan.descriptionLink + "'.";
}

std::string WhyNotStarted(const Plan& plan)
{
    if (format::HasForeignBytes(plan.packageFile)) {
        return "The package's updater cannot be started: the window does not find it, as the "
               "package's name is not plain ASCII.";
    }
    return std::string("The package's updater cannot be started: ") + panel::kUpdater +
           " is missing or not executable.";
}

} // namespace

std::string EndOf(const Plan& plan)
{
    switch (plan.outcome) {
    case Outcome::kNotFound:
        return std::string("The window finds no package: the file's name does not end in ") +
               panel::kPackageExtension + ".";
    case Outcome::kNotAlone:
        return "The window finds another package beside this one, and refuses both.";
    case Outcome::kAborted:
        return "The window ends by SIGABRT: the description is no JSON object.";
    case Outcome::kNotUnpacked:
    case Outcome::kNotShown:
        return "The window cannot load the package" + WhyOf(plan) + LinkRemark(plan);
    case Outcome::kNotStarted:
        return WhyNotStarted(plan);
    case Outcome::kNotRecorded:
        return "The steps succeed, but the package cannot be recorded.";
    case Outcome::kNotRead:
    case Outcome::kStepFailed:
        break;
    case Outcome::kInstalled:
        return "The installation succeeds.";
    }
    return "The installation fails" + WhyOf(plan);
}

} // namespace kx::rehearsal
