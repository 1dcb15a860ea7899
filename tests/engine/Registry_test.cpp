// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT

// The registry of installed packages, written for real on the device.
#include "engine/UserPackageInstaller.h"
#include "engine/q_UpdaterEngine.h"
#include "osa/OSA.h"
#include "osa/PathList.h"
#include "support/DeviceFixture.h"
#include "support/ShellRecorder.h"
#include "support/TempDir.h"

#include <filesystem>
#include <memory>

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace fs = std::filesystem;

namespace
{

constexpr const char* kRegistry = "/var/lib/KxUserPackages";

std::string Description(const std::string& package)
{
    return std::string(kRegistry) + "/" + package + "/UserPackage.kx-project";
}

std::string List(const std::string& package)
{
    return std::string(kRegistry) + "/" + package + "/installedFile.list";
}

/// The names in a folder, sorted.
std::set<std::string> NamesIn(const std::string& folder)
{
    std::set<std::string> names;
    for (const fs::directory_entry& entry : fs::directory_iterator(folder)) {
        names.insert(entry.path().filename().string());
    }
    return names;
}

} // namespace

/// A device without registry and without files in /opt; commands run for real.
class Registry : public DeviceFixture
{
protected:
    Registry()
    {
        EraseTraces();
        SetPackage("Foo.temp");
    }
    ~Registry() override { EraseTraces(); }

    /// Unpacks a package of that name, so to say.
    void SetPackage(const std::string& name, const std::string& description = "description")
    {
        m_package.packageDir = m_dir / name;
        m_package.projectFile = m_dir.Write(name + "/UserPackage.kx-project", description);
    }

    /// Forgets what an installation recorded, as the next process does.
    static void StartAnotherInstallation()
    {
        q_UpdaterEngine::CopyFileList->clear();
        q_UpdaterEngine::CopyFolderList->clear();
    }

    TempDir m_dir;
    UserPackageInstaller m_package;

private:
    static void EraseTraces()
    {
        fs::remove_all(kRegistry);
        fs::remove_all("/opt/app");
    }
};

TEST_F(Registry, ListsFoldersAndFilesOfAnInstallationByteForByte)
{
    const ShellRecorder shell(ShellRecorder::Mode::PassThrough);
    const std::string source = m_dir.Write("run", "program");
    ASSERT_EQ(OSA_CopyFile(source.c_str(), "/opt/app/bin/run", true, nullptr), 0);

    EXPECT_EQ(m_package.RegistInstalledLog(), 0);

    EXPECT_EQ(ReadFile(List("Foo")), " #dir\n"
                                     "/opt/app/bin/\n"
                                     "/var/lib/KxUserPackages/Foo\n"
                                     " #file\n"
                                     "/opt/app/bin/run\n"
                                     "/var/lib/KxUserPackages/Foo/UserPackage.kx-project\n"
                                     "/var/lib/KxUserPackages/Foo/installedFile.list\n");
    EXPECT_THAT(NamesIn("/var/lib/KxUserPackages/Foo"),
                ElementsAre("UserPackage.kx-project", "installedFile.list"));
}

TEST_F(Registry, RunsTheseCommandsAndNoOthers)
{
    const ShellRecorder shell(ShellRecorder::Mode::PassThrough);

    EXPECT_EQ(m_package.ClearInstalledLog(), 0);
    EXPECT_EQ(m_package.RegistInstalledLog(), 0);
    EXPECT_EQ(m_package.ClearInstalledLog(), 0);

    EXPECT_THAT(shell.Commands(),
                ElementsAre(R"(mkdir -p "/var/lib/KxUserPackages/Foo")",
                            "cp -f \"" + m_package.projectFile +
                                R"(" "/var/lib/KxUserPackages/Foo/UserPackage.kx-project" )",
                            R"(rm -r "/var/lib/KxUserPackages/Foo")"));
    EXPECT_THAT(Lines(), IsEmpty());
}

