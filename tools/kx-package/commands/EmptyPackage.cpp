// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "commands/EmptyPackage.h"

#include "compose/DescriptionWriter.h"
#include "compose/Model.h"
#include "io/Text.h"
#include "manifest/Manifest.h"

#include <utility>

namespace kx::tool
{

EmptyPackage::EmptyPackage(std::string path, bool isArchive)
    : m_path(std::move(path)), m_isArchive(isArchive),
      m_description(WriteDescription(MakeModel(Manifest(), {}, {})->root))
{
    archive::PackageEntry description;
    description.name = archive::kDescriptionName;
    description.size = m_description.size();
    m_entries = {description};
}

std::string EmptyPackage::Read(const std::string& name, std::uint64_t limit) const
{
    return std::string(name == archive::kDescriptionName ? io::FirstBytes(m_description, limit)
                                                         : "");
}

} // namespace kx::tool
