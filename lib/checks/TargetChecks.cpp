// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "checks/TargetChecks.h"

#include "format/ShellText.h"
#include "io/Path.h"
#include "panel/Names.h"

#include <algorithm>

namespace kx::checks
{

namespace
{

/// "/bin/sh" is "/usr/bin/sh" on a panel whose /bin leads there.
std::string WithoutUsr(const std::string& path)
{
    const std::string usr = "/usr";
    for (const char* const folder : {"/usr/bin", "/usr/lib", "/usr/sbin"}) {
        if (io::IsIn(path, folder)) {
            return path.substr(usr.size());
        }
    }
    return path;
}

/// Programs of /bin that the updater and every start need.
constexpr const char* kSystemPrograms[] = {"busybox", "chmod", "cp",         "mkdir",
                                           "rm",      "sh",    panel::kSync, "unzip"};

/// Files that no package brings for its own sake.
constexpr const char* kSystemFiles[] = {
    "/etc/fstab",         "/etc/group",  "/etc/gshadow", "/etc/inittab",   "/etc/passwd",
    "/etc/ld.so.preload", "/etc/shadow", "/sbin/init",   "/sbin/chpasswd", panel::kReboot};

/// Checks where the target lies.
/// @return false when it is longer than a path or a name can be
bool CheckTargetFolder(const std::string& target, const Location& place, Severity failure,
                       Findings& findings)
{
    constexpr std::size_t kLongestPart = 255;
    constexpr std::size_t kLongestPath = 4000;
    const std::string plain = io::PlainPath(target);
    std::size_t begin = 1;
    bool isLong = target.size() > kLongestPath;
    while (begin <= plain.size()) {
        const std::size_t end = std::min(plain.find('/', begin), plain.size());
        isLong = isLong || end - begin > kLongestPart;
        begin = end + 1;
    }
    if (isLong) {
        findings.AddAs(failure, RuleId::kTargetLong, place,
                       "is longer than a name on the panel may be");
    }
    if (io::IsIn(plain, panel::kRegistry)) {
        findings.Add(RuleId::kTargetRegistry, place, "is in the registry of packages");
    }
    for (const char* const folder :
         {"/dev", panel::kDriveFolder, "/proc", "/run", "/sys", "/tmp"}) {
        if (io::IsIn(plain, folder)) {
            findings.Add(RuleId::kTargetLost, place, std::string("is in '") + folder + "'");
        }
    }
    return !isLong;
}

} // namespace

bool IsSystemFile(const std::string& path)
{
    const std::string plain = WithoutUsr(path);
    const std::string name = plain.substr(plain.rfind('/') + 1);
    const bool isLibrary = io::IsIn(plain, "/lib") || io::IsIn(plain, "/lib64");
    const bool isLoader = name.compare(0, 3, "ld-") == 0 || name.compare(0, 8, "libc.so.") == 0;
    const auto isOneOf = [](const auto& list, const std::string& one) {
        return std::find(std::begin(list), std::end(list), one) != std::end(list);
    };
    return isOneOf(kSystemFiles, plain) ||
           (plain == "/bin/" + name && isOneOf(kSystemPrograms, name)) ||
           io::IsIn(plain, "/boot") || io::IsIn(plain, "/bin/kxsystem") || (isLibrary && isLoader);
}

bool IsSystemFolder(const std::string& path)
{
    const std::string plain = WithoutUsr(path);
    return plain == "/bin" || plain == "/boot" || plain == "/etc" || plain == "/lib" ||
           plain == "/sbin";
}

bool CheckTarget(const std::string& target, bool isFolder, const Location& place, Severity failure,
                 Findings& findings)
{
    if (target.empty()) {
        // A file cannot be copied to it; what a folder holds arrives all the same.
        findings.AddAs(isFolder ? Severity::kError : failure, RuleId::kTargetEmpty, place,
                       isFolder ? "is empty: what the folder holds arrives in the root folder"
                                : "is empty");
        return false;
    }
    if (const std::string changed = format::ChangedInDoubleQuotes(target + (isFolder ? "/" : ""));
        !changed.empty()) {
        findings.Add(RuleId::kTargetShell, place, "contains " + changed);
    }
    if (target.find_first_of(":\\") != std::string::npos) {
        findings.Add(RuleId::kTargetSeparator, place, "contains ':' or '\\'");
    }
    if (target.find_first_of("\r\n") != std::string::npos ||
        target.find('\0') != std::string::npos) {
        findings.AddAs(target.find('\0') != std::string::npos ? Severity::kError
                                                              : Severity::kWarning,
                       RuleId::kTargetLine, place, "contains a line break or a zero byte");
    }
    if (target.front() != '/') {
        findings.Add(RuleId::kTargetRelative, place, "'" + target + "' is not a full path");
        return false;
    }
    const std::string path = target + "/";
    if (path.find("/../") != std::string::npos) {
        findings.Add(RuleId::kTargetUp, place,
                     "contains '..': it arrives at '" + io::PlainPath(target) + "'");
    }
    return CheckTargetFolder(target, place, failure, findings);
}

} // namespace kx::checks
