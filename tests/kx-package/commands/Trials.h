// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "commands/TrialSubject.h"

namespace kx::tool
{

/// A result with something of each kind, and hostile names.
inline TrialResult ResultOfAll()
{
    Installation first;
    first.exitCode = 101;
    first.isUnpacked = true;
    first.isRefused = true;
    first.remarks = {"one\x1b"};
    first.log.Append("a\nb\r\n");
    first.changes.files = {{"added", "/a\n", "-rw-r--r--", "0644", "root", "adm", 12, ""},
                           {"changed", "/b", "lrwxrwxrwx", "0777", "1000", "7", 1, "\xff"},
                           {"removed", "/usr/c", "", "", "", "", std::nullopt, ""}};
    first.changes.settings = {{"N", "1", "2"}, {"M", std::nullopt, "3"}, {"L", "4", std::nullopt}};
    first.changes.users = {{"u\x7f", "added"}};
    first.changes.packages = {{"P", "removed"}};
    first.changes.isRebootAsked = true;
    first.doubts = {"step 3 starts programs for arm", "step 4 does\x1b"};
    first.programs = {{"/opt/a\n", "arm", false, "", 3}, {"/opt/b", "x86_64", true, "/lib/l", 0}};
    StepFailure script;
    script.step = 2;
    script.kind = "script";
    script.why = "exit status 3";
    script.command = "run ";
    StepFailure password;
    password.step = 4;
    password.command = "echo 'a:geheim' | chpasswd ";
    password.failures = 3;
    password.isSkipped = false;
    first.failedSteps = {script, password};
    Installation second;
    second.exitCode = 0;
    second.isUnpacked = true;
    second.isInstalled = true;
    second.record = TrialRecord{{"/d/"}, {"/f\t"}};
    TrialResult result;
    result.recordName = "Foo";
    result.installations = {first, second};
    result.shell = ShellVisit{3, {"late"}, {}};
    return result;
}

inline const TrialSubject kSubject = {"F\x1b", 2, "echo 'user:geheim' | chpasswd "};

} // namespace kx::tool
