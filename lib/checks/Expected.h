// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "format/PanelFile.h"
#include "signature/TrustedKeys.h"

#include <cstddef>
#include <optional>
#include <string>

namespace kx::checks
{

/// Where a shell could not go on reading a script.
struct SyntaxMistake {
    std::string shell; ///< the one that read it: "dash"
    std::size_t line = 0;
    std::string what; ///< in the shell's words
};

/// The shells of this machine: they read scripts and run none.
class IShells
{
public:
    IShells() = default;
    IShells(const IShells&) = delete;
    IShells& operator=(const IShells&) = delete;
    virtual ~IShells() = default;

    /// Tells whether there is a shell.
    /// @param shell  "sh", or one of format::PanelShells()
    [[nodiscard]] virtual bool Has(const std::string& shell) = 0;

    /// Lets a shell read a script to its end.
    /// @return nothing when it has read it, or did not come to an end of it
    [[nodiscard]] virtual std::optional<SyntaxMistake> Read(const std::string& shell,
                                                            const std::string& script) = 0;
};

/// What is known besides the package itself.
struct Expected {
    format::PanelModel panel; ///< that it is for
    std::string name;         ///< the package's own, by its manifest; empty when not known
    bool hasUpdater = true;   ///< false: the package gets its updater later
    const signature::TrustedKeys* keys = nullptr; ///< that the panel trusts; null: not known
    bool requiresSignature = false;               ///< the panel installs nothing else; needs keys
    IShells* shells = nullptr;                    ///< null: scripts are not read by a shell
};

} // namespace kx::checks
