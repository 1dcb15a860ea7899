// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "archive/HuffmanCode.h"
#include "archive/Unpacker.h"

#include <algorithm>
#include <array>

namespace kx::archive
{

namespace
{

constexpr std::size_t kWindow = std::size_t{1} << 16;
constexpr std::size_t kKept = std::size_t{1} << 16; ///< packed bytes that are held, at most

/// Packed bytes of the longest head of a block, and of the longest symbol with what belongs to it.
constexpr std::size_t kLongestHead = 640;
constexpr std::size_t kLongestSymbol = 16;

constexpr std::size_t kLiterals = 286; ///< bytes, the end of the block, lengths
constexpr std::size_t kDistances = 32;
constexpr int kEndOfBlock = 256;

class Inflater64 final : public Unpacker
{
public:
    Inflater64() : m_window(kWindow, '\0') {}

    Step Go(std::string_view& in, std::string& room, std::string_view& out) override
    {
        const bool isLast = in.empty();
        m_kept.erase(0, m_kept.size() - m_bits.Rest().size());
        const std::string_view more = in.substr(0, kKept - std::min(kKept, m_kept.size()));
        m_kept.append(more);
        in.remove_prefix(more.size());
        m_bits.Feed(m_kept);

        m_made = 0;
        bool isWaiting = false;
        while (m_state != State::kEnd && m_state != State::kDamaged && !isWaiting &&
               m_made < room.size()) {
            isWaiting = !isLast && m_bits.Bytes() < Needed();
            if (!isWaiting) {
                m_state = Advance(room);
                m_state = m_bits.IsOver() ? State::kDamaged : m_state;
            }
        }
        out = std::string_view(room).substr(0, m_made);
        return m_state == State::kEnd       ? Step::kEnd
               : m_state == State::kDamaged ? Step::kDamaged
                                            : Step::kMore;
    }

private:
    enum class State { kHead, kStored, kCodes, kCopy, kEnd, kDamaged };

    /// How many bytes must be there to go on.
    [[nodiscard]] std::size_t Needed() const
    {
        return m_state == State::kHead    ? kLongestHead
               : m_state == State::kCodes ? kLongestSymbol
               : m_state == State::kCopy  ? 0
                                          : 1;
    }

    State Advance(std::string& room)
    {
        switch (m_state) {
        case State::kHead:
            return ReadHead();
        case State::kStored:
            if (m_left == 0) {
                return AfterBlock();
            }
            --m_left;
            Put(room, static_cast<char>(m_bits.Take(8)));
            return State::kStored;
        case State::kCodes:
            return ReadSymbol(room);
        case State::kCopy:
            for (; m_left > 0 && m_made < room.size(); --m_left) {
                Put(room, m_window[(m_total - m_distance) % kWindow]);
            }
            return m_left == 0 ? State::kCodes : State::kCopy;
        case State::kEnd:
        case State::kDamaged:
            break;
        }
        return m_state;
    }

    void Put(std::string& room, char c)
    {
        room[m_made++] = c;
        m_window[m_total++ % kWindow] = c;
    }

    [[nodiscard]] State AfterBlock() const { return m_isFinal ? State::kEnd : State::kHead; }

    State ReadHead()
    {
        m_isFinal = m_bits.Take(1) != 0;
        switch (m_bits.Take(2)) {
        case 0:
            return ReadStoredHead();
        case 1:
            return MakeUsualCodes() ? State::kCodes : State::kDamaged;
        case 2:
            return ReadCodes() ? State::kCodes : State::kDamaged;
        default:
            return State::kDamaged;
        }
    }

    State ReadStoredHead()
    {
        constexpr unsigned kAllBits = 0xffff;
        m_bits.DropToByte();
        m_left = m_bits.Take(16);
        const unsigned check = m_bits.Take(16);
        return (m_left ^ check) == kAllBits ? State::kStored : State::kDamaged;
    }

    /// Makes the codes that every unpacker knows.
    bool MakeUsualCodes()
    {
        std::array<std::uint8_t, HuffmanCode::kMostSymbols> lengths{};
        const auto fill = [&lengths](std::size_t from, std::size_t to, std::uint8_t length) {
            std::fill(lengths.begin() + static_cast<std::ptrdiff_t>(from),
                      lengths.begin() + static_cast<std::ptrdiff_t>(to), length);
        };
        fill(0, 144, 8);
        fill(144, 256, 9);
        fill(256, 280, 7);
        fill(280, 288, 8);
        std::array<std::uint8_t, kDistances> distances{};
        distances.fill(5);
        return m_literals.Make(lengths.data(), lengths.size()) &&
               m_distances.Make(distances.data(), distances.size());
    }

