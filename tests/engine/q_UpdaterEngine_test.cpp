// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT

// The lookups of install steps and hardware settings.
#include "engine/q_UpdaterEngine.h"
#include "model/DB_Hardware.h"
#include "model/DB_StepSets.h"
#include "steps/HW.h"
#include "steps/SS.h"
#include "support/EngineFixture.h"

#include <memory>

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace
{

/// A step of the test's own: can be named as any kind, and can refuse to be made.
class NamedStep final : public ISS_StepSet
{
public:
    explicit NamedStep(const char* id, bool isBarren = false, DB_StepSet* data = nullptr)
        : m_id(id), m_isBarren(isBarren), m_data(data)
    {
    }
    [[nodiscard]] const char* SS_StepSetId() const override { return m_id; }
    [[nodiscard]] ISS_StepSet* New(DB_StepSet* data) const override
    {
        return m_isBarren ? nullptr : new NamedStep(m_id, false, data);
    }
    [[nodiscard]] int ExecuteInstallStep(int /*stepIndex*/) override { return 0; }
    [[nodiscard]] const DB_StepSet* Data() const { return m_data; }

private:
    const char* m_id;
    bool m_isBarren;
    DB_StepSet* m_data;
};

/// A hardware setting of the test's own.
class NamedSetting final : public IHW_ConfigSet
{
public:
    explicit NamedSetting(const char* id, bool isBarren = false,
                          DB_HardwareConfig* config = nullptr)
        : IHW_ConfigSet(config), m_id(id), m_isBarren(isBarren)
    {
    }
    [[nodiscard]] const char* ConfigId() const override { return m_id; }
    [[nodiscard]] IHW_ConfigSet* New(DB_HardwareConfig* config) const override
    {
        return m_isBarren ? nullptr : new NamedSetting(m_id, false, config);
    }
    [[nodiscard]] const DB_HardwareConfig* Data() const { return data; }

private:
    const char* m_id;
    bool m_isBarren;
};

} // namespace

/// An engine whose step and setting tables belong to the test; they start as the engine's own.
class EngineLookup : public EngineFixture
{
protected:
    EngineLookup()
    {
        q_UpdaterEngine::SSTbl = &m_steps;
        q_UpdaterEngine::HW_ConfigSetTbl = &m_settings;
    }
    ~EngineLookup() override
    {
        q_UpdaterEngine::SSTbl = m_savedSteps;
        q_UpdaterEngine::HW_ConfigSetTbl = m_savedSettings;
    }

    std::unique_ptr<ISS_StepSet> CreateStep(const std::string& id)
    {
        m_step.SS_StepSetId = id;
        return std::unique_ptr<ISS_StepSet>(q_UpdaterEngine::CreateSS_StepSetObject(&m_step));
    }

    std::unique_ptr<IHW_ConfigSet> CreateSetting(const std::string& id)
    {
        m_config.ConfigId = id;
        return std::unique_ptr<IHW_ConfigSet>(q_UpdaterEngine::CreateHW_ConfigSet(&m_config));
    }

    DB_ScriptStepSet m_step;
    DB_HardwareConfig m_config;
    SS_StepSetFactory m_steps;
    HW_ConfigSetFactory m_settings;

private:
    SS_StepSetFactory* m_savedSteps = q_UpdaterEngine::SSTbl;
    HW_ConfigSetFactory* m_savedSettings = q_UpdaterEngine::HW_ConfigSetTbl;
};

TEST_F(EngineLookup, CreatesEveryKindOfStep)
{
    for (const ISS_StepSet* prototype : m_steps.Prototypes()) {
        const auto step = CreateStep(prototype->SS_StepSetId());
        ASSERT_NE(step, nullptr);
        EXPECT_NE(step.get(), prototype);
        EXPECT_STREQ(step->SS_StepSetId(), prototype->SS_StepSetId());
    }
    EXPECT_NE(dynamic_cast<SS_CopyFileStepSet*>(
                  CreateStep("Zt.Plugins.SS_CopyFileStepSet,  Plexa").get()),
              nullptr);
    EXPECT_NE(dynamic_cast<SS_HardSettingStepSet*>(
                  CreateStep("Zt.Plugins.SS_HardSettingStepSet,  Plexa").get()),
              nullptr);
    EXPECT_THAT(Lines(), IsEmpty());
}

