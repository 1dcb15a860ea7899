// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT

// Who destroys what in a tree of project objects, and how often the objects below a list element
// are built.
#include "model/CountingObject.h"
#include "model/DescriptionTable.h"
#include "support/ProjectBuilder.h"

#include <memory>

using ::testing::ElementsAre;

namespace
{

using picojson::object;
using picojson::value;
using ProjectBuilder::Child;
using ProjectBuilder::Element;

} // namespace

class ObjectTree : public OwnTableFixture
{
protected:
    ObjectTree() { RegisterCounted(); }

    /// Creates the object that @p obj describes and destroys it again.
    static void CreateAndDestroy(object obj)
    {
        const std::unique_ptr<IPicoJ> root(q_UpdaterEngine::CreatePicoJObject(obj));
        EXPECT_NE(root, nullptr);
    }
};

TEST_F(ObjectTree, IsNotDestroyedBelowItsRoot)
{
    object root = ProjectBuilder::Root();
    root["DB_StepSets"] = value(Counted());

    CreateAndDestroy(root);

    EXPECT_THAT(m_events, ElementsAre("new 1", "initialize 1"));
}

TEST_F(ObjectTree, KeepsTheChildOfEveryClassAliveWhenTheParentGoes)
{
    int children = 0;
    for (const DescriptionTable::Class& info : DescriptionTable::Classes()) {
        object obj = DescriptionTable::Minimal(info);
        for (const DescriptionTable::Field& field : info.fields) {
            if (field.kind == DescriptionTable::Kind::Child) {
                obj[field.key] = value(Counted());
                ++children;
            }
        }
        CreateAndDestroy(obj);
    }

    EXPECT_EQ(children, 7);
    EXPECT_EQ(CountOf("new"), 7);
    EXPECT_EQ(CountOf("initialize"), 7);
    EXPECT_EQ(CountOf("delete"), 0);
}

TEST_F(ObjectTree, BuildsAStepsChildTwiceAndAbandonsTheFirst)
{
    object step = ProjectBuilder::CopyFileStep({});
    step["PathSetDatas"] = value(Counted());

    CreateAndDestroy(ProjectBuilder::Root({step}));

    EXPECT_THAT(m_events, ElementsAre("new 1", "initialize 1", "new 2", "initialize 2"));
}

TEST_F(ObjectTree, BuildsAnElementTwiceForEachListAboveIt)
{
    object root = ProjectBuilder::Root(
        {ProjectBuilder::HardwareStep({ProjectBuilder::HardwareConfig("Lan", {{"A", "1"}})})});
    object& step = Element(Child(root, "DB_StepSets"), 0);
    object& config = Element(Child(Child(step, "HardSettingDatas"), "DB_HardwareConfigs"), 0);
    Element(Child(config, "HardwareItems"), 0) = Counted();

    CreateAndDestroy(root);

    // Two lists above its own build it anew in each of their rounds; its own fills it twice.
    EXPECT_EQ(CountOf("new"), 4);
    EXPECT_EQ(CountOf("initialize"), 8);
    EXPECT_EQ(CountOf("delete"), 0);
}

TEST_F(ObjectTree, BuildsAStepListOfTheRootOnlyOnce)
{
    CreateAndDestroy(ProjectBuilder::Root({Counted(), Counted()}));

    EXPECT_THAT(m_events, ElementsAre("new 1", "initialize 1", "initialize 1", "new 2",
                                      "initialize 2", "initialize 2"));
}

TEST_F(ObjectTree, LeavesAFailedListsFirstElementsAlive)
{
    object root = ProjectBuilder::Root({Counted(), Counted(), object()});

    EXPECT_EQ(q_UpdaterEngine::CreatePicoJObject(root), nullptr);

    EXPECT_EQ(CountOf("new"), 2);
    EXPECT_EQ(CountOf("delete"), 0);
}

TEST_F(ObjectTree, LeavesTheFirstScriptAliveWhenTheSecondIsMissing)
{
    object step = ProjectBuilder::ScriptStep("exit 0");
    step["InstallScriptFunctionData"] = value(Counted());
    step.erase("UninstallScriptFunctionData");

    EXPECT_EQ(q_UpdaterEngine::CreatePicoJObject(step), nullptr);

    EXPECT_THAT(m_events, ElementsAre("new 1", "initialize 1"));
}

TEST_F(ObjectTree, ReachesNoChildInRootOnlyMode)
{
    q_UpdaterEngine::ChildlenMode = 1;
    object root = ProjectBuilder::Root();
    root["DB_StepSets"] = value(Counted());

    CreateAndDestroy(root);

    EXPECT_EQ(CountOf("new"), 0);
}
