// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "checks/Rules.h"
#include "format/Json.h"

#include <array>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace kx::checks
{

/// Where a finding is.
struct Location {
    std::string file;        ///< a name in the package; empty for the package as a whole
    std::string path;        ///< path in the JSON of the description, or empty
    format::TextPosition at; ///< line 0 where there is none

    /// The package as a whole.
    [[nodiscard]] static Location Whole() { return {"", "", {0, 0}}; }
    /// A file or folder in the package.
    [[nodiscard]] static Location Entry(std::string name) { return {std::move(name), "", {0, 0}}; }
};

/// One thing that was found.
struct Finding {
    RuleId rule;
    Severity severity;
    Location location;
    std::string what; ///< what is wrong here
};

/// What a check found. Of each rule a bounded number is kept; the others are counted.
class Findings
{
public:
    static constexpr std::size_t kMostOfARule = 100;

    void Add(RuleId rule, Location location, std::string what)
    {
        AddAs(RuleOf(rule).severity, rule, std::move(location), std::move(what));
    }

    /// Adds a finding whose severity differs from the rule's.
    void AddAs(Severity severity, RuleId rule, Location location, std::string what);

    [[nodiscard]] const std::vector<Finding>& All() const { return m_findings; }

    /// How many of a severity there are, those that were not kept among them.
    [[nodiscard]] std::size_t Count(Severity severity) const
    {
        return m_counts[static_cast<std::size_t>(severity)];
    }

    /// How many of a rule were not kept.
    [[nodiscard]] std::size_t Omitted(RuleId rule) const;

    [[nodiscard]] bool Has(RuleId rule) const
    {
        return m_ofRule[static_cast<std::size_t>(rule)] != 0;
    }

    /// Tells whether an error was found at a file of the package.
    [[nodiscard]] bool HasErrorAt(const std::string& file) const;

    /// Changes the places and texts of all findings.
    void Change(const std::function<void(Finding& finding)>& change);

    /// Sorts: errors first, then warnings, then notes; else the order in which they were found.
    void Sort();

private:
    std::vector<Finding> m_findings;
    std::array<std::size_t, 3> m_counts{};
    std::array<std::size_t, static_cast<std::size_t>(RuleId::kEnd)> m_ofRule{};
};

} // namespace kx::checks
