// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "archive/ByteSource.h"

#include <cstdint>
#include <string>

namespace kx::signature
{

/// The records that an archive ends in: the end of central directory record, and in front of it
/// those of zip64 where there are any. They tell where the directory stands, so they change when a
/// block is put in front of it.
class EndRecords
{
public:
    /// Reads them, and nothing else: the last 98 bytes of the file.
    /// @param where  what an error calls the file
    /// @throws Refusal kEnd unless the file ends in one end record without a comment, whose
    ///         directory ends where the records begin
    /// @throws Error when the file cannot be read
    EndRecords(const archive::ByteSource& source, const std::string& where);

    /// Place of the first of them, which is the end of the directory.
    [[nodiscard]] std::uint64_t At() const { return m_at; }
    /// Place of the directory.
    [[nodiscard]] std::uint64_t DirectoryAt() const { return m_directoryAt; }
    [[nodiscard]] bool IsZip64() const { return m_isZip64; }

    /// Returns their bytes with the directory at another place.
    /// @throws Refusal kLimit when they cannot tell that place
    [[nodiscard]] std::string WithDirectoryAt(std::uint64_t place, const std::string& where) const;

private:
    std::string m_bytes;
    std::uint64_t m_at = 0;
    std::uint64_t m_directoryAt = 0;
    std::uint64_t m_directorySize = 0;
    bool m_isZip64 = false;
};

} // namespace kx::signature
