// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "signature/SignedFile.h"

#include "io/Error.h"
#include "io/Transfer.h"
#include "signature/Refusal.h"

#include <algorithm>
#include <utility>

namespace kx::signature
{

namespace
{

/// Finds out how many bytes before the directory a block has; 0 without one.
std::uint64_t FindBlock(const archive::ByteSource& source, std::uint64_t directoryAt,
                        const std::string& where)
{
    if (directoryAt < kBlockEndSize) {
        return 0;
    }
    const std::string end = source.Read(directoryAt - kBlockEndSize, kBlockEndSize);
    const std::uint64_t size = ReadBlockSize(end).value_or(0);
    if (size > std::min<std::uint64_t>(directoryAt, kLargestBlock)) {
        throw Refusal(Reason::kBlock, where, "its block of signatures is too large",
                      "get the package again from where it was signed");
    }
    return size;
}

} // namespace

SignedFile::SignedFile(const archive::ByteSource& source, std::string where)
    : m_source(source), m_where(std::move(where)), m_end(source, m_where),
      m_blockSize(FindBlock(source, m_end.DirectoryAt(), m_where))
{
    if (m_blockSize == 0) {
        return;
    }
    m_block = ReadBlock(
        source.Read(m_end.DirectoryAt() - m_blockSize, static_cast<std::size_t>(m_blockSize)),
        m_where);
    if (m_block->statement.length != Length()) {
        throw ChangedFile(m_where);
    }
}

std::string SignedFile::Digest(const ByteTeller& tell) const
{
    return Bytes().Digest(tell);
}

void SignedFile::RefuseChanged(const ByteTeller& tell) const
{
    if (m_block.has_value() && Digest(tell) != m_block->statement.digest) {
        throw ChangedFile(m_where);
    }
}

bool SignedFile::IsBlock(const archive::ZipFault& fault) const
{
    return fault.flaw == archive::ZipFlaw::kGap && fault.member == archive::ZipFault::kNoMember &&
           m_blockSize != 0 && fault.amount == m_blockSize;
}

std::optional<std::size_t> SignedFile::BlockFault(const archive::ZipStructure& zip) const
{
    const auto fault = std::find_if(zip.faults.begin(), zip.faults.end(),
                                    [this](const auto& one) { return IsBlock(one); });
    return fault == zip.faults.end() ? std::nullopt
                                     : std::optional<std::size_t>(fault - zip.faults.begin());
}

void SignedFile::RefuseHidden(const archive::ZipStructure& zip) const
{
    const bool isFaulty = !std::all_of(zip.faults.begin(), zip.faults.end(),
                                       [this](const auto& fault) { return IsBlock(fault); });
    const std::string directory = m_source.Read(
        m_end.DirectoryAt(), static_cast<std::size_t>(m_end.At() - m_end.DirectoryAt()));
    if (isFaulty || directory.find(kEndRecordMark) != std::string::npos) {
        throw Refusal(Reason::kHidden, m_where,
                      "its archive holds more than its directory tells, or contradicts itself",
                      "kx-package check tells where; build the package again");
    }
}

void SignedFile::RefuseBlockOf(const Block& block) const
{
    static_cast<void>(
        m_end.WithDirectoryAt(m_end.DirectoryAt() - m_blockSize + BytesOf(block).size(), m_where));
}

void SignedFile::Write(const std::optional<Block>& block, int descriptor, const std::string& shown,
                       const ByteTeller& tell) const
{
    const auto sink = [descriptor, &shown](std::string_view piece) {
        io::WriteAll(descriptor, piece, shown);
    };
    Bytes().Stream(block.has_value() ? BytesOf(*block) : std::string(), sink, tell);
}

} // namespace kx::signature
