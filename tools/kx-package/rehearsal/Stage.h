// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "rehearsal/Rehearsal.h"
#include "rehearsal/VirtualPanel.h"

/// Where the updater's code plays: its looks at files and its shell commands end here instead of
/// at the system, as long as a stage is up.
class Stage
{
public:
    Stage(VirtualPanel& panel, const Package& package, Plan& plan);
    Stage(const Stage&) = delete;
    Stage& operator=(const Stage&) = delete;
    ~Stage();

    /// The stage that is up, or null.
    [[nodiscard]] static Stage* Current();

    void SetProcess(PlannedCommand::Process process) { m_process = process; }
    void SetStep(int step) { m_step = step; }

    /// Looks at a path for the updater.
    [[nodiscard]] VirtualPanel::Kind LookAt(const std::string& path);

    [[nodiscard]] VirtualPanel& Panel() { return m_panel; }

    /// Plays one shell command.
    /// @return the status word that `system` would return
    [[nodiscard]] int Run(const std::string& command);

private:
    [[nodiscard]] bool Play(PlannedCommand& planned);
    [[nodiscard]] bool Unpack(const std::string& folder);

    VirtualPanel& m_panel;
    const Package& m_package;
    Plan& m_plan;
    PlannedCommand::Process m_process = PlannedCommand::Process::kWindow;
    int m_step = 0;
    bool m_hasScriptRun = false;
    bool m_hasLooked = false; ///< at the panel's files, since the last command
};
