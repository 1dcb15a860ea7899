// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/Output.h"
#include "journal/PastInstallation.h"

#include <picojson.h>

#include <cstdint>
#include <string>

namespace kx::guard
{

/// Returns a moment for people: "2026-01-31 12:00:00 UTC".
/// @param seconds  since 1970
[[nodiscard]] std::string MomentText(std::int64_t seconds);

/// Returns how an installation ended: "installed", "failed, exit status 101 of the updater".
[[nodiscard]] std::string EndingLine(const Ending& ending);

/// Returns an installation in one line: "12  2026-01-31 12:00:00 UTC  demo 1.2  installed".
[[nodiscard]] std::string SummaryLine(const PastInstallation& past);

/// Writes all that is remembered of an installation.
void WritePast(const cli::Output& output, const PastInstallation& past);

/// Returns an installation as a JSON object.
/// @param withLines  with what was printed
[[nodiscard]] picojson::value PastAsJson(const PastInstallation& past, bool withLines);

} // namespace kx::guard
