// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT

// The records of the package description: what is stored where, and in which order it is read.
#include "model/CountingObject.h"
#include "model/DB_FunctionDatas.h"
#include "model/DB_Hardware.h"
#include "model/DB_KxUserProject.h"
#include "model/DB_StepSets.h"
#include "model/DescriptionTable.h"
#include "osa/ResultCodes.h"
#include "support/ProjectBuilder.h"

#include <memory>
#include <type_traits>

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace
{

using DescriptionTable::Class;
using DescriptionTable::Field;
using DescriptionTable::Kind;
using picojson::object;
using picojson::value;

std::vector<Class> RecordClasses()
{
    std::vector<Class> records;
    for (const Class& info : DescriptionTable::Classes()) {
        if (!info.isList) {
            records.push_back(info);
        }
    }
    return records;
}

/// Creates the object that @p obj describes.
template <class T>
std::unique_ptr<T> Create(object obj)
{
    auto* const created = ObjectAs<T>(q_UpdaterEngine::CreatePicoJObject(obj));
    EXPECT_NE(created, nullptr);
    return std::unique_ptr<T>(created);
}

} // namespace

class Record : public OwnTableFixture, public ::testing::WithParamInterface<Class>
{
protected:
    /// A new, empty object of the class.
    [[nodiscard]] std::unique_ptr<IPicoJ> NewObject() const
    {
        return std::unique_ptr<IPicoJ>(
            m_table.Find(GetParam().type.c_str(), &IPicoJ::ClassType)->New());
    }
};

TEST_P(Record, ReadsItsFieldsInTheirFixedOrder)
{
    const object whole = DescriptionTable::Minimal(GetParam());
    object obj;
    std::vector<std::string> expected;

    for (const Field& field : GetParam().fields) {
        EXPECT_EQ(NewObject()->Initialize(obj), 2002);
        expected.push_back(DescriptionTable::NoField(GetParam().type, field.key));
        obj[field.key] = whole.at(field.key);
    }
    EXPECT_EQ(NewObject()->Initialize(obj), 0);

    EXPECT_EQ(Lines(), expected);
}

TEST_P(Record, AddsOnlyTheFirstMissingKeyAsNull)
{
    object obj;

    EXPECT_EQ(NewObject()->Initialize(obj), 2002);

    ASSERT_EQ(obj.size(), 1U);
    EXPECT_EQ(obj.begin()->first, GetParam().fields.front().key);
    EXPECT_TRUE(obj.begin()->second.is<picojson::null>());
}

TEST_P(Record, IgnoresKeysItDoesNotKnow)
{
    object obj = DescriptionTable::Minimal(GetParam());
    obj["$values"] = value("no array");
    obj["title"] = value(1.0);
    obj[""] = value();

    EXPECT_EQ(NewObject()->Initialize(obj), 0);

    EXPECT_THAT(Lines(), IsEmpty());
}

TEST_P(Record, StopsBeforeItsFirstChildInRootOnlyMode)
{
    q_UpdaterEngine::ChildlenMode = 1;
    object obj = DescriptionTable::Minimal(GetParam());
    for (const Field& field : GetParam().fields) {
        if (field.kind == Kind::Child) {
            obj.erase(field.key);
        }
    }
    const std::size_t size = obj.size();

    EXPECT_EQ(NewObject()->Initialize(obj), 0);

    EXPECT_EQ(obj.size(), size);
    EXPECT_THAT(Lines(), IsEmpty());
}

