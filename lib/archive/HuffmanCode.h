// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace kx::archive
{

/// Bits of packed bytes, the least significant first, as far as they are there.
class BitReader
{
public:
    /// Goes on with these bytes, which are not owned; all before them were taken up.
    void Feed(std::string_view bytes) { m_bytes = bytes; }

    /// Returns what was not taken up of the bytes.
    [[nodiscard]] std::string_view Rest() const { return m_bytes; }

    /// How many whole bytes are there.
    [[nodiscard]] std::size_t Bytes() const { return m_bytes.size() + m_count / 8; }

    /// Returns the next bits without taking them; 0 for those that are missing.
    /// @param count  up to 16
    [[nodiscard]] unsigned Look(unsigned count);

    /// Drops bits that Look has shown.
    void Drop(unsigned count);

    /// Takes a number.
    /// @param count  up to 16
    unsigned Take(unsigned count);

    /// Drops the rest of a byte of which some bits were taken.
    void DropToByte() { Drop(m_count % 8); }

    /// Tells whether more bits were taken than there are.
    [[nodiscard]] bool IsOver() const { return m_isOver; }

private:
    std::string_view m_bytes;
    std::uint64_t m_bits = 0;
    unsigned m_count = 0;
    bool m_isOver = false;
};

/// A canonical Huffman code with up to 15 bits for a symbol.
class HuffmanCode
{
public:
    static constexpr int kNoSymbol = -1;
    static constexpr std::size_t kMostSymbols = 288;

    /// Makes the code in which symbol i has lengths[i] bits; 0 for a symbol that does not occur.
    /// @return false when there is no such code: too many short ones, or a gap; a single symbol of
    ///         one bit may stand alone
    [[nodiscard]] bool Make(const std::uint8_t* lengths, std::size_t count);

    /// Takes one symbol.
    /// @return kNoSymbol when the bits stand for none
    [[nodiscard]] int Take(BitReader& bits) const;

private:
    static constexpr unsigned kLongest = 15;
    static constexpr unsigned kQuick = 9;

    [[nodiscard]] int TakeLong(BitReader& bits) const;

    std::array<std::uint16_t, kLongest + 1> m_counts{};  ///< of the symbols of each length
    std::array<std::uint16_t, kMostSymbols> m_symbols{}; ///< sorted by length, then number
    std::array<std::uint16_t, 1U << kQuick> m_quick{};   ///< by bits: symbol * 16 + length, or 0
};

} // namespace kx::archive
