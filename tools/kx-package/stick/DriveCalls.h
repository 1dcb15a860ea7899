// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "io/Descriptor.h"
#include "io/TemporaryFile.h"
#include "io/Transfer.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace kx::tool
{

/// What is asked of a drive's file system. Names stand at the top of the drive. What returns an int
/// returns 0, or an errno; nothing throws but for memory.
///
/// A test derives from it and lets the calls fail, fall short, or return other bytes.
class DriveCalls
{
public:
    /// @param folder  the drive's, open; not owned, must live as long as the object
    explicit DriveCalls(const io::Descriptor& folder) : m_folder(folder) {}
    DriveCalls(const DriveCalls&) = delete;
    DriveCalls& operator=(const DriveCalls&) = delete;
    virtual ~DriveCalls() = default;

    /// The names at the top, without "." and "..".
    [[nodiscard]] virtual int List(std::vector<std::string>& names) const;

    /// Makes a file, without a name where that is possible: see io::MakeFileIn.
    [[nodiscard]] virtual io::NewFile Make(const std::string& stem);

    /// Gives a file of Make a name, if it has none yet: see io::NameFileIn.
    [[nodiscard]] virtual int GiveName(const std::string& stem, io::NewFile& file);

    /// Writes all bytes behind those written before.
    [[nodiscard]] virtual io::Transferred Write(const io::Descriptor& file, std::string_view bytes);

    /// Waits until a file is on the drive.
    [[nodiscard]] virtual int Sync(const io::Descriptor& file);

    /// Waits until the names at the top are on the drive.
    [[nodiscard]] virtual int SyncNames();

    /// Waits until all of the file system is on the drive.
    [[nodiscard]] virtual int SyncAll();

    /// Opens the regular file of a name for reading; a link is not followed, and nothing else is
    /// opened.
    /// @return not open after a failure, with errno set
    [[nodiscard]] virtual io::Descriptor Open(const std::string& name) const;

    /// Opens an open file once more, for reading.
    /// @param isPastMemory  what is read comes from the drive, not from what the system still
    ///                      remembers of it; offsets, sizes and places in memory must be multiples
    ///                      of kAlignment
    /// @return not open after a failure, with errno set: EINVAL where that cannot be
    [[nodiscard]] virtual io::Descriptor OpenAgain(const io::Descriptor& file,
                                                   bool isPastMemory) const;

    /// Reads from a place of a file, once.
    [[nodiscard]] virtual io::Transferred ReadAt(const io::Descriptor& file, char* bytes,
                                                 std::size_t size, std::uint64_t offset) const;

    /// Gives a file of Make another name; what had that before is replaced.
    /// @param path  of io::NewFile
    [[nodiscard]] virtual int Rename(const std::string& path, const std::string& name);

    /// Removes a file of Make.
    [[nodiscard]] virtual int Remove(const std::string& path);

    /// What reading past the memory wants: the largest block that disks have.
    static constexpr std::size_t kAlignment = 4096;

private:
    const io::Descriptor& m_folder;
};

} // namespace kx::tool
