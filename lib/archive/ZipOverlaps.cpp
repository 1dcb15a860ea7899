// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "archive/ZipRecords.h"

#include <algorithm>
#include <numeric>
#include <utility>

namespace kx::archive
{

void FindZipOverlaps(ZipStructure& zip)
{
    std::vector<std::size_t> order(zip.members.size());
    std::iota(order.begin(), order.end(), std::size_t{0});
    std::sort(order.begin(), order.end(), [&zip](std::size_t one, std::size_t other) {
        return std::pair(zip.members[one].headerAt, one) <
               std::pair(zip.members[other].headerAt, other);
    });
    std::uint64_t filesEnd = zip.leading; // unzip minds what it writes files from, not folders
    std::uint64_t end = zip.leading;
    for (const std::size_t index : order) {
        const ZipMember& member = zip.members[index];
        if (!member.hasLocal) {
            continue;
        }
        const bool isFolder = IsZipFolder(member.name);
        if (member.headerAt < filesEnd) {
            zip.Report(ZipFlaw::kOverlap, filesEnd - member.headerAt, index);
        } else if (member.headerAt > end) {
            zip.Report(ZipFlaw::kGap, member.headerAt - end, index);
        }
        end = std::max(end, member.behind);
        filesEnd = isFolder ? filesEnd : std::max(filesEnd, member.behind);
    }
    if (filesEnd > zip.directoryAt) {
        zip.Report(ZipFlaw::kOverlap, filesEnd - zip.directoryAt);
    } else if (end < zip.directoryAt) {
        zip.Report(ZipFlaw::kGap, zip.directoryAt - end);
    }
}

} // namespace kx::archive
