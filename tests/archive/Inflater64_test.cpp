// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "archive/Unpacker.h"
#include "archive/ZipOf.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

namespace kx::archive
{

namespace
{

using Step = Unpacker::Step;

/// Writes packed bytes bit by bit.
class BitWriter
{
public:
    /// Appends a number, its lowest bit first.
    BitWriter& Number(unsigned number, unsigned count)
    {
        for (unsigned bit = 0; bit < count; ++bit) {
            Append((number >> bit & 1U) != 0);
        }
        return *this;
    }

    /// Appends a code, its highest bit first.
    BitWriter& Code(unsigned code, unsigned count)
    {
        for (unsigned bit = count; bit-- > 0;) {
            Append((code >> bit & 1U) != 0);
        }
        return *this;
    }

    /// Appends a block of bytes as they are.
    BitWriter& Stored(const std::string& text)
    {
        Number(0, 3);
        m_bits = 0;
        const auto size = static_cast<unsigned>(text.size());
        Number(size, 16).Number(~size, 16);
        m_bytes += text;
        return *this;
    }

    /// Begins a block with the usual codes.
    BitWriter& Usual(bool isFinal) { return Number(isFinal ? 1 : 0, 1).Number(1, 2); }

    /// Appends a symbol by the usual code.
    BitWriter& Symbol(unsigned symbol)
    {
        return symbol < 144   ? Code(0x30 + symbol, 8)
               : symbol < 256 ? Code(0x190 + symbol - 144, 9)
               : symbol < 280 ? Code(symbol - 256, 7)
                              : Code(0xc0 + symbol - 280, 8);
    }

    BitWriter& Distance(unsigned code, unsigned more, unsigned count)
    {
        return Code(code, 5).Number(more, count);
    }

    [[nodiscard]] const std::string& Bytes() const { return m_bytes; }

private:
    void Append(bool isSet)
    {
        if (m_bits == 0) {
            m_bytes += '\0';
        }
        m_bytes.back() = static_cast<char>(static_cast<unsigned char>(m_bytes.back()) |
                                           (isSet ? 1U << m_bits : 0U));
        m_bits = (m_bits + 1) % 8;
    }

