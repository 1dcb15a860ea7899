// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "archive/Package.h"
#include "compose/Layout.h"

#include <map>
#include <memory>
#include <string>
#include <vector>

namespace kx::tool
{

/// The package that would be built of a layout, without being built: for what looks into packages.
/// Contents are read from the author's files when they are asked for.
class LayoutPackage final : public archive::Package
{
public:
    /// @param path       what the package is taken to be called
    /// @param isArchive  whether that is the name of an archive, or of an unpacked package's folder
    /// @param updater    file of the packed updater; empty for none
    /// @throws Error when a file cannot be looked at
    LayoutPackage(std::string path, bool isArchive, const Layout& layout,
                  const std::string& updater);

    [[nodiscard]] const std::string& Path() const override { return m_path; }
    [[nodiscard]] bool IsArchive() const override { return m_isArchive; }
    [[nodiscard]] const std::vector<archive::PackageEntry>& Entries() const override
    {
        return m_entries;
    }
    [[nodiscard]] std::string Read(const std::string& name, std::uint64_t limit) const override;
    void Stream(const std::string& name, const archive::ContentSink& sink) const override;

    /// Returns the file that an entry is made of, or a file in the archive of a fast folder; empty
    /// when there is none.
    [[nodiscard]] std::string SourceOf(const std::string& name) const;

private:
    void Add(const archive::ArchiveItem& item, std::vector<archive::PackageEntry>& entries);

    std::string m_path;
    bool m_isArchive;
    std::string m_description;
    std::map<std::string, std::string> m_sources;                  ///< name in the package: file
    std::vector<std::shared_ptr<const io::Descriptor>> m_archives; ///< the layout's
    std::map<std::string, std::string> m_sourcesInArchives;
    std::vector<archive::PackageEntry> m_entries;
};

} // namespace kx::tool
