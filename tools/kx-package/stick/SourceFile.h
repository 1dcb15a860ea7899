// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "io/Descriptor.h"

#include <cstddef>
#include <cstdint>
#include <string>

#include <sys/stat.h>

namespace kx::tool
{

/// A package file that is to be copied, held open from its check to its comparison: all of them see
/// the same file.
class SourceFile
{
public:
    /// @throws Error when it cannot be opened, with kWrongUse when it is no file with a name
    explicit SourceFile(std::string path);

    [[nodiscard]] const std::string& Path() const { return m_path; }

    /// The name without its folder.
    [[nodiscard]] std::string Name() const;

    [[nodiscard]] const io::Descriptor& File() const { return m_file; }

    /// Bytes, when it was opened.
    [[nodiscard]] std::uint64_t Size() const { return static_cast<std::uint64_t>(m_info.st_size); }

    /// The number of the device on which it lies.
    [[nodiscard]] dev_t Device() const { return m_info.st_dev; }

    /// Reads bytes of it, all of @p size.
    /// @throws Error when they cannot be read, or are no longer there
    void Read(char* bytes, std::size_t size, std::uint64_t offset) const;

    /// @throws Error when the file was written to since it was opened
    void RefuseChanged() const;

private:
    [[nodiscard]] struct stat Look() const;

    std::string m_path;
    io::Descriptor m_file;
    struct stat m_info {
    };
};

} // namespace kx::tool