TEST_F(Registry, OfAPackageWithoutStepsHoldsOnlyItsOwnPaths)
{
    const ShellRecorder shell(ShellRecorder::Mode::PassThrough);

    EXPECT_EQ(m_package.RegistInstalledLog(), 0);

    EXPECT_EQ(ReadFile(List("Foo")), " #dir\n"
                                     "/var/lib/KxUserPackages/Foo\n"
                                     " #file\n"
                                     "/var/lib/KxUserPackages/Foo/UserPackage.kx-project\n"
                                     "/var/lib/KxUserPackages/Foo/installedFile.list\n");
}

TEST_F(Registry, CopiesTheDescriptionByteForByte)
{
    using namespace std::string_literals;
    const std::string bytes = "\xEF\xBB\xBF{\r\n\0\xFF%s}"s;
    SetPackage("Foo.temp", bytes);
    const ShellRecorder shell(ShellRecorder::Mode::PassThrough);

    EXPECT_EQ(m_package.RegistInstalledLog(), 0);

    EXPECT_EQ(ReadFile(Description("Foo")), bytes);
}

TEST_F(Registry, HoldsOnlyTheSecondRunsPathsAfterTheSamePackageIsInstalledTwice)
{
    const ShellRecorder shell(ShellRecorder::Mode::PassThrough);
    q_UpdaterEngine::CopyFileList->AppendOnce("/opt/first");
    q_UpdaterEngine::CopyFolderList->AppendOnce("/opt/one/");
    EXPECT_EQ(m_package.ClearInstalledLog(), 0);
    EXPECT_EQ(m_package.RegistInstalledLog(), 0);

    StartAnotherInstallation();
    SetPackage("Foo.temp", "second description");
    q_UpdaterEngine::CopyFileList->AppendOnce("/opt/second");
    EXPECT_EQ(m_package.ClearInstalledLog(), 0);
    EXPECT_EQ(m_package.RegistInstalledLog(), 0);

    EXPECT_EQ(ReadFile(List("Foo")), " #dir\n"
                                     "/var/lib/KxUserPackages/Foo\n"
                                     " #file\n"
                                     "/opt/second\n"
                                     "/var/lib/KxUserPackages/Foo/UserPackage.kx-project\n"
                                     "/var/lib/KxUserPackages/Foo/installedFile.list\n");
    EXPECT_EQ(ReadFile(Description("Foo")), "second description");
}

TEST_F(Registry, ReplacesALongerListAndDescriptionThatWereNotRemoved)
{
    const ShellRecorder shell(ShellRecorder::Mode::PassThrough);
    q_UpdaterEngine::CopyFileList->AppendOnce("/opt/" + std::string(5000, 'f'));
    EXPECT_EQ(m_package.RegistInstalledLog(), 0);

    StartAnotherInstallation();
    SetPackage("Foo.temp", "d");
    EXPECT_EQ(m_package.RegistInstalledLog(), 0);

    EXPECT_EQ(ReadFile(Description("Foo")), "d");
    EXPECT_EQ(ReadFile(List("Foo")), " #dir\n"
                                     "/var/lib/KxUserPackages/Foo\n"
                                     " #file\n"
                                     "/var/lib/KxUserPackages/Foo/UserPackage.kx-project\n"
                                     "/var/lib/KxUserPackages/Foo/installedFile.list\n");
}

TEST_F(Registry, LosesTheRecordOfAPackageWhoseSecondInstallationFails)
{
    const ShellRecorder shell(ShellRecorder::Mode::PassThrough);
    const std::string source = m_dir.Write("run", "program");
    ASSERT_EQ(OSA_CopyFile(source.c_str(), "/opt/app/run", true, nullptr), 0);
    EXPECT_EQ(m_package.RegistInstalledLog(), 0);
    SetPackage("Bar.temp");
    EXPECT_EQ(m_package.RegistInstalledLog(), 0);

    SetPackage("Foo.temp");
    EXPECT_EQ(m_package.ClearInstalledLog(), 0);
    EXPECT_EQ(m_package.ExecuteInstallStep(), 2001);

    // What the package installed stays, and so do the records of others.
    EXPECT_THAT(NamesIn(kRegistry), ElementsAre("Bar"));
    EXPECT_EQ(ReadFile("/opt/app/run"), "program");
}

