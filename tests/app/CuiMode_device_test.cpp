// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT

// Console mode on the device, with its real shell: whole installations.
#include "app/CuiModeFixture.h"
#include "engine/ScriptedStep.h"
#include "support/DeviceFixture.h"
#include "support/ShellRecorder.h"

#include <filesystem>

using ::testing::ElementsAre;

namespace fs = std::filesystem;

namespace
{

constexpr const char* kWriteUnprotect = "/usr/bin/kxsystem/wprotect_off";
constexpr const char* kRecord = "/var/lib/KxUserPackages/kx_test_package";

} // namespace

class ConsoleModeOnDevice : public T_CuiMode<DeviceFixture>
{
protected:
    ConsoleModeOnDevice() { EraseTraces(); }
    ~ConsoleModeOnDevice() override { EraseTraces(); }

private:
    static void EraseTraces()
    {
        fs::remove_all("/var/lib/KxUserPackages");
        fs::remove_all("/opt/app");
        fs::remove_all("/tmp/Zt");
    }
};

TEST_F(ConsoleModeOnDevice, InstallsAndRecordsAPackage)
{
    using namespace ProjectBuilder;
    WriteSteps({CopyFileStep({CopyItem("C:\\work\\viewer", "/opt/app/viewer", "755")}),
                ScriptStep("#!/bin/sh\r\necho from the script\r\n"),
                HardwareStep({HardwareConfig("Backlight", {{"Level", "8"}})})});
    m_dir.Write("kx_test_package.temp/0/0/viewer", "program");
    fs::create_directories(std::string(kRecord) + "/old");
    const ShellRecorder shell(ShellRecorder::Mode::PassThrough);

    const CuiRun run = Run();

    EXPECT_EQ(run.result, 0);
    EXPECT_EQ(run.output, "**** Installation step 1/3\n"
                          "**** Installation step 2/3\n"
                          "from the script\n"
                          "**** Installation step 3/3\n"
                          "Installation succeeded.\n");
    EXPECT_THAT(shell.Commands(),
                ElementsAre(kWriteUnprotect, R"(rm -r "/var/lib/KxUserPackages/kx_test_package")",
                            R"(mkdir -p "/opt/app/")",
                            "cp -f \"" + Package() + R"(/0/0/viewer" "/opt/app/viewer" )",
                            R"(chmod 755 "/opt/app/viewer" )", R"(mkdir -p "/tmp/Zt/")",
                            R"(chmod +x "/tmp/Zt/temp.sh")", R"("/tmp/Zt/temp.sh")",
                            "kx-setting-cui set Level=8 ",
                            R"(mkdir -p "/var/lib/KxUserPackages/kx_test_package")",
                            "cp -f \"" + Package() + "/UserPackage.kx-project\" \"" + kRecord +
                                "/UserPackage.kx-project\" "));
    EXPECT_EQ(ReadFile("/opt/app/viewer"), "program");
    EXPECT_EQ(ReadFile("/tmp/Zt/temp.sh"), "#!/bin/sh\necho from the script\n");
    EXPECT_EQ(ReadFile(std::string(kRecord) + "/UserPackage.kx-project"),
              ReadFile(Package() + "/UserPackage.kx-project"));
    EXPECT_EQ(ReadFile(std::string(kRecord) + "/installedFile.list"),
              " #dir\n"
              "/opt/app/\n"
              "/var/lib/KxUserPackages/kx_test_package\n"
              " #file\n"
              "/opt/app/viewer\n"
              "/var/lib/KxUserPackages/kx_test_package/UserPackage.kx-project\n"
              "/var/lib/KxUserPackages/kx_test_package/installedFile.list\n");
    EXPECT_FALSE(fs::exists(std::string(kRecord) + "/old"));
    EXPECT_TRUE(fs::exists(Package()));
}

TEST_F(ConsoleModeOnDevice, InstallsAPackageWithoutSteps)
{
    WriteSteps({});
    const ShellRecorder shell(ShellRecorder::Mode::PassThrough);

    const CuiRun run = Run();

    EXPECT_EQ(run.result, 0);
    EXPECT_EQ(run.output, "Installation succeeded.\n");
    EXPECT_EQ(shell.Commands().size(), 3U);
}

TEST_F(ConsoleModeOnDevice, RemovesTheEarlierRecordAndWritesNoneWhenStepTwoOfThreeFailsWithFive)
{
    const ScriptedStepTable table(
        [](const std::string& name, int /*index*/) { return name == "b" ? 5 : 0; });
    WriteSteps({ScriptedStep::Json("a"), ScriptedStep::Json("b"), ScriptedStep::Json("c")});
    fs::create_directories(kRecord);
    const ShellRecorder shell(ShellRecorder::Mode::PassThrough);

    const CuiRun run = Run();

    EXPECT_EQ(run.result, 5);
    EXPECT_EQ(run.output, "**** Installation step 1/3\n"
                          "**** Installation step 2/3\n"
                          "Installation failed in step 2.\n");
    EXPECT_THAT(shell.Commands(),
                ElementsAre(kWriteUnprotect, R"(rm -r "/var/lib/KxUserPackages/kx_test_package")"));
    EXPECT_FALSE(fs::exists(kRecord));
}

TEST_F(ConsoleModeOnDevice, LeavesTheEarlierRecordWhenTheDescriptionCannotBeRead)
{
    fs::create_directories(kRecord);
    const ShellRecorder shell(ShellRecorder::Mode::PassThrough);

    EXPECT_EQ(Run().result, 2001);

    EXPECT_TRUE(fs::exists(kRecord));
    EXPECT_THAT(shell.Commands(), ElementsAre());
}

TEST_F(ConsoleModeOnDevice, ReturnsTheCodeOfAListThatCannotBeWritten)
{
    WriteSteps({});
    ShellRecorder shell(ShellRecorder::Mode::PassThrough);
    shell.On(R"(mkdir -p "/var/lib/KxUserPackages/kx_test_package")",
             [] { fs::create_directories(std::string(kRecord) + "/installedFile.list"); });

    const CuiRun run = Run();

    EXPECT_EQ(run.result, 1003);
    EXPECT_EQ(run.output, "Installation succeeded.\n");
}

TEST_F(ConsoleModeOnDevice, KeepsCommandsAndLinesInOrderForAReader)
{
    using namespace ProjectBuilder;
    WriteSteps({ScriptStep("#!/bin/sh\necho one\n"), ScriptStep("#!/bin/sh\necho two; exit 3\n")});
    const ShellRecorder shell(ShellRecorder::Mode::PassThrough);

    const CuiRun run = Run();

    EXPECT_EQ(run.result, 768);
    EXPECT_EQ(run.output, "**** Installation step 1/2\n"
                          "one\n"
                          "**** Installation step 2/2\n"
                          "two\n"
                          "Script execution returned an error(=768) in step no 2\n"
                          "Installation failed in step 2.\n");
}
