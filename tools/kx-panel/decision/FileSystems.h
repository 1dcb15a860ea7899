// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace kx::guard
{

/// A file system of the panel, as it is now.
struct FileSystem {
    std::uint64_t id = 0;         ///< the same for all paths on it
    std::string mountPoint;       ///< for people; may be the path itself when it is not known
    std::uint64_t blockSize = 0;  ///< bytes of which every file takes a number
    std::uint64_t freeBlocks = 0; ///< the largest number where blocks are not counted
    std::uint64_t freeInodes = 0;
    bool hasInodes = true; ///< false: it has no fixed number of them
};

/// What stands at a path of the panel.
struct StandingFile {
    bool isFolder = false;
    std::uint64_t blocks = 0; ///< of the file system's size, that a file takes now
    bool isDevice = false;    ///< what is written to it takes no room of the file system
};

/// The file systems of a panel; a test hands in others.
class IFileSystems
{
public:
    IFileSystems() = default;
    IFileSystems(const IFileSystems&) = delete;
    IFileSystems& operator=(const IFileSystems&) = delete;
    virtual ~IFileSystems() = default;

    /// Returns the file system on which a path lies, or will lie when its folders are made. Links
    /// are followed.
    /// @param path  plain, from the root
    /// @throws Error when that cannot be told
    [[nodiscard]] virtual FileSystem Of(const std::string& path) const = 0;

    /// Returns what stands at a path, links followed; nothing when nothing does.
    [[nodiscard]] virtual std::optional<StandingFile> Look(const std::string& path) const = 0;
};

/// The file systems of this machine.
class RealFileSystems final : public IFileSystems
{
public:
    [[nodiscard]] FileSystem Of(const std::string& path) const override;
    [[nodiscard]] std::optional<StandingFile> Look(const std::string& path) const override;
};

} // namespace kx::guard
