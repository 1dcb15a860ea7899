// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT

// The window's share of the road: finding and opening a package, leaving the drive.
#include "engine/Installation.h"
#include "engine/UserPackageInstaller.h"
#include "engine/q_UpdaterEngine.h"
#include "model/DB_KxUserProject.h"
#include "support/EngineFixture.h"
#include "support/PanelFiles.h"
#include "support/ProjectBuilder.h"
#include "support/ShellRecorder.h"
#include "support/TempDir.h"

#include <stdexcept>

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace
{

using Installation::Search;

struct SearchRow {
    const char* name;
    std::vector<std::string> files;
    Search result;
    const char* found; ///< name in the folder, or empty
};

const SearchRow kSearches[] = {
    {"One", {"a.kx-update"}, Search::kFound, "a.kx-update"},
    {"OneAmongOthers", {"a.txt", "b.kx-update", "c.kx-update.bak"}, Search::kFound, "b.kx-update"},
    {"OtherCase", {"a.kx-update", "b.KX-UPDATE"}, Search::kFound, "a.kx-update"},
    {"Two", {"a.kx-update", "b.kx-update"}, Search::kSeveralPackages, "a.kx-update"},
    {"None", {"a.zip", "kx-update"}, Search::kNoPackage, ""},
    {"Empty", {}, Search::kNoPackage, ""},
};

class PackageSearch : public ::testing::TestWithParam<SearchRow>
{
};

} // namespace

TEST_P(PackageSearch, CountsTheFilesWithTheExtension)
{
    const TempDir dir;
    for (const std::string& file : GetParam().files) {
        dir.Write(file, "");
    }
    std::string found;

    EXPECT_EQ(Installation::FindPackage(dir.Path(), found), GetParam().result);

    EXPECT_EQ(found, *GetParam().found != '\0' ? dir / GetParam().found : "");
}

INSTANTIATE_TEST_SUITE_P(Folders, PackageSearch, ::testing::ValuesIn(kSearches),
                         [](const auto& row) { return std::string(row.param.name); });

TEST(PackageSearch, TellsAMissingFolderFromOneThatIsNotGiven)
{
    const TempDir dir;
    std::string found;

    EXPECT_EQ(Installation::FindPackage("", found), Search::kNoFolderGiven);
    EXPECT_EQ(Installation::FindPackage(dir / "none", found), Search::kNoFolder);
    EXPECT_EQ(Installation::FindPackage(dir.Write("file", ""), found), Search::kNoPackage);

    EXPECT_EQ(found, "");
}

TEST(PackageSearch, CountsAFileThatIsFoundAlready)
{
    const TempDir empty;
    const TempDir full;
    full.Write("b.kx-update", "");
    std::string found = "/usb/a.kx-update";

    EXPECT_EQ(Installation::FindPackage(empty.Path(), found), Search::kFound);
    EXPECT_EQ(Installation::FindPackage(full.Path(), found), Search::kSeveralPackages);

    EXPECT_EQ(found, "/usb/a.kx-update");
}

TEST(PackageNames, FollowFromTheArchivesName)
{
    EXPECT_TRUE(Installation::IsPackageName("a.b.kx-update"));
    EXPECT_FALSE(Installation::IsPackageName(".kx-update"));
    EXPECT_FALSE(Installation::IsPackageName("a.kx-update.zip"));
    EXPECT_EQ(Installation::UnpackedFolder("/usb/Foo 1.2.kx-update"), "/usb/Foo 1.2.temp");
    EXPECT_EQ(Installation::UnpackedFolder("/usb.d/Foo"), "/usb.d/Foo.temp");
    EXPECT_EQ(Installation::PackagedUpdater("/usb/Foo.temp"), "/usb/Foo.temp/kx_Updater");
}

namespace
{

/// A drive with the package Foo, whose unzip command leaves a description.
class OpeningPackage : public EngineFixture
{
protected:
    [[nodiscard]] std::string Archive() const { return m_drive / "Foo.kx-update"; }
    [[nodiscard]] std::string Folder() const { return m_drive / "Foo.temp"; }
    [[nodiscard]] std::string Remove() const { return "rm -r \"" + Folder() + "\""; }
    [[nodiscard]] std::string Make() const { return "mkdir -p \"" + Folder() + "\""; }
    [[nodiscard]] std::string Unzip() const
    {
        return "unzip -o \"" + Archive() + "\" -d \"" + Folder() + "\" ";
    }

    /// Lets the unzip command leave @p description.
    void Leave(const std::string& description)
    {
        m_shell.On(Unzip(), [this, description] {
            m_drive.Write("Foo.temp/UserPackage.kx-project", description);
        });
    }

