// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "model/CountingObject.h"
#include "model/DB_FunctionDatas.h"
#include "model/DB_Hardware.h"
#include "model/DB_KxUserProject.h"
#include "model/DB_StepSets.h"
#include "model/DescriptionTable.h"
#include "model/PicoJFactory.h"

#include <memory>

using ::testing::ElementsAre;

namespace
{

/// Makes a new object of class T through the prototype and returns it as a T.
template <class T>
std::unique_ptr<T> NewOf()
{
    const T prototype;
    auto* const object = dynamic_cast<T*>(prototype.New());
    EXPECT_NE(object, nullptr);
    return std::unique_ptr<T>(object);
}

template <class T>
class EmptyList : public ::testing::Test
{
};
using ListClasses =
    ::testing::Types<DB_StepSets, DB_CopyFunctionDatas, DB_HardwareConfigs, DB_HardwareItems>;

template <class T>
class EmptyStep : public ::testing::Test
{
};
using StepClasses = ::testing::Types<DB_CopyStepSet, DB_ScriptStepSet, DB_HardSettingStepSet>;

} // namespace

TYPED_TEST_SUITE(EmptyList, ListClasses, );
TYPED_TEST_SUITE(EmptyStep, StepClasses, );

TEST(PicoJFactory, StartsEmptyWithoutABuffer)
{
    const PicoJFactory factory;

    EXPECT_EQ(factory.Prototypes().count, 0);
    EXPECT_EQ(factory.Prototypes().capacity, 0);
    EXPECT_EQ(factory.Find("Zt.Plugins.DB_StepSets, Plexa", &IPicoJ::ClassType), nullptr);
}

TEST(PicoJFactory, RegistersTheThirteenClassesInTheirOrder)
{
    PicoJFactory factory;

    factory.RegisterProjectClasses();

    std::vector<std::string> types;
    for (const IPicoJ* prototype : factory.Prototypes()) {
        types.emplace_back(prototype->ClassType());
    }
    EXPECT_THAT(
        types,
        ElementsAre("Zt.Plugins.DB_CopyFunctionData, Plexa",
                    "Zt.Plugins.DB_CopyFunctionDatas, Plexa", "Zt.Plugins.DB_CopyStepSet, Plexa",
                    "Zt.DB_HardwareItem, Drovic", "Zt.DB_HardwareItems, Drovic",
                    "Zt.DB_HardwareConfig, Ruvelo", "Zt.DB_HardwareConfigs, Ruvelo",
                    "Zt.Plugins.DB_HardSettingFunctionData, Plexa",
                    "Zt.Plugins.DB_HardSettingStepSet, Plexa",
                    "Zt.Plugins.DB_ScriptFunctionData, Plexa", "Zt.Plugins.DB_ScriptStepSet, Plexa",
                    "Zt.Plugins.DB_StepSets, Plexa", "Zt.Plugins.DB_KxUserProject, Plexa"));
    EXPECT_EQ(factory.Prototypes().capacity, 20);
}

TEST(PicoJFactory, MakesObjectsOfThePrototypesOwnClass)
{
    PicoJFactory factory;
    factory.RegisterProjectClasses();

    for (const IPicoJ* prototype : factory.Prototypes()) {
        const std::unique_ptr<IPicoJ> object(prototype->New());
        EXPECT_NE(object.get(), prototype);
        EXPECT_STREQ(object->ClassType(), prototype->ClassType());
    }
}

TEST(PicoJFactory, TellsTheIndexOfEachPrototype)
{
    Events events;
    PicoJFactory factory;

    EXPECT_EQ(factory.AddObject(new CountingObject("first", events)), 0);
    EXPECT_EQ(factory.AddObject(new CountingObject("second", events)), 1);
}

TEST(PicoJFactory, FindsTheFirstOfEqualPrototypes)
{
    Events events;
    PicoJFactory factory;
    factory.AddObject(new CountingObject("other", events));
    factory.AddObject(new CountingObject("same", events));
    factory.AddObject(new CountingObject("same", events));

    EXPECT_EQ(factory.Find("same", &IPicoJ::ClassType), factory.Prototypes().items[1]);
}

TEST(PicoJFactory, DestroysItsPrototypesFromTheLastToTheFirst)
{
    /// Notes its own name when it is destroyed.
    class Named final : public IPicoJ
    {
    public:
        Named(std::string name, Events& events) : m_name(std::move(name)), m_events(&events) {}
        ~Named() override { m_events->push_back(m_name); }
        [[nodiscard]] const char* ClassType() const override { return m_name.c_str(); }
        [[nodiscard]] IPicoJ* New() const override { return nullptr; }
        [[nodiscard]] int Initialize(picojson::object& /*obj*/) override { return 0; }

    private:
        std::string m_name;
        Events* m_events;
    };
    Events events;
    {
        PicoJFactory factory;
        for (const char* const name : {"a", "b", "c"}) {
            factory.AddObject(new Named(name, events));
        }
    }

    EXPECT_THAT(events, ElementsAre("c", "b", "a"));
}

