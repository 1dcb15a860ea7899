// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "compose/LayoutPackage.h"

#include "compose/DescriptionWriter.h"
#include "io/Descriptor.h"
#include "io/Error.h"
#include "io/Reach.h"
#include "io/Text.h"
#include "io/Transfer.h"

#include <cerrno>
#include <utility>

#include <sys/stat.h>
#include <unistd.h>

namespace kx::tool
{

LayoutPackage::LayoutPackage(std::string path, bool isArchive, const Layout& layout,
                             const std::string& updater)
    : m_path(std::move(path)), m_isArchive(isArchive),
      m_description(WriteDescription(layout.model->root)), m_archives(layout.archives),
      m_sourcesInArchives(layout.sourcesInArchives)
{
    std::vector<archive::PackageEntry> entries;
    for (const archive::ArchiveItem& item : layout.payload) {
        Add(item, entries);
    }
    if (!updater.empty()) {
        Add({archive::kUpdaterName, updater, std::nullopt, false, true}, entries);
    }
    archive::PackageEntry description;
    description.name = archive::kDescriptionName;
    description.size = m_description.size();
    description.mode = 0644;
    description.hasMode = true;
    entries.push_back(description);
    m_entries = archive::Arranged(std::move(entries));
}

void LayoutPackage::Add(const archive::ArchiveItem& item,
                        std::vector<archive::PackageEntry>& entries)
{
    archive::PackageEntry entry;
    entry.name = item.name;
    entry.hasMode = true;
    if (item.isFolder) {
        entry.name.pop_back(); // its '/'
        entry.kind = archive::PackageEntry::Kind::kFolder;
        entry.mode = 0755;
    } else {
        struct stat info {
        };
        if (stat(item.source.c_str(), &info) != 0 || access(item.source.c_str(), R_OK) != 0) {
            throw io::ReadError(item.source, "read", errno);
        }
        entry.size = static_cast<std::uint64_t>(info.st_size);
        entry.mode = item.mode.value_or(item.isExecutable ? 0755 : 0644);
        m_sources[item.name] = item.source;
    }
    entries.push_back(std::move(entry));
}

std::string LayoutPackage::Read(const std::string& name, std::uint64_t limit) const
{
    if (name == archive::kDescriptionName) {
        return std::string(io::FirstBytes(m_description, limit));
    }
    const std::string& source = m_sources.at(name);
    return io::ReadUpTo(io::OpenFile(source, "read").Number(), limit, source);
}

void LayoutPackage::Stream(const std::string& name, const archive::ContentSink& sink) const
{
    if (name == archive::kDescriptionName) {
        static_cast<void>(sink(m_description));
        return;
    }
    archive::StreamFile(m_sources.at(name), sink);
}

std::string LayoutPackage::SourceOf(const std::string& name) const
{
    for (const std::map<std::string, std::string>* const sources :
         {&m_sourcesInArchives, &m_sources}) {
        if (const auto found = sources->find(name); found != sources->end()) {
            return found->second;
        }
    }
    return {};
}

} // namespace kx::tool
