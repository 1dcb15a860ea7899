// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>

namespace kx::archive
{

// The fields that the records of a zip archive consist of.

/// Stands for a number that does not fit 16 bits; the zip64 record has it.
constexpr std::uint16_t kZipMax16 = 0xffff;
/// Stands for a number that does not fit 32 bits; the zip64 field or record has it.
constexpr std::uint32_t kZipMax32 = 0xffffffff;

/// What the records at an archive's end begin with, and how long they are: the end record without
/// its comment, of zip64 the record and what leads to it.
constexpr std::uint32_t kZipEndMark = 0x06054b50;
constexpr std::uint32_t kZip64EndMark = 0x06064b50;
constexpr std::uint32_t kZip64LocatorMark = 0x07064b50;
constexpr std::size_t kZipEndSize = 22;
constexpr std::size_t kZip64EndSize = 56;
constexpr std::size_t kZip64LocatorSize = 20;

/// Reads numbers from bytes, which it does not own, least significant byte first; behind the end
/// all bytes are 0.
class ZipFields
{
public:
    explicit ZipFields(std::string_view bytes, std::size_t at = 0) : m_bytes(bytes), m_at(at) {}

    std::uint16_t Two() { return static_cast<std::uint16_t>(Number(2)); }
    std::uint32_t Four() { return static_cast<std::uint32_t>(Number(4)); }
    std::uint64_t Eight() { return Number(8); }
    void Skip(std::size_t count) { m_at += count; }
    /// How far reading has come, which may be behind the end.
    [[nodiscard]] std::size_t At() const { return m_at; }
    [[nodiscard]] std::size_t Left() const
    {
        return m_bytes.size() - std::min(m_at, m_bytes.size());
    }

    /// The next bytes, fewer only at the end; they live as long as those that are read.
    std::string_view Text(std::size_t count);

private:
    std::uint64_t Number(std::size_t count);

    std::string_view m_bytes;
    std::size_t m_at;
};

/// Returns the four bytes at a place, by which records are known.
[[nodiscard]] inline std::uint32_t ZipMarkAt(std::string_view bytes, std::size_t at)
{
    return ZipFields(bytes, at).Four();
}

/// Appends a number, least significant byte first.
/// @param size  how many bytes it takes, up to 8
void AppendZipNumber(std::string& bytes, std::uint64_t number, std::size_t size);

/// The extra fields of a header that say something about names and sizes.
struct ZipExtra {
    std::optional<std::string_view> zip64; ///< of the bytes that were read
    std::string unicodeName;
    bool isDamaged = false; ///< they do not end where they should
};

[[nodiscard]] ZipExtra ReadZipExtra(std::string_view bytes);

/// Puts the numbers of the zip64 field in the place of those that do not fit 32 bits.
/// @return false when the field is too short for them
/// @param hasDisk  the number of the disk stands there, too
[[nodiscard]] bool TakeZip64(const ZipExtra& extra, std::initializer_list<std::uint64_t*> numbers,
                             bool hasDisk);

} // namespace kx::archive
