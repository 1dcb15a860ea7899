// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT

// Objects of a class that a step cannot use: the reader accepts them anywhere.
#include "engine/q_UpdaterEngine.h"
#include "model/DB_Hardware.h"
#include "model/DB_StepSets.h"
#include "steps/SS.h"
#include "steps/StepFixture.h"
#include "support/ShellRecorder.h"

#include <string>
#include <tuple>
#include <vector>

using ProjectBuilder::Child;
using ProjectBuilder::CopyFileStep;
using ProjectBuilder::CopyFolderStep;
using ProjectBuilder::CopyItem;
using ProjectBuilder::Element;
using ProjectBuilder::Flag;
using ProjectBuilder::HardwareConfig;
using ProjectBuilder::HardwareStep;
using ProjectBuilder::List;
using ProjectBuilder::Object;
using ProjectBuilder::Root;
using ProjectBuilder::ScriptStep;
using ProjectBuilder::StepSets;
using ProjectBuilder::Text;
using ProjectBuilder::Value;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace
{

Object WithId(Object step, const std::string& kind)
{
    step["SS_StepSetId"] = Text("Zt.Plugins.SS_" + kind + "StepSet,  Plexa");
    return step;
}

Object With(Object parent, const std::string& key, const Object& child)
{
    parent[key] = Value(child);
    return parent;
}

Object Item()
{
    return CopyItem("f", "/g");
}

Object HardwareItem()
{
    return {{"$type", Text("Zt.DB_HardwareItem, Drovic")},
            {"ItemName", Text("A")},
            {"Value", Text("1")}};
}

Object Settings(const Object& configs)
{
    return {{"$type", Text("Zt.Plugins.DB_HardSettingFunctionData, Plexa")},
            {"DB_HardwareConfigs", Value(configs)}};
}

/// A hardware step whose only setting holds @p items.
Object HardwareItems(const Object& items)
{
    return HardwareStep({With(HardwareConfig("User", {}), "HardwareItems", items)});
}

struct UnexpectedRow {
    const char* name;
    Object (*step)();
    const char* type; ///< class of the object that cannot be used
};

const UnexpectedRow kRows[] = {
    {"CopyFileRecord", [] { return WithId(ScriptStep("x"), "CopyFile"); },
     "Zt.Plugins.DB_ScriptStepSet, Plexa"},
    {"CopyFolderRecord", [] { return WithId(HardwareStep({}), "CopyFolder"); },
     "Zt.Plugins.DB_HardSettingStepSet, Plexa"},
    {"ScriptRecord", [] { return WithId(CopyFileStep({}), "Script"); },
     "Zt.Plugins.DB_CopyStepSet, Plexa"},
    {"HardSettingRecord", [] { return WithId(ScriptStep("x"), "HardSetting"); },
     "Zt.Plugins.DB_ScriptStepSet, Plexa"},
    {"CopyFileListIsAnItem", [] { return With(CopyFileStep({}), "PathSetDatas", Item()); },
     "Zt.Plugins.DB_CopyFunctionData, Plexa"},
    {"CopyFileListIsAnotherList",
     [] { return With(CopyFileStep({}), "PathSetDatas", StepSets({})); },
     "Zt.Plugins.DB_StepSets, Plexa"},
    {"CopyFolderList",
     [] {
         return With(CopyFolderStep({}), "PathSetDatas", List("Zt.DB_HardwareItems, Drovic", {}));
     },
     "Zt.DB_HardwareItems, Drovic"},
    {"CopyFileItem", [] { return CopyFileStep({HardwareItem()}); }, "Zt.DB_HardwareItem, Drovic"},
    {"CopyFolderItem", [] { return CopyFolderStep({CopyFolderStep({})}); },
     "Zt.Plugins.DB_CopyStepSet, Plexa"},
    {"CopyItemIsAList", [] { return CopyFileStep({List("Zt.DB_HardwareConfigs, Ruvelo", {})}); },
     "Zt.DB_HardwareConfigs, Ruvelo"},
    {"Script", [] { return With(ScriptStep("x"), "InstallScriptFunctionData", Item()); },
     "Zt.Plugins.DB_CopyFunctionData, Plexa"},
    {"ScriptIsAPackage", [] { return With(ScriptStep("x"), "InstallScriptFunctionData", Root()); },
     "Zt.Plugins.DB_KxUserProject, Plexa"},
    {"ScriptIsAList",
     [] {
         return With(ScriptStep("x"), "InstallScriptFunctionData",
                     List("Zt.Plugins.DB_CopyFunctionDatas, Plexa", {Item()}));
     },
     "Zt.Plugins.DB_CopyFunctionDatas, Plexa"},
    {"HardSettingData",
     [] {
         return With(HardwareStep({}), "HardSettingDatas",
                     {{"$type", Text("Zt.Plugins.DB_ScriptFunctionData, Plexa")},
                      {"ScriptData", Text("x")}});
     },
     "Zt.Plugins.DB_ScriptFunctionData, Plexa"},
    {"HardSettingDataIsTheList",
     [] {
         return With(HardwareStep({}), "HardSettingDatas",
                     List("Zt.DB_HardwareConfigs, Ruvelo", {}));
     },
     "Zt.DB_HardwareConfigs, Ruvelo"},
    {"HardwareConfigs",
     [] { return With(HardwareStep({}), "HardSettingDatas", Settings(HardwareItem())); },
     "Zt.DB_HardwareItem, Drovic"},
    {"HardwareConfigsIsAData",
     [] {
         return With(HardwareStep({}), "HardSettingDatas",
                     Settings(Settings(List("Zt.DB_HardwareConfigs, Ruvelo", {}))));
     },
     "Zt.Plugins.DB_HardSettingFunctionData, Plexa"},
    {"HardwareConfig", [] { return HardwareStep({HardwareItem()}); }, "Zt.DB_HardwareItem, Drovic"},
    {"HardwareItems", [] { return HardwareItems(HardwareItem()); }, "Zt.DB_HardwareItem, Drovic"},
    {"HardwareItemsIsAnotherList",
     [] { return HardwareItems(List("Zt.DB_HardwareConfigs, Ruvelo", {})); },
     "Zt.DB_HardwareConfigs, Ruvelo"},
    {"HardwareItem",
     [] { return HardwareItems(List("Zt.DB_HardwareItems, Drovic", {HardwareConfig("Lan", {})})); },
     "Zt.DB_HardwareConfig, Ruvelo"},
    {"LastHardwareItem",
     [] {
         return HardwareItems(
             List("Zt.DB_HardwareItems, Drovic", {HardwareItem(), HardwareItem(), Item()}));
     },
     "Zt.Plugins.DB_CopyFunctionData, Plexa"},
};

class SsUnexpectedObject : public StepFixture,
                           public ::testing::WithParamInterface<std::tuple<UnexpectedRow, bool>>
{
};

class SsUnexpected : public StepFixture
{
};

} // namespace

