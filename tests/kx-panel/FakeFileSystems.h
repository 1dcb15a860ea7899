// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "decision/FileSystems.h"

#include <map>
#include <optional>
#include <string>

namespace kx::guard
{

/// File systems that a test makes up: one with the root folder on it, and as many more as it likes.
class FakeFileSystems final : public IFileSystems
{
public:
    /// Mounts a file system.
    FileSystem& Mount(const std::string& path)
    {
        FileSystem& system = m_mounts[path];
        system.id = m_mounts.size();
        system.mountPoint = path;
        system.blockSize = 4096;
        system.freeBlocks = 1000000;
        system.freeInodes = 100000;
        MakeFolder(path);
        return system;
    }

    void MakeFolder(const std::string& path) { m_standing[path] = {true, 0, false}; }
    void MakeFile(const std::string& path, std::uint64_t blocks)
    {
        m_standing[path] = {false, blocks, false};
    }

    void MakeDevice(const std::string& path) { m_standing[path] = {false, 0, true}; }

    [[nodiscard]] FileSystem& At(const std::string& mountPoint) { return m_mounts.at(mountPoint); }

    [[nodiscard]] FileSystem Of(const std::string& path) const override
    {
        const FileSystem* found = nullptr;
        for (const auto& [folder, system] : m_mounts) {
            const std::string prefix = folder == "/" ? "/" : folder + "/";
            if ((path + "/").compare(0, prefix.size(), prefix) == 0) {
                found = &system; // the longest comes last
            }
        }
        return *found;
    }

    [[nodiscard]] std::optional<StandingFile> Look(const std::string& path) const override
    {
        const auto found = m_standing.find(path);
        return found == m_standing.end() ? std::nullopt : std::optional(found->second);
    }

    FakeFileSystems() { Mount("/"); }

private:
    std::map<std::string, FileSystem> m_mounts;
    std::map<std::string, StandingFile> m_standing;
};

} // namespace kx::guard
