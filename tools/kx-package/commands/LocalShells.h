// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "checks/Expected.h"

#include <chrono>
#include <map>
#include <string>

namespace kx::tool
{

/// The shells of this machine. They are started with -n, which reads a script and runs nothing of
/// it, without input and environment, and with bounds for memory, time and files. All of them
/// together take half a minute at most; scripts that come later are not read.
class LocalShells final : public checks::IShells
{
public:
    LocalShells();

    [[nodiscard]] bool Has(const std::string& shell) override;

    /// @throws Error when no shell can be started
    [[nodiscard]] std::optional<checks::SyntaxMistake> Read(const std::string& shell,
                                                            const std::string& script) override;

private:
    /// A shell that is here.
    struct Shell {
        std::string path; ///< empty when it is not
        std::string name; ///< of the program, behind links: "dash"
    };

    const Shell& Find(const std::string& shell);

    std::chrono::steady_clock::time_point m_end;
    std::map<std::string, Shell> m_shells;
};

/// Takes apart what a shell says of a script that it cannot read: "PATH: 3: Syntax error: …", or
/// with "line 3".
/// @return nothing when it says something else
[[nodiscard]] std::optional<checks::SyntaxMistake>
MistakeIn(const std::string& line, const std::string& path, const std::string& shell);

} // namespace kx::tool
