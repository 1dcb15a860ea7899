// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "engine/q_UpdaterEngine.h"
#include "model/DB_FunctionDatas.h"
#include "model/DB_StepSets.h"
#include "steps/SS.h"
#include "support/EngineFixture.h"
#include "support/ShellRecorder.h"

#include <memory>
#include <string>
#include <typeinfo>
#include <vector>

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace
{

std::vector<std::string> Keys(const SS_StepSetFactory& factory)
{
    std::vector<std::string> keys;
    for (const ISS_StepSet* const prototype : factory.Prototypes()) {
        keys.emplace_back(prototype->SS_StepSetId());
    }
    return keys;
}

class SsStepSetFactory : public EngineFixture
{
};

} // namespace

TEST_F(SsStepSetFactory, HoldsOnePrototypeOfEachKindInOrder)
{
    const SS_StepSetFactory factory;

    EXPECT_THAT(Keys(factory), ElementsAre("Zt.Plugins.SS_CopyFileStepSet,  Plexa",
                                           "Zt.Plugins.SS_CopyFolderStepSet,  Plexa",
                                           "Zt.Plugins.SS_ScriptStepSet,  Plexa",
                                           "Zt.Plugins.SS_HardSettingStepSet,  Plexa"));
    EXPECT_EQ(Keys(*q_UpdaterEngine::SSTbl), Keys(factory));
}

TEST_F(SsStepSetFactory, MakesStepsOfThePrototypesKind)
{
    DB_CopyStepSet record;

    for (const ISS_StepSet* const prototype : q_UpdaterEngine::SSTbl->Prototypes()) {
        const std::unique_ptr<ISS_StepSet> step(prototype->New(&record));

        EXPECT_NE(step.get(), prototype);
        const ISS_StepSet& made = *step;
        EXPECT_EQ(typeid(made), typeid(*prototype));
        EXPECT_STREQ(step->SS_StepSetId(), prototype->SS_StepSetId());
    }
}

TEST_F(SsStepSetFactory, BindsAStepToItsRecord)
{
    DB_CopyStepSet record;
    DB_CopyFunctionDatas items;
    DB_CopyFunctionData item;
    item.SourcePath = "f";
    item.DestinationPath = "/g";
    items.AddJ(&item);
    record.PathSetDatas = &items;
    const std::string package = "/pkg";
    q_UpdaterEngine::CurrentPackage = &package;
    ShellRecorder shell;

    const std::unique_ptr<ISS_StepSet> step(
        q_UpdaterEngine::SSTbl->Prototypes().items[0]->New(&record));

    EXPECT_EQ(step->ExecuteInstallStep(0), 0);
    EXPECT_THAT(shell.Commands(), ElementsAre(R"(cp -f "/pkg/0/0/f" "/g" )", R"(chmod 777 "/g" )"));
}

TEST_F(SsStepSetFactory, LeavesTheRecordToItsOwner)
{
    auto record = std::make_unique<DB_CopyStepSet>();

    delete q_UpdaterEngine::SSTbl->Prototypes().items[0]->New(record.get());

    EXPECT_FALSE(record->CanSkip);
}

namespace
{

const char* const kUnknownIds[] = {
    "",
    "Zt.Plugins.SS_CopyFileStepSet, Plexa",   // one blank
    "Zt.Plugins.SS_CopyFileStepSet,   Plexa", // three
    "Zt.Plugins.ss_copyfilestepset,  plexa",
    "Zt.Plugins.SS_CopyFileStepSet,  Plexa ",
    " Zt.Plugins.SS_CopyFileStepSet,  Plexa",
    "Zt.Plugins.SS_CopyFileStepSet",
    "Zt.Plugins.DB_CopyStepSet, Plexa",
    "%s%n",
    "\xFF\xFE",
};

class SsStepSetId : public EngineFixture, public ::testing::WithParamInterface<const char*>
{
};

} // namespace

TEST_P(SsStepSetId, IsUnknownUnlessItEqualsAKeyByteForByte)
{
    DB_CopyStepSet record;
    record.SS_StepSetId = GetParam();

    EXPECT_EQ(q_UpdaterEngine::CreateSS_StepSetObject(&record), nullptr);

    EXPECT_THAT(Lines(), ElementsAre(std::string(GetParam()) + " is unknown class."));
}

INSTANTIATE_TEST_SUITE_P(Ids, SsStepSetId, ::testing::ValuesIn(kUnknownIds));

TEST_F(SsStepSetFactory, GivesAPrototypeNoRecordToExecute)
{
    const SS_StepSetFactory factory;
    ShellRecorder shell;

    for (ISS_StepSet* const prototype : factory.Prototypes()) {
        EXPECT_EQ(prototype->ExecuteInstallStep(0), 2002);
    }

    EXPECT_THAT(Lines(), IsEmpty());
    EXPECT_THAT(shell.Commands(), IsEmpty());
}

TEST_F(SsStepSetFactory, DestroysItsPrototypesTheLastFirst)
{
    class Probe final : public ISS_StepSet
    {
    public:
        Probe(std::vector<int>& ends, int number) : m_ends(ends), m_number(number) {}
        Probe(const Probe&) = delete;
        Probe& operator=(const Probe&) = delete;
        ~Probe() override { m_ends.push_back(m_number); }
        [[nodiscard]] const char* SS_StepSetId() const override { return ""; }
        [[nodiscard]] ISS_StepSet* New(DB_StepSet* /*record*/) const override { return nullptr; }
        [[nodiscard]] int ExecuteInstallStep(int /*stepIndex*/) override { return 0; }

    private:
        std::vector<int>& m_ends;
        int m_number;
    };
    std::vector<int> ends;
    {
        SS_StepSetFactory factory;
        for (int number = 0; number < 10; ++number) {
            EXPECT_EQ(factory.AddObject(new Probe(ends, number)), number + 4);
        }
    }

    EXPECT_THAT(ends, ElementsAre(9, 8, 7, 6, 5, 4, 3, 2, 1, 0));
}
