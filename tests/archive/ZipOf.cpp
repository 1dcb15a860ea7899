// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "archive/ZipOf.h"

#include <gtest/gtest.h>

#include <zlib.h>

namespace kx::archive
{

namespace
{

std::string HeaderFields(const ZipPart& part, const std::string& packed)
{
    const auto crc =
        crc32_z(0, reinterpret_cast<const Bytef*>(part.content.data()), part.content.size());
    return Bytes(part.version, 2) + Bytes(part.flags, 2) + Bytes(part.method, 2) + Bytes(0, 4) +
           Bytes(crc, 4) + Bytes(packed.size(), 4) + Bytes(part.content.size(), 4) +
           Bytes(part.name.size(), 2);
}

} // namespace

std::string Bytes(std::uint64_t number, std::size_t count)
{
    std::string bytes;
    for (std::size_t i = 0; i < count; ++i) {
        bytes += static_cast<char>(number & 0xffU);
        number >>= 8;
    }
    return bytes;
}

std::string ZipOf(const std::vector<ZipPart>& parts)
{
    std::string zip;
    std::string directory;
    for (const ZipPart& part : parts) {
        const std::string& packed = part.packed.empty() ? part.content : part.packed;
        const std::string fields = HeaderFields(part, packed);
        directory += kCentral + Bytes(20 | part.madeOn << 8, 2) + fields +
                     Bytes(part.extra.size(), 2) + Bytes(0, 6) +
                     Bytes(std::uint64_t{part.mode} << 16, 4) + Bytes(zip.size(), 4) + part.name +
                     part.extra;
        zip.append(kLocal).append(fields).append(2, '\0').append(part.name).append(packed);
    }
    return zip + directory + kEndRecord + Bytes(0, 4) + Bytes(parts.size(), 2) +
           Bytes(parts.size(), 2) + Bytes(directory.size(), 4) + Bytes(zip.size(), 4) + Bytes(0, 2);
}

std::string Deflated(const std::string& text)
{
    z_stream stream{};
    EXPECT_EQ(deflateInit2(&stream, 9, Z_DEFLATED, -MAX_WBITS, 8, Z_DEFAULT_STRATEGY), Z_OK);
    std::string packed(deflateBound(&stream, text.size()), '\0');
    stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(text.data()));
    stream.avail_in = static_cast<uInt>(text.size());
    stream.next_out = reinterpret_cast<Bytef*>(packed.data());
    stream.avail_out = static_cast<uInt>(packed.size());
    EXPECT_EQ(deflate(&stream, Z_FINISH), Z_STREAM_END);
    packed.resize(stream.total_out);
    deflateEnd(&stream);
    return packed;
}

ZipPart DeflatedPart(const std::string& text)
{
    ZipPart part{"a", text};
    part.method = 8;
    part.packed = Deflated(text);
    return part;
}

void Patch(std::string& zip, const char* mark, std::size_t offset, const std::string& bytes,
           std::size_t nth)
{
    std::size_t at = zip.find(mark);
    for (std::size_t i = 0; i < nth; ++i) {
        at = zip.find(mark, at + 1);
    }
    ASSERT_NE(at, std::string::npos);
    zip.replace(at + offset, bytes.size(), bytes);
}

} // namespace kx::archive
