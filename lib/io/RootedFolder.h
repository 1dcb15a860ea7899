// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "io/Descriptor.h"

#include <cstdint>
#include <string>
#include <vector>

namespace kx::io
{

struct FoundPath;

/// A folder that is taken for the root of a file system: the files of a panel, on this machine or
/// copied into a folder. Paths begin at the folder, and nothing outside is ever found: links that
/// begin with '/' begin at the folder, too, and ".." does not leave it. Only reads.
class RootedFolder
{
public:
    /// What stands at a path.
    enum class Kind {
        kMissing, ///< nothing, or a link that leads nowhere
        kFile,    ///< a regular one
        kFolder,
        kOther,   ///< a device, a pipe, a socket; a link that was not followed
        kUnknown, ///< it cannot be looked at
    };

    struct Standing {
        Kind kind = Kind::kMissing;
        std::uint64_t size = 0; ///< bytes of a file
        int error = 0;          ///< errno that says why it is missing or unknown
        std::string target;     ///< of a link that was not followed: where it leads
    };

    /// How paths are followed. What is found is the same; but what /proc has as links of running
    /// processes ("/proc/self/exe") leads nowhere by the first way, and where its text says by the
    /// second.
    enum class Way {
        kKernel, ///< with one system call, by Linux 5.6 and newer
        kWalk,   ///< name by name
    };

    /// Asks the kernel which way it knows, and what guards the program lets through.
    [[nodiscard]] static Way AskForWay();

    /// What AskForWay said when it was asked first in this process.
    [[nodiscard]] static Way BestWay();

    /// @param folder  "/" is this machine
    /// @throws Error "cannot open: …" when there is no such folder
    explicit RootedFolder(std::string folder, Way way = BestWay());

    /// The folder, as it was named.
    [[nodiscard]] const std::string& Folder() const { return m_folder; }

    /// Returns where a path lies outside of the folder, for people: the folder with the path
    /// behind.
    [[nodiscard]] std::string Shown(const std::string& path) const;

    /// Looks at a path; links are followed. '/' at its end does not matter.
    [[nodiscard]] Standing Look(const std::string& path) const;

    /// Looks at a path; a link at its end is looked at itself. '/' at its end does not matter.
    [[nodiscard]] Standing LookAtLink(const std::string& path) const;

    /// Opens a file or a folder for reading. Nothing else is opened, not even for a moment.
    /// @param kind  kFile or kFolder
    /// @throws Error when it is not of that kind, or cannot be opened
    [[nodiscard]] Descriptor Open(const std::string& path, Kind kind) const;

    /// Returns the names in a folder in no order, without "." and "..".
    /// @throws Error "cannot list: …"
    [[nodiscard]] std::vector<std::string> Names(const std::string& path) const;

private:
    [[nodiscard]] FoundPath Find(const std::string& path, bool isLastFollowed) const;

    std::string m_folder;
    Descriptor m_root; ///< to find what is in it, not to be read
    Way m_way;
};

} // namespace kx::io
