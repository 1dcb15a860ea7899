// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "checks/Findings.h"

#include <string>

namespace kx::checks
{

/// How a script comes to run.
enum class ScriptUse {
    kStep,    ///< a script step: CR LF becomes LF
    kStartup, ///< the start-up script, written as it stands
};

/// What the first line of a script names.
struct ScriptHead {
    std::string interpreter; ///< a full path; empty when there is none
    std::string command;     ///< that the interpreter "env" is to find; empty with another one
};

/// Reads a script's first line.
[[nodiscard]] ScriptHead HeadOf(const std::string& script);

/// Tells whether the beginning of a file is that of a script, byte order mark or not.
/// @param head  its first five bytes
[[nodiscard]] bool BeginsLikeScript(const std::string& head);

/// Returns the shell that can tell whether a script is well-formed: "sh", or one of
/// format::PanelShells(); empty when it is none for a shell.
/// @param panelShell  the program that the panel's /bin/sh is; empty when not known
[[nodiscard]] std::string ShellFor(const std::string& script, const std::string& panelShell);

/// Returns the lines of a script up to one that ends it, the last such before a line; empty when
/// there is none.
/// @param line  counted from 1
[[nodiscard]] std::string UpToExit(const std::string& script, std::size_t line);

/// Checks the text of a script of the description.
/// @param failure  severity of what makes the script fail: a warning where the step may skip it
/// @return the script as it runs on the panel; empty when it does not run
std::string CheckScript(const std::string& text, ScriptUse use, const Location& place,
                        Severity failure, Findings& findings);

/// Checks the text of a script in the payload.
/// @param isExecutable  it arrives with the right to be started; others may be read all the same
/// @return false when its first line is wrong
[[nodiscard]] bool CheckPayloadScript(const std::string& text, const Location& place,
                                      bool isExecutable, Findings& findings);

} // namespace kx::checks
