// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "commands/PlannedPackages.h"

#include "compose/DescriptionWriter.h"
#include "compose/Model.h"
#include "manifest/Manifest.h"

#include <utility>

namespace kx::tool
{

namespace
{

archive::PackageEntry Updater()
{
    archive::PackageEntry updater;
    updater.name = archive::kUpdaterName;
    updater.mode = 0755;
    updater.hasMode = true;
    return updater;
}

} // namespace

StartablePackage::StartablePackage(const archive::Package& package) : m_package(package)
{
    std::vector<archive::PackageEntry> entries = package.Entries();
    entries.push_back(Updater());
    m_entries = archive::Arranged(std::move(entries));
}

EmptyPackage::EmptyPackage(std::string path, bool isArchive)
    : m_path(std::move(path)), m_isArchive(isArchive),
      m_description(WriteDescription(MakeModel(Manifest(), {})->root))
{
    archive::PackageEntry description;
    description.name = archive::kDescriptionName;
    description.size = m_description.size();
    m_entries = archive::Arranged({description, Updater()});
}

std::string EmptyPackage::Read(const std::string& name, std::uint64_t limit) const
{
    return name == archive::kDescriptionName ? m_description.substr(0, limit) : std::string();
}

} // namespace kx::tool
