// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "compose/ComposedPackage.h"

#include "io/Error.h"
#include "io/WholeFile.h"

#include <cerrno>
#include <utility>

#include <sys/stat.h>

namespace kx::tool
{

namespace
{

/// Items of folders end in '/', entries do not.
std::string EntryName(const archive::ArchiveItem& item)
{
    const std::string& name = item.name;
    return !name.empty() && name.back() == '/' ? name.substr(0, name.size() - 1) : name;
}

std::uint64_t SizeOf(const archive::ArchiveItem& item)
{
    if (item.isFolder || item.content.has_value()) {
        return item.content.value_or("").size();
    }
    struct stat info {
    };
    if (stat(item.source.c_str(), &info) != 0) {
        throw io::AccessError(item.source, "look at", errno);
    }
    return static_cast<std::uint64_t>(info.st_size);
}

} // namespace

ComposedPackage::ComposedPackage(std::string path, const std::vector<archive::ArchiveItem>& items)
    : m_path(std::move(path))
{
    constexpr unsigned kUsual = 0644;
    constexpr unsigned kExecutable = 0755;
    std::vector<archive::PackageEntry> entries;
    for (const archive::ArchiveItem& item : items) {
        archive::PackageEntry entry;
        entry.name = EntryName(item);
        entry.kind = item.isFolder ? archive::PackageEntry::Kind::kFolder
                                   : archive::PackageEntry::Kind::kFile;
        entry.size = SizeOf(item);
        entry.mode = item.isFolder || item.isExecutable ? kExecutable : kUsual;
        entry.hasMode = true;
        m_items.insert_or_assign(entry.name, item);
        entries.push_back(std::move(entry));
    }
    m_entries = archive::Arranged(std::move(entries));
}

std::string ComposedPackage::Read(const std::string& name, std::uint64_t limit) const
{
    const auto found = m_items.find(name);
    if (found == m_items.end() || found->second.isFolder) {
        throw archive::ContentError(io::ExitCode::kNoAccess, m_path + ":" + name,
                                    "is not a file of the package");
    }
    const archive::ArchiveItem& item = found->second;
    return item.content.has_value()
               ? item.content->substr(0, static_cast<std::size_t>(limit))
               : io::ReadFileHead(item.source, static_cast<std::size_t>(limit), "read");
}

std::string ComposedPackage::SourceOf(const std::string& name) const
{
    const auto found = m_items.find(name);
    return found == m_items.end() ? std::string() : found->second.source;
}

} // namespace kx::tool
