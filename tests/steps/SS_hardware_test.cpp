// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "steps/StepFixture.h"
#include "support/ShellRecorder.h"

#include <string>
#include <vector>

using namespace std::string_literals;
using ProjectBuilder::HardwareConfig;
using ProjectBuilder::HardwareStep;
using ProjectBuilder::Object;
using ProjectBuilder::Text;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace
{

constexpr const char* kPasswordCommand = "echo 'u1:p1' | chpasswd";

Object UserConfig(bool isUsed = true)
{
    return HardwareConfig("User", {{"User", "u1"}, {"Password", "p1"}}, isUsed);
}

Object UnknownConfig(const std::string& id, bool isUsed = true)
{
    Object config = HardwareConfig("Backlight", {{"Lost", "1"}}, isUsed);
    config["ConfigId"] = Text(id);
    return config;
}

class SsHardSetting : public StepFixture
{
};

} // namespace

TEST_F(SsHardSetting, RunsNothingForAnEmptyList)
{
    ShellRecorder shell;

    EXPECT_EQ(ExecuteStep(HardwareStep({})), 0);
    EXPECT_EQ(ExecuteStep(HardwareStep({}, true)), 0);

    EXPECT_THAT(shell.Commands(), IsEmpty());
    EXPECT_THAT(Lines(), IsEmpty());
}

TEST_F(SsHardSetting, RunsNothingWhenEverySettingIsUnused)
{
    ShellRecorder shell;

    EXPECT_EQ(ExecuteStep(HardwareStep({HardwareConfig("Backlight", {{"Level", "8"}}, false),
                                        UserConfig(false), UnknownConfig("no such kind", false)})),
              0);

    EXPECT_THAT(shell.Commands(), IsEmpty());
    EXPECT_THAT(Lines(), IsEmpty());
}

TEST_F(SsHardSetting, RunsNothingForASettingWithoutItems)
{
    ShellRecorder shell;

    EXPECT_EQ(ExecuteStep(HardwareStep({HardwareConfig("Sound", {})})), 0);

    EXPECT_THAT(shell.Commands(), IsEmpty());
    EXPECT_THAT(Lines(), IsEmpty());
}

TEST_F(SsHardSetting, HandsTheWordsOfASettingToTheTool)
{
    ShellRecorder shell;

    EXPECT_EQ(ExecuteStep(HardwareStep({HardwareConfig("Backlight", {{"A", "1"}, {"B", "2"}})})),
              0);

    EXPECT_THAT(shell.Commands(), ElementsAre("kx-setting-cui set A=1 B=2 "));
    EXPECT_THAT(Lines(), IsEmpty());
}

TEST_F(SsHardSetting, HandsTheWordsOfAllUsedSettingsToTheToolAtOnceAndInOrder)
{
    ShellRecorder shell;

    EXPECT_EQ(ExecuteStep(HardwareStep({HardwareConfig("Sound", {{"Volume", "3"}}),
                                        HardwareConfig("Cursor", {{"Hidden", "1"}}, false),
                                        HardwareConfig("Language", {}),
                                        HardwareConfig("Backlight", {{"Level", "8"}, {"Off", "0"}}),
                                        HardwareConfig("Sound", {{"Volume", "3"}})})),
              0);

    EXPECT_THAT(shell.Commands(),
                ElementsAre("kx-setting-cui set Volume=3 Level=8 Off=0 Volume=3 "));
}

TEST_F(SsHardSetting, ChangesThePasswordBeforeTheToolRuns)
{
    ShellRecorder shell;

    EXPECT_EQ(ExecuteStep(HardwareStep({HardwareConfig("Lan", {{"Ip", "10.0.0.2"}}), UserConfig(),
                                        HardwareConfig("SStart", {{"On", "1"}})})),
              0);

    EXPECT_THAT(shell.Commands(),
                ElementsAre(kPasswordCommand, "kx-setting-cui set Ip=10.0.0.2 On=1 "));
}

