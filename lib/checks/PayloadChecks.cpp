// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "checks/PayloadChecks.h"

#include <algorithm>
#include <string_view>
#include <utility>

namespace kx::checks
{

namespace
{

using Kind = format::Program::Kind;

/// How large a script may be that is looked into, and how many are read by a shell.
constexpr std::uint64_t kLargestScript = std::uint64_t{1} << 20;
constexpr std::size_t kMostRead = 300;
constexpr std::string_view kElfMark = "\x7f"
                                      "ELF";

/// Returns the folders in which a program looks for libraries, as full paths.
std::vector<std::string> FoldersOf(const format::Program& program, const std::string& target)
{
    const std::string own = target.substr(0, target.rfind('/'));
    std::vector<std::string> folders;
    for (std::string folder : program.folders) {
        for (const std::string mark : {"$ORIGIN", "${ORIGIN}"}) {
            if (const std::size_t at = folder.find(mark); at != std::string::npos) {
                folder.replace(at, mark.size(), own);
            }
        }
        folders.push_back(folder);
    }
    return folders;
}

} // namespace

PayloadCheck::PayloadCheck(const archive::Package& package, const Expected& expected,
                           Findings& findings)
    : m_package(package), m_expected(expected), m_findings(findings), m_panel(expected.panel),
      m_processor(expected.panel.processor), m_floatAbi(expected.panel.floatAbi)
{
}

void PayloadCheck::AddFile(const archive::PackageEntry& entry, const std::string& target,
                           bool isExecutable)
{
    m_panel.AddBrought(target);
    try {
        const std::string head = m_package.Read(entry.name, kElfMark.size() + 1);
        if (std::string_view(head).substr(0, kElfMark.size()) == kElfMark) {
            AddProgram(entry, target, isExecutable);
        } else if (BeginsLikeScript(head) && entry.size <= kLargestScript) {
            AddPayloadScript(entry, isExecutable);
        }
    } catch (const archive::ContentError&) {
        return; // found when the archive was looked at
    }
}

void PayloadCheck::AddProgram(const archive::PackageEntry& entry, const std::string& target,
                              bool isExecutable)
{
    std::optional<format::Program> program =
        format::ReadProgram(m_package.Read(entry.name, format::kLargestProgram));
    if (!program.has_value()) {
        return;
    }
    if (!program->name.empty()) {
        m_panel.AddBroughtLibrary(program->name);
    }
    if (program->kind == Kind::kStarted || program->kind == Kind::kLibrary) {
        m_needed.insert(program->libraries.begin(), program->libraries.end());
        m_programs.push_back({*std::move(program), entry.name, target, isExecutable});
    }
}

void PayloadCheck::AddPayloadScript(const archive::PackageEntry& entry, bool isExecutable)
{
    const std::string text = m_package.Read(entry.name, kLargestScript);
    const Location place = Location::Entry(entry.name);
    if (!CheckPayloadScript(text, place, isExecutable, m_findings)) {
        return;
    }
    if (isExecutable) {
        AddInterpreter(text, place, Severity::kError);
    }
    ReadSyntax(text, place);
}

void PayloadCheck::AddScript(const std::string& text, ScriptUse use, const Location& place,
                             Severity failure)
{
    if (const std::string script = CheckScript(text, use, place, failure, m_findings);
        !script.empty()) {
        AddInterpreter(script, place, failure);
        ReadSyntax(script, place);
    }
}

void PayloadCheck::AddInterpreter(const std::string& script, const Location& place,
                                  Severity severity)
{
    const ScriptHead head = HeadOf(script);
    if (!head.interpreter.empty()) {
        m_interpreters.push_back({head.interpreter, head.command, place, severity});
    }
}

void PayloadCheck::ReadSyntax(const std::string& script, const Location& place)
{
    if (m_expected.shells == nullptr) {
        return;
    }
    IShells& shells = *m_expected.shells;
    const std::string wanted = ShellFor(script, m_expected.panel.shell);
    // Where the panel's own shell is not at hand, this machine's reads for it.
    const bool isForPanel = !wanted.empty() && wanted == m_expected.panel.shell;
    const std::string shell = isForPanel && !shells.Has(wanted) ? "sh" : wanted;
    if (shell.empty() || !shells.Has(shell) || ++m_scriptsRead > kMostRead) {
        return;
    }
    const std::optional<SyntaxMistake> mistake = shells.Read(shell, script);
    if (!mistake.has_value()) {
        return;
    }
    // What stands behind the script's end is read by no panel.
    if (const std::string before = UpToExit(script, mistake->line);
        !before.empty() && !shells.Read(shell, before).has_value()) {
        return;
    }
    Location where = place;
    if (place.path.empty()) {
        where.at = {mistake->line, 1};
    }
    m_findings.AddAs(isForPanel && shell == wanted ? Severity::kError : Severity::kWarning,
                     RuleId::kScriptSyntax, where,
                     "line " + std::to_string(mistake->line) + ", says " + mistake->shell + ": " +
                         mistake->what);
}

void PayloadCheck::AddUpdater()
{
    const archive::PackageEntry* const entry = m_package.Find(archive::kUpdaterName);
    if (entry == nullptr || entry->kind != archive::PackageEntry::Kind::kFile) {
        return;
    }
    try {
        std::optional<format::Program> updater =
            format::ReadProgram(m_package.Read(entry->name, format::kLargestProgram));
        if (!updater.has_value()) {
            return;
        }
        // It runs on the panel, so what is for the panel is made like it.
        if (m_processor == nullptr) {
            m_processor = format::FindProcessor(updater->head.ProcessorName());
        }
        const bool isForProcessor = m_processor != nullptr && updater->head.IsFor(*m_processor);
        if (isForProcessor && m_floatAbi == format::FloatAbi::kUnknown) {
            m_floatAbi = updater->floatAbi;
        }
        // One that is for another panel is told by a rule of its own.
        if (isForProcessor && !IsOtherAbi(updater->floatAbi)) {
            m_needed.insert(updater->libraries.begin(), updater->libraries.end());
            m_programs.push_back({*std::move(updater), entry->name, "", true});
        }
    } catch (const archive::ContentError&) {
        return; // found when the archive was looked at
    }
}

void PayloadCheck::Report()
{
    AddUpdater();
    for (const FoundProgram& found : m_programs) {
        ReportProgram(found);
    }
    ReportInterpreters();
}

void PayloadCheck::ReportInterpreters()
{
    for (const UsedInterpreter& used : m_interpreters) {
        if (!m_panel.HasInterpreter(used.path)) {
            m_findings.AddAs(used.severity, RuleId::kScriptMissing, used.place,
                             "there is no '" + used.path + "' on the panel");
        } else if (!used.command.empty() && !m_panel.HasCommand(used.command)) {
            m_findings.AddAs(used.severity, RuleId::kScriptMissing, used.place,
                             "there is no '" + used.command + "' on the panel");
        }
    }
}

bool PayloadCheck::IsOtherAbi(format::FloatAbi abi) const
{
    return abi != format::FloatAbi::kUnknown && m_floatAbi != format::FloatAbi::kUnknown &&
           abi != m_floatAbi;
}

Severity PayloadCheck::SeverityOf(const FoundProgram& found) const
{
    const bool isNeeded = found.program.kind == Kind::kStarted
                              ? found.isExecutable
                              : m_needed.count(found.program.name) != 0;
    return isNeeded ? Severity::kError : Severity::kWarning;
}

void PayloadCheck::ReportProgram(const FoundProgram& found)
{
    if (m_processor != nullptr && !found.program.head.IsFor(*m_processor)) {
        ReportProcessor(found, SeverityOf(found));
        return;
    }
    const format::FloatAbi abi = found.program.floatAbi;
    const bool isLoaded = !found.program.loader.empty() || found.program.kind == Kind::kLibrary;
    if (isLoaded && IsOtherAbi(abi)) {
        m_findings.AddAs(SeverityOf(found), RuleId::kProgramFloat, Location::Entry(found.entry),
                         std::string("is ") + format::FloatAbiName(abi) + ", not " +
                             format::FloatAbiName(m_floatAbi));
        return;
    }
    ReportNeeds(found);
}

void PayloadCheck::ReportProcessor(const FoundProgram& found, Severity severity)
{
    const format::ProgramHead& head = found.program.head;
    const std::string what = "is for " + head.ProcessorName();
    const Location place = Location::Entry(found.entry);
    if (format::IsSmallerBrother(head.ProcessorName(), *m_processor)) {
        m_findings.AddAs(Severity::kWarning, RuleId::kProgramProcessor, place,
                         what + ", which " + m_processor->name +
                             " only runs where the panel has its libraries");
    } else {
        m_findings.AddAs(severity, RuleId::kProgramProcessor, place,
                         what + ", not for " + m_processor->name);
    }
}

void PayloadCheck::ReportNeeds(const FoundProgram& found)
{
    const format::Program& program = found.program;
    const Location place = Location::Entry(found.entry);
    const bool isStarted = program.kind == Kind::kStarted && found.isExecutable;
    const Severity severity = isStarted ? Severity::kError : Severity::kWarning;
    if (!program.loader.empty() && !m_panel.HasLoader(program.loader)) {
        m_findings.AddAs(severity, RuleId::kProgramLoader, place,
                         "there is no '" + program.loader + "' on the panel");
    }
    const std::vector<std::string> folders = FoldersOf(program, found.target);
    for (const std::string& library : program.libraries) {
        if (!m_panel.HasLibrary(library, folders)) {
            m_findings.AddAs(severity, RuleId::kProgramLibrary, place,
                             "needs '" + library + "', which the panel does not have");
        }
    }
    // A package that brings a C library of its own is not judged by the panel's.
    const std::string& version = m_panel.CLibrary();
    if (!version.empty() && !m_panel.BringsCLibrary() &&
        format::IsOlder(version, program.cLibrary)) {
        m_findings.AddAs(severity, RuleId::kProgramVersion, place,
                         "needs the C library " + program.cLibrary + "; the panel has " + version);
    }
}

} // namespace kx::checks
