// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "engine/q_UpdaterEngine.h"
#include "model/DB_Hardware.h"
#include "steps/HW.h"
#include "support/EngineFixture.h"
#include "support/ProjectBuilder.h"
#include "support/ShellRecorder.h"

#include <memory>
#include <string>
#include <typeinfo>
#include <vector>

using ProjectBuilder::Pairs;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace
{

/// Lets the setting of a kind apply its items.
///
/// @param args  words collected so far
/// @return the setting's result
int Apply(const std::string& kind, const Pairs& items, std::string& args)
{
    ProjectBuilder::Object json = ProjectBuilder::HardwareConfig(kind, items);
    const std::unique_ptr<IPicoJ> object(q_UpdaterEngine::CreatePicoJObject(json));
    auto* const config = ObjectAs<DB_HardwareConfig>(object.get());
    const std::unique_ptr<IHW_ConfigSet> setting(q_UpdaterEngine::CreateHW_ConfigSet(config));
    return setting->SetHWSettings(args);
}

std::vector<std::string> Keys(const HW_ConfigSetFactory& factory)
{
    std::vector<std::string> keys;
    for (const IHW_ConfigSet* const prototype : factory.Prototypes()) {
        keys.emplace_back(prototype->ConfigId());
    }
    return keys;
}

class HwConfigSet : public EngineFixture
{
};

} // namespace

TEST_F(HwConfigSet, HasOnePrototypeOfEachKindInOrder)
{
    const HW_ConfigSetFactory factory;

    EXPECT_THAT(
        Keys(factory),
        ElementsAre(
            "Zt.Plugins.HW_AutoStartupModeConfigSet,  Plexa",
            "Zt.Plugins.HW_BacklightConfigSet,  Plexa", "Zt.Plugins.HW_CursorConfigSet,  Plexa",
            "Zt.Plugins.HW_LanguageConfigSet,  Plexa", "Zt.Plugins.HW_LanConfigSet,  Plexa",
            "Zt.Plugins.HW_SoundConfigSet,  Plexa", "Zt.Plugins.HW_SStartConfigSet,  Plexa",
            "Zt.Plugins.HW_TouchBeepConfigSet,  Plexa", "Zt.Plugins.HW_UserConfigSet,  Plexa"));
    EXPECT_EQ(Keys(*q_UpdaterEngine::HW_ConfigSetTbl), Keys(factory));
}

TEST_F(HwConfigSet, IsMadeOfThePrototypesKind)
{
    DB_HardwareConfig config;

    for (const IHW_ConfigSet* const prototype : q_UpdaterEngine::HW_ConfigSetTbl->Prototypes()) {
        const std::unique_ptr<IHW_ConfigSet> setting(prototype->New(&config));

        EXPECT_NE(setting.get(), prototype);
        const IHW_ConfigSet& made = *setting;
        EXPECT_EQ(typeid(made), typeid(*prototype));
        EXPECT_STREQ(setting->ConfigId(), prototype->ConfigId());
    }
}

TEST_F(HwConfigSet, IsDestroyedAsAPrototypeTheLastFirst)
{
    class Probe final : public IHW_ConfigSet
    {
    public:
        Probe(std::vector<int>& ends, int number) : m_ends(ends), m_number(number) {}
        Probe(const Probe&) = delete;
        Probe& operator=(const Probe&) = delete;
        ~Probe() override { m_ends.push_back(m_number); }
        [[nodiscard]] const char* ConfigId() const override { return ""; }
        [[nodiscard]] IHW_ConfigSet* New(DB_HardwareConfig* /*config*/) const override
        {
            return nullptr;
        }

    private:
        std::vector<int>& m_ends;
        int m_number;
    };
    std::vector<int> ends;
    {
        HW_ConfigSetFactory factory;
        for (int number = 0; number < 3; ++number) {
            EXPECT_EQ(factory.AddObject(new Probe(ends, number)), number + 9);
        }
    }

    EXPECT_THAT(ends, ElementsAre(2, 1, 0));
}

namespace
{

/// The kinds that collect their items; the start-up kind does so as long as it has no script.
const char* const kCollectingKinds[] = {
    "AutoStartupMode", "Backlight", "Cursor", "Language", "Lan", "Sound", "SStart", "TouchBeep"};

class HwCollectingConfigSet : public EngineFixture,
                              public ::testing::WithParamInterface<const char*>
{
};

} // namespace

