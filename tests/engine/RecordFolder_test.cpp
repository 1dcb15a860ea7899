// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT

// The registry folder that belongs to a package folder, seen through the commands of a registration
// whose copy fails: such a registration writes no file.
#include "engine/UserPackageInstaller.h"
#include "support/EngineFixture.h"
#include "support/ShellRecorder.h"

using ::testing::ElementsAre;

namespace
{

struct FolderCase {
    std::string name;
    std::string packageDir;
    std::string recordDir;
};

} // namespace

class RecordFolder : public EngineFixture, public ::testing::WithParamInterface<FolderCase>
{
};

TEST_P(RecordFolder, IsNamedAfterThePackageFolder)
{
    UserPackageInstaller package;
    package.packageDir = GetParam().packageDir;
    package.projectFile = "/none/UserPackage.kx-project";
    const std::string& record = GetParam().recordDir;
    const std::string copy =
        R"(cp -f "/none/UserPackage.kx-project" ")" + record + "/UserPackage.kx-project\" ";
    ShellRecorder shell;
    shell.Answer(copy, 256);

    EXPECT_EQ(package.RegistInstalledLog(), 256);

    // The recorder created no folder, so the copy asks for it once more.
    EXPECT_THAT(shell.Commands(),
                ElementsAre("mkdir -p \"" + record + "\"", "mkdir -p \"" + record + "/\"", copy));
    EXPECT_THAT(Folders(), ElementsAre(record, record + "/"));
    EXPECT_THAT(Files(), ElementsAre());
}

INSTANTIATE_TEST_SUITE_P(
    Names, RecordFolder,
    ::testing::Values(
        FolderCase{"TheUnpackFolderOfTheWindow", "/usb/kx_none.temp",
                   "/var/lib/KxUserPackages/kx_none"},
        FolderCase{"WithoutTemp", "/tmp/kx_none", "/var/lib/KxUserPackages/kx_none"},
        FolderCase{"NoFolderPart", "kx_none.temp", "/var/lib/KxUserPackages/kx_none"},
        FolderCase{"TemporaryBecomesTemp", "/usb/kx_a.temporary",
                   "/var/lib/KxUserPackages/kx_a.temp"},
        FolderCase{"TempInTheMiddle", "/usb/kx_a.temp.bak", "/var/lib/KxUserPackages/kx_a.tem"},
        FolderCase{"TempTwice", "/usb/kx_a.temp.temp", "/var/lib/KxUserPackages/kx_a.temp"},
        FolderCase{"TempInCapitals", "/usb/kx_none.TEMP", "/var/lib/KxUserPackages/kx_none.TEMP"},
        FolderCase{"TempInTheFolderAbove", "/usb.temp/kx_none", "/var/lib/KxUserPackages/kx_none"},
        FolderCase{"OtherExtensionIsKept", "/usb/kx_none.v1.2",
                   "/var/lib/KxUserPackages/kx_none.v1.2"},
        FolderCase{"ADesktopPath", "C:\\usb\\kx_none.temp", "/var/lib/KxUserPackages/kx_none"},
        FolderCase{"AColon", "/usb/a:kx_none.temp", "/var/lib/KxUserPackages/kx_none"},
        FolderCase{"BlanksAndBytes", "/usb/kx %s \xFF.temp", "/var/lib/KxUserPackages/kx %s \xFF"},
        FolderCase{"AHugeName", "/usb/" + std::string(5000, 'n') + ".temp",
                   "/var/lib/KxUserPackages/" + std::string(5000, 'n')}),
    [](const auto& test) { return test.param.name; });

// A folder given with a trailing mark, or named ".temp" alone, leaves the registry's root with a
// trailing mark: the description is recorded there, next to the packages' folders.
class RootAsRecordFolder : public EngineFixture, public ::testing::WithParamInterface<const char*>
{
};

TEST_P(RootAsRecordFolder, IsWhatAPackageFolderWithoutANameGets)
{
    UserPackageInstaller package;
    package.packageDir = GetParam();
    package.projectFile = "/none/UserPackage.kx-project";
    const std::string copy = "cp -f \"/none/UserPackage.kx-project\" "
                             "\"/var/lib/KxUserPackages//UserPackage.kx-project\" ";
    ShellRecorder shell;
    shell.Answer(copy, 256);

    EXPECT_EQ(package.RegistInstalledLog(), 256);

    ASSERT_GE(shell.Commands().size(), 2U);
    EXPECT_EQ(shell.Commands().front(), R"(mkdir -p "/var/lib/KxUserPackages/")");
    EXPECT_EQ(shell.Commands().back(), copy);
    EXPECT_EQ(Folders().front(), "/var/lib/KxUserPackages/");
    EXPECT_THAT(Files(), ElementsAre());
}

INSTANTIATE_TEST_SUITE_P(Names, RootAsRecordFolder,
                         ::testing::Values("/tmp/kx_none.temp/", "/tmp/kx_none/", "/tmp/.temp", "",
                                           "/", ".temp", "C:\\kx_none\\"));
