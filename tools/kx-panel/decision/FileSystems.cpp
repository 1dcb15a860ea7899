// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "decision/FileSystems.h"

#include "io/Error.h"
#include "io/Path.h"

#include <cerrno>
#include <cstdlib>
#include <memory>

#include <sys/stat.h>
#include <sys/statvfs.h>

namespace kx::guard
{

namespace
{

/// Looks at what a path leads to.
/// @return false when there is nothing, or no way to it
bool IsThere(const std::string& path, struct stat& info)
{
    if (stat(path.c_str(), &info) == 0) {
        return true;
    }
    // A name or a path that is too long is none that could be there.
    if (errno != ENOENT && errno != ENOTDIR && errno != ENAMETOOLONG && errno != ELOOP) {
        throw io::AccessError(path, "look at", errno);
    }
    return false;
}

struct statvfs SizesOf(const std::string& path)
{
    struct statvfs sizes {
    };
    if (statvfs(path.c_str(), &sizes) != 0) {
        throw io::AccessError(path, "ask for the room at", errno);
    }
    return sizes;
}

/// Returns the highest folder on the way to a path that lies on the same file system.
std::string MountPointOf(const std::string& path, dev_t device)
{
    const std::unique_ptr<char, decltype(&std::free)> plain(realpath(path.c_str(), nullptr),
                                                            &std::free);
    std::string highest = plain == nullptr ? path : plain.get();
    struct stat info {
    };
    while (highest != "/" && IsThere(io::FolderAbove(highest), info) && info.st_dev == device) {
        highest = io::FolderAbove(highest);
    }
    return highest;
}

} // namespace

FileSystem RealFileSystems::Of(const std::string& path) const
{
    std::string there = path;
    struct stat info {
    };
    while (!IsThere(there, info)) {
        if (there == "/") {
            throw io::AccessError(path, "look at", ENOENT);
        }
        there = io::FolderAbove(there);
    }
    const struct statvfs sizes = SizesOf(there);
    FileSystem system;
    system.id = info.st_dev;
    system.mountPoint = MountPointOf(there, info.st_dev);
    system.blockSize = sizes.f_frsize;
    // The installer is root, who may use what the file system keeps back for root (f_bavail is
    // without that): the installation would succeed, so it is not refused.
    // One without blocks, as that of /sys, takes what is written and keeps nothing.
    system.freeBlocks = sizes.f_blocks == 0 ? UINT64_MAX : sizes.f_bfree;
    system.freeInodes = sizes.f_ffree;
    system.hasInodes = sizes.f_files != 0;
    return system;
}

std::optional<StandingFile> RealFileSystems::Look(const std::string& path) const
{
    struct stat info {
    };
    if (!IsThere(path, info)) {
        return {};
    }
    StandingFile standing;
    standing.isFolder = S_ISDIR(info.st_mode);
    standing.isDevice = !standing.isFolder && !S_ISREG(info.st_mode);
    if (S_ISREG(info.st_mode)) {
        constexpr std::uint64_t kUnit = 512; // of st_blocks, whatever the file system
        const std::uint64_t block = SizesOf(path).f_frsize;
        standing.blocks =
            block == 0 ? 0 : static_cast<std::uint64_t>(info.st_blocks) * kUnit / block;
    }
    return standing;
}

} // namespace kx::guard
