// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "archive/ArchiveWriter.h"
#include "archive/Package.h"

#include <map>
#include <string>
#include <vector>

namespace kx::tool
{

/// A package that is not written yet: what its archive would hold, from the files it would be made
/// of.
class ComposedPackage final : public archive::Package
{
public:
    /// @param path   ends in the name of the package's file, which need not be there
    /// @param items  as for WriteArchive
    /// @throws Error when the size of a file cannot be told
    ComposedPackage(std::string path, const std::vector<archive::ArchiveItem>& items);

    [[nodiscard]] const std::string& Path() const override { return m_path; }
    [[nodiscard]] bool IsArchive() const override { return true; }
    [[nodiscard]] const std::vector<archive::PackageEntry>& Entries() const override
    {
        return m_entries;
    }
    [[nodiscard]] std::string Read(const std::string& name, std::uint64_t limit) const override;

    /// Returns the file that an entry is made of; empty when there is none.
    [[nodiscard]] std::string SourceOf(const std::string& name) const;

private:
    std::string m_path;
    std::map<std::string, archive::ArchiveItem> m_items; ///< by their names
    std::vector<archive::PackageEntry> m_entries;
};

} // namespace kx::tool
