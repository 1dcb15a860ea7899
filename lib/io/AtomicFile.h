// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "io/TemporaryFile.h"

#include <string>
#include <string_view>

#include <sys/types.h>

namespace kx::io
{

/// A file that is there whole or not at all: it is written without a name, or beside its place
/// where the file system knows no files without names, and takes its place in one step. Until then
/// an older file stays as it is.
class AtomicFile
{
public:
    /// Path that stands for standard output.
    static constexpr const char* kStandardOutput = "-";

    /// Begins the file. Its mode will be 666 less the umask.
    /// @param path  what a link at it leads to stays as it is: the file replaces the link
    /// @throws Error when it cannot be made, or when something that is neither a file nor a link
    ///         has the name
    explicit AtomicFile(std::string path);
    AtomicFile(const AtomicFile&) = delete;
    AtomicFile& operator=(const AtomicFile&) = delete;
    /// Removes what was written, unless Commit took place.
    ~AtomicFile();

    /// The file, for reading and writing at any place. It stays owned by this object.
    [[nodiscard]] const Descriptor& File() const { return m_new.file; }

    /// Brings what was written to the disk and gives it its name; or writes it to standard output.
    /// @throws Error when that fails; an older file is unchanged
    void Commit();

private:
    void CopyToStandardOutput() const;

    std::string m_path;
    NewFile m_new;
};

/// Writes a file that must not be there yet, and brings it and its name to the disk.
/// @param mode  less the umask
/// @throws Error when that fails; then it is not there
void WriteNewFile(const std::string& path, std::string_view bytes, mode_t mode);

} // namespace kx::io
