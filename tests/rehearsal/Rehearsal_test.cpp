// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "rehearsal/Ending.h"
#include "rehearsal/MadePackage.h"
#include "rehearsal/Rehearsal.h"
#include "support/ProjectBuilder.h"
#include "support/TempDir.h"
#include "support/Thrown.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

namespace kx::rehearsal
{

using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

using ProjectBuilder::CopyFileStep;
using ProjectBuilder::CopyItem;
using ProjectBuilder::Object;
using ProjectBuilder::ScriptStep;

constexpr auto kFile = archive::PackageEntry::Kind::kFile;
constexpr const char* kDescription = "UserPackage.kx-project";

class Rehearsals : public testing::Test
{
protected:
    Rehearsals() { package.Add(kFile, "kx_Updater", "", 0755); }

    Plan Play(const std::vector<Object>& steps, const Circumstances& where = {})
    {
        package.Add(kFile, kDescription, ProjectBuilder::File(ProjectBuilder::Root(steps)));
        return Rehearse(package, where);
    }

    /// The steps of the commands, in order.
    static std::vector<int> StepsOf(const Plan& plan)
    {
        std::vector<int> steps;
        for (const PlannedCommand& command : plan.commands) {
            if (command.step != 0) {
                steps.push_back(command.step);
            }
        }
        return steps;
    }

