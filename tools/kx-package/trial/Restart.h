// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "trial/BoundedText.h"
#include "trial/PanelChanges.h"
#include "trial/TrialPanel.h"

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace kx::tool
{

/// How the start-up script of a panel went.
enum class StartupScript {
    kNone,          ///< there is no file of that name
    kNotExecutable, ///< there is one, which a panel does not start
    kEnded,
    kRunning, ///< it still ran when its time was over
    kStopped, ///< another bound of the trial ended it
};

/// A restart of the panel after the installation.
struct Restart {
    StartupScript script = StartupScript::kNone;
    std::optional<int> exitStatus;    ///< of the script, when it ended
    unsigned seconds = 0;             ///< that it was given
    std::vector<std::string> remarks; ///< what the device says about it
    BoundedText output;               ///< of the script, errors among it
    PanelChanges changes;             ///< what the script changed
};

/// Restarts the panel: what does not outlive that is gone, and the start-up script runs, until it
/// ends or its time is over. The drive was pulled out before.
/// @param seconds      the time for the script
/// @param usually      the time that commands have on this panel; it has it afterwards
/// @param summary      file of this machine that gets the device's summary
/// @param readChanges  reads that
/// @throws Error when the panel cannot be made, or the person ended the trial
[[nodiscard]] Restart PlayRestart(TrialPanel& panel, unsigned seconds, unsigned usually,
                                  const std::string& summary,
                                  const std::function<PanelChanges()>& readChanges);

} // namespace kx::tool
