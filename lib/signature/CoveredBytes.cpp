// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "signature/CoveredBytes.h"

#include "io/Error.h"
#include "signature/Sha256.h"

#include <algorithm>
#include <utility>

namespace kx::signature
{

CoveredBytes::CoveredBytes(const archive::ByteSource& source, const EndRecords& end,
                           std::uint64_t blockSize, std::string where)
    : m_source(source), m_end(end), m_blockSize(blockSize), m_where(std::move(where))
{
}

void CoveredBytes::Stream(const std::string& blockBytes, const Sink& sink,
                          const ByteTeller& tell) const
{
    // Small enough to stay in the processor's cache between reading and taking the digest.
    constexpr std::size_t kPiece = std::size_t{64} << 10;
    const std::uint64_t blockAt = m_end.DirectoryAt() - m_blockSize;
    const std::string end = m_end.WithDirectoryAt(blockAt + blockBytes.size(), m_where);
    const auto copy = [&](std::uint64_t at, std::uint64_t behind) {
        while (at < behind) {
            const auto wanted =
                static_cast<std::size_t>(std::min<std::uint64_t>(behind - at, kPiece));
            const std::string piece = m_source.Read(at, wanted);
            if (piece.size() != wanted) {
                throw io::Error(io::ExitCode::kNoAccess, m_where, "became shorter meanwhile");
            }
            sink(piece);
            at += wanted;
            if (tell) {
                tell(at);
            }
        }
    };
    copy(0, blockAt);
    sink(blockBytes);
    copy(m_end.DirectoryAt(), m_end.At());
    sink(end);
}

std::string CoveredBytes::Digest(const ByteTeller& tell) const
{
    Sha256 digest;
    Stream(
        {}, [&digest](std::string_view piece) { digest.Add(piece); }, tell);
    return digest.Result();
}

Refusal ChangedFile(const std::string& where)
{
    return {Reason::kChanged, where, "was changed after it was signed",
            "get the package again from where it was signed"};
}

} // namespace kx::signature