TEST_P(HwCollectingConfigSet, AppendsNameAndValueOfEveryItemInOrder)
{
    std::string args = "Before=0 ";
    ShellRecorder shell;

    EXPECT_EQ(Apply(GetParam(), {{"B", "2"}, {"A", "1"}, {"B", "3"}}, args), 0);

    EXPECT_EQ(args, "Before=0 B=2 A=1 B=3 ");
    EXPECT_THAT(shell.Commands(), IsEmpty());
    EXPECT_THAT(Lines(), IsEmpty());
}

TEST_P(HwCollectingConfigSet, AppendsNothingWithoutItems)
{
    std::string args;
    ShellRecorder shell;

    EXPECT_EQ(Apply(GetParam(), {}, args), 0);

    EXPECT_EQ(args, "");
    EXPECT_THAT(shell.Commands(), IsEmpty());
}

TEST_P(HwCollectingConfigSet, NeitherQuotesNorChecksWords)
{
    using namespace std::string_literals;
    std::string args;

    EXPECT_EQ(Apply(GetParam(),
                    {{"", ""}, {"a b", "c d"}, {"\"'", "$`\\"}, {"\xFF", "\xFE"}, {"z", "\0"s}},
                    args),
              0);

    EXPECT_EQ(args, "= a b=c d \"'=$`\\ \xFF=\xFE z=\0 "s);
}

