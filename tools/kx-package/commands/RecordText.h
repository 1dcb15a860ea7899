// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "common/Output.h"
#include "registry/Registry.h"

#include <picojson.h>

// What the commands about records tell alike.

/// Makes the JSON object that a record begins with: its name, and null for what is not known.
[[nodiscard]] picojson::object IdentityAsJson(const Record& record);

/// Makes the JSON list of what is wrong with a record.
[[nodiscard]] picojson::value ProblemsAsJson(const Record& record);

[[nodiscard]] picojson::value JsonCount(std::uint64_t count);

/// Writes "name version: title", as far as it is known.
void TellHeading(const Output& output, const Record& record);

/// Writes a line for everything that is wrong with a record.
void TellProblems(const Output& output, const Record& record);
