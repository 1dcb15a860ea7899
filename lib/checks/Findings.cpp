// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "checks/Findings.h"

#include <algorithm>
#include <utility>

namespace kx::checks
{

void Findings::AddAs(Severity severity, RuleId rule, Location location, std::string what)
{
    ++m_counts[static_cast<std::size_t>(severity)];
    std::size_t& count = m_ofRule[static_cast<std::size_t>(rule)];
    if (++count <= kMostOfARule) {
        m_findings.push_back({rule, severity, std::move(location), std::move(what)});
    }
}

std::size_t Findings::Omitted(RuleId rule) const
{
    const std::size_t count = m_ofRule[static_cast<std::size_t>(rule)];
    return count - std::min(count, kMostOfARule);
}

bool Findings::HasErrorAt(const std::string& file) const
{
    return std::any_of(m_findings.begin(), m_findings.end(), [&file](const Finding& finding) {
        return finding.severity == Severity::kError && finding.location.file == file;
    });
}

void Findings::Change(const std::function<void(Finding& finding)>& change)
{
    for (Finding& finding : m_findings) {
        change(finding);
    }
}

void Findings::Sort()
{
    std::stable_sort(m_findings.begin(), m_findings.end(),
                     [](const Finding& one, const Finding& other) {
                         return static_cast<int>(one.severity) > static_cast<int>(other.severity);
                     });
}

} // namespace kx::checks
