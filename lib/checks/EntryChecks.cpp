// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "checks/EntryChecks.h"

#include "archive/Links.h"
#include "io/Path.h"

#include <string>

namespace kx::checks
{

namespace
{

bool IsDesktopFile(const std::string& name)
{
    const std::size_t slash = name.rfind('/');
    const std::string last = name.substr(slash == std::string::npos ? 0 : slash + 1);
    return last == ".DS_Store" || last == "Thumbs.db" || last == "desktop.ini" ||
           last.compare(0, 2, "._") == 0 || io::IsIn(name, "__MACOSX");
}

} // namespace

void CheckEntries(const archive::Package& package, Findings& findings)
{
    for (const archive::PackageEntry& entry : package.Entries()) {
        if (entry.kind == archive::PackageEntry::Kind::kLink) {
            if (entry.name == archive::kDescriptionName || entry.name == archive::kUpdaterName) {
                continue; // these have rules of their own
            }
            findings.Add(RuleId::kEntryLink, Location::Entry(entry.name),
                         "is a link to '" + archive::FollowLink(package, entry).target + "'");
        } else if (entry.kind == archive::PackageEntry::Kind::kFile && IsDesktopFile(entry.name)) {
            findings.Add(RuleId::kPathDesktop, Location::Entry(entry.name),
                         "is a file of a desktop system");
        } else if (entry.kind == archive::PackageEntry::Kind::kOther) {
            findings.Add(RuleId::kEntryLink, Location::Entry(entry.name),
                         "is neither a file nor a folder");
        }
    }
}

} // namespace kx::checks
