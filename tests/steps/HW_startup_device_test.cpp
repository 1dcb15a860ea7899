// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT

// The start-up setting, which writes its script to a fixed place.
#include "steps/StepFixture.h"
#include "support/DeviceFixture.h"
#include "support/ShellRecorder.h"
#include "support/TempDir.h"

#include <filesystem>
#include <string>

using namespace std::string_literals;
using ProjectBuilder::HardwareConfig;
using ProjectBuilder::HardwareStep;
using ProjectBuilder::Object;
using ProjectBuilder::Pairs;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
namespace fs = std::filesystem;

namespace
{

constexpr const char* kScript = "/mnt/user/startup.sh";
constexpr const char* kChmod = R"(chmod 777 "/mnt/user/startup.sh" )";
constexpr const char* kFailed =
    "H/W setting failed in Zt.Plugins.HW_AutoStartupModeConfigSet,  Plexa in.";

Object StartUp(const Pairs& items)
{
    return HardwareConfig("AutoStartupMode", items);
}

/// Only the mode change runs for real; the setting tool is answered.
class HwAutoStartup : public DeviceFixture
{
protected:
    HwAutoStartup()
    {
        fs::create_directories("/mnt/user");
        fs::remove_all(kScript);
    }
    ~HwAutoStartup() override { fs::remove_all(kScript); }
};

/// Failures with and without CanSkip.
class HwAutoStartupFailure : public HwAutoStartup, public ::testing::WithParamInterface<bool>
{
};

} // namespace

TEST_F(HwAutoStartup, InstallsAnExecutableScriptAndCollectsNothing)
{
    ShellRecorder shell(ShellRecorder::Mode::PassThrough);

    EXPECT_EQ(ExecuteStep(HardwareStep({StartUp({{"CustomScript", "#!/bin/sh\nexit 0\n"}})})), 0);

    EXPECT_THAT(shell.Commands(), ElementsAre(kChmod));
    EXPECT_EQ(ReadFile(kScript), "#!/bin/sh\nexit 0\n");
    EXPECT_EQ(fs::status(kScript).permissions(), static_cast<fs::perms>(0777));
    EXPECT_THAT(Lines(), IsEmpty());
    EXPECT_THAT(Files(), IsEmpty());
}

TEST_F(HwAutoStartup, StoresTheScriptAsItIs)
{
    const std::string script = "a\r\nb\r%s%n\xFF\xFE\0end"s;
    ShellRecorder shell;

    EXPECT_EQ(ExecuteStep(HardwareStep({StartUp({{"CustomScript", script}})})), 0);

    EXPECT_EQ(ReadFile(kScript), script);
}

TEST_F(HwAutoStartup, StoresAnEmptyScriptAsAnEmptyFile)
{
    ShellRecorder shell;

    EXPECT_EQ(ExecuteStep(HardwareStep({StartUp({{"CustomScript", ""}})})), 0);

    EXPECT_THAT(shell.Commands(), ElementsAre(kChmod));
    EXPECT_EQ(ReadFile(kScript), "");
}

TEST_F(HwAutoStartup, CollectsItsOtherItemsInOrder)
{
    ShellRecorder shell;

    EXPECT_EQ(ExecuteStep(
                  HardwareStep({HardwareConfig("Lan", {{"Ip", "1"}}),
                                StartUp({{"Mode", "2"}, {"CustomScript", "exit"}, {"Delay", "5"}}),
                                HardwareConfig("Sound", {{"Volume", "3"}})})),
              0);

    EXPECT_THAT(shell.Commands(),
                ElementsAre(kChmod, "kx-setting-cui set Ip=1 Mode=2 Delay=5 Volume=3 "));
    EXPECT_EQ(ReadFile(kScript), "exit");
}

TEST_F(HwAutoStartup, WritesNoScriptForANameInAnotherCase)
{
    ShellRecorder shell;

    EXPECT_EQ(ExecuteStep(HardwareStep({StartUp({{"customscript", "a"}, {"CUSTOMSCRIPT", "b"}})})),
              0);

    EXPECT_THAT(shell.Commands(), ElementsAre("kx-setting-cui set customscript=a CUSTOMSCRIPT=b "));
    EXPECT_FALSE(fs::exists(kScript));
}