TEST(NewObject, OfTheRootIsEmpty)
{
    const auto root = NewOf<DB_KxUserProject>();

    for (const std::string* text : {&root->ModelName, &root->OsVersion, &root->PackageVersion,
                                    &root->Title, &root->Comment, &root->Date}) {
        EXPECT_EQ(*text, "");
    }
    EXPECT_EQ(root->DB_StepSets, nullptr);
}

TYPED_TEST(EmptyStep, HoldsNoBaseFields)
{
    const auto step = NewOf<TypeParam>();

    EXPECT_EQ(step->SS_StepSetId, "");
    EXPECT_EQ(step->Comment, "");
    EXPECT_FALSE(step->CanSkip);
}

TYPED_TEST(EmptyList, HoldsNoElement)
{
    const auto list = NewOf<TypeParam>();

    EXPECT_EQ(list->count, 0);
    EXPECT_EQ(list->capacity, 0);
    EXPECT_EQ(list->items, nullptr);
}

TEST(NewObject, OfAStepHasNoFlagAndNoChild)
{
    const auto copy = NewOf<DB_CopyStepSet>();
    const auto script = NewOf<DB_ScriptStepSet>();
    const auto hardware = NewOf<DB_HardSettingStepSet>();

    EXPECT_FALSE(copy->IsRelativePath);
    EXPECT_FALSE(copy->IsRemove);
    EXPECT_EQ(copy->PathSetDatas, nullptr);
    EXPECT_EQ(script->InstallScriptFunctionData, nullptr);
    EXPECT_EQ(script->UninstallScriptFunctionData, nullptr);
    EXPECT_EQ(hardware->HardSettingDatas, nullptr);
}

TEST(NewObject, OfADataRecordIsEmpty)
{
    const auto copy = NewOf<DB_CopyFunctionData>();
    const auto script = NewOf<DB_ScriptFunctionData>();
    const auto settings = NewOf<DB_HardSettingFunctionData>();
    const auto config = NewOf<DB_HardwareConfig>();
    const auto item = NewOf<DB_HardwareItem>();

    for (const std::string* text :
         {&copy->SourcePath, &copy->DestinationPath, &copy->Permissions, &script->ScriptData,
          &config->ConfigId, &item->ItemName, &item->Value}) {
        EXPECT_EQ(*text, "");
    }
    EXPECT_EQ(settings->DB_HardwareConfigs, nullptr);
    EXPECT_FALSE(config->IsUsed);
    EXPECT_EQ(config->HardwareItems, nullptr);
}

TEST(ClassTree, HasAnAbstractStepBelowThreeKinds)
{
    static_assert(std::is_abstract_v<IPicoJ> && std::has_virtual_destructor_v<IPicoJ>);
    static_assert(std::is_abstract_v<DB_StepSet> && std::is_base_of_v<IPicoJ, DB_StepSet>);
    static_assert(std::is_base_of_v<DB_StepSet, DB_CopyStepSet>);
    static_assert(std::is_base_of_v<DB_StepSet, DB_ScriptStepSet>);
    static_assert(std::is_base_of_v<DB_StepSet, DB_HardSettingStepSet>);
    static_assert(!std::is_base_of_v<DB_StepSet, DB_HardwareItem>);
    DB_HardwareItem item;
    DB_CopyStepSet step;

    EXPECT_EQ(ObjectAs<DB_StepSet>(&item), nullptr);
    EXPECT_EQ(ObjectAs<DB_StepSet>(&step), &step);
    EXPECT_EQ(ObjectAs<DB_ScriptStepSet>(&step), nullptr);
    EXPECT_EQ(ObjectAs<DB_StepSet>(nullptr), nullptr);
}

TEST(ClassTree, OffersAnAddJThatDoesNothingOutsideTheLists)
{
    DB_HardwareItem child;
    PicoJFactory factory;
    factory.RegisterProjectClasses();

    for (const DescriptionTable::Class& info : DescriptionTable::Classes()) {
        const std::unique_ptr<IPicoJ> object(
            factory.Find(info.type.c_str(), &IPicoJ::ClassType)->New());
        object->AddJ(&child);
        const auto* const list =
            dynamic_cast<T_ArrayObject<DB_HardwareItem*, 0, 10>*>(object.get());
        EXPECT_EQ(list != nullptr && list->count == 1, info.name == "DB_HardwareItems");
    }
}
