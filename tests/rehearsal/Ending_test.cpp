// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "rehearsal/Ending.h"

#include <gtest/gtest.h>

#include <string>

namespace kx::rehearsal
{

namespace
{

struct EndCase {
    const char* name;
    Outcome outcome;
    const char* file;
    const char* link; ///< where the description leads to
    std::vector<std::string> log;
    const char* end;
};

class EndOfPlan : public testing::TestWithParam<EndCase>
{
};

TEST_P(EndOfPlan, IsASentence)
{
    Plan plan;
    plan.outcome = GetParam().outcome;
    plan.packageFile = GetParam().file;
    plan.descriptionLink = GetParam().link;
    plan.log = GetParam().log;

    EXPECT_EQ(EndOf(plan), GetParam().end);
}

constexpr const char* kPackage = "/mnt/usb/Foo.kx-update";
constexpr const char* kForeign = "/mnt/usb/F\xc3\xb6.kx-update";

INSTANTIATE_TEST_SUITE_P(
    Outcomes, EndOfPlan,
    testing::Values(
        EndCase{"NotFound",
                Outcome::kNotFound,
                "/mnt/usb/Foo.zip",
                "",
                {},
                "The window finds no package: the file's name does not end in .kx-update."},
        EndCase{"NotAlone",
                Outcome::kNotAlone,
                kPackage,
                "",
                {},
                "The window finds another package beside this one, and refuses both."},
        EndCase{"NotUnpacked",
                Outcome::kNotUnpacked,
                kPackage,
                "",
                {},
                "The window cannot load the package."},
        EndCase{"Aborted",
                Outcome::kAborted,
                kPackage,
                "",
                {"a line"},
                "The window ends by SIGABRT: the description is no JSON object."},
        EndCase{"NotShown",
                Outcome::kNotShown,
                kPackage,
                "",
                {"first", "last"},
                "The window cannot load the package: last"},
        EndCase{"NotShownLink",
                Outcome::kNotShown,
                kPackage,
                "../gone",
                {"last"},
                "The window cannot load the package: last UserPackage.kx-project is a link to "
                "'../gone'."},
        EndCase{"NotStarted",
                Outcome::kNotStarted,
                kPackage,
                "",
                {},
                "The package's updater cannot be started: kx_Updater is missing or not "
                "executable."},
        EndCase{"NotStartedForeign",
                Outcome::kNotStarted,
                kForeign,
                "",
                {},
                "The package's updater cannot be started: the window does not find it, as the "
                "package's name is not plain ASCII."},
        EndCase{"NotRead",
                Outcome::kNotRead,
                kPackage,
                "../gone",
                {"last"},
                "The installation fails: last"},
        EndCase{"StepFailed", Outcome::kStepFailed, kPackage, "", {}, "The installation fails."},
        EndCase{"NotRecorded",
                Outcome::kNotRecorded,
                kPackage,
                "",
                {"last"},
                "The steps succeed, but the package cannot be recorded."},
        EndCase{"Installed",
                Outcome::kInstalled,
                kPackage,
                "../d",
                {"last"},
                "The installation succeeds."}),
    [](const auto& row) { return row.param.name; });

} // namespace

} // namespace kx::rehearsal
