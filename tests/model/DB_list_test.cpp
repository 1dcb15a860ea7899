// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT

// What the four lists share: filling from "$values", double initialisation, failures.
#include "model/CountingObject.h"
#include "model/DB_FunctionDatas.h"
#include "model/DB_Hardware.h"
#include "model/DB_StepSets.h"
#include "model/DescriptionTable.h"
#include "osa/ResultCodes.h"

#include <memory>
#include <stdexcept>

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace
{

using picojson::array;
using picojson::object;
using picojson::value;

object ListOf(const array& elements)
{
    return {{"$values", value(elements)}};
}

} // namespace

template <class T>
class DescriptionList : public OwnTableFixture
{
protected:
    /// Initialises the list with @p elements.
    int Fill(const array& elements)
    {
        object obj = ListOf(elements);
        return m_list.Initialize(obj);
    }

    [[nodiscard]] std::string ArrayError() const
    {
        return "Initialized array error in " + std::string(m_list.ClassType()) + " class.";
    }

    T m_list;
};

using ListClasses =
    ::testing::Types<DB_StepSets, DB_CopyFunctionDatas, DB_HardwareConfigs, DB_HardwareItems>;
TYPED_TEST_SUITE(DescriptionList, ListClasses, );

TYPED_TEST(DescriptionList, AcceptsAnEmptyArray)
{
    EXPECT_EQ(this->Fill({}), 0);

    EXPECT_EQ(this->m_list.count, 0);
    EXPECT_EQ(this->m_list.capacity, 0);
    EXPECT_THAT(this->Lines(), IsEmpty());
}

TYPED_TEST(DescriptionList, RefusesAMissingArrayAndAddsItAsNull)
{
    object obj;

    EXPECT_EQ(this->m_list.Initialize(obj), 2002);

    EXPECT_THAT(this->Lines(), ElementsAre(this->ArrayError()));
    EXPECT_TRUE(obj.at("$values").template is<picojson::null>());
}

TYPED_TEST(DescriptionList, AcceptsAndStoresAnElementOfAnyClass)
{
    array elements;
    for (const DescriptionTable::Class& info : DescriptionTable::Classes()) {
        elements.emplace_back(DescriptionTable::Minimal(info));
    }

    EXPECT_EQ(this->Fill(elements), 0);

    ASSERT_EQ(this->m_list.count, 13);
    for (int index = 0; index < this->m_list.count; ++index) {
        EXPECT_EQ(this->m_list.ElementAt(index)->ClassType(),
                  DescriptionTable::Classes().at(static_cast<std::size_t>(index)).type);
    }
    EXPECT_THAT(this->Lines(), IsEmpty());
}

TYPED_TEST(DescriptionList, GrowsToTwentySlotsWithTheEleventhElement)
{
    this->RegisterCounted();

    EXPECT_EQ(this->Fill(array(10, value(this->Counted()))), 0);
    EXPECT_EQ(this->m_list.capacity, 10);
    EXPECT_EQ(this->Fill(array(1, value(this->Counted()))), 0);

    EXPECT_EQ(this->m_list.capacity, 20);
    EXPECT_EQ(this->m_list.count, 11);
}

TYPED_TEST(DescriptionList, InitialisesEveryElementTwice)
{
    this->RegisterCounted();

    EXPECT_EQ(this->Fill({value(this->Counted()), value(this->Counted())}), 0);

    EXPECT_THAT(this->m_events, ElementsAre("new 1", "initialize 1", "initialize 1", "new 2",
                                            "initialize 2", "initialize 2"));
}

TYPED_TEST(DescriptionList, GivesBothRoundsTheSamePrivateCopyOfTheElement)
{
    std::vector<const object*> seen;
    this->RegisterCounted([&seen](int round, object& obj) {
        EXPECT_EQ(obj.count("Round"), static_cast<std::size_t>(round));
        obj["Round"] = value(true);
        seen.push_back(&obj);
        return 0;
    });
    object obj = ListOf({value(this->Counted())});

    EXPECT_EQ(this->m_list.Initialize(obj), 0);

    ASSERT_EQ(seen.size(), 2U);
    EXPECT_EQ(seen[0], seen[1]);
    const object& element = obj.at("$values").template get<array>().at(0).template get<object>();
    EXPECT_NE(seen[0], &element);
    EXPECT_EQ(element.count("Round"), 0U);
}

