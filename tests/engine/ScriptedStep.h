// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "engine/q_UpdaterEngine.h"
#include "model/DB_StepSets.h"
#include "steps/SS.h"
#include "support/ProjectBuilder.h"

#include <functional>
#include <string>
#include <utility>
#include <vector>

/// An install step of the test's own. Its record's Comment is its name; what happens to it is noted
/// as "make a", "execute a 0" with the index, and "delete a".
class ScriptedStep final : public ISS_StepSet
{
public:
    static constexpr const char* kId = "Test.ScriptedStep,  Test";

    /// Plays ExecuteInstallStep; gets the step's name and index.
    using Script = std::function<int(const std::string&, int)>;

    ScriptedStep(std::vector<std::string>& events, Script script)
        : m_events(&events), m_script(std::move(script))
    {
    }
    ~ScriptedStep() override
    {
        if (m_record != nullptr) {
            Note("delete");
        }
    }

    [[nodiscard]] const char* SS_StepSetId() const override { return kId; }

    [[nodiscard]] ISS_StepSet* New(DB_StepSet* record) const override
    {
        auto* const step = new ScriptedStep(*m_events, m_script);
        step->m_record = record;
        step->Note("make");
        return step;
    }

    [[nodiscard]] int ExecuteInstallStep(int stepIndex) override
    {
        m_events->push_back("execute " + m_record->Comment + " " + std::to_string(stepIndex));
        return m_script(m_record->Comment, stepIndex);
    }

    /// The JSON of a step that is played by a ScriptedStep.
    [[nodiscard]] static ProjectBuilder::Object Json(const std::string& name)
    {
        ProjectBuilder::Object step = ProjectBuilder::ScriptStep("exit 0");
        step["SS_StepSetId"] = ProjectBuilder::Text(kId);
        step["Comment"] = ProjectBuilder::Text(name);
        return step;
    }

    /// The JSON of a step of a kind that nobody knows, "Test.Unknown".
    [[nodiscard]] static ProjectBuilder::Object UnknownJson()
    {
        ProjectBuilder::Object step = Json("unknown");
        step["SS_StepSetId"] = ProjectBuilder::Text("Test.Unknown");
        return step;
    }

private:
    void Note(const char* what) const { m_events->push_back(what + (" " + m_record->Comment)); }

    std::vector<std::string>* m_events;
    Script m_script;
    DB_StepSet* m_record = nullptr;
};

/// Puts a step table of the test's own, which knows ScriptedStep too, in the engine's place.
class ScriptedStepTable
{
public:
    explicit ScriptedStepTable(const ScriptedStep::Script& script)
    {
        m_table.AddObject(new ScriptedStep(m_events, script));
        q_UpdaterEngine::SSTbl = &m_table;
    }
    ScriptedStepTable(const ScriptedStepTable&) = delete;
    ScriptedStepTable& operator=(const ScriptedStepTable&) = delete;
    ~ScriptedStepTable() { q_UpdaterEngine::SSTbl = m_saved; }

    [[nodiscard]] const std::vector<std::string>& Events() const { return m_events; }

private:
    std::vector<std::string> m_events; ///< outlives the table's prototypes
    SS_StepSetFactory* m_saved = q_UpdaterEngine::SSTbl;
    SS_StepSetFactory m_table;
};
