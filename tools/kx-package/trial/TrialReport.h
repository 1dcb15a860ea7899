// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "common/Output.h"
#include "trial/Trial.h"

namespace kx::tool
{

/// What the report says besides the result.
struct TrialSubject {
    std::string package;        ///< as it was named
    std::size_t failedStep = 0; ///< step that was to fail; 0 for none
    std::string failedCommand;
};

/// Tells the result of a trial: as text, or as one JSON document.
void WriteTrial(const Output& output, const TrialSubject& subject, const TrialResult& result);

} // namespace kx::tool