TEST_F(SsHardSetting, RunsNoToolWhenOnlyThePasswordChanges)
{
    ShellRecorder shell;

    EXPECT_EQ(ExecuteStep(HardwareStep({UserConfig()})), 0);

    EXPECT_THAT(shell.Commands(), ElementsAre(kPasswordCommand));
}

TEST_F(SsHardSetting, DoesNotLookAtTheToolsStatus)
{
    for (const int status : {256, 32512, 9, -1}) {
        ShellRecorder shell;
        shell.Answer("kx-setting-cui set A=1 ", status);

        EXPECT_EQ(ExecuteStep(HardwareStep({HardwareConfig("Cursor", {{"A", "1"}})})), 0);

        EXPECT_EQ(shell.Commands().size(), 1U);
    }
    EXPECT_THAT(Lines(), IsEmpty());
}

TEST_F(SsHardSetting, EndsAtASettingOfUnknownKind)
{
    ShellRecorder shell;

    EXPECT_EQ(ExecuteStep(HardwareStep({HardwareConfig("Sound", {{"Volume", "3"}}), UserConfig(),
                                        UnknownConfig("no such kind"),
                                        HardwareConfig("Backlight", {{"Level", "8"}})})),
              2003);

    // What acted at once stays done; collected words are dropped.
    EXPECT_THAT(shell.Commands(), ElementsAre(kPasswordCommand));
    EXPECT_THAT(Lines(), ElementsAre("no such kind is unknown class."));
}

TEST_F(SsHardSetting, PassesOverSettingsOfUnknownKindWithCanSkip)
{
    ShellRecorder shell;

    EXPECT_EQ(ExecuteStep(HardwareStep({HardwareConfig("Sound", {{"Volume", "3"}}),
                                        UnknownConfig("first"), UnknownConfig("%s%n"),
                                        HardwareConfig("Backlight", {{"Level", "8"}})},
                                       true)),
              0);

    EXPECT_THAT(shell.Commands(), ElementsAre("kx-setting-cui set Volume=3 Level=8 "));
    EXPECT_THAT(Lines(), ElementsAre("first is unknown class.", "%s%n is unknown class."));
}

TEST_F(SsHardSetting, EndsWithTheStatusOfASettingThatFailed)
{
    ShellRecorder shell;
    shell.Answer(kPasswordCommand, 256);

    EXPECT_EQ(ExecuteStep(HardwareStep({HardwareConfig("Sound", {{"Volume", "3"}}), UserConfig(),
                                        HardwareConfig("Backlight", {{"Level", "8"}})})),
              256);

    EXPECT_THAT(shell.Commands(), ElementsAre(kPasswordCommand));
    EXPECT_THAT(Lines(),
                ElementsAre("H/W setting failed in Zt.Plugins.HW_UserConfigSet,  Plexa in."));
}

TEST_F(SsHardSetting, GoesOnBehindASettingThatFailedWithCanSkip)
{
    ShellRecorder shell;
    shell.Answer(kPasswordCommand, 256);

    EXPECT_EQ(
        ExecuteStep(HardwareStep({HardwareConfig("Sound", {{"Volume", "3"}}), UserConfig(),
                                  HardwareConfig("Backlight", {{"Level", "8"}}), UserConfig()},
                                 true)),
        0);

    EXPECT_THAT(shell.Commands(), ElementsAre(kPasswordCommand, kPasswordCommand,
                                              "kx-setting-cui set Volume=3 Level=8 "));
    EXPECT_THAT(Lines(),
                ElementsAre("H/W setting failed in Zt.Plugins.HW_UserConfigSet,  Plexa in.",
                            "H/W setting failed in Zt.Plugins.HW_UserConfigSet,  Plexa in."));
}

class SsHardSettingStatus : public StepFixture, public ::testing::WithParamInterface<int>
{
};

TEST_P(SsHardSettingStatus, IsReturnedRaw)
{
    ShellRecorder shell;
    shell.Answer(kPasswordCommand, GetParam());

    EXPECT_EQ(ExecuteStep(HardwareStep({UserConfig()})), GetParam());

    EXPECT_THAT(Lines(),
                ElementsAre("H/W setting failed in Zt.Plugins.HW_UserConfigSet,  Plexa in."));
}

