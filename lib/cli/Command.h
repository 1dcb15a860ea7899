// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/Output.h"

#include <functional>
#include <string>
#include <vector>

namespace CLI
{
class App;
} // namespace CLI

namespace kx::cli
{

/// The status with which a program ends: one of the codes, or what another program ended with.
class ExitStatus
{
public:
    ExitStatus(io::ExitCode code) : m_number(static_cast<int>(code)) {}
    explicit ExitStatus(int number) : m_number(number) {}

    [[nodiscard]] int Number() const { return m_number; }

private:
    int m_number;
};

/// What the command line asks for; filled by the callback of the command that was named.
struct Invocation {
    /// Does the work. Throws Error when it cannot.
    std::function<ExitStatus(const Output& output)> run;
    bool isJson = false; ///< --json was given
};

/// Files that complete the value of an option.
struct FileKind {
    const char* value;    ///< the name of the option's type
    const char* patterns; ///< for a shell: "'*.toml' '*.txt'"; empty: folders alone
};

// Commands that every program has. When the command line names one, its callback sets what is to be
// run. The program lives as long as the invocation.

/// Adds the command "help".
/// @param example  the command whose help is the example
void AddHelp(CLI::App& program, Invocation& invocation, const std::string& example);

/// Adds the command "version", which tells what --version tells.
void AddVersion(CLI::App& program, Invocation& invocation);

/// Adds the command "completion", which knows all commands of the program and their options.
/// @param kinds  what completes values of the program's own types
void AddCompletion(CLI::App& program, Invocation& invocation, const std::vector<FileKind>& kinds);

} // namespace kx::cli