TEST_F(HwAutoStartup, ReplacesTheScriptByALaterOne)
{
    ShellRecorder shell;

    EXPECT_EQ(ExecuteStep(HardwareStep({StartUp(
                  {{"CustomScript", "the first, longer script"}, {"CustomScript", "last"}})})),
              0);

    EXPECT_THAT(shell.Commands(), ElementsAre(kChmod, kChmod));
    EXPECT_EQ(ReadFile(kScript), "last");
}

TEST_P(HwAutoStartupFailure, OfTheWriteIsReportedAfterItsOtherItemsWereCollected)
{
    fs::create_directories(kScript); // a folder in the file's place
    ShellRecorder shell;

    EXPECT_EQ(ExecuteStep(
                  HardwareStep({StartUp({{"Mode", "2"}, {"CustomScript", "exit"}, {"Delay", "5"}}),
                                HardwareConfig("Lan", {{"Ip", "1"}})},
                               GetParam())),
              GetParam() ? 0 : 1003);

    const std::vector<std::string> none;
    const std::vector<std::string> tool = {"kx-setting-cui set Mode=2 Delay=5 Ip=1 "};
    EXPECT_EQ(shell.Commands(), GetParam() ? tool : none);
    EXPECT_THAT(Lines(), ElementsAre(kFailed));
}

TEST_P(HwAutoStartupFailure, OfTheModeChangeIsReportedAndLeavesTheScript)
{
    ShellRecorder shell;
    shell.Answer(kChmod, 256);

    EXPECT_EQ(ExecuteStep(HardwareStep({StartUp({{"CustomScript", "exit"}})}, GetParam())),
              GetParam() ? 0 : 256);

    EXPECT_THAT(shell.Commands(), ElementsAre(kChmod));
    EXPECT_EQ(ReadFile(kScript), "exit");
    EXPECT_THAT(Lines(), ElementsAre(kFailed));
}

INSTANTIATE_TEST_SUITE_P(CanSkip, HwAutoStartupFailure, ::testing::Bool());

TEST_F(HwAutoStartup, ReportsAFullDisk)
{
    fs::create_symlink("/dev/full", kScript);
    ShellRecorder shell;

    EXPECT_EQ(ExecuteStep(HardwareStep({StartUp({{"CustomScript", "exit"}})})), 1003);

    EXPECT_THAT(shell.Commands(), IsEmpty());
    EXPECT_THAT(Lines(), ElementsAre(kFailed));
}

TEST_F(HwAutoStartup, KeepsAFailureThatASuccessFollows)
{
    ShellRecorder shell;
    shell.AnswerNth(1, 256);

    EXPECT_EQ(ExecuteStep(HardwareStep({StartUp({{"CustomScript", "a"}, {"CustomScript", "b"}})})),
              256);

    EXPECT_THAT(shell.Commands(), ElementsAre(kChmod, kChmod));
    EXPECT_EQ(ReadFile(kScript), "b");
}

TEST_F(HwAutoStartup, ReturnsTheLastOfSeveralFailures)
{
    ShellRecorder shell;
    shell.AnswerNth(1, 256);
    shell.AnswerNth(2, 512);

    EXPECT_EQ(ExecuteStep(HardwareStep({StartUp(
                  {{"CustomScript", "a"}, {"CustomScript", "b"}, {"CustomScript", "c"}})})),
              512);

    EXPECT_THAT(Lines(), ElementsAre(kFailed));
}

TEST_F(HwAutoStartup, WritesNoScriptWhenAnItemCannotBeUsed)
{
    Object config = StartUp({{"CustomScript", "new"}, {"Mode", "2"}});
    ProjectBuilder::Element(ProjectBuilder::Child(config, "HardwareItems"), 1) = StartUp({});
    ShellRecorder shell;

    EXPECT_EQ(ExecuteStep(HardwareStep({config}, true)), 2002);

    EXPECT_THAT(shell.Commands(), IsEmpty());
    EXPECT_FALSE(fs::exists(kScript));
    EXPECT_THAT(Lines(), ElementsAre("Unexpected Zt.DB_HardwareConfig, Ruvelo object in step 1."));
}
