// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "archive/Package.h"
#include "archive/ZipStructure.h"

#include <map>
#include <optional>

namespace kx::archive
{

/// An archive as the folder that the device's unzip makes of it.
class UnpackedArchive final : public Package
{
public:
    /// @param source, zip  not owned; must live as long as the object
    /// @param status       what UnpackStatus tells, where that is known already
    UnpackedArchive(std::string path, const ByteSource& source, const ZipStructure& zip,
                    std::optional<int> status = std::nullopt);

    [[nodiscard]] const std::string& Path() const override { return m_path; }
    [[nodiscard]] bool IsArchive() const override { return true; }
    [[nodiscard]] const std::vector<PackageEntry>& Entries() const override { return m_entries; }
    [[nodiscard]] std::string Read(const std::string& name, std::uint64_t limit) const override;
    void Stream(const std::string& name, const ContentSink& sink) const override;
    [[nodiscard]] int UnpackStatus() const override;

private:
    /// Streams a content of which not many more than @p wanted bytes will be asked for.
    void StreamBeginning(const std::string& name, std::uint64_t wanted,
                         const ContentSink& sink) const;

    std::string m_path;
    const ByteSource& m_source;
    const ZipStructure& m_zip;
    std::optional<int> m_status;
    std::map<std::string, std::size_t> m_members; ///< name on the panel: index of the entry
    std::vector<PackageEntry> m_entries;
};

} // namespace kx::archive
