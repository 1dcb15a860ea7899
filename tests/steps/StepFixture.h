// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "support/EngineFixture.h"
#include "support/ProjectBuilder.h"

#include <string>

/// Reads @p record as the package reader does, and executes the install step that it names.
/// @return the step's result; the test fails when there is no such step
[[nodiscard]] int ExecuteStep(ProjectBuilder::Object record, int stepIndex = 0);

/// A test on install steps of a package that is unpacked in "/pkg", or where SetPackage says.
class StepFixture : public EngineFixture
{
protected:
    StepFixture();

    void SetPackage(const std::string& folder) { m_package = folder; }

private:
    std::string m_package = "/pkg";
};