TEST_F(Registry, ListsAFolderOrFileThatWasRecordedTwiceOnce)
{
    const ShellRecorder shell(ShellRecorder::Mode::PassThrough);
    const std::string source = m_dir.Write("run", "program");
    ASSERT_EQ(OSA_CopyFile(source.c_str(), "/opt/app/run", true, nullptr), 0);
    fs::remove_all("/opt/app");
    ASSERT_EQ(OSA_CopyFile(source.c_str(), "/opt/app/run", true, nullptr), 0);
    EXPECT_EQ(m_package.RegistInstalledLog(), 0);
    EXPECT_EQ(m_package.RegistInstalledLog(), 0);

    EXPECT_EQ(ReadFile(List("Foo")), " #dir\n"
                                     "/opt/app/\n"
                                     "/var/lib/KxUserPackages/Foo\n"
                                     " #file\n"
                                     "/opt/app/run\n"
                                     "/var/lib/KxUserPackages/Foo/UserPackage.kx-project\n"
                                     "/var/lib/KxUserPackages/Foo/installedFile.list\n");
}

TEST_F(Registry, LeavesItsOwnPathsWhereAStepRecordedThem)
{
    const ShellRecorder shell(ShellRecorder::Mode::PassThrough);
    for (const char* const folder : {"/var/lib/KxUserPackages/Foo", "/opt/late/"}) {
        q_UpdaterEngine::CopyFolderList->AppendOnce(folder);
    }
    for (const char* const file : {"/var/lib/KxUserPackages/Foo/installedFile.list", "/opt/late"}) {
        q_UpdaterEngine::CopyFileList->AppendOnce(file);
    }

    EXPECT_EQ(m_package.RegistInstalledLog(), 0);

    EXPECT_EQ(ReadFile(List("Foo")), " #dir\n"
                                     "/var/lib/KxUserPackages/Foo\n"
                                     "/opt/late/\n"
                                     " #file\n"
                                     "/var/lib/KxUserPackages/Foo/installedFile.list\n"
                                     "/opt/late\n"
                                     "/var/lib/KxUserPackages/Foo/UserPackage.kx-project\n");
}

TEST_F(Registry, WritesPathsOfAnyKindAsTheyWereRecorded)
{
    const ShellRecorder shell(ShellRecorder::Mode::PassThrough);
    q_UpdaterEngine::CopyFileList->AppendOnce("/opt/%s \xFF\"\r");
    q_UpdaterEngine::CopyFileList->AppendOnce("");

    EXPECT_EQ(m_package.RegistInstalledLog(), 0);

    EXPECT_EQ(ReadFile(List("Foo")), " #dir\n"
                                     "/var/lib/KxUserPackages/Foo\n"
                                     " #file\n"
                                     "/opt/%s \xFF\"\r\n"
                                     "\n"
                                     "/var/lib/KxUserPackages/Foo/UserPackage.kx-project\n"
                                     "/var/lib/KxUserPackages/Foo/installedFile.list\n");
}

TEST_F(Registry, HoldsTensOfThousandsOfFiles)
{
    const ShellRecorder shell(ShellRecorder::Mode::PassThrough);
    std::string expected = " #dir\n/var/lib/KxUserPackages/Foo\n #file\n";
    for (int i = 0; i < 50000; ++i) {
        const std::string file = "/opt/app/" + std::to_string(i);
        q_UpdaterEngine::CopyFileList->AppendOnce(file);
        expected += file + "\n";
    }

    EXPECT_EQ(m_package.RegistInstalledLog(), 0);

    expected += Description("Foo") + "\n" + List("Foo") + "\n";
    EXPECT_TRUE(ReadFile(List("Foo")) == expected);
}

