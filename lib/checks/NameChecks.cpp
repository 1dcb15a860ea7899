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

/// The name of a file or folder, by '/' only.
std::string NameOf(std::string path)
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

/// Takes a number in brackets off the end of a name: " (1)".
std::string WithoutNumber(const std::string& name)
{
    const std::size_t open = name.rfind('(');
    if (open == std::string::npos || open == 0 || name.back() != ')' || open + 2 >= name.size() ||
        name.find_first_not_of("0123456789", open + 1) != name.size() - 1) {
        return name;
    }
    const std::size_t end = name.find_last_not_of(' ', open - 1);
    return name.substr(0, end + 1);
}

/// Returns the name of which this one is the copy of a desktop system; empty when it is none.
std::string CopiedName(const std::string& name)
{
    const std::string bare = WithoutNumber(name);
    for (const std::string end : {" - Copy", " - Kopie", " copy", "_copy"}) {
        if (bare.size() > end.size() &&
            bare.compare(bare.size() - end.size(), end.size(), end) == 0) {
            return bare.substr(0, bare.size() - end.size());
        }
    }
    for (const std::string begin : {"Copy of ", "Kopie von "}) {
        if (bare.size() > begin.size() && bare.compare(0, begin.size(), begin) == 0) {
            return bare.substr(begin.size());
        }
    }
    return bare.size() < name.size() ? bare : std::string();
}

/// Tells whether a name is another one with something behind: "m-1.0.0" is "m".
bool IsLonger(const std::string& name, const std::string& own)
{
    return !own.empty() && name.size() > own.size() && name.compare(0, own.size(), own) == 0 &&
           std::string_view("-_. ").find(name[own.size()]) != std::string_view::npos;
}

/// Tells whether a name ends in the version behind a mark: "m-1.0.0".
bool EndsInVersion(const std::string& name, const std::string& version)
{
    if (version.find('.') == std::string::npos || name.size() < version.size() + 2 ||
        name.compare(name.size() - version.size(), version.size(), version) != 0) {
        return false;
    }
    const char before = name[name.size() - version.size() - 1];
    return std::string_view("-_ .vV").find(before) != std::string_view::npos;
}

} // namespace

void CheckPackageName(const std::string& path, bool isArchive, Findings& findings)
{
    const std::string name = NameOf(path);
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

void CheckRecordName(const std::string& record, const std::string& version, const std::string& own,
                     Findings& findings)
{
    if (const std::string copied = CopiedName(record); !copied.empty()) {
        findings.Add(RuleId::kNameCopy, Location::Whole(),
                     "'" + record + "' is recorded beside '" + copied + "'");
    } else if (IsLonger(record, own)) {
        findings.Add(RuleId::kNameVersion, Location::Whole(),
                     "'" + record + "' is recorded beside '" + own + "', the name in the manifest");
    } else if (own != record && EndsInVersion(record, version)) {
        findings.Add(RuleId::kNameVersion, Location::Whole(),
                     "'" + record + "' ends in the version " + version);
    }
}

void CheckNeighbours(const std::string& path, Findings& findings)
{
    constexpr int kMostNames = 100000;
    const std::string name = NameOf(path);
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
