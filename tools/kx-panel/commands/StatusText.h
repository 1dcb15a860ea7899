// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/Output.h"
#include "commands/Door.h"
#include "decision/Reason.h"
#include "journal/Baseline.h"
#include "journal/PastInstallation.h"

#include <picojson.h>

#include <map>
#include <optional>
#include <string>

namespace kx::guard
{

/// How a panel stands.
struct PanelStatus {
    Door door;
    bool isAtWork = false;              ///< an installation runs
    std::optional<Begun> interrupted{}; ///< one that did not come to its end; nobody is at work
    std::optional<PastInstallation> last{};
    std::map<std::string, std::string> versions{}; ///< the highest ever installed, by name
    std::vector<std::string> problems{};           ///< of what is remembered, printable
};

/// Writes it, as a person reads it.
void WriteStatus(const cli::Output& output, const PanelStatus& status, Language language);

/// Returns it as a JSON object.
[[nodiscard]] picojson::object StatusAsJson(const PanelStatus& status);

} // namespace kx::guard
