// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "archive/Package.h"
#include "checks/Expected.h"
#include "checks/Findings.h"
#include "checks/PanelFiles.h"
#include "checks/ScriptChecks.h"
#include "format/Program.h"

#include <set>
#include <string>
#include <vector>

namespace kx::checks
{

/// Looks into the files that a package brings to the panel: programs and scripts. They are noted
/// one by one and judged together, as they may need each other.
class PayloadCheck
{
public:
    /// @throws Error when the copy of a panel's files cannot be read
    PayloadCheck(const archive::Package& package, const Expected& expected, Findings& findings);

    /// Notes a file that arrives on the panel.
    /// @param entry         a file of the package, no link
    /// @param target        plain full path on the panel
    /// @param isExecutable  it arrives with the right to be started
    /// @throws Error when the package cannot be read
    void AddFile(const archive::PackageEntry& entry, const std::string& target, bool isExecutable);

    /// Checks a script of the description, and notes its interpreter.
    void AddScript(const std::string& text, ScriptUse use, const Location& place, Severity failure);

    /// Judges what was noted. The package's updater is one of the programs.
    void Report();

private:
    /// A program of the payload, or the updater.
    struct FoundProgram {
        format::Program program;
        std::string entry;
        std::string target; ///< empty for the updater
        bool isExecutable;
    };
    /// An interpreter that a script names.
    struct UsedInterpreter {
        std::string path;
        std::string command; ///< that "env" is to find; empty without one
        Location place;
        Severity severity;
    };

    void AddProgram(const archive::PackageEntry& entry, const std::string& target,
                    bool isExecutable);
    void AddPayloadScript(const archive::PackageEntry& entry, bool isExecutable);
    void AddInterpreter(const std::string& script, const Location& place, Severity severity);
    void AddUpdater();
    void ReadSyntax(const std::string& script, const Location& place);
    void ReportInterpreters();
    void ReportProgram(const FoundProgram& found);
    void ReportProcessor(const FoundProgram& found, Severity severity);
    void ReportNeeds(const FoundProgram& found);
    [[nodiscard]] bool IsOtherAbi(format::FloatAbi abi) const;
    [[nodiscard]] Severity SeverityOf(const FoundProgram& found) const;

    const archive::Package& m_package;
    const Expected& m_expected;
    Findings& m_findings;
    PanelFiles m_panel;
    std::vector<FoundProgram> m_programs;
    std::vector<UsedInterpreter> m_interpreters;
    std::set<std::string> m_needed; ///< libraries that a program needs
    std::size_t m_scriptsRead = 0;
    const format::Processor* m_processor; ///< the panel's, null when it is not known
    format::FloatAbi m_floatAbi;
};

} // namespace kx::checks
