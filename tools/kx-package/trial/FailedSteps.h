// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "format/Summary.h"
#include "trial/RunTrace.h"
#include "trial/ShellFailure.h"
#include "trial/StepLog.h"

#include <vector>

namespace kx::tool
{

/// Adds the step whose command was made to fail, where the updater said nothing about it: it does
/// not look at the result of every command.
/// @param wentOn  the installation went on behind that step
void AddMadeFailure(const ShellFailure& failure, bool wentOn, std::vector<StepFailure>& failures);

/// Completes what the log told with what the description and the trace tell: the kinds of the
/// steps, and the commands that failed. What only looks like the updater's words goes: a script can
/// print anything.
void CompleteFailures(const std::vector<format::SummaryStep>& steps, const RunTrace& trace,
                      std::vector<StepFailure>& failures);

} // namespace kx::tool
