// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "decision/FileSystems.h"
#include "decision/Reason.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

namespace kx::guard
{

/// Adds up what an installation takes on each file system: every file in whole blocks, every folder
/// one block, one inode for each that is not there yet. What a file takes that is overwritten
/// counts as free. Remembers paths by their hashes alone; two of one hash, which no chance makes,
/// count once.
class Room
{
public:
    /// @param fileSystems  must live as long as the object
    explicit Room(const IFileSystems& fileSystems) : m_fileSystems(fileSystems) {}

    /// Adds a file that is written, once or more often, and the folders that lead to it.
    /// @param path  plain, from the root
    void AddFile(const std::string& path, std::uint64_t bytes);

    /// Adds a folder and those that lead to it, as far as they are not there.
    void AddFolder(const std::string& path);

    /// Notes a file that the next AddFiles overwrites.
    void AddStanding(const std::string& path);

    /// Adds files that are made in a folder or below, whose names and sizes are not known.
    /// @param kib  of all of them, each rounded up to whole KiB
    void AddFiles(const std::string& folder, std::uint64_t kib, std::uint64_t count);

    /// Adds blocks and inodes of the file system on which a folder lies.
    void AddBlocks(const std::string& folder, std::uint64_t blocks, std::uint64_t inodes);

    /// Tells whether there is a folder.
    [[nodiscard]] bool IsFolder(const std::string& path) const;

    /// Returns the reasons against it: file systems without enough bytes, then those that hold no
    /// such number of files.
    [[nodiscard]] std::vector<Reason> Reasons() const;

private:
    struct Need {
        FileSystem system;
        std::uint64_t blocks = 0;
        std::uint64_t inodes = 0;
    };

    [[nodiscard]] std::size_t NeedAt(const std::string& folder);
    [[nodiscard]] std::optional<std::size_t> KnownAt(const std::string& folder);

    const IFileSystems& m_fileSystems;
    std::vector<Need> m_needs;
    std::unordered_map<std::size_t, std::size_t> m_folders; ///< hash: index of the need
    std::unordered_map<std::size_t, std::uint64_t> m_files; ///< hash: blocks that were counted
    std::uint64_t m_standingBlocks = 0;
    std::uint64_t m_standingFiles = 0;
};

} // namespace kx::guard
