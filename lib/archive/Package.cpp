// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "archive/Package.h"

#include "io/Descriptor.h"
#include "io/Error.h"
#include "io/Reach.h"
#include "io/StandardInput.h"
#include "io/Transfer.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <map>

#include <sys/stat.h>

namespace kx::archive
{

const PackageEntry* Package::Find(const std::string& name) const
{
    const std::vector<PackageEntry>& entries = Entries();
    const auto place = std::lower_bound(
        entries.begin(), entries.end(), name,
        [](const PackageEntry& entry, const std::string& wanted) { return entry.name < wanted; });
    return place != entries.end() && place->name == name ? &*place : nullptr;
}

void Package::Stream(const std::string& name, const ContentSink& sink) const
{
    static_cast<void>(sink(Read(name, UINT64_MAX)));
}

std::string Package::LinkTarget(const std::string& name) const
{
    constexpr std::uint64_t kLongest = 4096;
    try {
        return Read(name, kLongest);
    } catch (const ContentError&) {
        return {};
    }
}

int Package::UnpackStatus() const
{
    return 0;
}

bool NamesArchive(const std::string& path)
{
    struct stat info {
    };
    if (stat(path.c_str(), &info) != 0) {
        throw io::ReadError(path, "open", errno);
    }
    if (!S_ISDIR(info.st_mode) && !S_ISREG(info.st_mode)) {
        throw io::Error(io::ExitCode::kProblems, path, "is neither a file nor a folder",
                        "name a package or the folder of an unpacked one");
    }
    return S_ISREG(info.st_mode);
}

std::unique_ptr<Package> OpenPackage(const std::string& path)
{
    return path == io::kStandardInput || NamesArchive(path) ? OpenArchive(path) : OpenFolder(path);
}

void StreamFile(const std::string& path, const ContentSink& sink)
{
    constexpr std::size_t kPiece = std::size_t{1} << 18;
    const io::Descriptor file = io::OpenFile(path, "read");
    std::string piece(kPiece, '\0');
    std::size_t count = piece.size();
    while (count == piece.size()) {
        count = io::ReadUpTo(file.Number(), piece.data(), piece.size(), path);
        if (!sink(std::string_view(piece).substr(0, count))) {
            return;
        }
    }
}

std::vector<PackageEntry> Arranged(std::vector<PackageEntry> entries)
{
    // Beyond these no system makes the folders, and listing them takes all memory.
    constexpr std::size_t kLongestPath = 4095;
    constexpr std::size_t kMostBytes = 256U << 20U;
    std::size_t bytes = 0;
    std::map<std::string, PackageEntry> byName;
    for (PackageEntry& entry : entries) {
        for (std::size_t slash = entry.name.find('/'); slash <= kLongestPath;
             slash = entry.name.find('/', slash + 1)) {
            PackageEntry folder;
            folder.name = entry.name.substr(0, slash);
            folder.kind = PackageEntry::Kind::kFolder;
            const auto [place, isNew] = byName.try_emplace(folder.name);
            if (!isNew) {
                continue;
            }
            bytes += sizeof(*place) + 2 * slash;
            if (bytes > kMostBytes) {
                throw io::Error(io::ExitCode::kNoAccess, "",
                                "the package's names hold more folders than can be listed");
            }
            place->second = std::move(folder);
        }
        std::string key = entry.name;
        byName.insert_or_assign(std::move(key), std::move(entry));
    }
    std::vector<PackageEntry> arranged;
    arranged.reserve(byName.size());
    for (auto& [name, entry] : byName) {
        arranged.push_back(std::move(entry));
    }
    return arranged;
}

} // namespace kx::archive
