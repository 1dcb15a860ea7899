// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include <string>

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

    /// Begins the file.
    /// @throws Error when it cannot be made
    explicit AtomicFile(std::string path);
    AtomicFile(const AtomicFile&) = delete;
    AtomicFile& operator=(const AtomicFile&) = delete;
    /// Removes what was written, unless Commit took place.
    ~AtomicFile();

    /// The file, for reading and writing at any place.
    [[nodiscard]] int Descriptor() const { return m_descriptor; }

    /// Brings what was written to the disk and gives it its name.
    /// @throws Error when that fails; an older file is unchanged
    void Commit();

private:
    void Begin(const std::string& folder);
    void GiveName();
    void CopyToStandardOutput() const;
    [[nodiscard]] std::string Beside(unsigned number) const;

    std::string m_path;
    std::string m_temporary; ///< name for the time being; empty while there is none
    int m_descriptor = -1;
};

} // namespace kx::io
