// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "archive/HuffmanCode.h"

#include <algorithm>

namespace kx::archive
{

unsigned BitReader::Look(unsigned count)
{
    constexpr unsigned kRoom = 56; // so many bits and another byte fit
    while (m_count <= kRoom && !m_bytes.empty()) {
        m_bits |= static_cast<std::uint64_t>(static_cast<unsigned char>(m_bytes.front()))
                  << m_count;
        m_count += 8;
        m_bytes.remove_prefix(1);
    }
    return static_cast<unsigned>(m_bits & ((std::uint64_t{1} << count) - 1));
}

void BitReader::Drop(unsigned count)
{
    m_isOver = m_isOver || count > m_count;
    count = std::min(count, m_count);
    m_bits >>= count;
    m_count -= count;
}

unsigned BitReader::Take(unsigned count)
{
    const unsigned bits = Look(count);
    Drop(count);
    return bits;
}

bool HuffmanCode::Make(const std::uint8_t* lengths, std::size_t count)
{
    m_counts.fill(0);
    m_quick.fill(0);
    for (std::size_t symbol = 0; symbol < count; ++symbol) {
        ++m_counts[lengths[symbol]];
    }
    m_counts[0] = 0;
    std::array<std::uint16_t, kLongest + 2> place{}; // of the next symbol of each length
    std::array<unsigned, kLongest + 2> code{};       // likewise
    int free = 1;
    for (unsigned length = 1; length <= kLongest; ++length) {
        free = free * 2 - m_counts[length];
        if (free < 0) {
            return false;
        }
        place[length + 1] = static_cast<std::uint16_t>(place[length] + m_counts[length]);
        code[length + 1] = (code[length] + m_counts[length]) << 1U;
    }
    const unsigned all = place[kLongest + 1];
    if (free > 0 && all != m_counts[1]) {
        return false;
    }
    for (std::size_t symbol = 0; symbol < count; ++symbol) {
        const unsigned length = lengths[symbol];
        if (length == 0) {
            continue;
        }
        m_symbols[place[length]++] = static_cast<std::uint16_t>(symbol);
        unsigned reversed = 0; // the first bit of a code is its highest
        for (unsigned bit = 0; bit < length; ++bit) {
            reversed |= (code[length] >> bit & 1U) << (length - 1 - bit);
        }
        ++code[length];
        for (std::size_t bits = reversed; length <= kQuick && bits < m_quick.size();
             bits += std::size_t{1} << length) {
            m_quick[bits] = static_cast<std::uint16_t>(symbol * 16 + length);
        }
    }
    return true;
}

int HuffmanCode::Take(BitReader& bits) const
{
    const unsigned quick = m_quick[bits.Look(kQuick)];
    if (quick == 0) {
        return TakeLong(bits);
    }
    bits.Drop(quick % 16);
    return static_cast<int>(quick / 16);
}

int HuffmanCode::TakeLong(BitReader& bits) const
{
    const unsigned ahead = bits.Look(kLongest);
    int code = 0;
    int first = 0; // the first code of the length
    int place = 0; // of its symbol
    for (unsigned length = 1; length <= kLongest; ++length) {
        code |= static_cast<int>(ahead >> (length - 1) & 1U);
        const int count = m_counts[length];
        if (code - first < count) {
            bits.Drop(length);
            return m_symbols[static_cast<std::size_t>(place + code - first)];
        }
        place += count;
        first = (first + count) * 2;
        code *= 2;
    }
    return kNoSymbol;
}

} // namespace kx::archive
