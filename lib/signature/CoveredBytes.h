// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "archive/ByteSource.h"
#include "signature/EndRecords.h"
#include "signature/Refusal.h"

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

namespace kx::signature
{

/// Told how many bytes of a file were read so far; may throw to end the reading.
using ByteTeller = std::function<void(std::uint64_t done)>;

/// The bytes of a package around its block. It needs nothing of the block but its size, which
/// whoever makes it vouches for.
class CoveredBytes
{
public:
    using Sink = std::function<void(std::string_view piece)>;

    /// @param source     is used as long as the object lives, as is @p end
    /// @param blockSize  bytes of the block, which ends where the directory begins; 0 without one
    /// @param where      what errors call the file
    CoveredBytes(const archive::ByteSource& source, const EndRecords& end, std::uint64_t blockSize,
                 std::string where);

    /// Hands on the file with other bytes in the place of the block, piece by piece.
    /// @throws Refusal kLimit when the archive would get too large; nothing was handed on then
    /// @throws Error when it cannot be read
    void Stream(const std::string& blockBytes, const Sink& sink, const ByteTeller& tell = {}) const;

    /// Returns the SHA-256 of the file as it is without the block. Reads all of it, and needs no
    /// memory for that.
    /// @throws Error when it cannot be read
    [[nodiscard]] std::string Digest(const ByteTeller& tell = {}) const;

private:
    const archive::ByteSource& m_source;
    const EndRecords& m_end;
    std::uint64_t m_blockSize;
    std::string m_where;
};

/// Tells of a file that is not the one that was signed.
[[nodiscard]] Refusal ChangedFile(const std::string& where);

} // namespace kx::signature
