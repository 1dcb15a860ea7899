// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "archive/Package.h"
#include "format/FastSteps.h"
#include "io/Descriptor.h"

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace kx::format
{

/// A package in which the archives of fast folders are the files that are in them, as if they lay
/// there one by one: of the archive "3/0/files.tar" with "a" in it there is "3/0/a". The
/// description is the same.
///
/// An archive that is not, byte by byte, what kx-package makes of its files stays an archive, and
/// its steps are like any others.
class FastPackage final : public archive::Package
{
public:
    /// @param package  must live as long as the object
    /// @throws Error when the archives cannot be read, or there is no room for a copy of them in
    /// the
    ///         folder for temporary files
    explicit FastPackage(const archive::Package& package);

    /// @param folders  those of the package's description
    FastPackage(const archive::Package& package, const std::vector<FastSteps>& folders);

    /// The folders that are shown as files, in the order of their steps.
    [[nodiscard]] const std::vector<FastSteps>& Folders() const { return m_folders; }

    /// Returns the folder whose archive a step copies, or null.
    /// @param step  counted from 0
    [[nodiscard]] const FastSteps* CopiedBy(std::size_t step) const;

    [[nodiscard]] const std::string& Path() const override { return m_package.Path(); }
    [[nodiscard]] bool IsArchive() const override { return m_package.IsArchive(); }
    [[nodiscard]] const std::vector<archive::PackageEntry>& Entries() const override
    {
        return m_entries;
    }
    [[nodiscard]] std::string Read(const std::string& name, std::uint64_t limit) const override;
    void Stream(const std::string& name, const archive::ContentSink& sink) const override;
    [[nodiscard]] std::string LinkTarget(const std::string& name) const override
    {
        return m_package.LinkTarget(name);
    }
    [[nodiscard]] int UnpackStatus() const override { return m_package.UnpackStatus(); }

private:
    /// A file in an archive.
    struct Place {
        std::size_t archive = 0;
        std::uint64_t offset = 0;
        std::uint64_t size = 0;
    };

    void Add(const FastSteps& steps, std::vector<archive::PackageEntry>& entries);
    [[nodiscard]] bool HasArchiveAlone(const FastSteps& steps) const;
    [[nodiscard]] bool IsSameArchive(const std::map<std::string, archive::PackageEntry>& files,
                                     const FastSteps& steps, std::size_t archive) const;
    void StreamPlace(const Place& place, const archive::ContentSink& sink) const;

    const archive::Package& m_package;
    std::vector<FastSteps> m_folders;
    std::vector<io::Descriptor> m_archives;
    std::map<std::string, Place> m_places; ///< by name in the package
    std::vector<archive::PackageEntry> m_entries;
};

} // namespace kx::format
