// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "archive/StructureOf.h"
#include "archive/ZipOf.h"
#include "archive/ZipStructure.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <ctime>

namespace kx::archive
{

namespace
{

using testing::ElementsAre;
using testing::IsEmpty;

std::string WithExtra(const std::string& extra)
{
    ZipPart part{"a", "one"};
    part.extra = extra;
    return ZipOf({part, {"b", "two"}});
}

TEST(ZipDirectory, GoesOnBehindComments)
{
    const std::string comment = "about a";
    std::string zip = ZipOf({{"a", "one"}, {"b", "two"}});
    constexpr std::size_t kHeaderSize = 46;
    zip.insert(zip.find(kCentral) + kHeaderSize + 1, comment);
    Patch(zip, kCentral, 32, Bytes(comment.size(), 2));
    Patch(zip, kEndRecord, 12, Bytes(2 * (kHeaderSize + 1) + comment.size(), 4));

    const ZipStructure structure = StructureOf(zip);

    EXPECT_THAT(structure.faults, IsEmpty());
    ASSERT_EQ(structure.members.size(), 2U);
    EXPECT_EQ(structure.members[1].name, "b");
}

TEST(ZipDirectory, TellsExtraFieldsThatDoNotEndWhereTheyShould)
{
    const std::string good = Bytes(0x9999, 2) + Bytes(2, 2) + "ab";

    EXPECT_THAT(FlawsOf(StructureOf(WithExtra(good))), IsEmpty());
    EXPECT_THAT(FlawsOf(StructureOf(WithExtra(good + good))), IsEmpty());
    // Some bytes that are no field, a field that is longer than what is there, one cut in its head.
    EXPECT_THAT(FlawsOf(StructureOf(WithExtra(good + "x"))), ElementsAre(ZipFlaw::kExtraField));
    EXPECT_THAT(FlawsOf(StructureOf(WithExtra(Bytes(0x9999, 2) + Bytes(3, 2) + "ab"))),
                ElementsAre(ZipFlaw::kExtraField));
    EXPECT_THAT(FlawsOf(StructureOf(WithExtra(Bytes(0x9999, 2)))),
                ElementsAre(ZipFlaw::kExtraField));
    EXPECT_EQ(StructureOf(WithExtra("x")).faults.at(0).member, 0U);
}

TEST(ZipDirectory, TakesEachNumberFromItsPlaceInTheZip64Field)
{
    std::string zip = "leading" + WithExtra(Bytes(1, 2) + Bytes(24, 2) + Bytes(300, 8) +
                                            Bytes(200, 8) + Bytes(100, 8));
    Patch(zip, kCentral, 20, Bytes(0xffffffff, 4) + Bytes(0xffffffff, 4));
    Patch(zip, kCentral, 42, Bytes(0xffffffff, 4));

    const ZipStructure structure = StructureOf(zip);

    ASSERT_EQ(structure.members.size(), 2U);
    EXPECT_EQ(structure.members[0].size, 300U);
    EXPECT_EQ(structure.members[0].packedSize, 200U);
    EXPECT_EQ(structure.members[0].headerAt, 107U); // the bytes before the archive do not count
    EXPECT_FALSE(structure.Has(ZipFlaw::kZip64Extra));
}

TEST(ZipDirectory, WantsTheNumberOfTheDiskInTheZip64FieldWhereItDoesNotFit)
{
    const auto read = [](const std::string& field) {
        std::string zip = WithExtra(Bytes(1, 2) + Bytes(field.size(), 2) + field);
        Patch(zip, kCentral, 24, Bytes(0xffffffff, 4));
        Patch(zip, kCentral, 34, Bytes(0xffff, 2));
        return FlawsOf(StructureOf(zip));
    };

    EXPECT_THAT(read(Bytes(3, 8) + Bytes(0, 4)), IsEmpty());
    EXPECT_THAT(read(Bytes(3, 8) + Bytes(0, 3)), ElementsAre(ZipFlaw::kZip64Extra));
    EXPECT_THAT(read(Bytes(3, 8)), ElementsAre(ZipFlaw::kZip64Extra));
}

/// An archive with this many entries. All have the same local header, which is a fault of its own.
ZipStructure OfEntries(std::size_t count)
{
    std::string zip = ZipOf({{"a", ""}});
    const std::size_t at = zip.find(kCentral);
    const std::string header = zip.substr(at, zip.find(kEndRecord) - at);
    std::string directory;
    directory.reserve(header.size() * count);
    for (std::size_t i = 0; i < count; ++i) {
        directory += header;
    }
    zip.replace(at, header.size(), directory);
    Patch(zip, kEndRecord, 8, Bytes(count, 2) + Bytes(count, 2) + Bytes(directory.size(), 4));
    return StructureOf(zip);
}

TEST(ZipDirectory, KnowsOnlyTheLowBitsOfTheNumberOfEntries)
{
    for (const std::size_t count : {65535U, 65536U, 65537U}) {
        const ZipStructure structure = OfEntries(count);

        EXPECT_EQ(structure.members.size(), count);
        EXPECT_FALSE(structure.Has(ZipFlaw::kCount)) << count;
    }
}

TEST(ZipDirectory, ReadsNoMoreEntriesThanItsLimit)
{
    EXPECT_EQ(OfEntries(kMostZipMembers).members.size(), kMostZipMembers);

    const ZipStructure structure = OfEntries(kMostZipMembers + 1);

    EXPECT_TRUE(structure.Has(ZipFlaw::kTooMany));
    EXPECT_THAT(structure.members, IsEmpty());
}

/// Zeros, and something at their end.
class ZerosAnd final : public ByteSource
{
public:
    ZerosAnd(std::uint64_t zeros, std::string end) : m_zeros(zeros), m_end(std::move(end)) {}

