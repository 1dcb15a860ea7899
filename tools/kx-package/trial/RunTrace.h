// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "rehearsal/Rehearsal.h"

#include <string>
#include <vector>

namespace kx::tool
{

/// A program of the panel's own, none of the machine's, that was started.
struct StartedProgram {
    std::string path;
    std::string processor;     ///< its name, or "another processor"
    bool canRun = false;       ///< there is something that runs programs of its kind
    std::string missingLoader; ///< path of the loader that the panel does not have, or empty
    int step = 0;              ///< counted from 1; 0 when it is not known
};

/// A command that the updater handed to the shell, and what was started until the next one.
struct TracedCommand {
    std::string text; ///< empty for what was started before the first command
    std::vector<StartedProgram> programs;
    int step = 0; ///< counted from 1; 0 outside of steps, and when it is not known
};

/// What the device traced of an installation.
struct RunTrace {
    bool isRefused = false; ///< the command that was to fail was reached
    std::vector<TracedCommand> commands;

    [[nodiscard]] std::vector<StartedProgram> Programs() const;
};

/// Reads the trace of a run (--trace-programs).
[[nodiscard]] RunTrace ReadRunTrace(const std::string& text);

/// Tells the commands and programs of a trace their steps: those of the plan's commands. A command
/// that the plan does not know belongs to the step of the one before it.
void AssignSteps(const rehearsal::Plan& plan, RunTrace& trace);

} // namespace kx::tool
