// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "format/Kinds.h"
#include "model/DB_StepSets.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>

namespace kx::format
{

using ::testing::ElementsAre;

TEST(StepKinds, AreTheFourThatTheUpdaterKnows)
{
    std::map<std::string, std::string> found;
    for (const StepKind* const kind : StepKinds()) {
        found[kind->name] = std::string(kind->id) + " / " + kind->info->type;
    }

    EXPECT_EQ(found, (std::map<std::string, std::string>{
                         {"copy-files", "Zt.Plugins.SS_CopyFileStepSet,  Plexa / "
                                        "Zt.Plugins.DB_CopyStepSet, Plexa"},
                         {"copy-folder", "Zt.Plugins.SS_CopyFolderStepSet,  Plexa / "
                                         "Zt.Plugins.DB_CopyStepSet, Plexa"},
                         {"script", "Zt.Plugins.SS_ScriptStepSet,  Plexa / "
                                    "Zt.Plugins.DB_ScriptStepSet, Plexa"},
                         {"settings", "Zt.Plugins.SS_HardSettingStepSet,  Plexa / "
                                      "Zt.Plugins.DB_HardSettingStepSet, Plexa"},
                     }));
}

TEST(SettingKinds, AreTheNineThatTheUpdaterKnows)
{
    std::vector<std::string> found;
    for (const SettingKind* const kind : SettingKinds()) {
        found.push_back(std::string(kind->name) + " " + kind->id);
    }

    EXPECT_THAT(found, ElementsAre("auto-start Zt.Plugins.HW_AutoStartupModeConfigSet,  Plexa",
                                   "backlight Zt.Plugins.HW_BacklightConfigSet,  Plexa",
                                   "cursor Zt.Plugins.HW_CursorConfigSet,  Plexa",
                                   "language Zt.Plugins.HW_LanguageConfigSet,  Plexa",
                                   "lan Zt.Plugins.HW_LanConfigSet,  Plexa",
                                   "sound Zt.Plugins.HW_SoundConfigSet,  Plexa",
                                   "s-start Zt.Plugins.HW_SStartConfigSet,  Plexa",
                                   "touch-beep Zt.Plugins.HW_TouchBeepConfigSet,  Plexa",
                                   "user Zt.Plugins.HW_UserConfigSet,  Plexa"));
}

TEST(FindKind, FindsByNameAndByIdentifier)
{
    EXPECT_EQ(FindKind(StepKinds(), &StepKind::name, "script"), &kScriptKind);
    EXPECT_EQ(FindKind(StepKinds(), &StepKind::id, "Zt.Plugins.SS_ScriptStepSet,  Plexa"),
              &kScriptKind);
    EXPECT_EQ(FindKind(StepKinds(), &StepKind::id, "Zt.Plugins.SS_ScriptStepSet, Plexa"), nullptr);
}

TEST(IsSecret, KnowsPasswordsInAnyCase)
{
    EXPECT_TRUE(IsSecret("Password"));
    EXPECT_TRUE(IsSecret("PASSWORD"));
    EXPECT_TRUE(IsSecret("pASSWORD"));
    EXPECT_FALSE(IsSecret("Passwords"));
    EXPECT_FALSE(IsSecret("Passwor"));
    EXPECT_FALSE(IsSecret(""));
    EXPECT_FALSE(IsSecret("User"));
}

} // namespace kx::format
