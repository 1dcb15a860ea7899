// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "model/CountingObject.h"
#include "model/DB_FunctionDatas.h"
#include "model/DescriptionTable.h"
#include "osa/ResultCodes.h"

#include <memory>

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace
{

using picojson::object;
using picojson::value;

struct TypeCase {
    std::string name;
    value type;
    std::string line;
};

} // namespace

class ObjectWithAWrongType : public EngineFixture, public ::testing::WithParamInterface<TypeCase>
{
};

TEST_P(ObjectWithAWrongType, IsNotCreated)
{
    object obj = {{"$type", GetParam().type}, {"ScriptData", value("text")}};

    EXPECT_EQ(q_UpdaterEngine::CreatePicoJObject(obj), nullptr);

    EXPECT_THAT(Lines(), ElementsAre(GetParam().line));
}

INSTANTIATE_TEST_SUITE_P(
    Types, ObjectWithAWrongType,
    ::testing::Values(TypeCase{"OneNumber", value(1.0), "$type is nothing"},
                      TypeCase{"ATruth", value(true), "$type is nothing"},
                      TypeCase{"Null", value(), "$type is nothing"},
                      TypeCase{"AList", value(picojson::array()), "$type is nothing"},
                      TypeCase{"AnObject", value(object()), "$type is nothing"},
                      TypeCase{"AnEmptyText", value(""), "$type is empty"},
                      TypeCase{"ABlank", value(" "), "  is unknown class."},
                      TypeCase{"AZeroByte", value(std::string(1, '\0')), " is unknown class."},
                      TypeCase{"OtherCase", value("zt.Plugins.DB_ScriptFunctionData, Plexa"),
                               "zt.Plugins.DB_ScriptFunctionData, Plexa is unknown class."},
                      TypeCase{"OtherSpacing", value("Zt.Plugins.DB_ScriptFunctionData,  Plexa"),
                               "Zt.Plugins.DB_ScriptFunctionData,  Plexa is unknown class."},
                      TypeCase{"NoSpacing", value("Zt.Plugins.DB_ScriptFunctionData,Plexa"),
                               "Zt.Plugins.DB_ScriptFunctionData,Plexa is unknown class."},
                      TypeCase{"OtherAssembly", value("Zt.Plugins.DB_ScriptFunctionData, Drovic"),
                               "Zt.Plugins.DB_ScriptFunctionData, Drovic is unknown class."},
                      TypeCase{"NoAssembly", value("Zt.Plugins.DB_ScriptFunctionData"),
                               "Zt.Plugins.DB_ScriptFunctionData is unknown class."},
                      TypeCase{"AnAbstractClass", value("Zt.Plugins.DB_StepSet, Plexa"),
                               "Zt.Plugins.DB_StepSet, Plexa is unknown class."},
                      TypeCase{"PercentSigns", value("%s%n%d"), "%s%n%d is unknown class."},
                      TypeCase{"BytesOutsideUtf8", value("\xFF\xC0"), "\xFF\xC0 is unknown class."},
                      TypeCase{"AHugeText", value(std::string(100000, 'x')),
                               std::string(100000, 'x') + " is unknown class."}),
    [](const auto& test) { return test.param.name; });

using CreatePicoJObject = OwnTableFixture;

TEST_F(CreatePicoJObject, SaysThatAMissingTypeIsNothingAndAddsItAsNull)
{
    object obj;

    EXPECT_EQ(q_UpdaterEngine::CreatePicoJObject(obj), nullptr);

    EXPECT_THAT(Lines(), ElementsAre("$type is nothing"));
    ASSERT_EQ(obj.count("$type"), 1U);
    EXPECT_TRUE(obj.at("$type").is<picojson::null>());
}

TEST_F(CreatePicoJObject, GivesAFilledObjectToTheCaller)
{
    object obj = {{"$type", value("Zt.Plugins.DB_ScriptFunctionData, Plexa")},
                  {"ScriptData", value("echo %s\r\n")}};

    const std::unique_ptr<IPicoJ> created(q_UpdaterEngine::CreatePicoJObject(obj));

    ASSERT_NE(ObjectAs<DB_ScriptFunctionData>(created.get()), nullptr);
    EXPECT_EQ(ObjectAs<DB_ScriptFunctionData>(created.get())->ScriptData, "echo %s\r\n");
    EXPECT_THAT(Lines(), IsEmpty());
}

