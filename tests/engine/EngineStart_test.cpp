// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT

// The engine as the program starts with it. The engine is started once per process, so these tests
// have a binary, and a `main`, of their own.
#include "engine/q_UpdaterEngine.h"
#include "model/PicoJFactory.h"
#include "osa/PathList.h"
#include "steps/HW.h"
#include "steps/SS.h"
#include "support/EngineFixture.h"

#include <memory>

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace
{

/// What a table holds: its prototypes' identity strings.
template <class T>
std::vector<std::string> IdentitiesOf(const T_PrototypeTable<T>& table,
                                      const char* (T::*identity)() const)
{
    std::vector<std::string> identities;
    for (const T* prototype : table.Prototypes()) {
        identities.emplace_back((prototype->*identity)());
    }
    return identities;
}

/// The engine's state at one moment.
struct EngineState {
    EngineState()
        : projectClasses(IdentitiesOf(*q_UpdaterEngine::PicoJTbl, &IPicoJ::ClassType)),
          projectCapacity(q_UpdaterEngine::PicoJTbl->Prototypes().capacity),
          steps(IdentitiesOf(*q_UpdaterEngine::SSTbl, &ISS_StepSet::SS_StepSetId)),
          settings(IdentitiesOf(*q_UpdaterEngine::HW_ConfigSetTbl, &IHW_ConfigSet::ConfigId))
    {
    }

    std::vector<std::string> projectClasses;
    int projectCapacity;
    std::vector<std::string> steps;
    std::vector<std::string> settings;
    std::size_t files = q_UpdaterEngine::CopyFileList->size();
    std::size_t folders = q_UpdaterEngine::CopyFolderList->size();
    ILogger* logger = q_UpdaterEngine::SysLogger;
    const std::string* currentPackage = q_UpdaterEngine::CurrentPackage;
    int childlenMode = q_UpdaterEngine::ChildlenMode;
};

std::unique_ptr<const EngineState> beforeInit;
std::unique_ptr<const EngineState> afterInit;
LineLogger logger;

} // namespace

TEST(EngineBeforeInitSystem, HasAnEmptyProjectTableWithoutABuffer)
{
    EXPECT_THAT(beforeInit->projectClasses, IsEmpty());
    EXPECT_EQ(beforeInit->projectCapacity, 0);
}

TEST(EngineBeforeInitSystem, HoldsTheFourStepsInTheirOrder)
{
    EXPECT_THAT(beforeInit->steps, ElementsAre("Zt.Plugins.SS_CopyFileStepSet,  Plexa",
                                               "Zt.Plugins.SS_CopyFolderStepSet,  Plexa",
                                               "Zt.Plugins.SS_ScriptStepSet,  Plexa",
                                               "Zt.Plugins.SS_HardSettingStepSet,  Plexa"));
}

TEST(EngineBeforeInitSystem, HoldsTheNineHardwareSettingsInTheirOrder)
{
    EXPECT_THAT(
        beforeInit->settings,
        ElementsAre(
            "Zt.Plugins.HW_AutoStartupModeConfigSet,  Plexa",
            "Zt.Plugins.HW_BacklightConfigSet,  Plexa", "Zt.Plugins.HW_CursorConfigSet,  Plexa",
            "Zt.Plugins.HW_LanguageConfigSet,  Plexa", "Zt.Plugins.HW_LanConfigSet,  Plexa",
            "Zt.Plugins.HW_SoundConfigSet,  Plexa", "Zt.Plugins.HW_SStartConfigSet,  Plexa",
            "Zt.Plugins.HW_TouchBeepConfigSet,  Plexa", "Zt.Plugins.HW_UserConfigSet,  Plexa"));
}

TEST(EngineBeforeInitSystem, HasEmptyListsAndNoState)
{
    EXPECT_EQ(beforeInit->files, 0U);
    EXPECT_EQ(beforeInit->folders, 0U);
    EXPECT_EQ(beforeInit->logger, nullptr);
    EXPECT_EQ(beforeInit->currentPackage, nullptr);
    EXPECT_EQ(beforeInit->childlenMode, 0);
}

TEST(EngineInitSystem, LeavesExactlyThirteenProjectClassesInTheirOrder)
{
    EXPECT_THAT(
        afterInit->projectClasses,
        ElementsAre("Zt.Plugins.DB_CopyFunctionData, Plexa",
                    "Zt.Plugins.DB_CopyFunctionDatas, Plexa", "Zt.Plugins.DB_CopyStepSet, Plexa",
                    "Zt.DB_HardwareItem, Drovic", "Zt.DB_HardwareItems, Drovic",
                    "Zt.DB_HardwareConfig, Ruvelo", "Zt.DB_HardwareConfigs, Ruvelo",
                    "Zt.Plugins.DB_HardSettingFunctionData, Plexa",
                    "Zt.Plugins.DB_HardSettingStepSet, Plexa",
                    "Zt.Plugins.DB_ScriptFunctionData, Plexa", "Zt.Plugins.DB_ScriptStepSet, Plexa",
                    "Zt.Plugins.DB_StepSets, Plexa", "Zt.Plugins.DB_KxUserProject, Plexa"));
    EXPECT_EQ(afterInit->projectCapacity, 20);
}

TEST(EngineInitSystem, StoresTheLoggerAndSaysNothing)
{
    EXPECT_EQ(afterInit->logger, &logger);
    EXPECT_THAT(logger.Lines(), IsEmpty());
}

TEST(EngineInitSystem, LeavesEverythingElseAsItWas)
{
    EXPECT_EQ(afterInit->steps, beforeInit->steps);
    EXPECT_EQ(afterInit->settings, beforeInit->settings);
    EXPECT_EQ(afterInit->files, 0U);
    EXPECT_EQ(afterInit->folders, 0U);
    EXPECT_EQ(afterInit->currentPackage, nullptr);
    EXPECT_EQ(afterInit->childlenMode, 0);
}

int main(int argc, char** argv)
{
    beforeInit = std::make_unique<const EngineState>();
    q_UpdaterEngine::InitSystem(&logger);
    afterInit = std::make_unique<const EngineState>();

    ::testing::InitGoogleMock(&argc, argv);
    return RUN_ALL_TESTS();
}
