// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "archive/ZipFields.h"

namespace kx::archive
{

std::string_view ZipFields::Text(std::size_t count)
{
    const std::string_view text = m_bytes.substr(std::min(m_at, m_bytes.size()), count);
    m_at += count;
    return text;
}

std::uint64_t ZipFields::Number(std::size_t count)
{
    std::uint64_t number = 0;
    for (std::size_t i = count; i-- > 0;) {
        const std::size_t at = m_at + i;
        number = number << 8 | (at < m_bytes.size() ? static_cast<unsigned char>(m_bytes[at]) : 0U);
    }
    m_at += count;
    return number;
}

void AppendZipNumber(std::string& bytes, std::uint64_t number, std::size_t size)
{
    for (std::size_t i = 0; i < size; ++i) {
        bytes += static_cast<char>(number >> (8 * i) & 0xffU);
    }
}

ZipExtra ReadZipExtra(std::string_view bytes)
{
    constexpr std::uint16_t kZip64 = 0x0001;
    constexpr std::uint16_t kUnicodePath = 0x7075;
    constexpr std::size_t kUnicodeHead = 5; // version and the CRC of the other name
    ZipExtra extra;
    ZipFields fields(bytes);
    while (fields.Left() >= 4) {
        const std::uint16_t kind = fields.Two();
        const std::uint16_t size = fields.Two();
        if (size > fields.Left()) {
            extra.isDamaged = true;
            return extra;
        }
        const std::string_view content = fields.Text(size);
        if (kind == kZip64) {
            extra.zip64 = content;
        } else if (kind == kUnicodePath && size > kUnicodeHead) {
            extra.unicodeName = content.substr(kUnicodeHead);
        }
    }
    extra.isDamaged = fields.Left() != 0;
    return extra;
}

bool TakeZip64(const ZipExtra& extra, std::initializer_list<std::uint64_t*> numbers, bool hasDisk)
{
    ZipFields fields(extra.zip64.value_or(std::string_view()));
    bool isComplete = true;
    for (std::uint64_t* const number : numbers) {
        if (*number == kZipMax32) {
            isComplete = isComplete && fields.Left() >= 8;
            *number = fields.Left() >= 8 ? fields.Eight() : *number;
        }
    }
    isComplete = isComplete && (!hasDisk || fields.Left() >= 4);
    return isComplete || !extra.zip64.has_value();
}

} // namespace kx::archive
