// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "signature/EndRecords.h"

#include "archive/ZipFields.h"
#include "signature/Refusal.h"

#include <algorithm>
#include <array>

namespace kx::signature
{

namespace
{

using archive::kZip64EndMark;
using archive::kZip64EndSize;
using archive::kZip64LocatorMark;
using archive::kZip64LocatorSize;
using archive::kZipEndMark;
using archive::kZipEndSize;
using archive::kZipMax16;
using archive::kZipMax32;
using archive::ZipFields;
using archive::ZipMarkAt;

constexpr std::size_t kAllSize = kZip64EndSize + kZip64LocatorSize + kZipEndSize;

// Where the records tell the directory's place, and the locator that of the zip64 record.
constexpr std::size_t kEndOffset = 16;
constexpr std::size_t kZip64Offset = 48;
constexpr std::size_t kLocatorOffset = 8;

/// What the end record tells, and the zip64 one: disks, entries, and the directory's size and
/// place.
struct Numbers {
    std::array<std::uint64_t, 6> told{};

    [[nodiscard]] bool IsOneArchive() const
    {
        return told[0] == 0 && told[1] == 0 && told[2] == told[3];
    }
};

Numbers EndNumbers(std::string_view record)
{
    ZipFields fields(record, 4);
    Numbers numbers;
    for (std::size_t i = 0; i < 4; ++i) {
        numbers.told[i] = fields.Two();
    }
    numbers.told[4] = fields.Four();
    numbers.told[5] = fields.Four();
    return numbers;
}

Numbers Zip64Numbers(std::string_view record)
{
    ZipFields fields(record, 16);
    Numbers numbers;
    numbers.told[0] = fields.Four();
    numbers.told[1] = fields.Four();
    for (std::size_t i = 2; i < numbers.told.size(); ++i) {
        numbers.told[i] = fields.Eight();
    }
    return numbers;
}

/// Tells whether the end record says the same as the zip64 one, as far as it can.
bool IsSame(const Numbers& end, const Numbers& large)
{
    for (std::size_t i = 0; i < end.told.size(); ++i) {
        const std::uint64_t most = i < 4 ? kZipMax16 : kZipMax32;
        if (end.told[i] != large.told[i] && end.told[i] != most) {
            return false;
        }
    }
    return true;
}

/// Tells whether locator and zip64 record stand right behind each other, and say so.
/// @param at  place of the zip64 record in the file
bool IsChain(std::string_view record, std::string_view locator, std::uint64_t at)
{
    ZipFields place(locator, 4);
    const bool isFirstDisk = place.Four() == 0;
    const bool isThere = place.Eight() == at;
    return isFirstDisk && isThere && place.Four() == 1 && ZipMarkAt(record, 0) == kZip64EndMark &&
           ZipFields(record, 4).Eight() == kZip64EndSize - 12;
}

void PutNumber(std::string& bytes, std::size_t at, std::uint64_t number, std::size_t size)
{
    std::string field;
    archive::AppendZipNumber(field, number, size);
    bytes.replace(at, size, field);
}

} // namespace

EndRecords::EndRecords(const archive::ByteSource& source, const std::string& where)
{
    const auto require = [&where](bool holds, const char* why) {
        if (!holds) {
            throw Refusal(Reason::kEnd, where, why, "build the package with kx-package");
        }
    };
    const std::uint64_t size = source.Size();
    const auto tailSize = static_cast<std::size_t>(std::min<std::uint64_t>(size, kAllSize));
    const std::string tail = source.Read(size - tailSize, tailSize);
    require(tail.size() == tailSize && tailSize >= kZipEndSize, "is too short for an archive");
    const std::string_view end = std::string_view(tail).substr(tailSize - kZipEndSize);
    require(ZipMarkAt(end, 0) == kZipEndMark && ZipFields(end, kZipEndSize - 2).Two() == 0,
            "does not end in an archive's end record without a comment");
    Numbers numbers = EndNumbers(end);
    m_isZip64 = tailSize >= kZipEndSize + kZip64LocatorSize &&
                ZipMarkAt(tail, tailSize - kZipEndSize - kZip64LocatorSize) == kZip64LocatorMark;
    m_bytes = m_isZip64 ? tail : std::string(end);
    m_at = size - m_bytes.size();
    if (m_isZip64) {
        require(tailSize == kAllSize, "is too short for an archive");
        const std::string_view record = std::string_view(tail).substr(0, kZip64EndSize);
        const std::string_view locator =
            std::string_view(tail).substr(kZip64EndSize, kZip64LocatorSize);
        const Numbers large = Zip64Numbers(record);
        require(IsChain(record, locator, m_at) && IsSame(numbers, large),
                "its zip64 end records contradict the end record");
        numbers = large;
    } else {
        require(numbers.told[4] != kZipMax32 && numbers.told[5] != kZipMax32,
                "lacks the end records of zip64");
    }
    m_directorySize = numbers.told[4];
    m_directoryAt = numbers.told[5];
    require(numbers.IsOneArchive(), "says that it is one part of several archives");
    require(m_directorySize <= m_at && m_directoryAt == m_at - m_directorySize,
            "its directory does not stand where its end record says");
}

std::string EndRecords::WithDirectoryAt(std::uint64_t place, const std::string& where) const
{
    std::string bytes = m_bytes;
    const std::size_t endField = bytes.size() - kZipEndSize + kEndOffset;
    if (ZipFields(bytes, endField).Four() != kZipMax32) {
        if (place >= kZipMax32) {
            throw Refusal(Reason::kLimit, where,
                          "is too large to be signed: its archive can tell no place beyond 4 GiB",
                          "leave something out of the package");
        }
        PutNumber(bytes, endField, place, 4);
    }
    if (m_isZip64) {
        PutNumber(bytes, kZip64Offset, place, 8);
        PutNumber(bytes, kZip64EndSize + kLocatorOffset, place + m_directorySize, 8);
    }
    return bytes;
}

} // namespace kx::signature
