// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "io/Descriptor.h"

#include <cstdint>
#include <string>

#include <sys/stat.h>

namespace kx::io
{

/// The files of a panel: those of this machine, or a copy in a folder. Paths are the panel's, and
/// everything is looked up inside the folder: links that begin with '/' begin at the folder, and
/// ".." does not leave it. Only reads.
class PanelRoot
{
public:
    /// What stands at a path.
    enum class Kind {
        kMissing, ///< nothing, or a link that leads nowhere
        kFile,
        kFolder,
        kOther,   ///< a device, a pipe, a socket
        kUnknown, ///< it cannot be looked at
    };

    struct Place {
        Kind kind = Kind::kMissing;
        std::uint64_t size = 0; ///< bytes of a file
        int error = 0;          ///< errno that says why it is missing or unknown
    };

    /// @param folder  "/" is this machine
    /// @throws Error when there is no such folder, or it cannot be opened
    explicit PanelRoot(std::string folder);

    /// The folder, as it was named.
    [[nodiscard]] const std::string& Folder() const { return m_folder; }

    /// Returns where a path of the panel lies, for people.
    [[nodiscard]] std::string Shown(const std::string& path) const;

    /// Looks at a path; links are followed. '/' at its end does not matter.
    [[nodiscard]] Place Look(const std::string& path) const;

    /// Opens a file or a folder for reading.
    /// @throws Error when it is not of that kind, or cannot be opened
    [[nodiscard]] Descriptor Open(const std::string& path, Kind kind) const;

private:
    struct Walk;

    [[nodiscard]] Walk Find(const std::string& path) const;
    [[nodiscard]] bool IsRoot(const struct stat& info) const;
    [[nodiscard]] int Step(Walk& walk, const std::string& name, std::string& rest) const;
    [[nodiscard]] int StepUp(Walk& walk) const;
    [[nodiscard]] int StepTo(Walk& walk, Descriptor next, std::string& rest) const;

    std::string m_folder;
    Descriptor m_root;
    struct stat m_info {
    };
};

} // namespace kx::io