    /// Reads the codes of a block, which are packed by a code themselves.
    bool ReadCodes()
    {
        constexpr std::size_t kOrder[] = {16, 17, 18, 0, 8,  7, 9,  6, 10, 5,
                                          11, 4,  12, 3, 13, 2, 14, 1, 15};
        const std::size_t literals = m_bits.Take(5) + 257;
        const std::size_t distances = m_bits.Take(5) + 1;
        const std::size_t count = m_bits.Take(4) + 4;
        std::array<std::uint8_t, std::size(kOrder)> packing{};
        for (std::size_t i = 0; i < count; ++i) {
            packing[kOrder[i]] = static_cast<std::uint8_t>(m_bits.Take(3));
        }
        HuffmanCode code;
        std::array<std::uint8_t, kLiterals + kDistances> lengths{};
        return literals <= kLiterals && code.Make(packing.data(), packing.size()) &&
               ReadLengths(code, lengths.data(), literals + distances) &&
               lengths[kEndOfBlock] != 0 && m_literals.Make(lengths.data(), literals) &&
               m_distances.Make(lengths.data() + literals, distances);
    }

    bool ReadLengths(const HuffmanCode& code, std::uint8_t* lengths, std::size_t count)
    {
        std::size_t done = 0;
        while (done < count) {
            const int symbol = code.Take(m_bits);
            if (symbol == HuffmanCode::kNoSymbol || m_bits.IsOver()) {
                return false;
            }
            if (symbol < 16) {
                lengths[done++] = static_cast<std::uint8_t>(symbol);
                continue;
            }
            // Repetitions: of the length before, and of 0.
            const std::size_t times = symbol == 16   ? 3 + m_bits.Take(2)
                                      : symbol == 17 ? 3 + m_bits.Take(3)
                                                     : 11 + m_bits.Take(7);
            if (times > count - done || (symbol == 16 && done == 0)) {
                return false;
            }
            std::fill_n(lengths + done, times, symbol == 16 ? lengths[done - 1] : 0);
            done += times;
        }
        return true;
    }

    State ReadSymbol(std::string& room)
    {
        const int symbol = m_literals.Take(m_bits);
        if (symbol == kEndOfBlock) {
            return AfterBlock();
        }
        if (symbol >= 0 && symbol < kEndOfBlock && !m_bits.IsOver()) {
            Put(room, static_cast<char>(symbol));
            return State::kCodes;
        }
        return symbol > kEndOfBlock ? ReadCopy(static_cast<unsigned>(symbol - kEndOfBlock - 1))
                                    : State::kDamaged;
    }

    /// Reads what follows the symbol of a length: its further bits, and the distance.
    State ReadCopy(unsigned symbol)
    {
        constexpr unsigned kShort = 8;    // these have no further bits
        constexpr unsigned kLongest = 28; // has all of a length in them
        constexpr unsigned kLeast = 3;
        if (symbol > kLongest) {
            return State::kDamaged;
        }
        m_left = kLeast + symbol;
        if (symbol == kLongest) {
            m_left = kLeast + m_bits.Take(16);
        } else if (symbol >= kShort) {
            const unsigned more = symbol / 4 - 1;
            m_left = kLeast + ((4 + symbol % 4) << more) + m_bits.Take(more);
        }
        const int distance = m_distances.Take(m_bits);
        if (distance == HuffmanCode::kNoSymbol) {
            return State::kDamaged;
        }
        m_distance = static_cast<unsigned>(distance) + 1;
        if (distance >= 4) {
            const unsigned more = static_cast<unsigned>(distance) / 2 - 1;
            m_distance =
                ((2 + static_cast<unsigned>(distance) % 2) << more) + 1 + m_bits.Take(more);
        }
        return m_distance <= m_total ? State::kCopy : State::kDamaged;
    }

    State m_state = State::kHead;
    bool m_isFinal = false;
    std::string m_kept; ///< packed bytes that were not taken up
    BitReader m_bits;
    HuffmanCode m_literals;
    HuffmanCode m_distances;
    std::string m_window;      ///< the last bytes that were unpacked, at their number's place
    std::uint64_t m_total = 0; ///< bytes that were unpacked
    std::size_t m_made = 0;    ///< of them, in the present room
    unsigned m_left = 0;       ///< bytes of a stored block, or to copy
    unsigned m_distance = 0;   ///< from where to copy
};

} // namespace

std::unique_ptr<Unpacker> MakeInflater64()
{
    return std::make_unique<Inflater64>();
}

} // namespace kx::archive
