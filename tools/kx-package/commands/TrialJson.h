// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "commands/TrialSubject.h"
#include "common/Output.h"

namespace kx::tool
{

/// Writes the result of a trial as one JSON document.
void WriteTrialJson(const Output& output, const TrialSubject& subject, const TrialResult& result);

} // namespace kx::tool
