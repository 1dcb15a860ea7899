// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "checks/UsedPayload.h"

#include <cstddef>

namespace kx::checks
{

void UsedPayload::ReportUnused(const archive::Package& package, Findings& findings) const
{
    for (const archive::PackageEntry& entry : package.Entries()) {
        if (entry.kind == archive::PackageEntry::Kind::kFolder ||
            entry.name == archive::kDescriptionName || entry.name == archive::kUpdaterName ||
            IsUsed(entry.name)) {
            continue;
        }
        findings.Add(RuleId::kPayloadUnused, Location::Entry(entry.name), "no step uses it");
    }
}

bool UsedPayload::IsUsed(const std::string& name) const
{
    const std::size_t first = name.find('/');
    const std::size_t second = first == std::string::npos ? first : name.find('/', first + 1);
    return m_files.count(name) != 0 || m_unclear.count(name.substr(0, first)) != 0 ||
           (second != std::string::npos && m_folders.count(name.substr(0, second)) != 0);
}

} // namespace kx::checks
