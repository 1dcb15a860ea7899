// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT

// UserPackageInstaller::Unpack and Cleanup.
#include "engine/UserPackageInstaller.h"
#include "support/EngineFixture.h"
#include "support/ShellRecorder.h"
#include "support/TempDir.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace
{

constexpr const char* kRemove = R"(rm -r "/usb/Foo.temp")";
constexpr const char* kMake = R"(mkdir -p "/usb/Foo.temp")";
constexpr const char* kUnzip = R"(unzip -o "/usb/Foo.kx-update" -d "/usb/Foo.temp" )";

} // namespace

class PackageUnpacking : public EngineFixture
{
protected:
    PackageUnpacking() { m_package.packageDir = "/usb/Foo.temp"; }

    UserPackageInstaller m_package;
};

TEST_F(PackageUnpacking, RemovesCreatesAndUnzips)
{
    const ShellRecorder shell;

    EXPECT_EQ(m_package.Unpack("/usb/Foo.kx-update"), 0);

    EXPECT_THAT(shell.Commands(), ElementsAre(kRemove, kMake, kUnzip));
    EXPECT_THAT(Lines(), IsEmpty());
}

TEST_F(PackageUnpacking, DoesNotMindThatThereIsNothingToRemove)
{
    ShellRecorder shell;
    shell.Answer(kRemove, 256);

    EXPECT_EQ(m_package.Unpack("/usb/Foo.kx-update"), 0);

    EXPECT_THAT(shell.Commands(), ElementsAre(kRemove, kMake, kUnzip));
    EXPECT_THAT(Lines(), IsEmpty());
}

TEST_F(PackageUnpacking, EndsWhenTheFolderCannotBeCreated)
{
    ShellRecorder shell;
    shell.Answer(kMake, 512);

    EXPECT_EQ(m_package.Unpack("/usb/Foo.kx-update"), 512);

    EXPECT_THAT(shell.Commands(), ElementsAre(kRemove, kMake));
    EXPECT_THAT(Lines(), ElementsAre("Unable to create folder of temporary to /usb/Foo.temp."));
}

TEST_F(PackageUnpacking, EndsWhenThePackageCannotBeUnzipped)
{
    ShellRecorder shell;
    shell.Answer(kUnzip, 2304);

    EXPECT_EQ(m_package.Unpack("/usb/Foo.kx-update"), 2304);

    EXPECT_THAT(shell.Commands(), ElementsAre(kRemove, kMake, kUnzip));
    EXPECT_THAT(Lines(), ElementsAre("Unable to unpack /usb/Foo.kx-update file to /usb/Foo.temp."));
}

TEST_F(PackageUnpacking, ReturnsTheResultOfAShellThatCannotBeStarted)
{
    ShellRecorder shell;
    shell.AnswerNth(2, -1);

    EXPECT_EQ(m_package.Unpack("/usb/Foo.kx-update"), -1);

    EXPECT_THAT(Lines(), ElementsAre("Unable to create folder of temporary to /usb/Foo.temp."));
}

TEST_F(PackageUnpacking, PassesNamesOfAnyKindOnAsTheyAre)
{
    const std::string strange = "/usb/%s %n \xFF'`" + std::string(5000, 'p');
    m_package.packageDir = strange + ".temp";
    ShellRecorder shell;
    shell.AnswerNth(3, 256);

    EXPECT_EQ(m_package.Unpack((strange + ".kx-update").c_str()), 256);

    EXPECT_THAT(shell.Commands(),
                ElementsAre("rm -r \"" + strange + ".temp\"", "mkdir -p \"" + strange + ".temp\"",
                            "unzip -o \"" + strange + ".kx-update\" -d \"" + strange + ".temp\" "));
    EXPECT_THAT(Lines(), ElementsAre("Unable to unpack " + strange + ".kx-update file to " +
                                     strange + ".temp."));
}

TEST_F(PackageUnpacking, LeavesNoFileOfAnEarlierRun)
{
    const TempDir dir;
    dir.Write("Foo.temp/old", "old");
    dir.Write("Foo.temp/0/0/deep", "old");
    m_package.packageDir = dir / "Foo.temp";
    const std::string unzip =
        "unzip -o \"" + dir / "Foo.kx-update" + "\" -d \"" + dir / "Foo.temp" + "\" ";
    ShellRecorder shell(ShellRecorder::Mode::PassThrough);
    std::vector<std::string> treeAtUnzip;
    shell.On(unzip, [&] {
        treeAtUnzip = dir.Tree();
        dir.Write("Foo.temp/new", "new");
    });
    shell.Answer(unzip, 0);

    EXPECT_EQ(m_package.Unpack((dir / "Foo.kx-update").c_str()), 0);

    EXPECT_THAT(treeAtUnzip, ElementsAre("Foo.temp d 755"));
    EXPECT_THAT(dir.Tree(), ElementsAre("Foo.temp d 755", "Foo.temp/new f 644 new"));
}

TEST_F(PackageUnpacking, CleanupLeavesTheFolderWhenItIsNotAskedToRemoveIt)
{
    const ShellRecorder shell;

    m_package.Cleanup();

    EXPECT_THAT(shell.Commands(), IsEmpty());
}

TEST_F(PackageUnpacking, CleanupRemovesTheFolderEachTimeItIsCalled)
{
    m_package.removeUnpacked = true;
    ShellRecorder shell;
    shell.AnswerNth(2, 256);

    m_package.Cleanup();
    m_package.Cleanup();

    EXPECT_TRUE(m_package.removeUnpacked);
    EXPECT_EQ(m_package.packageDir, "/usb/Foo.temp");
    EXPECT_THAT(shell.Commands(), ElementsAre(kRemove, kRemove));
    EXPECT_THAT(Lines(), IsEmpty());
}

TEST_F(PackageUnpacking, CleanupRemovesAWholeTreeForReal)
{
    const TempDir dir;
    dir.Write("Foo.temp/0/0/file", "payload");
    dir.Write("Foo.kx-update", "zip");
    m_package.packageDir = dir / "Foo.temp";
    m_package.removeUnpacked = true;
    const ShellRecorder shell(ShellRecorder::Mode::PassThrough);

    m_package.Cleanup();

    EXPECT_THAT(dir.Tree(), ElementsAre("Foo.kx-update f 644 zip"));
}
