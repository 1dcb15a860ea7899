// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "archive/ByteSource.h"
#include "archive/ZipStructure.h"
#include "signature/Block.h"
#include "signature/CoveredBytes.h"
#include "signature/EndRecords.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace kx::signature
{

/// A package as a file that may be signed. Opening it reads the end records and the block, bounded,
/// and nothing else: no more may be read before a signature has been found good.
///
/// The verification's parts need nothing of each other, so that a process without rights can do any
/// of them: what the file proposes (this class), whether a signature is good (Judge), whether the
/// file is the one that was signed (RefuseChanged), whether the archive hides something
/// (RefuseHidden).
class SignedFile
{
public:
    /// @param source  is used as long as the object lives
    /// @param where   what errors call the file
    /// @throws Refusal kEnd, kBlock; kChanged when the file is not as long as it was signed
    /// @throws Error when the file cannot be read
    SignedFile(const archive::ByteSource& source, std::string where);

    /// The block; nothing when the package is not signed.
    [[nodiscard]] const std::optional<Block>& Signatures() const { return m_block; }

    /// Bytes of the block; 0 without one.
    [[nodiscard]] std::uint64_t BlockSize() const { return m_blockSize; }
    /// Bytes of the file as it is without the block.
    [[nodiscard]] std::uint64_t Length() const { return m_source.Size() - m_blockSize; }

    /// Returns the SHA-256 of the file as it is without the block. Reads all of it, and needs no
    /// memory for that.
    /// @throws Error when it cannot be read
    [[nodiscard]] std::string Digest(const ByteTeller& tell = {}) const;

    /// Refuses a file that is not the one that was signed.
    /// @throws Refusal kChanged
    void RefuseChanged(const ByteTeller& tell = {}) const;

    /// Refuses an archive that shows not all it holds, or not all the same: bytes that belong to no
    /// entry, entries that the directory does not name, a second end record, any other fault of the
    /// structure.
    /// @param zip  the file's structure; to be read when a signature has been found good
    /// @throws Refusal kHidden
    void RefuseHidden(const archive::ZipStructure& zip) const;

    /// Tells whether a fault of the structure is but the gap in which the block stands.
    [[nodiscard]] bool IsBlock(const archive::ZipFault& fault) const;

    /// Returns the index of that fault among the structure's; nothing when it has none.
    [[nodiscard]] std::optional<std::size_t> BlockFault(const archive::ZipStructure& zip) const;

    /// Refuses a block that would make the file larger than its archive's format allows; so that
    /// nobody signs first.
    /// @throws Refusal kLimit
    void RefuseBlockOf(const Block& block) const;

    /// Writes the file with another block, or without one, from where the descriptor stands.
    /// @throws Refusal kLimit when the archive would get too large; nothing was written then
    /// @throws Error when something cannot be read or written
    void Write(const std::optional<Block>& block, int descriptor, const std::string& shown,
               const ByteTeller& tell = {}) const;

private:
    [[nodiscard]] CoveredBytes Bytes() const { return {m_source, m_end, m_blockSize, m_where}; }

    const archive::ByteSource& m_source;
    std::string m_where;
    EndRecords m_end;
    std::uint64_t m_blockSize = 0;
    std::optional<Block> m_block;
};

} // namespace kx::signature