INSTANTIATE_TEST_SUITE_P(Statuses, SsHardSettingStatus, ::testing::Values(1, 9, 256, 65280, -1));

namespace
{

const char* const kUnknownIds[] = {
    "",
    "Zt.Plugins.HW_UserConfigSet, Plexa",   // one blank
    "Zt.Plugins.HW_UserConfigSet,   Plexa", // three
    "zt.plugins.hw_userconfigset,  plexa",
    "Zt.Plugins.HW_UserConfigSet,  Plexa ",
    "Zt.Plugins.HW_UserConfigSet",
    "Zt.DB_HardwareConfig, Ruvelo",
    "%d",
    "\xFF\xFE",
};

class SsHardSettingId : public StepFixture, public ::testing::WithParamInterface<const char*>
{
};

} // namespace

TEST_P(SsHardSettingId, IsUnknownUnlessItEqualsAKeyByteForByte)
{
    Object config = UserConfig();
    config["ConfigId"] = Text(GetParam());
    ShellRecorder shell;

    EXPECT_EQ(ExecuteStep(HardwareStep({config})), 2003);

    EXPECT_THAT(shell.Commands(), IsEmpty());
    EXPECT_THAT(Lines(), ElementsAre(GetParam() + " is unknown class."s));
}

INSTANTIATE_TEST_SUITE_P(Ids, SsHardSettingId, ::testing::ValuesIn(kUnknownIds));

TEST_F(SsHardSetting, PassesWordsOnWithoutQuoting)
{
    ShellRecorder shell;

    EXPECT_EQ(ExecuteStep(HardwareStep({HardwareConfig("Language", {{"a b", "c d"},
                                                                    {"", ""},
                                                                    {"%s", "%n%d"},
                                                                    {"q", "\"'`$x\\"},
                                                                    {"b", "\xFF\xFE"},
                                                                    {"l", "1\n2"}})})),
              0);

    EXPECT_THAT(shell.Commands(),
                ElementsAre("kx-setting-cui set a b=c d = %s=%n%d q=\"'`$x\\ b=\xFF\xFE l=1\n2 "));
}

TEST_F(SsHardSetting, EndsTheCommandAtAZeroByte)
{
    ShellRecorder shell;

    EXPECT_EQ(ExecuteStep(HardwareStep({HardwareConfig("Lan", {{"A", "1\0 2"s}, {"B", "3"}})})), 0);

    EXPECT_THAT(shell.Commands(), ElementsAre("kx-setting-cui set A=1"));
}

TEST_F(SsHardSetting, HandsOver100000BytesWhole)
{
    const std::string value(100000, 'v');
    const std::vector<Object> configs(3, HardwareConfig("Lan", {{"A", value}}));
    ShellRecorder shell;

    EXPECT_EQ(ExecuteStep(HardwareStep(configs)), 0);

    const std::string word = "A=" + value + " ";
    EXPECT_THAT(shell.Commands(), ElementsAre("kx-setting-cui set " + word + word + word));
}

TEST_F(SsHardSetting, CollectsAnewInEveryStep)
{
    ShellRecorder shell;

    EXPECT_EQ(ExecuteStep(HardwareStep({HardwareConfig("Lan", {{"A", "1"}})}), 0), 0);
    EXPECT_EQ(ExecuteStep(HardwareStep({HardwareConfig("Lan", {{"B", "2"}})}), 1), 0);

    EXPECT_THAT(shell.Commands(),
                ElementsAre("kx-setting-cui set A=1 ", "kx-setting-cui set B=2 "));
}

TEST_F(SsHardSetting, RecordsNothing)
{
    ShellRecorder shell;

    EXPECT_EQ(ExecuteStep(HardwareStep({UserConfig(), HardwareConfig("Lan", {{"A", "1"}})})), 0);

    EXPECT_THAT(Folders(), IsEmpty());
    EXPECT_THAT(Files(), IsEmpty());
}
