// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "archive/Package.h"

#include <string>
#include <vector>

namespace kx::tool
{

/// A package of any name that has no steps: for what a panel does with every package of that name.
/// Nothing is opened.
class EmptyPackage final : public archive::Package
{
public:
    /// @param path       ends in the package's name
    /// @param isArchive  whether the name is that of an archive, or of an unpacked package's folder
    EmptyPackage(std::string path, bool isArchive);

    [[nodiscard]] const std::string& Path() const override { return m_path; }
    [[nodiscard]] bool IsArchive() const override { return m_isArchive; }
    [[nodiscard]] const std::vector<archive::PackageEntry>& Entries() const override
    {
        return m_entries;
    }
    [[nodiscard]] std::string Read(const std::string& name, std::uint64_t limit) const override;

private:
    std::string m_path;
    bool m_isArchive;
    std::string m_description;
    std::vector<archive::PackageEntry> m_entries;
};

} // namespace kx::tool