// Class strings are compared as C strings, so what follows a zero byte does not count.
TEST_F(CreatePicoJObject, ComparesATypeUpToItsFirstZeroByte)
{
    using namespace std::string_literals;
    object obj = {{"$type", value("Zt.Plugins.DB_ScriptFunctionData, Plexa\0rest"s)},
                  {"ScriptData", value("text")}};

    const std::unique_ptr<IPicoJ> created(q_UpdaterEngine::CreatePicoJObject(obj));

    EXPECT_NE(ObjectAs<DB_ScriptFunctionData>(created.get()), nullptr);
}

TEST_F(CreatePicoJObject, InitialisesANewObjectOnce)
{
    RegisterCounted();
    object obj = Counted();

    std::unique_ptr<IPicoJ> created(q_UpdaterEngine::CreatePicoJObject(obj));
    EXPECT_THAT(m_events, ElementsAre("new 1", "initialize 1"));
    created.reset();

    EXPECT_THAT(m_events, ElementsAre("new 1", "initialize 1", "delete 1"));
    EXPECT_THAT(Lines(), IsEmpty());
}

TEST_F(CreatePicoJObject, HandsOverTheVeryObjectItWasGiven)
{
    RegisterCounted([](int /*round*/, object& obj) {
        obj["Seen"] = value(true);
        return 0;
    });
    object obj = Counted();

    const std::unique_ptr<IPicoJ> created(q_UpdaterEngine::CreatePicoJObject(obj));

    EXPECT_EQ(obj.count("Seen"), 1U);
}

TEST_F(CreatePicoJObject, DestroysAnObjectThatCannotBeInitialised)
{
    RegisterCounted([](int /*round*/, object& /*obj*/) { return -5; });
    object obj = Counted();

    EXPECT_EQ(q_UpdaterEngine::CreatePicoJObject(obj), nullptr);

    EXPECT_THAT(m_events, ElementsAre("new 1", "initialize 1", "delete 1"));
    EXPECT_THAT(Lines(), ElementsAre("Initialized error in Test.Counted, Test class."));
}

TEST_F(CreatePicoJObject, NamesAClassWhosePrototypeMakesNoObject)
{
    /// A prototype that cannot be copied.
    class Barren final : public IPicoJ
    {
    public:
        [[nodiscard]] const char* ClassType() const override { return "Test.Barren"; }
        [[nodiscard]] IPicoJ* New() const override { return nullptr; }
        [[nodiscard]] int Initialize(picojson::object& /*obj*/) override { return 0; }
    };
    m_table.AddObject(new Barren);
    object obj = {{"$type", value("Test.Barren")}};

    EXPECT_EQ(q_UpdaterEngine::CreatePicoJObject(obj), nullptr);

    EXPECT_THAT(Lines(), ElementsAre("Test.Barren class can not create."));
}

TEST_F(CreatePicoJObject, PrefersTheFirstOfEqualClasses)
{
    RegisterCounted([](int /*round*/, object& /*obj*/) { return 0; });
    RegisterCounted([](int /*round*/, object& /*obj*/) { return kFieldError; });
    object obj = Counted();

    const std::unique_ptr<IPicoJ> created(q_UpdaterEngine::CreatePicoJObject(obj));

    EXPECT_NE(created, nullptr);
}

TEST_F(CreatePicoJObject, KnowsNoClassWithAnEmptyTable)
{
    PicoJFactory empty;
    q_UpdaterEngine::PicoJTbl = &empty;
    object obj = DescriptionTable::Minimal(DescriptionTable::ClassNamed("DB_HardwareItem"));

    EXPECT_EQ(q_UpdaterEngine::CreatePicoJObject(obj), nullptr);

    EXPECT_THAT(Lines(), ElementsAre("Zt.DB_HardwareItem, Drovic is unknown class."));
}

TEST_F(CreatePicoJObject, CreatesTheSmallestObjectOfEveryClass)
{
    for (const DescriptionTable::Class& info : DescriptionTable::Classes()) {
        object obj = DescriptionTable::Minimal(info);
        const std::unique_ptr<IPicoJ> created(q_UpdaterEngine::CreatePicoJObject(obj));
        ASSERT_NE(created, nullptr) << info.name;
        EXPECT_EQ(created->ClassType(), info.type);
    }
    EXPECT_THAT(Lines(), IsEmpty());
}
