// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "io/Descriptor.h"
#include "stick/MountTable.h"

#include <cstdint>
#include <string>
#include <vector>

#include <sys/types.h>

namespace kx::tool
{

/// How much fits on a drive, now.
struct DriveRoom {
    std::uint64_t total = 0;   ///< bytes
    std::uint64_t free = 0;    ///< bytes that this user may fill
    std::uint64_t cluster = 1; ///< bytes: every file and folder takes a number of these
    bool countsFiles = false;  ///< the file system has a limited number of files
    std::uint64_t files = 0;   ///< how many may be made, with countsFiles
};

/// A drive that a package can be written to: a mount point that is held open. What is mounted over
/// or instead of it meanwhile does not matter.
class Drive
{
public:
    /// Opens the folder at which a drive is mounted, and makes sure that no other kx-package writes
    /// to it. Links to it are followed.
    /// @throws Error with kWrongUse when the folder is no mount point, shows a part of a file
    /// system
    ///         only, belongs to the file system of "/", or to one that keeps no files; otherwise
    ///         when it cannot be opened or is read-only
    explicit Drive(std::string path);

    /// The folder, as it was named.
    [[nodiscard]] const std::string& Path() const { return m_path; }

    /// Where a name at the top of the drive lies, for people.
    [[nodiscard]] std::string Shown(const std::string& name) const;

    /// The folder, opened for reading.
    [[nodiscard]] const io::Descriptor& Folder() const { return m_folder; }

    /// Where it is mounted, and what.
    [[nodiscard]] const Mount& Mounted() const { return m_mount; }

    /// The number of the file system's device.
    [[nodiscard]] dev_t Device() const { return m_device; }

    /// Tells whether it is a disk that can be pulled, or at least could be.
    [[nodiscard]] bool IsOnDisk() const { return m_isOnDisk; }

    /// Tells whether what is read past the system's memory comes from the disk itself.
    [[nodiscard]] bool CanReadPastMemory() const;

    /// Asks how much fits.
    /// @throws Error when that is not told
    [[nodiscard]] DriveRoom Room() const;

private:
    std::string m_path;
    io::Descriptor m_folder;
    Mount m_mount;
    dev_t m_device = 0;
    bool m_isOnDisk = false;
};

/// What is known about a folder that is to be a drive.
struct DriveCandidate {
    std::string path;      ///< as it was named
    std::string folder;    ///< the full path, without links
    bool isOfRoot = false; ///< its file system is that of "/"
    bool isOnDisk = false; ///< its file system lies on a disk
};

/// Refuses what is no drive, or not all of one.
/// @throws Error with kWrongUse
void RefuseNoDrive(const DriveCandidate& candidate, const Mount& mount);

/// Tells whether a file system is FAT or exFAT: it takes names that differ in case alone for one,
/// and not all names.
[[nodiscard]] bool IsOfFatKind(const std::string& type);

/// Where on its disk a file system lies.
enum class Partition {
    kUnknown, ///< it has no disk, or nothing is known about it
    kFirst,
    kOther,
    kNone, ///< the disk has no partitions, or they are not used
};

/// Asks the system where the file system of a device lies.
[[nodiscard]] Partition PartitionOf(dev_t device);

/// What may keep a panel from reading a drive, as sentences without capital and full stop.
[[nodiscard]] std::vector<std::string> DoubtsAbout(const Mount& mount, bool isOnDisk,
                                                   Partition partition);

} // namespace kx::tool
