// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "checks/ScriptChecks.h"

#include "io/Text.h"
#include "osa/OSA.h"

#include <algorithm>
#include <string_view>

namespace kx::checks
{

namespace
{

constexpr std::string_view kMark = "\xef\xbb\xbf";
constexpr std::string_view kBlanks = " \t\r\n";

/// Returns the interpreter that the first line names; empty without one.
std::string InterpreterOf(std::string_view line)
{
    line.remove_prefix(std::min(line.find_first_not_of(" \t", 2), line.size()));
    return std::string(line.substr(0, line.find_first_of(" \t")));
}

void CheckFirstLine(std::string_view line, const Location& place, Severity failure,
                    Findings& findings)
{
    if (line.substr(0, 2) != "#!") {
        findings.Add(RuleId::kScriptInterpreter, place, "does not begin with '#!'");
        return;
    }
    if (line.find('\r') != std::string_view::npos) {
        findings.AddAs(failure, RuleId::kScriptReturn, place,
                       "its first line ends in a carriage return");
        return;
    }
    const std::string interpreter = InterpreterOf(line);
    if (interpreter.empty() || interpreter.front() != '/') {
        findings.AddAs(failure, RuleId::kScriptInterpreter, place,
                       "'" + interpreter + "' is not the full path of an interpreter");
    } else if (interpreter != "/bin/sh") {
        findings.AddAs(Severity::kNote, RuleId::kScriptInterpreter, place,
                       "needs '" + interpreter + "' on the panel");
    }
}

} // namespace

void CheckScript(const std::string& text, ScriptUse use, const Location& place, Severity failure,
                 Findings& findings)
{
    if (text.find_first_not_of(kBlanks) == std::string::npos) {
        findings.Add(RuleId::kScriptEmpty, place, "has no text");
        return;
    }
    const std::string script = use == ScriptUse::kStep ? Replace_CRLF_to_LF(text) : text;
    if (script.find('\0') != std::string::npos) {
        findings.AddAs(failure, RuleId::kScriptZero, place, "contains a zero byte");
    }
    if (std::string_view(script).substr(0, kMark.size()) == kMark) {
        findings.AddAs(failure, RuleId::kScriptMark, place, "begins with a byte order mark");
        return;
    }
    const std::string_view first = std::string_view(script).substr(0, script.find('\n'));
    CheckFirstLine(first, place, failure, findings);
    if (script.find('\r', first.size()) != std::string::npos) {
        const bool isStartup = use == ScriptUse::kStartup;
        findings.AddAs(isStartup ? Severity::kError : Severity::kWarning, RuleId::kScriptCarriage,
                       place, "contains carriage returns");
    }
}

} // namespace kx::checks
