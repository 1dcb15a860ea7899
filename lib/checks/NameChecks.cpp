// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "checks/NameChecks.h"

#include "archive/Links.h"
#include "archive/Package.h"
#include "format/Description.h"
#include "format/ShellText.h"
#include "osa/OSA.h"
#include "panel/Names.h"

#include <filesystem>
#include <set>
#include <system_error>

#include <strings.h>

namespace kx::checks
{

namespace
{

namespace fs = std::filesystem;

/// The last part of a path, by '/' only.
std::string LastPart(std::string path)
{
    while (path.size() > 1 && path.back() == '/') {
        path.pop_back();
    }
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos || path.size() == 1 ? path : path.substr(slash + 1);
}

bool IsPackage(const std::string& name)
{
    return std::string(OSA_GetExt(("/" + name).c_str())) == archive::kPackageExtension;
}

} // namespace

void CheckPackageName(const std::string& path, bool isArchive, Findings& findings)
{
    const std::string name = LastPart(path);
    const auto add = [&findings](RuleId rule, const std::string& what) {
        findings.Add(rule, Location::Whole(), what);
    };
    if (isArchive && !IsPackage(name)) {
        add(RuleId::kNameExtension, "'" + name + "' does not end in '.kx-update'");
    }
    const std::string record = format::RecordName("/" + name);
    if (record.empty() || record == "." || record == "..") {
        add(RuleId::kNameEmpty, "'" + name + "' leaves no name for the package");
    }
    if (const std::string changed = format::ChangedInDoubleQuotes(name); !changed.empty()) {
        add(RuleId::kNameShell, "'" + name + "' contains " + changed);
    }
    if (isArchive && format::HasForeignBytes(name)) {
        add(RuleId::kNameAscii, "'" + name + "' is not plain ASCII");
    }
    if (name.find_first_of(":\\") != std::string::npos) {
        add(RuleId::kNameSeparator, "'" + name + "' is recorded as '" + record + "'");
    }
    const std::string bare = isArchive ? OSA_TrimExt(("/" + name).c_str()) : name;
    constexpr std::string_view kSuffix = panel::kUnpackedSuffix;
    const bool isUnpacked = !isArchive && bare.size() > kSuffix.size() &&
                            bare.find(kSuffix) == bare.size() - kSuffix.size();
    if (bare.find(kSuffix) != std::string::npos && !isUnpacked) {
        add(RuleId::kNameTemp, "'" + name + "' is recorded as '" + record + "'");
    }
    if (isArchive && name.find_first_of("*?[") != std::string::npos) {
        add(RuleId::kNameWildcard, "'" + name + "' contains a wildcard");
    }
}

void CheckNeighbours(const std::string& path, Findings& findings)
{
    constexpr int kMostNames = 100000;
    const std::string name = LastPart(path);
    const fs::path folder = fs::path(path).parent_path();
    std::error_code error;
    std::set<std::string> others; // told in the same order wherever the package lies
    int count = 0;
    for (fs::directory_iterator place(folder.empty() ? fs::path(".") : folder, error);
         !error && place != fs::directory_iterator() && ++count < kMostNames;
         place.increment(error)) {
        const std::string other = place->path().filename().string();
        if (other != name && IsPackage(other)) {
            others.insert(other);
        }
    }
    for (const std::string& other : others) {
        findings.Add(other.front() == '.' ? RuleId::kNameTwin : RuleId::kNameNeighbour,
                     Location::Whole(), "in the same folder there is '" + other + "'");
    }
}

const archive::PackageEntry* CheckLink(const archive::Package& package,
                                       const archive::PackageEntry& link, RuleId rule,
                                       Findings& findings)
{
    const archive::LinkEnd end = archive::FollowLink(package, link);
    const bool isFile =
        end.entry != nullptr && end.entry->kind == archive::PackageEntry::Kind::kFile;
    findings.AddAs(isFile ? Severity::kWarning : Severity::kError, rule, Location::Entry(link.name),
                   "is a link to '" + end.target +
                       (isFile ? "'" : "', which is not a file in the package"));
    return isFile ? end.entry : nullptr;
}

std::string MissingText(const archive::Package& package, const std::string& name)
{
    for (const archive::PackageEntry& entry : package.Entries()) {
        const std::size_t slash = entry.name.rfind('/');
        const std::string last = entry.name.substr(slash == std::string::npos ? 0 : slash + 1);
        if (strcasecmp(last.c_str(), name.c_str()) == 0) {
            return "there is no '" + name + "', but there is '" + entry.name + "'";
        }
    }
    return "there is no '" + name + "' at the top level";
}

} // namespace kx::checks