    MadePackage package;
};

TEST_F(Rehearsals, TellWhatIsRecorded)
{
    package.Add(kFile, "0/0/a");
    package.Add(kFile, "0/1/b");

    const Plan plan =
        Play({CopyFileStep({CopyItem("a", "/opt/a", "755"), CopyItem("b", "/opt/new/b", "644")})});

    EXPECT_EQ(plan.outcome, Outcome::kInstalled);
    EXPECT_EQ(plan.steps, 1);
    EXPECT_EQ(plan.failedStep, 0);
    EXPECT_THAT(plan.folders, ElementsAre("/opt/new/", "/var/lib/KxUserPackages/Foo"));
    EXPECT_THAT(plan.files, ElementsAre("/opt/a", "/opt/new/b",
                                        "/var/lib/KxUserPackages/Foo/UserPackage.kx-project",
                                        "/var/lib/KxUserPackages/Foo/installedFile.list"));
    EXPECT_EQ(EndOf(plan), "The installation succeeds.");
}

TEST_F(Rehearsals, KnowNothingOfTheOnesBefore)
{
    package.Add(kFile, "0/0/a");
    const std::vector<Object> steps = {CopyFileStep({CopyItem("a", "/opt/new/a", "755")})};

    const Plan first = Play(steps);
    const Plan second = Rehearse(package);

    EXPECT_EQ(second.files, first.files);
    EXPECT_EQ(second.folders, first.folders);
    EXPECT_EQ(second.log, first.log);
    EXPECT_EQ(second.commands.size(), first.commands.size());
}

TEST_F(Rehearsals, RecordNothingOfAnotherPackage)
{
    package.Add(kFile, "0/0/a");
    static_cast<void>(Play({CopyFileStep({CopyItem("a", "/opt/old/a", "755")})}));

    const Plan plan = Play({CopyFileStep({CopyItem("a", "/opt/new/a", "755")})});

    EXPECT_THAT(plan.folders, ElementsAre("/opt/new/", "/var/lib/KxUserPackages/Foo"));
    EXPECT_THAT(plan.files,
                ElementsAre("/opt/new/a", "/var/lib/KxUserPackages/Foo/UserPackage.kx-project",
                            "/var/lib/KxUserPackages/Foo/installedFile.list"));
}

TEST_F(Rehearsals, TellTheStepThatFailsWhateverItsLinesAre)
{
    package.Add(kFile, "2/0/a");

    const Plan plan = Play({ScriptStep("**** Installation step 9/9"),
                            CopyFileStep({CopyItem("none", "/opt/none")}),
                            CopyFileStep({CopyItem("a", "/opt/a")})});

    EXPECT_EQ(plan.outcome, Outcome::kStepFailed);
    EXPECT_EQ(plan.steps, 3);
    EXPECT_EQ(plan.lastStep, 2);
    EXPECT_EQ(plan.failedStep, 2);
    EXPECT_THAT(StepsOf(plan), ElementsAre(1, 1, 1, 2));
    EXPECT_THAT(plan.folders, IsEmpty());
    EXPECT_THAT(plan.files, IsEmpty()) << "no record is written";
    EXPECT_EQ(EndOf(plan), "The installation fails: Installation failed in step 2.");
}

TEST_F(Rehearsals, TellNoFailedStepWhereItMayFail)
{
    const Plan plan = Play({CopyFileStep({CopyItem("none", "/opt/none")}, true)});

    EXPECT_EQ(plan.outcome, Outcome::kInstalled);
    EXPECT_EQ(plan.failedStep, 0);
}

TEST_F(Rehearsals, TellARecordThatCannotBeWritten)
{
    package.Add(kFile, "0/0/a");
    const std::vector<Object> steps = {
        CopyFileStep({CopyItem("a", "/var/lib/KxUserPackages/Foo")})};

    const Plan plan = Play(steps);

    EXPECT_EQ(plan.outcome, Outcome::kNotRecorded);
    EXPECT_EQ(plan.failedStep, 0);
    EXPECT_THAT(plan.files, IsEmpty());
    EXPECT_EQ(EndOf(plan), "The steps succeed, but the package cannot be recorded.");
}

TEST_F(Rehearsals, TellARecordThatCannotBeWrittenAlsoWithoutSteps)
{
    const TempDir root;
    root.MakeDir("mnt/usb");
    root.Write("var/lib/KxUserPackages", "in the way");
    Circumstances where;
    where.root = root.Path();

    EXPECT_EQ(Play({}, where).outcome, Outcome::kNotRecorded);
}

TEST_F(Rehearsals, TellADescriptionThatOnlyTheInstallerRefuses)
{
    Object root = ProjectBuilder::Root({ScriptStep("true")});
    ProjectBuilder::Element(ProjectBuilder::Child(root, "DB_StepSets"), 0).erase("Comment");
    package.Add(kFile, kDescription, ProjectBuilder::File(root));

    const Plan plan = Rehearse(package);

    EXPECT_EQ(plan.outcome, Outcome::kNotRead);
    EXPECT_TRUE(plan.IsStarted());
    EXPECT_EQ(plan.lastStep, 0);
}

TEST_F(Rehearsals, TellStepsThatAreNoList)
{
    Object root = ProjectBuilder::Root();
    root["DB_StepSets"] = ProjectBuilder::Value(ScriptStep("true"));
    package.Add(kFile, kDescription, ProjectBuilder::File(root));

    EXPECT_EQ(Rehearse(package).outcome, Outcome::kNotRead);
}

TEST_F(Rehearsals, TellHowFarTheWindowGets)
{
    EXPECT_EQ(Rehearse(package).outcome, Outcome::kNotShown) << "there is no description";

    package.Add(kFile, kDescription, "\xef\xbb\xbf[]");
    const Plan aborted = Rehearse(package);
    EXPECT_EQ(aborted.outcome, Outcome::kAborted);
    EXPECT_EQ(aborted.commands.back().command.substr(0, 6), "unzip ") << "nobody is left to go on";

    package.path = "Foo.zip";
    EXPECT_EQ(Rehearse(package).outcome, Outcome::kNotFound);
}

TEST_F(Rehearsals, TellTheNameThatAFolderHasAsAPackage)
{
    const TempDir folders;
    for (const auto& [folder, file] : {std::pair("Foo", "/mnt/usb/Foo.kx-update"),
                                       std::pair("Foo.temp", "/mnt/usb/Foo.kx-update"),
                                       std::pair(".temp", "/mnt/usb/.temp.kx-update"),
                                       std::pair("temp", "/mnt/usb/temp.kx-update"),
                                       std::pair("a.temp.b", "/mnt/usb/a.temp.b.kx-update")}) {
        folders.MakeDir(folder);
        EXPECT_EQ(Rehearse(*archive::OpenFolder(folders / folder)).packageFile, file);
    }
}

TEST_F(Rehearsals, TellAnotherPackageOnTheDrive)
{
    const TempDir root;
    root.Write("media/Bar.kx-update", "");
    Circumstances where;
    where.drive = "/media";
    where.root = root.Path();

    const Plan plan = Play({}, where);

    EXPECT_EQ(plan.outcome, Outcome::kNotAlone);
    EXPECT_FALSE(plan.IsUnpacked());
    EXPECT_EQ(plan.commands.size(), 3U);
}

TEST_F(Rehearsals, StartAnotherUpdaterWhereThePackageHasNone)
{
    MadePackage without;
    without.Add(kFile, kDescription, ProjectBuilder::File(ProjectBuilder::Root()));
    Circumstances where;
    where.hasOtherUpdater = true;

    EXPECT_EQ(Rehearse(without).outcome, Outcome::kNotStarted);
    EXPECT_EQ(Rehearse(without, where).outcome, Outcome::kInstalled);
}

TEST_F(Rehearsals, ThatFailLeaveTheNextOneAClearStage)
{
    package.Add(kFile, kDescription, "damaged");
    EXPECT_EQ(Thrown([this] { static_cast<void>(Rehearse(package)); }),
              std::string("3: ") + kDescription + ": is damaged");

    EXPECT_EQ(Play({}).outcome, Outcome::kInstalled);
}

} // namespace

} // namespace kx::rehearsal