TEST_P(Record, AcceptsAChildOfAnyClass)
{
    for (const Field& field : GetParam().fields) {
        for (const Class& child : DescriptionTable::Classes()) {
            object obj = DescriptionTable::Minimal(GetParam());
            if (field.kind == Kind::Child) {
                obj[field.key] = value(DescriptionTable::Minimal(child));
            }
            EXPECT_EQ(NewObject()->Initialize(obj), 0) << field.key << " " << child.name;
        }
    }
    EXPECT_THAT(Lines(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Classes, Record, ::testing::ValuesIn(RecordClasses()),
                         [](const auto& test) { return test.param.name; });

using DescriptionRecord = OwnTableFixture;

TEST_F(DescriptionRecord, OfTheRootKeepsItsTexts)
{
    const auto root = Create<DB_KxUserProject>(ProjectBuilder::Root());

    EXPECT_EQ(root->ModelName, "TP-0700");
    EXPECT_EQ(root->OsVersion, "2.1.0");
    EXPECT_EQ(root->PackageVersion, "1.0.3");
    EXPECT_EQ(root->Title, "Line 4 recipes");
    EXPECT_EQ(root->Comment, "Adds the recipe viewer");
    EXPECT_EQ(root->Date, "2024/05/17");
    ASSERT_NE(ObjectAs<DB_StepSets>(root->DB_StepSets), nullptr);
    EXPECT_EQ(ObjectAs<DB_StepSets>(root->DB_StepSets)->count, 0);
}

TEST_F(DescriptionRecord, OfACopyStepKeepsItsFieldsAndItems)
{
    object json = ProjectBuilder::CopyFolderStep(
        {ProjectBuilder::CopyItem("a", "/b", "644"), ProjectBuilder::CopyItem("c", "/d/")}, true,
        false);

    const auto step = Create<DB_CopyStepSet>(json);

    EXPECT_EQ(step->SS_StepSetId, "Zt.Plugins.SS_CopyFolderStepSet,  Plexa");
    EXPECT_EQ(step->Comment, "a step");
    EXPECT_TRUE(step->CanSkip);
    EXPECT_TRUE(step->IsRelativePath);
    EXPECT_FALSE(step->IsRemove);
    auto* const items = ObjectAs<DB_CopyFunctionDatas>(step->PathSetDatas);
    ASSERT_NE(items, nullptr);
    ASSERT_EQ(items->count, 2);
    EXPECT_EQ(items->items[0]->SourcePath, "a");
    EXPECT_EQ(items->items[0]->DestinationPath, "/b");
    EXPECT_EQ(items->items[0]->Permissions, "644");
    EXPECT_EQ(items->items[1]->SourcePath, "c");
    EXPECT_EQ(items->items[1]->DestinationPath, "/d/");
    EXPECT_EQ(items->items[1]->Permissions, "");
}

TEST_F(DescriptionRecord, OfAScriptStepKeepsBothScripts)
{
    const auto step = Create<DB_ScriptStepSet>(ProjectBuilder::ScriptStep("echo\r\n", true));

    EXPECT_EQ(step->SS_StepSetId, "Zt.Plugins.SS_ScriptStepSet,  Plexa");
    EXPECT_TRUE(step->CanSkip);
    const auto* const install = ObjectAs<DB_ScriptFunctionData>(step->InstallScriptFunctionData);
    const auto* const uninstall =
        ObjectAs<DB_ScriptFunctionData>(step->UninstallScriptFunctionData);
    ASSERT_NE(install, nullptr);
    ASSERT_NE(uninstall, nullptr);
    EXPECT_EQ(install->ScriptData, "echo\r\n");
    EXPECT_EQ(uninstall->ScriptData, "echo uninstall");
}

TEST_F(DescriptionRecord, OfAHardwareStepKeepsItsSettings)
{
    const auto step = Create<DB_HardSettingStepSet>(
        ProjectBuilder::HardwareStep({ProjectBuilder::HardwareConfig("Lan", {{"A", "1"}}, false),
                                      ProjectBuilder::HardwareConfig("Sound", {})}));

    EXPECT_EQ(step->SS_StepSetId, "Zt.Plugins.SS_HardSettingStepSet,  Plexa");
    EXPECT_FALSE(step->CanSkip);
    const auto* const settings = ObjectAs<DB_HardSettingFunctionData>(step->HardSettingDatas);
    ASSERT_NE(settings, nullptr);
    const auto* const configs = ObjectAs<DB_HardwareConfigs>(settings->DB_HardwareConfigs);
    ASSERT_NE(configs, nullptr);
    ASSERT_EQ(configs->count, 2);
    EXPECT_EQ(configs->items[0]->ConfigId, "Zt.Plugins.HW_LanConfigSet,  Plexa");
    EXPECT_FALSE(configs->items[0]->IsUsed);
    EXPECT_EQ(configs->items[1]->ConfigId, "Zt.Plugins.HW_SoundConfigSet,  Plexa");
    EXPECT_TRUE(configs->items[1]->IsUsed);
    const auto* const items = ObjectAs<DB_HardwareItems>(configs->items[0]->HardwareItems);
    ASSERT_NE(items, nullptr);
    ASSERT_EQ(items->count, 1);
    EXPECT_EQ(items->items[0]->ItemName, "A");
    EXPECT_EQ(items->items[0]->Value, "1");
}

TEST_F(DescriptionRecord, KeepsTheFieldsReadBeforeAFailure)
{
    object json = ProjectBuilder::CopyItem("source", "/destination", "755");
    json["Permissions"] = value(755.0);
    DB_CopyFunctionData item;
    item.Permissions = "old";

    EXPECT_EQ(item.Initialize(json), kFieldError);

    EXPECT_EQ(item.SourcePath, "source");
    EXPECT_EQ(item.DestinationPath, "/destination");
    EXPECT_EQ(item.Permissions, "old");
}

TEST_F(DescriptionRecord, AssignsTextsAndChildrenAnewAtASecondInitialisation)
{
    RegisterCounted();
    object first = ProjectBuilder::HardwareConfig("Lan", {}, true);
    first["HardwareItems"] = value(Counted());
    object second = ProjectBuilder::HardwareConfig("Sound", {}, false);
    second["HardwareItems"] = value(Counted());
    DB_HardwareConfig config;

    EXPECT_EQ(config.Initialize(first), 0);
    const IPicoJ* const firstChild = config.HardwareItems;
    EXPECT_EQ(config.Initialize(second), 0);

    EXPECT_EQ(config.ConfigId, "Zt.Plugins.HW_SoundConfigSet,  Plexa");
    EXPECT_FALSE(config.IsUsed);
    EXPECT_NE(config.HardwareItems, firstChild);
    EXPECT_THAT(m_events, ElementsAre("new 1", "initialize 1", "new 2", "initialize 2"));
}

TEST_F(DescriptionRecord, TakesAnyTextAsTheNameOfAStepOrSetting)
{
    object step = ProjectBuilder::ScriptStep("exit 0");
    step["SS_StepSetId"] = value("");
    object config = ProjectBuilder::HardwareConfig("Unheard", {});

    EXPECT_EQ(Create<DB_ScriptStepSet>(step)->SS_StepSetId, "");
    EXPECT_EQ(Create<DB_HardwareConfig>(config)->ConfigId,
              "Zt.Plugins.HW_UnheardConfigSet,  Plexa");
}

TEST_F(DescriptionRecord, ReadsItsChildrenInEveryModeButOne)
{
    for (const int mode : {-1, 0, 2}) {
        q_UpdaterEngine::ChildlenMode = mode;
        EXPECT_NE(Create<DB_KxUserProject>(ProjectBuilder::Root())->DB_StepSets, nullptr) << mode;
    }
    q_UpdaterEngine::ChildlenMode = 1;
    EXPECT_EQ(Create<DB_KxUserProject>(ProjectBuilder::Root())->DB_StepSets, nullptr);
}

// One blank more or less makes another name: steps have two after the comma, classes have one.
TEST_F(DescriptionRecord, WithOneBlankInItsStepNameIsUnknownToTheEngine)
{
    object json = ProjectBuilder::ScriptStep("exit 0");
    json["SS_StepSetId"] = value("Zt.Plugins.SS_ScriptStepSet, Plexa");
    const auto step = Create<DB_ScriptStepSet>(json);

    EXPECT_EQ(q_UpdaterEngine::CreateSS_StepSetObject(step.get()), nullptr);

    EXPECT_THAT(Lines(), ElementsAre("Zt.Plugins.SS_ScriptStepSet, Plexa is unknown class."));
}

namespace
{

/// A step record that adds nothing to what every step record holds.
class PlainStep final : public DB_StepSet
{
public:
    [[nodiscard]] const char* ClassType() const override { return "Test.PlainStep, Test"; }
    [[nodiscard]] IPicoJ* New() const override { return new PlainStep; }
};

object PlainStepJson()
{
    return {{"SS_StepSetId", value("Test.Plain")},
            {"Comment", value("a comment")},
            {"CanSkip", value(true)}};
}

} // namespace

static_assert(std::is_abstract_v<DB_StepSet>, "there is no step record that is of no class");

TEST_F(DescriptionRecord, OfAnyStepFillsTheThreeFieldsOfItsBase)
{
    PlainStep step;
    object json = PlainStepJson();

    EXPECT_EQ(step.Initialize(json), 0);

    EXPECT_EQ(step.SS_StepSetId, "Test.Plain");
    EXPECT_EQ(step.Comment, "a comment");
    EXPECT_TRUE(step.CanSkip);
    EXPECT_EQ(json.size(), 3U);
    EXPECT_THAT(Lines(), IsEmpty());
}

TEST_F(DescriptionRecord, OfAnyStepFillsThemInRootOnlyModeToo)
{
    q_UpdaterEngine::ChildlenMode = 1;
    PlainStep step;
    object json = PlainStepJson();

    EXPECT_EQ(step.Initialize(json), 0);

    EXPECT_TRUE(step.CanSkip);
}

TEST_F(DescriptionRecord, OfAnyStepReportsAFieldOfItsBaseUnderItsOwnClass)
{
    PlainStep step;
    object json = PlainStepJson();
    json["Comment"] = value(false);

    EXPECT_EQ(step.Initialize(json), 2002);

    EXPECT_EQ(step.SS_StepSetId, "Test.Plain");
    EXPECT_FALSE(step.CanSkip);
    EXPECT_THAT(Lines(), ElementsAre("No Test.PlainStep, Test.Comment field specified in "
                                     ".kx-project ."));
}

TEST_F(DescriptionRecord, OfACopyStepFillsOnlyItsBaseWhenItsBaseIsAsked)
{
    DB_CopyStepSet step;
    object json = PlainStepJson();

    EXPECT_EQ(step.DB_StepSet::Initialize(json), 0);

    EXPECT_EQ(step.SS_StepSetId, "Test.Plain");
    EXPECT_EQ(step.PathSetDatas, nullptr);
    EXPECT_EQ(json.size(), 3U);
}
