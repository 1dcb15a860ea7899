// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "archive/Package.h"

#include <string>
#include <vector>

namespace kx::tool
{

// Packages whose installation is planned for a trial. Whatever updater the tried package has, one
// is started on the trial's panel.

/// A package with an updater that can be started.
class StartablePackage final : public archive::Package
{
public:
    /// @param package  must outlive this one
    /// @throws Error when its names hold more folders than memory should
    explicit StartablePackage(const archive::Package& package);

    [[nodiscard]] const std::string& Path() const override { return m_package.Path(); }
    [[nodiscard]] bool IsArchive() const override { return m_package.IsArchive(); }
    [[nodiscard]] const std::vector<archive::PackageEntry>& Entries() const override
    {
        return m_entries;
    }
    [[nodiscard]] std::string Read(const std::string& name, std::uint64_t limit) const override
    {
        return m_package.Read(name, limit);
    }
    [[nodiscard]] std::string LinkTarget(const std::string& name) const override
    {
        return m_package.LinkTarget(name);
    }

private:
    const archive::Package& m_package;
    std::vector<archive::PackageEntry> m_entries;
};

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
