// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "archive/UnpackVerdict.h"
#include "archive/ZipOf.h"
#include "io/Error.h"
#include "io/TemporaryFile.h"
#include "io/Transfer.h"
#include "signature/Sha256.h"
#include "signature/SignedFile.h"
#include "signature/SignedOf.h"
#include "support/Thrown.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

namespace kx::signature
{

namespace
{

/// Bytes that tell which of them were read.
class WatchedBytes final : public archive::ByteSource
{
public:
    explicit WatchedBytes(std::string bytes) : m_bytes(std::move(bytes)) {}

    [[nodiscard]] std::uint64_t Size() const override { return m_bytes.size(); }
    [[nodiscard]] std::string Read(std::uint64_t offset, std::size_t count) const override
    {
        first = std::min(first, offset);
        total += count;
        return archive::MemoryBytes(m_bytes).Read(offset, count);
    }

    mutable std::uint64_t first = UINT64_MAX;
    mutable std::uint64_t total = 0;

private:
    std::string m_bytes;
};

std::string WithoutBlock(const std::string& bytes)
{
    const archive::MemoryBytes source(bytes);
    const io::Descriptor made = io::MakeTemporaryFile();
    SignedFile(source, "p").Write({}, made.Number(), "made");
    EXPECT_EQ(lseek(made.Number(), 0, SEEK_SET), 0);
    return io::ReadAll(made.Number(), 1U << 20, "made");
}

} // namespace

TEST(SignedFile, IsTheArchiveWithABlockBeforeItsDirectory)
{
    for (const std::string& zip : {SmallZip(), WithZip64End(SmallZip())}) {
        const std::string block = BytesOf(BlockFor(zip, {&EdKey()}));

        const std::string file = SignedBytes(zip, {&EdKey()});

        const std::size_t directoryAt = zip.find(archive::kCentral);
        EXPECT_EQ(file.size(), zip.size() + block.size());
        EXPECT_EQ(file.substr(0, directoryAt), zip.substr(0, directoryAt));
        EXPECT_EQ(file.substr(directoryAt, block.size()), block);
        EXPECT_EQ(WithoutBlock(file), zip);
        EXPECT_EQ(WithoutBlock(zip), zip);
    }
}

TEST(SignedFile, IsReadByArchiveReadersLikeTheArchive)
{
    for (const std::string& zip : {SmallZip(), WithZip64End(SmallZip())}) {
        const std::string file = SignedBytes(zip, {&EdKey(), &P256Key()});
        const archive::MemoryBytes source(file);

        const archive::ZipStructure structure = archive::ReadZipStructure(source);

        ASSERT_EQ(structure.faults.size(), 1U); // the gap
        EXPECT_TRUE(SignedFile(source, "p").IsBlock(structure.faults[0]));
        EXPECT_EQ(archive::JudgeUnpacking(source, structure).status, 0);
        EXPECT_EQ(structure.members.size(), 2U);
    }
}

TEST(SignedFile, HasTheDigestOfTheArchiveWithoutTheBlock)
{
    for (const std::string& zip : {SmallZip(), WithZip64End(SmallZip())}) {
        const std::string file = SignedBytes(zip, {&EdKey()});
        const archive::MemoryBytes source(file);

        const SignedFile signedFile(source, "p");

        EXPECT_EQ(signedFile.Digest(), Sha256Of(zip));
        EXPECT_EQ(signedFile.Length(), zip.size());
        EXPECT_EQ(signedFile.Signatures()->statement.digest, Sha256Of(zip));
        EXPECT_EQ(WhyRefused(file, Trusting({&EdKey()})), "");
    }
}

TEST(SignedFile, TakesFurtherSignaturesThatBreakNoneBefore)
{
    const std::string zip = SmallZip();
    const std::string once = SignedBytes(zip, {&EdKey()});

    const std::string twice = WithBlock(once, BlockFor(once, {&EdKey(), &P256Key()}));

    EXPECT_EQ(WhyRefused(twice, Trusting({&EdKey()})), "");
    EXPECT_EQ(WhyRefused(twice, Trusting({&P256Key()})), "");
    EXPECT_EQ(WithoutBlock(twice), zip);
}

TEST(SignedFile, ReadsEndRecordsAndBlockAndNothingElse)
{
    const std::string content(1U << 20, 'x');
    const std::string zip = archive::ZipOf({{"a", content}});
    const std::string file = SignedBytes(zip, {&EdKey(), &OtherEdKey(), &P256Key()});
    const WatchedBytes source(file);

    const SignedFile signedFile(source, "p");

    EXPECT_GE(source.first, zip.find(archive::kCentral));
    EXPECT_LE(source.total, signedFile.BlockSize() + 98 + 20);
}

TEST(SignedFile, TellsHowFarReadingCame)
{
    const std::string zip = archive::ZipOf({{"a", std::string(3U << 20, 'x')}});
    const archive::MemoryBytes source(zip);
    std::vector<std::uint64_t> told;

    static_cast<void>(
        SignedFile(source, "p").Digest([&](std::uint64_t at) { told.push_back(at); }));

    EXPECT_GE(told.size(), 4U);
    EXPECT_TRUE(std::is_sorted(told.begin(), told.end()));
    EXPECT_EQ(told.back(), zip.size() - 22);
}

TEST(SignedFile, RefusesArchivesThatHideSomething)
{
    // An entry of its own that the directory does not name.
    const std::string hidden = archive::ZipOf({{"evil", "evil"}});
    const std::string local = hidden.substr(0, hidden.find(archive::kCentral));
    std::string zip = SmallZip();
    const std::size_t directoryAt = zip.find(archive::kCentral);
    zip.insert(directoryAt, local);
    archive::Patch(zip, archive::kEndRecord, 16, archive::Bytes(directoryAt + local.size(), 4));
    // A second end record, in a place where an entry may have any bytes.
    archive::ZipPart part{"a", "one"};
    part.extra = archive::Bytes(0x7777, 2) + archive::Bytes(22, 2) + archive::kEndRecord +
                 std::string(18, '\0');

    for (const std::string& bad : {zip, archive::ZipOf({part})}) {
        EXPECT_EQ(WhyRefused(SignedBytes(bad, {&EdKey()}), Trusting({&EdKey()})),
                  "its archive holds more than its directory tells, or contradicts itself");
    }
}

TEST(SignedFile, KnowsWhichFaultIsItsBlock)
{
    const std::string zip = SignedBytes(SmallZip(), {&EdKey()});
    const archive::MemoryBytes source(zip);
    const SignedFile file(source, "p");
    archive::ZipStructure structure = archive::ReadZipStructure(source);

    EXPECT_EQ(file.BlockFault(structure), 0U);
    structure.faults.insert(structure.faults.begin(), {archive::ZipFlaw::kTrailing, 0, 1});
    EXPECT_EQ(file.BlockFault(structure), 1U);
    structure.faults.pop_back();
    EXPECT_EQ(file.BlockFault(structure), std::nullopt);
}

TEST(SignedFile, TellsOfAFileThatBecameShorter)
{
    class Shrinking final : public archive::ByteSource
    {
    public:
        [[nodiscard]] std::uint64_t Size() const override { return m_zip.size(); }
        [[nodiscard]] std::string Read(std::uint64_t offset, std::size_t count) const override
        {
            const std::string bytes = archive::MemoryBytes(m_zip).Read(offset, count);
            return offset == 0 ? bytes.substr(1) : bytes;
        }

    private:
        std::string m_zip = SmallZip();
    };
    const Shrinking source;

    EXPECT_EQ(Thrown([&] { static_cast<void>(SignedFile(source, "p").Digest()); }),
              "3: p: became shorter meanwhile");
}

} // namespace kx::signature
