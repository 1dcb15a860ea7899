// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "checks/ScriptChecks.h"

#include "io/Path.h"
#include "osa/OSA.h"

#include <algorithm>
#include <string_view>

namespace kx::checks
{

namespace
{

constexpr std::string_view kMark = "\xef\xbb\xbf";
constexpr std::string_view kBlanks = " \t\r\n";

std::string_view FirstLine(std::string_view script)
{
    return script.substr(0, script.find('\n'));
}

/// Takes the first word off a line.
std::string TakeWord(std::string_view& line)
{
    line.remove_prefix(std::min(line.find_first_not_of(" \t"), line.size()));
    const std::size_t end = std::min(line.find_first_of(" \t"), line.size());
    std::string word(line.substr(0, end));
    line.remove_prefix(end);
    return word;
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
    line.remove_prefix(2);
    const std::string interpreter = TakeWord(line);
    if (interpreter.empty() || interpreter.front() != '/') {
        findings.AddAs(failure, RuleId::kScriptInterpreter, place,
                       "'" + interpreter + "' is not the full path of an interpreter");
    } else if (interpreter != "/bin/sh") {
        findings.AddAs(Severity::kNote, RuleId::kScriptInterpreter, place,
                       "needs '" + interpreter + "' on the panel");
    }
}

} // namespace

ScriptHead HeadOf(const std::string& script)
{
    std::string_view line = FirstLine(script);
    if (line.substr(0, 2) != "#!" || line.find('\r') != std::string_view::npos) {
        return {};
    }
    line.remove_prefix(2);
    ScriptHead head;
    head.interpreter = TakeWord(line);
    if (head.interpreter.empty() || head.interpreter.front() != '/') {
        return {};
    }
    if (io::LastPart(head.interpreter) == "env") {
        head.command = TakeWord(line);
        if (head.command == "-S") {
            head.command = TakeWord(line);
        }
        if (head.command.find_first_of("-=/") != std::string::npos) {
            head.command.clear(); // an option or a variable: whatever it finds
        }
    }
    return head;
}

bool BeginsLikeScript(const std::string& head)
{
    return head.compare(0, 2, "#!") == 0 ||
           head.compare(0, kMark.size() + 2, std::string(kMark) + "#!") == 0;
}

std::string ShellFor(const std::string& script, const std::string& panelShell)
{
    const ScriptHead head = HeadOf(script);
    const std::string name = io::LastPart(head.command.empty() ? head.interpreter : head.command);
    if (name == "sh") {
        return panelShell.empty() ? name : panelShell;
    }
    if (name == "bash") {
        // What a script may write depends on an option that it sets while it runs.
        return script.find("extglob") == std::string::npos ? name : "";
    }
    return name == "dash" ? name : name == "ash" ? "busybox" : "";
}

std::string UpToExit(const std::string& script, std::size_t line)
{
    std::size_t begin = 0;
    std::size_t end = 0; // behind the last line that ends it
    for (std::size_t i = 1; i < line && begin < script.size(); ++i) {
        const std::size_t next = std::min(script.find('\n', begin), script.size() - 1) + 1;
        if (script.compare(begin, 4, "exit") == 0 || script.compare(begin, 5, "exec ") == 0) {
            end = next;
        }
        begin = next;
    }
    return script.substr(0, end);
}

std::string CheckScript(const std::string& text, ScriptUse use, const Location& place,
                        Severity failure, Findings& findings)
{
    if (text.find_first_not_of(kBlanks) == std::string::npos) {
        findings.Add(RuleId::kScriptEmpty, place, "has no text");
        return {};
    }
    std::string script = use == ScriptUse::kStep ? Replace_CRLF_to_LF(text) : text;
    const bool hasZero = script.find('\0') != std::string::npos;
    if (hasZero) {
        findings.AddAs(failure, RuleId::kScriptZero, place, "contains a zero byte");
    }
    if (std::string_view(script).substr(0, kMark.size()) == kMark) {
        findings.AddAs(failure, RuleId::kScriptMark, place, "begins with a byte order mark");
        return {};
    }
    const std::string_view first = FirstLine(script);
    CheckFirstLine(first, place, failure, findings);
    const bool hasReturns = script.find('\r', first.size()) != std::string::npos;
    if (hasReturns) {
        const bool isStartup = use == ScriptUse::kStartup;
        findings.AddAs(isStartup ? Severity::kError : Severity::kWarning, RuleId::kScriptCarriage,
                       place, "contains carriage returns");
    }
    return hasZero || hasReturns ? std::string() : script;
}

bool CheckPayloadScript(const std::string& text, const Location& place, bool isExecutable,
                        Findings& findings)
{
    const Severity severity = isExecutable ? Severity::kError : Severity::kWarning;
    if (std::string_view(text).substr(0, kMark.size()) == kMark) {
        findings.AddAs(severity, RuleId::kScriptMark, place, "begins with a byte order mark");
        return false;
    }
    std::string first(FirstLine(text));
    const bool hasReturn = first.find('\r') != std::string::npos;
    first.erase(std::remove(first.begin(), first.end(), '\r'), first.end());
    // Other interpreters than shells take such lines; only the kernel does not.
    const bool isForShell = !ShellFor(first, "").empty();
    if (hasReturn && (isExecutable || isForShell)) {
        findings.AddAs(severity, RuleId::kScriptReturn, place,
                       "its first line ends in a carriage return");
        return false;
    }
    if (!hasReturn && isForShell && text.find("\r\n") != std::string::npos) {
        findings.Add(RuleId::kScriptCarriage, place, "contains carriage returns");
        return false;
    }
    return !hasReturn;
}

} // namespace kx::checks