TEST_F(EngineLookup, CreatesEveryKindOfSetting)
{
    for (const IHW_ConfigSet* prototype : m_settings.Prototypes()) {
        const auto setting = CreateSetting(prototype->ConfigId());
        ASSERT_NE(setting, nullptr);
        EXPECT_NE(setting.get(), prototype);
        EXPECT_STREQ(setting->ConfigId(), prototype->ConfigId());
    }
    EXPECT_NE(
        dynamic_cast<HW_UserConfigSet*>(CreateSetting("Zt.Plugins.HW_UserConfigSet,  Plexa").get()),
        nullptr);
    EXPECT_THAT(Lines(), IsEmpty());
}

TEST_F(EngineLookup, BindsTheNewObjectToTheRecord)
{
    m_steps.AddObject(new NamedStep("own"));
    m_settings.AddObject(new NamedSetting("own"));

    const auto step = CreateStep("own");
    const auto setting = CreateSetting("own");

    ASSERT_NE(dynamic_cast<NamedStep*>(step.get()), nullptr);
    EXPECT_EQ(dynamic_cast<NamedStep*>(step.get())->Data(), &m_step);
    ASSERT_NE(dynamic_cast<NamedSetting*>(setting.get()), nullptr);
    EXPECT_EQ(dynamic_cast<NamedSetting*>(setting.get())->Data(), &m_config);
}

TEST_F(EngineLookup, TakesTheFirstOfEqualPrototypes)
{
    m_steps.AddObject(new NamedStep("Zt.Plugins.SS_ScriptStepSet,  Plexa", true));
    m_settings.AddObject(new NamedSetting("Zt.Plugins.HW_LanConfigSet,  Plexa", true));

    EXPECT_NE(CreateStep("Zt.Plugins.SS_ScriptStepSet,  Plexa"), nullptr);
    EXPECT_NE(CreateSetting("Zt.Plugins.HW_LanConfigSet,  Plexa"), nullptr);
}

TEST_F(EngineLookup, NamesAPrototypeWhoseNewReturnsNull)
{
    m_steps.AddObject(new NamedStep("barren step", true));
    m_settings.AddObject(new NamedSetting("barren %s setting", true));

    EXPECT_EQ(CreateStep("barren step"), nullptr);
    EXPECT_EQ(CreateSetting("barren %s setting"), nullptr);

    EXPECT_THAT(Lines(), ElementsAre("barren step class can not create.",
                                     "barren %s setting class can not create."));
}

TEST_F(EngineLookup, ComparesANameUpToItsFirstZeroByte)
{
    using namespace std::string_literals;

    EXPECT_NE(CreateStep("Zt.Plugins.SS_ScriptStepSet,  Plexa\0x"s), nullptr);
    EXPECT_NE(CreateSetting("Zt.Plugins.HW_LanConfigSet,  Plexa\0x"s), nullptr);
}

class UnknownIdentity : public EngineLookup, public ::testing::WithParamInterface<std::string>
{
};

TEST_P(UnknownIdentity, IsReportedWithTheRecordsOwnText)
{
    EXPECT_EQ(CreateStep(GetParam()), nullptr);
    EXPECT_EQ(CreateSetting(GetParam()), nullptr);

    const std::string line = GetParam() + " is unknown class.";
    EXPECT_THAT(Lines(), ElementsAre(line, line));
}

INSTANTIATE_TEST_SUITE_P(
    Texts, UnknownIdentity,
    ::testing::Values("", " ", "%s%n", "\xFF", "zt.plugins.ss_scriptstepset,  plexa",
                      "Zt.Plugins.SS_Scriptstepset,  Plexa", "Zt.Plugins.SS_ScriptStepSet, Plexa",
                      "Zt.Plugins.SS_ScriptStepSet,   Plexa",
                      " Zt.Plugins.SS_ScriptStepSet,  Plexa",
                      "Zt.Plugins.SS_ScriptStepSet,  Plexa ", "Zt.Plugins.HW_LANConfigSet,  Plexa",
                      "Zt.Plugins.HW_LanConfigSet, Plexa", "Zt.Plugins.HW_LanConfigSet",
                      "Zt.Plugins.DB_ScriptStepSet, Plexa", std::string(100000, 'x')));
