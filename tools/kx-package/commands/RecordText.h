// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "common/Output.h"
#include "io/RootedFolder.h"
#include "registry/Registry.h"

#include <picojson.h>

#include <string>

namespace kx::tool
{

// What the commands about records tell alike.

/// Opens the folder that --root names.
/// @throws Error when it names none, or there is no such folder
[[nodiscard]] io::RootedFolder OpenPanel(const std::string& folder);

/// Makes the JSON object that a record begins with: its name, and null for what is not known.
[[nodiscard]] picojson::object IdentityAsJson(const registry::Record& record);

/// Makes the JSON list of what is wrong with a record.
[[nodiscard]] picojson::value ProblemsAsJson(const registry::Record& record);

[[nodiscard]] picojson::value JsonCount(std::uint64_t count);

/// Writes "name version: title", as far as it is known.
void TellHeading(const Output& output, const registry::Record& record);

/// Writes a line for everything that is wrong with a record.
void TellProblems(const Output& output, const registry::Record& record);

} // namespace kx::tool