    TempDir m_drive;
    ShellRecorder m_shell;
    UserPackageInstaller m_package;
};

} // namespace

TEST_F(OpeningPackage, UnpacksItBesideTheArchiveAndReadsTheRoot)
{
    Leave(ProjectBuilder::File(ProjectBuilder::Root({ProjectBuilder::ScriptStep("exit 0")})));

    EXPECT_EQ(Installation::OpenPackage(m_package, Archive()), 0);

    EXPECT_THAT(m_shell.Commands(), ElementsAre(Remove(), Make(), Unzip()));
    EXPECT_EQ(m_package.packageDir, Folder());
    EXPECT_EQ(m_package.projectFile, Folder() + "/UserPackage.kx-project");
    EXPECT_TRUE(m_package.removeUnpacked);
    ASSERT_NE(m_package.Project(), nullptr);
    EXPECT_EQ(m_package.Project()->DB_StepSets, nullptr);
    EXPECT_EQ(q_UpdaterEngine::ChildlenMode, 1);
    EXPECT_THAT(Lines(), IsEmpty());
}

TEST_F(OpeningPackage, EndsWhenTheFolderCannotBeMade)
{
    m_shell.Answer(Make(), 256);

    EXPECT_EQ(Installation::OpenPackage(m_package, Archive()), 256);

    EXPECT_THAT(m_shell.Commands(), ElementsAre(Remove(), Make()));
    EXPECT_EQ(m_package.packageDir, Folder());
    EXPECT_TRUE(m_package.removeUnpacked);
    EXPECT_EQ(m_package.Project(), nullptr);
}

TEST_F(OpeningPackage, EndsWhenTheArchiveCannotBeUnpacked)
{
    Leave(ProjectBuilder::File(ProjectBuilder::Root()));
    m_shell.Answer(Unzip(), 2304);

    EXPECT_EQ(Installation::OpenPackage(m_package, Archive()), 2304);

    EXPECT_THAT(m_shell.Commands(), ElementsAre(Remove(), Make(), Unzip()));
    EXPECT_EQ(m_package.Project(), nullptr);
}

TEST_F(OpeningPackage, EndsWithoutADescription)
{
    EXPECT_EQ(Installation::OpenPackage(m_package, Archive()), 2001);

    EXPECT_THAT(m_shell.Commands(), ElementsAre(Remove(), Make(), Unzip()));
    EXPECT_THAT(Lines(),
                ElementsAre("Unable to access " + Folder() + "/UserPackage.kx-project file."));
}

TEST_F(OpeningPackage, LetsTheExceptionOfARootThatIsNoObjectPass)
{
    Leave("\xEF\xBB\xBF[]");

    EXPECT_THROW(static_cast<void>(Installation::OpenPackage(m_package, Archive())),
                 std::runtime_error);
}

TEST(LeavingTheDrive, DeletesTheUnpackedPackageBeforeItUnmounts)
{
    ShellRecorder shell;
    shell.AnswerNth(1, 256);
    shell.AnswerNth(2, 256);
    UserPackageInstaller package;
    package.packageDir = "/usb/Foo.temp";
    package.removeUnpacked = true;

    Installation::LeaveDrive(package);

    EXPECT_THAT(shell.Commands(),
                ElementsAre(R"(rm -r "/usb/Foo.temp")", "/usr/bin/kxsystem/usb_umount"));
}

TEST(LeavingTheDrive, JustUnmountsItWithoutAnOpenPackage)
{
    const ShellRecorder shell;
    UserPackageInstaller package;

    Installation::LeaveDrive(package);

    EXPECT_THAT(shell.Commands(), ElementsAre("/usr/bin/kxsystem/usb_umount"));
}

TEST(LeavingTheDrive, IsOverWhenTheDriveIsGone)
{
    PanelFiles panel;

    EXPECT_TRUE(Installation::IsDrivePluggedIn());
    panel.PullDrive();
    EXPECT_FALSE(Installation::IsDrivePluggedIn());

    EXPECT_EQ(panel.DriveLooks(), 2);
}

TEST(Reboot, RunsThePanelsTool)
{
    const ShellRecorder shell;

    Installation::Reboot();

    EXPECT_THAT(shell.Commands(), ElementsAre("/sbin/reboot"));
}

TEST(BetweenSyncs, WritesTheDisksBeforeAndAfter)
{
    ShellRecorder shell;
    shell.AnswerNth(1, 32512);
    std::vector<std::string> before;

    const int result = Installation::BetweenSyncs([&] {
        before = shell.Commands();
        return 2001;
    });

    EXPECT_EQ(result, 2001);
    EXPECT_THAT(before, ElementsAre("sync"));
    EXPECT_THAT(shell.Commands(), ElementsAre("sync", "sync"));
}
