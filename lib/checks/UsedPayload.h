// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "archive/Package.h"
#include "checks/Findings.h"

#include <set>
#include <string>

namespace kx::checks
{

/// What of a package its steps use.
class UsedPayload
{
public:
    /// Notes that a step uses a file: "2/0/run".
    void AddFile(const std::string& name) { m_files.insert(name); }

    /// Notes that a step uses all in a folder: "2/0".
    void AddFolder(const std::string& name) { m_folders.insert(name); }

    /// Notes that nobody can say what a step uses.
    /// @param number  of the step, counted from 0: its folder in the package
    void AddUnclearStep(const std::string& number) { m_unclear.insert(number); }

    /// Reports what no step uses.
    void ReportUnused(const archive::Package& package, Findings& findings) const;

private:
    [[nodiscard]] bool IsUsed(const std::string& name) const;

    std::set<std::string> m_files;
    std::set<std::string> m_folders;
    std::set<std::string> m_unclear;
};

} // namespace kx::checks