    [[nodiscard]] std::uint64_t Size() const override { return m_zeros + m_end.size(); }
    [[nodiscard]] std::string Read(std::uint64_t offset, std::size_t count) const override
    {
        m_most = std::max(m_most, count);
        const std::uint64_t there = Size() - std::min(offset, Size());
        std::string bytes(static_cast<std::size_t>(std::min<std::uint64_t>(count, there)), '\0');
        for (std::size_t i = 0; i < m_end.size(); ++i) {
            if (m_zeros + i >= offset && m_zeros + i - offset < bytes.size()) {
                bytes[static_cast<std::size_t>(m_zeros + i - offset)] = m_end[i];
            }
        }
        return bytes;
    }

    /// The most bytes that were read at once.
    [[nodiscard]] std::size_t Most() const { return m_most; }

private:
    std::uint64_t m_zeros;
    std::string m_end;
    mutable std::size_t m_most = 0;
};

TEST(ZipDirectory, TellsEveryMomentAsTheLibraryCountsIt)
{
    constexpr unsigned kAll = 0x10000;
    constexpr unsigned kSpread = 7919; // the times of following days are far apart
    std::string zip = ZipOf({{"a", ""}});
    const std::size_t at = zip.find(kCentral) + 12;
    for (unsigned date = 0; date < kAll; ++date) {
        const unsigned time = date * kSpread % kAll;
        zip.replace(at, 4, Bytes(time, 2) + Bytes(date, 2));
        std::tm told{};
        told.tm_year = static_cast<int>(date >> 9) + 80;
        told.tm_mon = static_cast<int>(date >> 5 & 0xfU) - 1;
        told.tm_mday = static_cast<int>(date & 0x1fU);
        told.tm_hour = static_cast<int>(time >> 11);
        told.tm_min = static_cast<int>(time >> 5 & 0x3fU);
        told.tm_sec = static_cast<int>(time & 0x1fU) * 2;

        ASSERT_EQ(ReadZipStructure(MemoryBytes(zip)).members.at(0).moment, timegm(&told)) << date;
    }
}

TEST(ZipDirectory, ReadsNoMoreThanItIsTold)
{
    const std::string zip = ZipOf({{"a", "one"}, {"b", "two"}});
    const MemoryBytes bytes(zip);
    const std::uint64_t size = zip.size() - zip.find(kCentral) - 22;

    EXPECT_EQ(ReadZipStructure(bytes, {2, size}).members.size(), 2U);
    for (const ZipLimits& limits : {ZipLimits{1, size}, ZipLimits{2, size - 1}}) {
        const ZipStructure structure = ReadZipStructure(bytes, limits);
        EXPECT_TRUE(structure.Has(ZipFlaw::kTooMany));
        EXPECT_TRUE(structure.members.empty());
    }
}

TEST(ZipDirectory, IsNotReadWhenItIsTooLarge)
{
    const std::uint64_t size = kLargestZipDirectory + 1;
    const ZerosAnd bytes(size, kEndRecord + Bytes(0, 4) + Bytes(1, 2) + Bytes(1, 2) +
                                   Bytes(size, 4) + Bytes(0, 4) + Bytes(0, 2));

    const ZipStructure structure = ReadZipStructure(bytes);

    EXPECT_THAT(FlawsOf(structure), ElementsAre(ZipFlaw::kTooMany));
    EXPECT_LT(bytes.Most(), std::size_t{100000});
}

} // namespace

} // namespace kx::archive
