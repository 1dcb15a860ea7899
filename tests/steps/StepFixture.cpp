// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "steps/StepFixture.h"

#include "engine/q_UpdaterEngine.h"
#include "model/DB_StepSets.h"
#include "steps/SS.h"

#include <climits>
#include <memory>

int ExecuteStep(ProjectBuilder::Object record, int stepIndex)
{
    const std::unique_ptr<IPicoJ> object(q_UpdaterEngine::CreatePicoJObject(record));
    auto* const data = ObjectAs<DB_StepSet>(object.get());
    if (data == nullptr) {
        ADD_FAILURE() << "not the record of a step";
        return INT_MIN;
    }
    const std::unique_ptr<ISS_StepSet> step(q_UpdaterEngine::CreateSS_StepSetObject(data));
    if (step == nullptr) {
        ADD_FAILURE() << "no such step: " << data->SS_StepSetId;
        return INT_MIN;
    }
    return step->ExecuteInstallStep(stepIndex);
}

StepFixture::StepFixture()
{
    q_UpdaterEngine::CurrentPackage = &m_package;
}
