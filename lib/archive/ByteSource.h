// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "io/Descriptor.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace kx::archive
{

/// Bytes that can be read at any place.
class ByteSource
{
public:
    ByteSource() = default;
    ByteSource(const ByteSource&) = delete;
    ByteSource& operator=(const ByteSource&) = delete;
    virtual ~ByteSource() = default;

    [[nodiscard]] virtual std::uint64_t Size() const = 0;

    /// Reads up to @p count bytes from @p offset on; less only at the end.
    /// @throws Error when the bytes cannot be read
    [[nodiscard]] virtual std::string Read(std::uint64_t offset, std::size_t count) const = 0;
};

/// The bytes of a file, which is open as long as the object lives.
class FileBytes final : public ByteSource
{
public:
    /// @throws Error when the file cannot be opened, or is no regular file
    explicit FileBytes(std::string path);

    [[nodiscard]] std::uint64_t Size() const override { return m_size; }
    [[nodiscard]] std::string Read(std::uint64_t offset, std::size_t count) const override;

    /// The open file.
    [[nodiscard]] const io::Descriptor& File() const { return m_file; }

private:
    std::string m_path;
    io::Descriptor m_file;
    std::uint64_t m_size;
};

/// Bytes in memory, not owned.
class MemoryBytes final : public ByteSource
{
public:
    explicit MemoryBytes(std::string_view bytes) : m_bytes(bytes) {}

    [[nodiscard]] std::uint64_t Size() const override { return m_bytes.size(); }
    [[nodiscard]] std::string Read(std::uint64_t offset, std::size_t count) const override;

private:
    std::string_view m_bytes;
};

} // namespace kx::archive