TEST_P(SsUnexpectedObject, FailsTheStepWithItsClassAlsoWithCanSkip)
{
    const auto& [row, canSkip] = GetParam();
    Object step = row.step();
    step["CanSkip"] = Flag(canSkip);
    ShellRecorder shell;

    EXPECT_EQ(ExecuteStep(step, 4), 2002);

    EXPECT_THAT(Lines(), ElementsAre(std::string("Unexpected ") + row.type + " object in step 5."));
    EXPECT_THAT(shell.Commands(), IsEmpty());
    EXPECT_THAT(Files(), IsEmpty());
    EXPECT_THAT(Folders(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Places, SsUnexpectedObject,
                         ::testing::Combine(::testing::ValuesIn(kRows), ::testing::Bool()),
                         [](const auto& row) {
                             return std::get<0>(row.param).name +
                                    std::string(std::get<1>(row.param) ? "CanSkip" : "");
                         });

namespace
{

class SsUnexpectedBehindOthers : public StepFixture, public ::testing::WithParamInterface<bool>
{
};

constexpr const char* kHardwareItemInStep1 =
    "Unexpected Zt.DB_HardwareItem, Drovic object in step 1.";

} // namespace

TEST_P(SsUnexpectedBehindOthers, LeavesEarlierFilesCopiedAndLaterOnesAlone)
{
    ShellRecorder shell;

    EXPECT_EQ(
        ExecuteStep(CopyFileStep(
            {CopyItem("f", "/a", "644"), HardwareItem(), CopyItem("h", "/c", "644")}, GetParam())),
        2002);

    EXPECT_THAT(shell.Commands(), ElementsAre(R"(cp -f "/pkg/0/0/f" "/a" )", R"(chmod 644 "/a" )"));
    EXPECT_THAT(Files(), ElementsAre("/a"));
    EXPECT_THAT(Lines(), ElementsAre(kHardwareItemInStep1));
}

TEST_P(SsUnexpectedBehindOthers, LeavesEarlierFoldersCopiedAndLaterOnesAlone)
{
    ShellRecorder shell;

    EXPECT_EQ(ExecuteStep(CopyFolderStep(
                  {CopyItem("f", "/kx-none/a"), HardwareItem(), CopyItem("h", "/kx-none/c")},
                  GetParam())),
              2002);

    EXPECT_THAT(shell.Commands(), ElementsAre(R"(mkdir -p "/kx-none/a")"));
    EXPECT_THAT(Folders(), ElementsAre("/kx-none/a"));
    EXPECT_THAT(Lines(), ElementsAre(kHardwareItemInStep1));
}

TEST_P(SsUnexpectedBehindOthers, KeepsAppliedSettingsAndDropsCollectedWords)
{
    ShellRecorder shell;

    EXPECT_EQ(ExecuteStep(HardwareStep({HardwareConfig("Lan", {{"A", "1"}}),
                                        HardwareConfig("User", {{"User", "u"}}), HardwareItem(),
                                        HardwareConfig("User", {{"User", "v"}})},
                                       GetParam())),
              2002);

    EXPECT_THAT(shell.Commands(), ElementsAre("echo 'u:' | chpasswd"));
    EXPECT_THAT(Lines(), ElementsAre(kHardwareItemInStep1));
}

TEST_P(SsUnexpectedBehindOthers, DropsCollectedWordsForAnItemThatCannotBeUsed)
{
    Object config = HardwareConfig("User", {{"User", "u"}, {"Password", "p"}, {"X", "x"}});
    Element(Child(config, "HardwareItems"), 2) = Item();
    ShellRecorder shell;

    EXPECT_EQ(ExecuteStep(HardwareStep({HardwareConfig("Lan", {{"A", "1"}}), config,
                                        HardwareConfig("Lan", {{"B", "2"}})},
                                       GetParam())),
              2002);

    EXPECT_THAT(shell.Commands(), IsEmpty());
    EXPECT_THAT(Lines(),
                ElementsAre("Unexpected Zt.Plugins.DB_CopyFunctionData, Plexa object in step 1."));
}

INSTANTIATE_TEST_SUITE_P(CanSkip, SsUnexpectedBehindOthers, ::testing::Bool());

TEST_F(SsUnexpected, EndsAStepThatPassedOverFailures)
{
    ShellRecorder shell;
    shell.AnswerNth(1, 256);

    EXPECT_EQ(ExecuteStep(CopyFileStep({CopyItem("f", "/a", "644"), HardwareItem()}, true)), 2002);

    EXPECT_THAT(Lines(), ElementsAre("File copy error(= 256) is corrupted. From /pkg/0/0/f to /a  "
                                     "(Permissions=644)",
                                     kHardwareItemInStep1));
}

TEST_F(SsUnexpected, MayStandInASettingThatIsNotUsed)
{
    const Object list = List("Zt.DB_HardwareItems, Drovic", {Root()});
    const Object unused = HardwareConfig("User", {{"User", "u"}}, false);
    ShellRecorder shell;

    EXPECT_EQ(ExecuteStep(HardwareStep({With(unused, "HardwareItems", list),
                                        With(unused, "HardwareItems", StepSets({})),
                                        HardwareConfig("Lan", {{"A", "1"}})})),
              0);

    EXPECT_THAT(shell.Commands(), ElementsAre("kx-setting-cui set A=1 "));
    EXPECT_THAT(Lines(), IsEmpty());
}

TEST_F(SsUnexpected, IsNotLookedForInASettingOfUnknownKind)
{
    const Object config = With(HardwareConfig("None", {}), "HardwareItems", HardwareItem());
    ShellRecorder shell;

    EXPECT_EQ(ExecuteStep(HardwareStep({config})), 2003);
    EXPECT_EQ(ExecuteStep(HardwareStep({config, HardwareConfig("Lan", {{"A", "1"}})}, true)), 0);

    EXPECT_THAT(shell.Commands(), ElementsAre("kx-setting-cui set A=1 "));
    EXPECT_THAT(Lines(), ElementsAre("Zt.Plugins.HW_NoneConfigSet,  Plexa is unknown class.",
                                     "Zt.Plugins.HW_NoneConfigSet,  Plexa is unknown class."));
}

TEST_F(SsUnexpected, IsNotTheSharedRecordOfTheOtherCopyStep)
{
    // Both copy steps share their record, so each runs with the other's.
    ShellRecorder shell;

    EXPECT_EQ(ExecuteStep(WithId(CopyFolderStep({CopyItem("f", "/g", "644")}), "CopyFile")), 0);

    EXPECT_THAT(shell.Commands(), ElementsAre(R"(cp -f "/pkg/0/0/f" "/g" )", R"(chmod 644 "/g" )"));
}

namespace
{

Object (*const kSteps[])() = {
    [] { return CopyFileStep({Item()}, true); },
    [] { return CopyFolderStep({Item()}, true); },
    [] { return ScriptStep("x", true); },
    [] { return HardwareStep({HardwareConfig("User", {})}, true); },
};

class SsMissingChild : public StepFixture, public ::testing::WithParamInterface<Object (*)()>
{
};

} // namespace

TEST_P(SsMissingChild, FailsTheStepWithoutAClassToReport)
{
    // A read without the child objects leaves a record like this one.
    q_UpdaterEngine::ChildlenMode = 1;
    ShellRecorder shell;

    EXPECT_EQ(ExecuteStep(GetParam()()), 2002);

    EXPECT_THAT(Lines(), IsEmpty());
    EXPECT_THAT(shell.Commands(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Steps, SsMissingChild, ::testing::ValuesIn(kSteps));

TEST_F(SsUnexpected, IsReportedOnceAndCountedFromOne)
{
    const DB_HardwareItem item;

    EXPECT_EQ(SS_ReportUnexpected(&item, 0), 2002);
    EXPECT_EQ(SS_ReportUnexpected(&item, 998), 2002);

    EXPECT_THAT(Lines(), ElementsAre(kHardwareItemInStep1,
                                     "Unexpected Zt.DB_HardwareItem, Drovic object in step 999."));
}

TEST_F(SsUnexpected, IsNotReportedWhenThereIsNoObjectAtAll)
{
    EXPECT_EQ(SS_ReportUnexpected(nullptr, 0), 2002);

    EXPECT_THAT(Lines(), IsEmpty());
}