    std::string m_bytes;
    unsigned m_bits = 0; ///< used of the last byte; 0 when it is full
};

constexpr unsigned kEnd = 256;

struct Unpacked {
    Step step = Step::kMore;
    std::string text;
};

/// Unpacks bytes that are given in pieces.
Unpacked Unpack(const std::string& packed, std::size_t piece, std::size_t roomSize = 1000)
{
    const std::unique_ptr<Unpacker> unpacker = MakeInflater64();
    std::string room(roomSize, '\0');
    Unpacked result;
    std::size_t at = 0;
    std::string_view in;
    while (result.step == Step::kMore) {
        if (in.empty()) {
            in = std::string_view(packed).substr(at, piece);
            at += in.size();
        }
        const bool isLast = in.empty();
        std::string_view out;
        result.step = unpacker->Go(in, room, out);
        result.text += out;
        if (isLast && out.empty() && result.step == Step::kMore) {
            break;
        }
    }
    return result;
}

std::string RandomText(std::size_t size, int letters)
{
    std::mt19937 random(1); // NOLINT(cert-msc51-cpp): the same text every time
    std::string text(size, ' ');
    for (char& c : text) {
        c = static_cast<char>(random() % static_cast<unsigned>(letters));
    }
    return text;
}

TEST(Inflater64, UnpacksWhatDeflatePacks)
{
    // Without repetitions of 258 bytes both methods are the same.
    for (const int letters : {2, 20, 256}) {
        const std::string text = RandomText(100000, letters);
        const std::string packed = Deflated(text);
        for (const std::size_t piece : {std::size_t{1}, std::size_t{777}, packed.size()}) {
            const Unpacked result = Unpack(packed, piece);

            EXPECT_EQ(result.step, Step::kEnd) << letters << " letters, " << piece;
            EXPECT_TRUE(result.text == text) << letters << " letters, " << piece;
        }
    }
}

TEST(Inflater64, UnpacksAnEmptyText)
{
    EXPECT_EQ(Unpack(BitWriter().Usual(true).Symbol(kEnd).Bytes(), 1).step, Step::kEnd);
}

TEST(Inflater64, CopiesFromFarAwayAndAsMuchAsAskedFor)
{
    const std::string text = RandomText(65535, 256);
    // Lengths of 3 and 65538, distances of 32769, 49152, 49153 and 65536.
    const std::string packed = BitWriter()
                                   .Stored(text)
                                   .Stored("x")
                                   .Usual(true)
                                   .Symbol(257)
                                   .Distance(30, 0, 14)
                                   .Symbol(285)
                                   .Number(0, 16)
                                   .Distance(30, 16383, 14)
                                   .Symbol(285)
                                   .Number(65535, 16)
                                   .Distance(31, 16383, 14)
                                   .Symbol(257)
                                   .Distance(31, 0, 14)
                                   .Symbol(kEnd)
                                   .Bytes();
    std::string expected = text + "x";
    const auto copy = [&expected](std::size_t length, std::size_t distance) {
        for (std::size_t i = 0; i < length; ++i) {
            expected += expected[expected.size() - distance];
        }
    };
    copy(3, 32769);
    copy(3, 49152);
    copy(65538, 65536);
    copy(3, 49153);

    for (const std::size_t room : {std::size_t{1}, std::size_t{1000}, std::size_t{1} << 18}) {
        const Unpacked result = Unpack(packed, packed.size(), room);

        EXPECT_EQ(result.step, Step::kEnd) << room;
        EXPECT_TRUE(result.text == expected) << room;
    }
}

TEST(Inflater64, RepeatsWhatItHasJustMade)
{
    const std::string packed = BitWriter()
                                   .Usual(true)
                                   .Symbol('a')
                                   .Symbol('b')
                                   .Symbol(284)
                                   .Number(31, 5)
                                   .Distance(1, 0, 0)
                                   .Symbol(kEnd)
                                   .Bytes();
    std::string expected;
    for (int i = 0; i < 130; ++i) {
        expected += "ab";
    }

    EXPECT_EQ(Unpack(packed, 3).text, expected);
}

struct DamageRow {
    const char* what;
    std::string packed;
};

TEST(Inflater64, FindsDamage)
{
    const auto usual = [] { return BitWriter().Usual(true).Symbol('a'); };
    const std::string text = Deflated(RandomText(1000, 20));
    const DamageRow rows[] = {
        {"nothing", ""},
        {"cut", text.substr(0, text.size() - 2)},
        {"cut at a symbol", usual().Bytes()},
        {"unknown block", BitWriter().Number(7, 3).Bytes()},
        {"sizes of a stored block", std::string("\1\3\0\1\0abc", 8)},
        {"cut stored block", BitWriter().Stored("text").Bytes().substr(0, 6)},
        {"no block behind a block", BitWriter().Stored("text").Bytes()},
        {"unknown length", usual().Symbol(286).Distance(0, 0, 0).Symbol(kEnd).Bytes()},
        {"distance before the beginning",
         usual().Symbol(257).Distance(1, 0, 0).Symbol(kEnd).Bytes()},
        {"too many symbols", BitWriter().Number(5, 3).Number(30, 5).Number(0, 9).Bytes() + text},
        {"too many short codes",
         BitWriter().Number(5, 3).Number(0, 14).Number(0x249, 12).Bytes() + text},
        {"a code with gaps", BitWriter().Number(5, 3).Number(0, 14).Number(2, 12).Bytes() + text},
    };
    for (const DamageRow& row : rows) {
        for (const std::size_t piece : {std::size_t{1}, std::size_t{1000}}) {
            EXPECT_EQ(Unpack(row.packed, piece).step, Step::kDamaged) << row.what;
        }
    }
}

TEST(Inflater64, EndsWhateverTheBytesAre)
{
    const std::string good = Deflated(RandomText(3000, 20));
    for (std::size_t at = 0; at < good.size(); ++at) {
        std::string packed = good;
        packed[at] = static_cast<char>(packed[at] ^ 0x55);
        const Unpacked result = Unpack(packed, packed.size());

        EXPECT_NE(result.step, Step::kMore) << at;
    }
}

} // namespace

} // namespace kx::archive
