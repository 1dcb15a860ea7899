// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/Output.h"
#include "decision/Decision.h"
#include "io/Error.h"

#include <picojson.h>

#include <string>
#include <vector>

namespace kx::guard
{

/// What was decided about a file.
struct Judged {
    std::string path; ///< as it was named
    Decision decision;
    std::vector<io::Error> problems{}; ///< files of the keys' folder that are no keys
};

/// Writes the reasons with their numbers and what to do about each. Writes nothing when there are
/// none.
void WriteReasons(const cli::Output& output, const std::vector<Reason>& reasons, Language language);

/// Writes what is wrong with files of the keys' folder.
void WriteProblems(const cli::Output& output, const std::vector<io::Error>& problems,
                   Language language);

/// Returns a package in a few words: "Title 1.2 (NAME), signed by KEY".
[[nodiscard]] std::string PackageText(const PackageFacts& facts, Language language);

/// Writes the decision, as a person reads it.
void WriteDecision(const cli::Output& output, const Judged& judged, Language language);

/// Returns a text as JSON; null when it is empty, which says that it is not known.
[[nodiscard]] picojson::value KnownText(const std::string& text);

/// Returns the reasons as a JSON list, in both languages.
[[nodiscard]] picojson::value ReasonsAsJson(const std::vector<Reason>& reasons);

/// Returns problems as a JSON list of lines.
[[nodiscard]] picojson::value ProblemsAsJson(const std::vector<io::Error>& problems);

/// Returns the decision as a JSON object: "package", "accepted", "reasons", "facts", "problems".
[[nodiscard]] picojson::object DecisionAsJson(const Judged& judged);

} // namespace kx::guard
