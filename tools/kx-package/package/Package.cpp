// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "package/Package.h"

#include "common/Error.h"
#include "package/StandardInput.h"

#include <algorithm>
#include <cerrno>
#include <map>

#include <sys/stat.h>

const PackageEntry* Package::Find(const std::string& name) const
{
    const std::vector<PackageEntry>& entries = Entries();
    const auto place = std::lower_bound(
        entries.begin(), entries.end(), name,
        [](const PackageEntry& entry, const std::string& wanted) { return entry.name < wanted; });
    return place != entries.end() && place->name == name ? &*place : nullptr;
}

std::string Package::LinkTarget(const std::string& name) const
{
    constexpr std::uint64_t kLongest = 4096;
    return Read(name, kLongest);
}

std::unique_ptr<Package> OpenPackage(const std::string& path)
{
    if (path == kStandardInput) {
        return OpenArchive(path);
    }
    struct stat info {
    };
    if (stat(path.c_str(), &info) != 0) {
        throw AccessError(path, "open", errno);
    }
    if (S_ISDIR(info.st_mode)) {
        return OpenFolder(path);
    }
    if (!S_ISREG(info.st_mode)) {
        throw Error(ExitCode::kNoAccess, path, "is neither a file nor a folder",
                    "name a package or the folder of an unpacked one");
    }
    return OpenArchive(path);
}

std::vector<PackageEntry> Arranged(std::vector<PackageEntry> entries)
{
    std::map<std::string, PackageEntry> byName;
    for (PackageEntry& entry : entries) {
        for (std::size_t slash = entry.name.find('/'); slash != std::string::npos;
             slash = entry.name.find('/', slash + 1)) {
            PackageEntry folder;
            folder.name = entry.name.substr(0, slash);
            folder.kind = PackageEntry::Kind::kFolder;
            std::string key = folder.name;
            byName.emplace(std::move(key), std::move(folder));
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
