// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "reading/TarHeads.h"

#include <algorithm>
#include <charconv>
#include <optional>
#include <utility>

namespace kx::guard
{

namespace
{

// A header is a block; contents end in whole ones.
constexpr std::size_t kTarBlock = 512;

// Places in it.
constexpr std::size_t kTarNameSize = 100;
constexpr std::size_t kTarSizeAt = 124;
constexpr std::size_t kTarSizeSize = 12;
constexpr std::size_t kTarTypeAt = 156;
constexpr std::size_t kTarMagicAt = 257;
constexpr std::string_view kTarMagic = "ustar";

constexpr char kTarFile = '0';
constexpr char kTarLongName = 'L';
constexpr std::size_t kLongestTarName = 4096;

std::string_view UpToZero(std::string_view field)
{
    return field.substr(0, field.find('\0'));
}

/// Reads a size: octal digits. Larger ones than these can tell are none that are looked into.
std::optional<std::uint64_t> SizeIn(std::string_view header)
{
    constexpr int kOctal = 8;
    std::uint64_t size = 0;
    const char* const begin = header.data() + kTarSizeAt;
    const auto read = std::from_chars(begin, begin + kTarSizeSize, size, kOctal);
    return read.ptr == begin ? std::nullopt : std::optional(size);
}

} // namespace

TarHeads::TarHeads(std::size_t headSize, Taker take) : m_headSize(headSize), m_take(std::move(take))
{
}

bool TarHeads::Add(std::string_view piece)
{
    while (!piece.empty()) {
        if (m_content != 0 || m_padding != 0) {
            const auto count = static_cast<std::size_t>(
                std::min<std::uint64_t>(piece.size(), m_content != 0 ? m_content : m_padding));
            AddContent(piece.substr(0, count));
            piece.remove_prefix(count);
            continue;
        }
        const std::size_t count = std::min(piece.size(), kTarBlock - m_header.size());
        m_header += piece.substr(0, count);
        piece.remove_prefix(count);
        if (m_header.size() == kTarBlock && !TakeHeader()) {
            return false;
        }
    }
    return true;
}

bool TarHeads::TakeHeader()
{
    const std::string header = std::exchange(m_header, {});
    const std::string_view fields = header;
    const std::optional<std::uint64_t> size = SizeIn(fields);
    const char type = header[kTarTypeAt];
    m_isName = type == kTarLongName;
    if (fields.substr(kTarMagicAt, kTarMagic.size()) != kTarMagic || !size.has_value() ||
        (type != kTarFile && (!m_isName || *size > kLongestTarName))) {
        return false;
    }
    if (!m_isName && m_name.empty()) {
        m_name = UpToZero(fields.substr(0, kTarNameSize));
    }
    m_head.clear();
    m_content = *size;
    m_padding = (kTarBlock - *size % kTarBlock) % kTarBlock;
    m_isTold = false;
    if (m_content == 0) {
        Tell();
    }
    return true;
}

void TarHeads::AddContent(std::string_view piece)
{
    if (m_content == 0) {
        m_padding -= piece.size();
        return;
    }
    const std::size_t wanted = m_isName ? kLongestTarName : m_headSize;
    m_content -= piece.size();
    m_head += piece.substr(0, wanted - std::min(wanted, m_head.size()));
    if (!m_isTold && (m_content == 0 || m_head.size() == wanted)) {
        Tell();
    }
}

void TarHeads::Tell()
{
    m_isTold = true;
    if (m_isName) {
        m_name = UpToZero(m_head);
    } else {
        m_take(std::exchange(m_name, {}), m_head);
    }
}

} // namespace kx::guard