TYPED_TEST(DescriptionList, PassesOnTheCodeOfAnElementThatFailsInTheSecondRound)
{
    this->RegisterCounted([](int round, object& /*obj*/) { return round == 1 ? 77 : 0; });

    EXPECT_EQ(this->Fill({value(this->Counted()), value(this->Counted())}), 77);

    EXPECT_EQ(this->m_list.count, 0);
    EXPECT_THAT(this->m_events, ElementsAre("new 1", "initialize 1", "initialize 1", "delete 1"));
    EXPECT_THAT(this->Lines(), ElementsAre("Initialized error in Test.Counted, Test class."));
}

TYPED_TEST(DescriptionList, ReportsAnElementThatThrowsInTheSecondRoundAsAnArrayError)
{
    this->RegisterCounted([](int round, object& /*obj*/) -> int {
        return round == 1 ? throw std::runtime_error("second round") : 0;
    });

    EXPECT_EQ(this->Fill({value(this->Counted())}), 2002);

    EXPECT_EQ(this->m_list.count, 0);
    EXPECT_EQ(this->CountOf("delete"), 1);
    EXPECT_THAT(this->Lines(), ElementsAre(this->ArrayError()));
}

TYPED_TEST(DescriptionList, KeepsTheFirstTwoElementsWhenTheThirdCannotBeCreated)
{
    this->RegisterCounted();

    EXPECT_EQ(this->Fill({value(this->Counted()), value(this->Counted()), value(object()),
                          value(this->Counted())}),
              kElementError);

    EXPECT_EQ(this->m_list.count, 2);
    EXPECT_EQ(this->CountOf("new"), 2);
    EXPECT_EQ(this->CountOf("delete"), 0);
    EXPECT_THAT(this->Lines(), ElementsAre("$type is nothing"));
}

TYPED_TEST(DescriptionList, KeepsTheFirstTwoElementsWhenTheThirdIsNoObject)
{
    this->RegisterCounted();

    EXPECT_EQ(this->Fill({value(this->Counted()), value(this->Counted()), value("text")}),
              kFieldError);

    EXPECT_EQ(this->m_list.count, 2);
    EXPECT_THAT(this->Lines(), ElementsAre(this->ArrayError()));
}

TYPED_TEST(DescriptionList, DoesNotDestroyItsElements)
{
    this->RegisterCounted();
    {
        TypeParam list;
        object obj = ListOf({value(this->Counted()), value(this->Counted())});
        EXPECT_EQ(list.Initialize(obj), 0);
        list.Clear();
        EXPECT_EQ(list.Initialize(obj), 0);
        EXPECT_EQ(list.count, 2);
    }

    EXPECT_EQ(this->CountOf("new"), 4);
    EXPECT_EQ(this->CountOf("delete"), 0);
}

TYPED_TEST(DescriptionList, AppendsToWhatAnEarlierInitialisationStored)
{
    this->RegisterCounted();

    EXPECT_EQ(this->Fill({value(this->Counted())}), 0);
    EXPECT_EQ(this->Fill({value(this->Counted())}), 0);

    EXPECT_EQ(this->m_list.count, 2);
}

TYPED_TEST(DescriptionList, IsReadInRootOnlyModeWhenItIsAskedItself)
{
    q_UpdaterEngine::ChildlenMode = 1;
    this->RegisterCounted();

    EXPECT_EQ(this->Fill({value(this->Counted())}), 0);

    EXPECT_EQ(this->m_list.count, 1);
}

TYPED_TEST(DescriptionList, HoldsThousandsOfElements)
{
    const object item = DescriptionTable::Minimal(DescriptionTable::ClassNamed("DB_HardwareItem"));

    EXPECT_EQ(this->Fill(array(5000, value(item))), 0);

    EXPECT_EQ(this->m_list.count, 5000);
    EXPECT_EQ(this->m_list.capacity, 5000);
}