TEST_F(Registry, NamesTheRecordPkgForTheFolderPkg)
{
    const ShellRecorder shell(ShellRecorder::Mode::PassThrough);
    SetPackage("pkg");

    EXPECT_EQ(m_package.RegistInstalledLog(), 0);

    EXPECT_THAT(NamesIn(kRegistry), ElementsAre("pkg"));
}

TEST_F(Registry, WritesAndRemovesTheRecordADotTempForTheFolderADotTemporary)
{
    const ShellRecorder shell(ShellRecorder::Mode::PassThrough);
    SetPackage("a.temporary");

    EXPECT_EQ(m_package.RegistInstalledLog(), 0);
    EXPECT_THAT(NamesIn(kRegistry), ElementsAre("a.temp"));
    EXPECT_EQ(m_package.ClearInstalledLog(), 0);

    EXPECT_THAT(NamesIn(kRegistry), IsEmpty());
}

TEST_F(Registry, IsRemovedAsAWholeForAPackageFolderWithATrailingMark)
{
    fs::create_directories(Description("Foo"));
    m_package.packageDir = m_dir / "Foo.temp/";
    const ShellRecorder shell;

    EXPECT_EQ(m_package.ClearInstalledLog(), 0);

    EXPECT_THAT(shell.Commands(), ElementsAre(R"(rm -r "/var/lib/KxUserPackages/")"));
}

TEST_F(Registry, LeavesAFileInTheRecordsPlaceAlone)
{
    fs::create_directories(kRegistry);
    fs::copy_file(m_package.projectFile, std::string(kRegistry) + "/Foo");
    const ShellRecorder shell(ShellRecorder::Mode::PassThrough);

    EXPECT_EQ(m_package.ClearInstalledLog(), 0);

    EXPECT_THAT(shell.Commands(), IsEmpty());
    EXPECT_THAT(NamesIn(kRegistry), ElementsAre("Foo"));
}

TEST_F(Registry, ClearsWithSuccessEvenWhenTheRemovalFails)
{
    fs::create_directories(std::string(kRegistry) + "/Foo");
    ShellRecorder shell;
    shell.Answer(R"(rm -r "/var/lib/KxUserPackages/Foo")", 256);

    EXPECT_EQ(m_package.ClearInstalledLog(), 0);

    EXPECT_THAT(shell.Commands(), ElementsAre(R"(rm -r "/var/lib/KxUserPackages/Foo")"));
    EXPECT_THAT(Lines(), IsEmpty());
}

TEST_F(Registry, WritesNoListWhenTheDescriptionCannotBeCopied)
{
    const ShellRecorder shell(ShellRecorder::Mode::PassThrough);
    m_package.projectFile = m_dir / "none";

    EXPECT_EQ(m_package.RegistInstalledLog(), 256);

    EXPECT_THAT(NamesIn("/var/lib/KxUserPackages/Foo"), IsEmpty());
    EXPECT_THAT(Folders(), ElementsAre("/var/lib/KxUserPackages/Foo"));
    EXPECT_THAT(Files(), IsEmpty());
    EXPECT_THAT(Lines(), IsEmpty());
}

TEST_F(Registry, ReportsAListThatCannotBeWritten)
{
    fs::create_directories(List("Foo"));
    const ShellRecorder shell(ShellRecorder::Mode::PassThrough);

    EXPECT_EQ(m_package.RegistInstalledLog(), 1003);

    EXPECT_EQ(ReadFile(Description("Foo")), "description");
    EXPECT_THAT(Files(), ElementsAre(Description("Foo"), List("Foo")));
    EXPECT_THAT(Lines(), IsEmpty());
}

TEST_F(Registry, DoesNotMindThatTheFolderCannotBeCreatedWhenItIsThereAlready)
{
    fs::create_directories(std::string(kRegistry) + "/Foo");
    ShellRecorder shell(ShellRecorder::Mode::PassThrough);
    shell.Answer(R"(mkdir -p "/var/lib/KxUserPackages/Foo")", 256);

    EXPECT_EQ(m_package.RegistInstalledLog(), 0);

    EXPECT_EQ(ReadFile(Description("Foo")), "description");
}
