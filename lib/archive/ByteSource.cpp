// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "archive/ByteSource.h"

#include "io/Transfer.h"

#include <algorithm>
#include <utility>

namespace kx::archive
{

FileBytes::FileBytes(std::string path)
    : m_path(std::move(path)), m_file(io::OpenFile(m_path)), m_size(io::SizeOf(m_file, m_path))
{
}

std::string FileBytes::Read(std::uint64_t offset, std::size_t count) const
{
    if (offset >= m_size) {
        return {};
    }
    std::string bytes(static_cast<std::size_t>(std::min<std::uint64_t>(count, m_size - offset)),
                      '\0');
    // Fewer come when the file became shorter.
    bytes.resize(io::ReadAt(m_file.Number(), bytes.data(), bytes.size(), offset, m_path));
    return bytes;
}

std::string MemoryBytes::Read(std::uint64_t offset, std::size_t count) const
{
    return offset >= m_bytes.size()
               ? std::string()
               : std::string(m_bytes.substr(static_cast<std::size_t>(offset), count));
}

} // namespace kx::archive
