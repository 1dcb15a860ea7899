// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "archive/ZipContent.h"

#include "archive/Unpacker.h"

#include <algorithm>
#include <limits>
#include <memory>
#include <optional>
#include <string>

#include <bzlib.h>
#include <zlib.h>

namespace kx::archive
{

namespace
{

class Copier final : public Unpacker
{
public:
    Step Go(std::string_view& in, std::string& /*room*/, std::string_view& out) override
    {
        out = in;
        in.remove_prefix(out.size());
        return Step::kMore; // the end is where the bytes end
    }
};

class Inflater final : public Unpacker
{
public:
    Inflater() { m_isReady = inflateInit2(&m_stream, -MAX_WBITS) == Z_OK; }
    ~Inflater() override { inflateEnd(&m_stream); }

    Step Go(std::string_view& in, std::string& room, std::string_view& out) override
    {
        m_stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(in.data()));
        m_stream.avail_in = static_cast<uInt>(in.size());
        m_stream.next_out = reinterpret_cast<Bytef*>(room.data());
        m_stream.avail_out = static_cast<uInt>(room.size());
        const int result = m_isReady ? inflate(&m_stream, Z_NO_FLUSH) : Z_MEM_ERROR;
        in.remove_prefix(in.size() - m_stream.avail_in);
        out = std::string_view(room).substr(0, room.size() - m_stream.avail_out);
        const bool isFine = result == Z_OK || result == Z_BUF_ERROR;
        return result == Z_STREAM_END ? Step::kEnd : isFine ? Step::kMore : Step::kDamaged;
    }

private:
    z_stream m_stream{};
    bool m_isReady = false;
};

class Bunzipper final : public Unpacker
{
public:
    Bunzipper() { m_isReady = BZ2_bzDecompressInit(&m_stream, 0, 0) == BZ_OK; }
    ~Bunzipper() override { BZ2_bzDecompressEnd(&m_stream); }

    Step Go(std::string_view& in, std::string& room, std::string_view& out) override
    {
        m_stream.next_in = const_cast<char*>(in.data());
        m_stream.avail_in = static_cast<unsigned>(in.size());
        m_stream.next_out = room.data();
        m_stream.avail_out = static_cast<unsigned>(room.size());
        const int result = m_isReady ? BZ2_bzDecompress(&m_stream) : BZ_MEM_ERROR;
        in.remove_prefix(in.size() - m_stream.avail_in);
        out = std::string_view(room).substr(0, room.size() - m_stream.avail_out);
        return result == BZ_STREAM_END ? Step::kEnd
               : result == BZ_OK       ? Step::kMore
                                       : Step::kDamaged;
    }

private:
    bz_stream m_stream{};
    bool m_isReady = false;
};

std::unique_ptr<Unpacker> UnpackerFor(unsigned method)
{
    switch (method) {
    case kZipStored:
        return std::make_unique<Copier>();
    case kZipDeflated:
        return std::make_unique<Inflater>();
    case kZipDeflated64:
        return MakeInflater64();
    case kZipBzip2:
        return std::make_unique<Bunzipper>();
    default:
        return nullptr;
    }
}

/// Bytes that are read, and unpacked, at once.
constexpr std::uint64_t kSmallestPiece = std::uint64_t{1} << 9;
constexpr std::uint64_t kLargestPiece = std::uint64_t{1} << 18;

/// Feeds an entry's packed bytes to an unpacker and counts what comes out.
class Reading
{
public:
    Reading(const ByteSource& source, const ZipMember& member, std::string& room,
            std::uint64_t limit, const ContentSink& sink)
        : m_source(source), m_header(ContentHeader(member)), m_room(room), m_at(member.contentAt),
          m_left(m_header.packedSize), m_limit(limit), m_sink(sink)
    {
    }

    ContentResult Run(Unpacker& unpacker)
    {
        std::optional<ContentState> state;
        while (!state.has_value()) {
            state = Advance(unpacker);
        }
        return {*state, m_size};
    }

private:
    /// Does one piece; returns the state when it was the last.
    std::optional<ContentState> Advance(Unpacker& unpacker)
    {
        if (m_in.empty() && m_left != 0) {
            m_bytes = m_source.Read(
                m_at, static_cast<std::size_t>(std::min<std::uint64_t>(m_room.size(), m_left)));
            m_in = m_bytes;
            m_at += m_bytes.size();
            m_left = m_bytes.empty() ? 0 : m_left - m_bytes.size();
        }
        const bool isLast = m_in.empty();
        std::string_view out;
        const Unpacker::Step step = unpacker.Go(m_in, m_room, out);
        if (step == Unpacker::Step::kDamaged) {
            return ContentState::kDamaged;
        }
        m_size += out.size();
        m_crc = crc32_z(m_crc, reinterpret_cast<const Bytef*>(out.data()), out.size());
        if (!m_sink(out) || m_size > m_limit) {
            return ContentState::kTooLarge;
        }
        if (step == Unpacker::Step::kEnd) {
            return Judge();
        }
        if (isLast && out.empty()) {
            // Stored bytes end where the file says; everything else knows its own end.
            return m_header.method == kZipStored ? Judge() : ContentState::kDamaged;
        }
        return {};
    }

    [[nodiscard]] ContentState Judge() const
    {
        if (m_crc != m_header.crc) {
            return ContentState::kWrongCrc;
        }
        return m_size == m_header.size ? ContentState::kFine : ContentState::kWrongSize;
    }

    const ByteSource& m_source;
    ZipHeader m_header;
    std::string& m_room;
    std::uint64_t m_at;
    std::uint64_t m_left;
    std::uint64_t m_limit;
    const ContentSink& m_sink;
    std::string m_bytes;
    std::string_view m_in;
    std::uint64_t m_size = 0;
    uLong m_crc = 0;
};

} // namespace

bool IsReadableMethod(unsigned method)
{
    return method == kZipStored || method == kZipDeflated || method == kZipDeflated64 ||
           method == kZipBzip2;
}

ContentReader::ContentReader(const ByteSource& source, std::uint64_t wanted)
    : m_source(source),
      m_room(static_cast<std::size_t>(std::clamp(wanted, kSmallestPiece, kLargestPiece)), '\0')
{
}

ContentResult ContentReader::Read(const ZipMember& member, std::uint64_t limit,
                                  const ContentSink& sink)
{
    const std::unique_ptr<Unpacker> unpacker = UnpackerFor(member.local.method);
    if (unpacker == nullptr) {
        return {ContentState::kUnsupported, 0};
    }
    return Reading(m_source, member, m_room, limit, sink).Run(*unpacker);
}

} // namespace kx::archive
