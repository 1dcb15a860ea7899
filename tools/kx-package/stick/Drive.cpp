// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "stick/Drive.h"

#include "io/Error.h"
#include "io/Reach.h"
#include "io/Transfer.h"
#include "panel/Names.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/sysmacros.h>
#include <unistd.h>

namespace kx::tool
{

namespace
{

namespace fs = std::filesystem;

constexpr const char* kMountRemedy = "mount the drive, and name the folder where it is mounted";

io::Error NotADrive(const std::string& path, const std::string& why)
{
    return {io::ExitCode::kWrongUse, path, why, kMountRemedy};
}

/// Reads a file of the kernel's, which has no size.
std::string ReadKernelFile(const std::string& path)
{
    constexpr std::uint64_t kMost = std::uint64_t{16} << 20;
    const io::Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!file.IsOpen()) {
        throw io::AccessError(path, "open", errno);
    }
    return io::ReadAll(file.Number(), kMost, path);
}

/// Finds what an open folder belongs to.
Mount MountOf(const io::Descriptor& folder, const std::string& path)
{
    constexpr std::string_view kId = "mnt_id:";
    const std::string info = ReadKernelFile("/proc/self/fdinfo/" + std::to_string(folder.Number()));
    const std::size_t at = info.find(kId);
    const int id = at == std::string::npos ? 0 : std::atoi(info.c_str() + at + kId.size());
    const std::vector<Mount> mounts = ReadMounts(ReadKernelFile("/proc/self/mountinfo"));
    const auto found = std::find_if(mounts.begin(), mounts.end(),
                                    [id](const Mount& mount) { return mount.id == id; });
    if (found == mounts.end()) {
        throw NotADrive(path, "belongs to nothing that is mounted");
    }
    return *found;
}

struct stat LookAtOpen(const io::Descriptor& folder, const std::string& path)
{
    struct stat info {
    };
    if (fstat(folder.Number(), &info) != 0) {
        throw io::AccessError(path, "look at", errno);
    }
    return info;
}

struct statvfs AskForRoom(const io::Descriptor& folder, const std::string& path)
{
    struct statvfs info {
    };
    if (fstatvfs(folder.Number(), &info) != 0) {
        throw io::AccessError(path, "ask for the free room", errno);
    }
    return info;
}

/// What has no disk gets device numbers of this kind; so does one that may lie on several.
bool HasOwnDevice(dev_t device)
{
    return major(device) != 0;
}

bool IsOneOf(const std::string& type, const std::vector<std::string_view>& types)
{
    return std::find(types.begin(), types.end(), type) != types.end();
}

bool IsFuse(const std::string& type)
{
    return type.compare(0, 4, "fuse") == 0;
}

/// File systems that keep files without a disk of their own. All others of that kind show the
/// kernel's insides.
bool KeepsFiles(const std::string& type)
{
    return IsFuse(type) || IsOneOf(type, {"tmpfs", "ramfs", "overlay", "nfs", "nfs4", "cifs",
                                          "smb3", "9p", "virtiofs"});
}

} // namespace

Drive::Drive(std::string path)
    : m_path(std::move(path)), m_folder(open(m_path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC))
{
    if (!m_folder.IsOpen()) {
        throw io::ReadError(m_path, "open", errno);
    }
    m_mount = MountOf(m_folder, m_path);
    m_device = LookAtOpen(m_folder, m_path).st_dev;
    struct stat root {
    };
    if (stat("/", &root) != 0) {
        throw io::AccessError("/", "look at", errno);
    }
    std::error_code error;
    const std::string folder = fs::read_symlink(m_folder.Path(), error).string();
    m_isOnDisk = HasOwnDevice(m_device) || m_mount.type == "btrfs";
    RefuseNoDrive({m_path, folder, root.st_dev == m_device, m_isOnDisk}, m_mount);
    if ((AskForRoom(m_folder, m_path).f_flag & ST_RDONLY) != 0) {
        throw io::Error(io::ExitCode::kNoAccess, m_path, "is mounted read-only",
                        "mount it for writing; some drives have a switch against it");
    }
    if (flock(m_folder.Number(), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK) {
        throw io::Error(io::ExitCode::kNoAccess, m_path, "another program holds the drive",
                        "wait until it has ended");
    }
}

std::string Drive::Shown(const std::string& name) const
{
    return m_path + (m_path.back() == '/' ? "" : "/") + name;
}

DriveRoom Drive::Room() const
{
    const struct statvfs info = AskForRoom(m_folder, m_path);
    DriveRoom room;
    room.cluster = std::max<std::uint64_t>(info.f_frsize, 1);
    room.total = info.f_blocks * room.cluster;
    room.free = info.f_bavail * room.cluster;
    room.countsFiles = info.f_files != 0;
    room.files = info.f_favail;
    return room;
}

bool Drive::CanReadPastMemory() const
{
    // What a program serves is read by that program, as it likes.
    return HasOwnDevice(m_device) && !IsFuse(m_mount.type);
}

void RefuseNoDrive(const DriveCandidate& candidate, const Mount& mount)
{
    if (mount.folder != candidate.folder) {
        throw NotADrive(candidate.path,
                        "nothing is mounted here; it belongs to '" + mount.folder + "'");
    }
    if (candidate.folder == "/" || candidate.isOfRoot) {
        throw NotADrive(candidate.path, "belongs to this machine's own file system");
    }
    if (mount.root != "/") {
        throw NotADrive(candidate.path, "shows only the folder '" + mount.root +
                                            "' of its file system; a panel looks at its top");
    }
    if (!candidate.isOnDisk && !KeepsFiles(mount.type)) {
        throw NotADrive(candidate.path, "is no drive, but the system's own (" + mount.type + ")");
    }
}

bool IsOfFatKind(const std::string& type)
{
    return IsOneOf(type, {"vfat", "msdos", "exfat"});
}

Partition PartitionOf(dev_t device)
{
    const std::string folder =
        "/sys/dev/block/" + std::to_string(major(device)) + ":" + std::to_string(minor(device));
    std::error_code error;
    if (!fs::exists(folder, error)) {
        return Partition::kUnknown;
    }
    if (!fs::exists(folder + "/partition", error)) {
        return Partition::kNone;
    }
    return std::atoi(ReadKernelFile(folder + "/partition").c_str()) == 1 ? Partition::kFirst
                                                                         : Partition::kOther;
}

std::vector<std::string> DoubtsAbout(const Mount& mount, bool isOnDisk, Partition partition)
{
    std::vector<std::string> doubts;
    const std::string device = panel::kDrive;
    if (!isOnDisk) {
        doubts.push_back(mount.type + " is on no disk of its own: nothing can be pulled and "
                                      "plugged into a panel");
        return doubts;
    }
    if (mount.type != "vfat") {
        doubts.push_back("not every panel reads " + mount.type + "; FAT32 (vfat) is the usual one");
    }
    if (partition == Partition::kNone) {
        doubts.push_back(mount.source +
                         " has no partitions, and a panel looks for the first one, " + device);
    } else if (partition == Partition::kOther) {
        doubts.push_back(mount.source +
                         " is not the first partition, and a panel looks for that, " + device);
    }
    return doubts;
}

} // namespace kx::tool
