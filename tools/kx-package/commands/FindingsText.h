// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "checks/Findings.h"
#include "common/Output.h"

#include <iosfwd>
#include <string>
#include <vector>

namespace kx::tool
{

/// What a check found, and whether that is no problem.
struct Checked {
    std::string path; ///< as it was named
    checks::Findings findings;
    bool isClean = true;

    /// @param isStrict  warnings are problems, too
    Checked(std::string of, checks::Findings found, bool isStrict);
};

/// Tells the findings: as text, or as one JSON document. Of several packages the document is a
/// list.
void WriteFindings(const Output& output, const std::vector<Checked>& all);

/// Tells errors and warnings as text, for people who did not ask for a check; nothing when there
/// are none.
void WriteProblems(std::ostream& to, const Output& output, const Checked& checked);

/// Adds the findings to a JSON document: "clean", "findings" and their numbers.
void AddFindings(picojson::object& document, const Checked& checked);

} // namespace kx::tool
