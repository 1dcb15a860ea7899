// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "decision/Room.h"

#include "io/Path.h"
#include "io/Text.h"
#include "reading/Amounts.h"

#include <algorithm>
#include <functional>

namespace kx::guard
{

namespace
{

constexpr std::uint64_t kKib = 1024;

std::size_t HashOf(const std::string& path)
{
    return std::hash<std::string>()(path);
}

} // namespace

std::optional<std::size_t> Room::KnownAt(const std::string& folder)
{
    const auto known = m_folders.find(HashOf(folder));
    if (known != m_folders.end()) {
        return known->second;
    }
    if (folder != "/" && !m_fileSystems.Look(folder).has_value()) {
        return {};
    }
    const FileSystem system = m_fileSystems.Of(folder);
    auto need = std::find_if(m_needs.begin(), m_needs.end(),
                             [&system](const Need& one) { return one.system.id == system.id; });
    if (need == m_needs.end()) {
        need = m_needs.insert(need, Need{system, 0, 0});
    }
    const auto index = static_cast<std::size_t>(need - m_needs.begin());
    m_folders.emplace(HashOf(folder), index);
    return index;
}

/// Returns the index of the need of the file system on which a folder lies; when it is not there,
/// it is added with all above it that are not.
std::size_t Room::NeedAt(const std::string& folder)
{
    std::vector<std::size_t> missing;
    std::string above = folder;
    std::optional<std::size_t> index = KnownAt(above);
    while (!index.has_value()) {
        missing.push_back(HashOf(above));
        above = io::FolderAbove(above);
        index = KnownAt(above);
    }
    Need& need = m_needs[*index];
    need.blocks = SaturatedSum(need.blocks, missing.size());
    need.inodes = SaturatedSum(need.inodes, missing.size());
    for (const std::size_t hash : missing) {
        m_folders.emplace(hash, *index);
    }
    return *index;
}

void Room::AddFile(const std::string& path, std::uint64_t bytes)
{
    Need& need = m_needs[NeedAt(io::FolderAbove(path))];
    std::uint64_t blocks = BlocksOf(bytes, need.system.blockSize);
    const auto [place, isNew] = m_files.try_emplace(HashOf(path), 0);
    if (isNew) {
        const std::optional<StandingFile> standing = m_fileSystems.Look(path);
        need.inodes = SaturatedSum(need.inodes, standing.has_value() ? 0 : 1);
        const bool isKept = !standing.has_value() || !standing->isDevice;
        blocks =
            isKept ? SaturatedDifference(blocks, standing.has_value() ? standing->blocks : 0) : 0;
    }
    // Of a file that is written more than once the largest counts.
    need.blocks = SaturatedSum(need.blocks, SaturatedDifference(blocks, place->second));
    place->second = std::max(place->second, blocks);
}

void Room::AddFolder(const std::string& path)
{
    static_cast<void>(NeedAt(path)); // which adds what is not there
}

void Room::AddStanding(const std::string& path)
{
    AddFolder(io::FolderAbove(path));
    const std::optional<StandingFile> standing = m_fileSystems.Look(path);
    if (standing.has_value() && !standing->isFolder && !standing->isDevice) {
        m_standingBlocks = SaturatedSum(m_standingBlocks, standing->blocks);
        ++m_standingFiles;
    }
}

void Room::AddFiles(const std::string& folder, std::uint64_t kib, std::uint64_t count)
{
    Need& need = m_needs[NeedAt(folder)];
    // Up to so much each file may take beyond its whole KiB.
    const std::uint64_t beyond =
        SaturatedProduct(count, SaturatedDifference(need.system.blockSize, kKib));
    const std::uint64_t bytes = SaturatedSum(SaturatedProduct(kib, kKib), beyond);
    need.blocks = SaturatedSum(
        need.blocks, SaturatedDifference(BlocksOf(bytes, need.system.blockSize), m_standingBlocks));
    need.inodes = SaturatedSum(need.inodes, SaturatedDifference(count, m_standingFiles));
    m_standingBlocks = 0;
    m_standingFiles = 0;
}

void Room::AddBlocks(const std::string& folder, std::uint64_t blocks, std::uint64_t inodes)
{
    Need& need = m_needs[NeedAt(folder)];
    need.blocks = SaturatedSum(need.blocks, blocks);
    need.inodes = SaturatedSum(need.inodes, inodes);
}

bool Room::IsFolder(const std::string& path) const
{
    if (m_folders.find(HashOf(path)) != m_folders.end()) {
        return true; // or will be one by then
    }
    const std::optional<StandingFile> standing = m_fileSystems.Look(path);
    return standing.has_value() && standing->isFolder;
}

std::vector<Reason> Room::Reasons() const
{
    std::vector<Reason> reasons;
    for (const Need& need : m_needs) {
        if (need.blocks > need.system.freeBlocks) {
            const std::uint64_t needed = SaturatedProduct(need.blocks, need.system.blockSize);
            const std::uint64_t free =
                SaturatedProduct(need.system.freeBlocks, need.system.blockSize);
            reasons.push_back({ReasonId::kRoom,
                               {need.system.mountPoint, io::SizeText(needed), io::SizeText(free),
                                std::to_string(needed), std::to_string(free)}});
        }
    }
    for (const Need& need : m_needs) {
        if (need.system.hasInodes && need.inodes > need.system.freeInodes) {
            reasons.push_back({ReasonId::kInodes,
                               {need.system.mountPoint, std::to_string(need.inodes),
                                std::to_string(need.system.freeInodes)}});
        }
    }
    return reasons;
}

} // namespace kx::guard