TEST_P(HwCollectingConfigSet, TakesTheNamesThatOtherKindsActOn)
{
    std::string args;
    ShellRecorder shell;

    EXPECT_EQ(
        Apply(GetParam(),
              {{"User", "u"}, {"Password", "p"}, {"customscript", "s"}, {"CustomScript ", "t"}},
              args),
        0);

    EXPECT_EQ(args, "User=u Password=p customscript=s CustomScript =t ");
    EXPECT_THAT(shell.Commands(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Kinds, HwCollectingConfigSet, ::testing::ValuesIn(kCollectingKinds),
                         [](const auto& kind) { return std::string(kind.param); });

TEST_F(HwConfigSet, CollectsAScriptLikeAnyItemInAKindThatIsNotForStartUp)
{
    std::string args;
    ShellRecorder shell;

    EXPECT_EQ(Apply("Sound", {{"CustomScript", "x"}}, args), 0);

    EXPECT_EQ(args, "CustomScript=x ");
    EXPECT_THAT(shell.Commands(), IsEmpty());
}

namespace
{

struct UserRow {
    const char* name;
    Pairs items;
    const char* command;
};

const UserRow kUsers[] = {
    {"UserAndPassword", {{"User", "u1"}, {"Password", "p1"}}, "echo 'u1:p1' | chpasswd"},
    {"PasswordFirst", {{"Password", "p1"}, {"User", "u1"}}, "echo 'u1:p1' | chpasswd"},
    {"OnlyUser", {{"User", "u1"}}, "echo 'u1:' | chpasswd"},
    {"OnlyPassword", {{"Password", "p1"}}, "echo ':p1' | chpasswd"},
    {"NoItems", {}, "echo ':' | chpasswd"},
    {"EmptyValues", {{"User", ""}, {"Password", ""}}, "echo ':' | chpasswd"},
    {"LaterItemReplacesEarlier",
     {{"User", "u1"}, {"Password", "p1"}, {"User", "u2"}, {"Password", "p2"}},
     "echo 'u2:p2' | chpasswd"},
    {"LaterEmptyItemReplacesEarlier",
     {{"User", "u1"}, {"Password", "p1"}, {"Password", ""}},
     "echo 'u1:' | chpasswd"},
    {"OtherItemsAreIgnored",
     {{"Group", "g"}, {"User", "u1"}, {"CustomScript", "s"}, {"Password", "p1"}, {"", "x"}},
     "echo 'u1:p1' | chpasswd"},
    {"CaseMatters",
     {{"user", "u"}, {"USER", "u"}, {"password", "p"}, {"PASSWORD", "p"}},
     "echo ':' | chpasswd"},
    {"WholeNameMatters",
     {{"User ", "u"}, {" User", "u"}, {"Password1", "p"}, {"Pass", "p"}},
     "echo ':' | chpasswd"},
    {"Percent", {{"User", "%s%n"}, {"Password", "%d%"}}, "echo '%s%n:%d%' | chpasswd"},
    {"BlanksAndShellMarks",
     {{"User", "u 1"}, {"Password", "$p `\"\\:"}},
     "echo 'u 1:$p `\"\\:' | chpasswd"},
    {"SingleQuotesAreNotEscaped",
     {{"User", "u'1"}, {"Password", "p''"}},
     "echo 'u'1:p''' | chpasswd"},
    {"NotUtf8", {{"User", "\xFF"}, {"Password", "\xFE"}}, "echo '\xFF:\xFE' | chpasswd"},
    {"ZeroByteEndsAValue",
     {{"User", std::string("u\0x", 3)}, {"Password", std::string("p\0x", 3)}},
     "echo 'u:p' | chpasswd"},
};

class HwUserConfigSet : public EngineFixture, public ::testing::WithParamInterface<UserRow>
{
};

} // namespace

TEST_P(HwUserConfigSet, ChangesThePasswordAtOnceAndCollectsNothing)
{
    std::string args = "Before=0 ";
    ShellRecorder shell;

    EXPECT_EQ(Apply("User", GetParam().items, args), 0);

    EXPECT_THAT(shell.Commands(), ElementsAre(GetParam().command));
    EXPECT_EQ(args, "Before=0 ");
    EXPECT_THAT(Lines(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Items, HwUserConfigSet, ::testing::ValuesIn(kUsers),
                         [](const auto& row) { return std::string(row.param.name); });

TEST_F(HwConfigSet, ReturnsTheRawStatusOfThePasswordChange)
{
    for (const int status : {256, 32512, 9, -1}) {
        std::string args;
        ShellRecorder shell;
        shell.AnswerNth(1, status);

        EXPECT_EQ(Apply("User", {{"User", "u1"}, {"Password", "p1"}}, args), status);
    }
    EXPECT_THAT(Lines(), IsEmpty());
}

TEST_F(HwConfigSet, TakesAPasswordOf100000Bytes)
{
    const std::string password(100000, 'p');
    std::string args;
    ShellRecorder shell;

    EXPECT_EQ(Apply("User", {{"User", "u1"}, {"Password", password}}, args), 0);

    EXPECT_THAT(shell.Commands(), ElementsAre("echo 'u1:" + password + "' | chpasswd"));
}

namespace
{

/// A configuration whose items, or one of them, are of a class that no setting can use.
struct UnexpectedItems {
    DB_HardwareItem user;
    DB_HardwareConfig stranger;
    DB_HardwareItems list;
    DB_HardwareConfig config;

    UnexpectedItems()
    {
        user.ItemName = "User";
        user.Value = "u1";
        list.AddJ(&user);
        list.AddJ(&stranger);
        config.HardwareItems = &list;
    }
};

class HwUnexpectedItems : public EngineFixture, public ::testing::WithParamInterface<int>
{
protected:
    /// Lets the setting number GetParam() apply @p config.
    static int Apply(DB_HardwareConfig& config, std::string& args)
    {
        const IHW_ConfigSet* const prototype =
            q_UpdaterEngine::HW_ConfigSetTbl->Prototypes().items[GetParam()];
        const std::unique_ptr<IHW_ConfigSet> setting(prototype->New(&config));
        return setting->SetHWSettings(args);
    }
};

} // namespace

TEST_P(HwUnexpectedItems, AreRefusedBeforeAnythingIsDone)
{
    UnexpectedItems objects;
    std::string args = "Before=0 ";
    ShellRecorder shell;

    EXPECT_EQ(Apply(objects.config, args), 2002);
    objects.config.HardwareItems = &objects.user;
    EXPECT_EQ(Apply(objects.config, args), 2002);
    objects.config.HardwareItems = nullptr;
    EXPECT_EQ(Apply(objects.config, args), 2002);

    EXPECT_THAT(shell.Commands(), IsEmpty());
    EXPECT_EQ(args, "Before=0 ");
}

INSTANTIATE_TEST_SUITE_P(Kinds, HwUnexpectedItems, ::testing::Range(0, 9));

TEST(HwItemsOf, ReturnsTheItemsWhenAllCanBeUsed)
{
    DB_HardwareItem item;
    DB_HardwareItems list;
    DB_HardwareConfig config;
    config.HardwareItems = &list;
    IPicoJ* unexpected = nullptr;

    EXPECT_EQ(HW_ItemsOf(config, unexpected), &list);
    list.AddJ(&item);
    EXPECT_EQ(HW_ItemsOf(config, unexpected), &list);
}

TEST(HwItemsOf, TellsWhatStandsInAPlace)
{
    UnexpectedItems objects;
    IPicoJ* unexpected = nullptr;

    EXPECT_EQ(HW_ItemsOf(objects.config, unexpected), nullptr);
    EXPECT_EQ(unexpected, &objects.stranger);

    objects.config.HardwareItems = &objects.user;
    EXPECT_EQ(HW_ItemsOf(objects.config, unexpected), nullptr);
    EXPECT_EQ(unexpected, &objects.user);

    objects.config.HardwareItems = nullptr;
    EXPECT_EQ(HW_ItemsOf(objects.config, unexpected), nullptr);
    EXPECT_EQ(unexpected, nullptr);
}
