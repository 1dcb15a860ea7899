// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "archive/Package.h"
#include "archive/ZipStructure.h"

#include <map>

namespace kx::archive
{

/// The name that the device's unzip gives to an entry, and what it changed to get there.
struct UnpackedName {
    std::string name; ///< parts split by '/', none at the end; empty when nothing is left
    bool isFolder = false;
    bool wasAbsolute = false;    ///< a '/' at the beginning was cut
    bool wentUp = false;         ///< ".." was cut
    bool hadBackslashes = false; ///< '\' became '/'
    bool hadControl = false;     ///< control characters were dropped
    bool hadVersion = false;     ///< ";1" at the end was cut
};

[[nodiscard]] UnpackedName NameOnPanel(const ZipMember& member);

/// Tells whether the entry's attributes hold a file mode.
[[nodiscard]] bool HasFileMode(const ZipMember& member);

/// Tells whether unpacking makes a symbolic link of the entry.
[[nodiscard]] bool IsLink(const ZipMember& member);

/// An archive as the folder that the device's unzip makes of it.
class UnpackedArchive final : public Package
{
public:
    /// @param source, zip  not owned; must live as long as the object
    UnpackedArchive(std::string path, const ByteSource& source, const ZipStructure& zip);

    [[nodiscard]] const std::string& Path() const override { return m_path; }
    [[nodiscard]] bool IsArchive() const override { return true; }
    [[nodiscard]] const std::vector<PackageEntry>& Entries() const override { return m_entries; }
    [[nodiscard]] std::string Read(const std::string& name, std::uint64_t limit) const override;

private:
    std::string m_path;
    const ByteSource& m_source;
    const ZipStructure& m_zip;
    std::map<std::string, std::size_t> m_members; ///< name on the panel: index of the entry
    std::vector<PackageEntry> m_entries;
};

} // namespace kx::archive
