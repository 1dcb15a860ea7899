// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT

// Whatever is done to a signed package: it is refused, or only bytes of signatures by keys that are
// not known have changed.
#include "archive/ZipOf.h"
#include "signature/SignedOf.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>

namespace kx::signature
{

namespace
{

const std::vector<const PrivateKey*>& AllKeys()
{
    static const std::vector<const PrivateKey*> keys = {&EdKey(), &OtherEdKey(), &P256Key()};
    return keys;
}

std::string LargeZip()
{
    std::string content(16000, '\0');
    std::mt19937 numbers(1);
    for (char& byte : content) {
        byte = static_cast<char>(numbers());
    }
    return archive::ZipOf({{"a", content}, {"b/c", "two"}});
}

/// A signed package, and a panel that trusts some keys.
struct Target {
    std::string file;
    TrustedKeys trusted;
    std::size_t listAt;  ///< place of the first signature
    std::size_t listEnd; ///< place behind the last one

    Target(const std::string& zip, const std::vector<const PrivateKey*>& signers,
           const std::vector<const PrivateKey*>& known)
        : file(SignedBytes(zip, signers)), trusted(Trusting(known)),
          listAt(file.find(BlockFor(zip, signers).signatures.front().keyId)),
          listEnd(listAt + signers.size() * (kKeyIdSize + kSignatureSize))
    {
    }

    /// Tells whether a change of one bit is answered as it should be.
    [[nodiscard]] bool StandsBit(std::size_t bit)
    {
        const bool wasUnknown = IsUnknown(bit / 8);
        Flip(bit);
        const bool isTaken = WhyRefused(file, trusted).empty();
        const bool isUnknown = IsUnknown(bit / 8);
        Flip(bit);
        // Of a signature that stays one by an unknown key no change matters; and no other is taken
        // than one that makes it such a signature.
        return isTaken ? isUnknown : !(wasUnknown && isUnknown && IsInSignature(bit / 8));
    }

private:
    void Flip(std::size_t bit)
    {
        file[bit / 8] = static_cast<char>(file[bit / 8] ^ 1 << (bit % 8));
    }

    /// Tells whether a byte belongs to a signature by a key that is not known.
    [[nodiscard]] bool IsUnknown(std::size_t at) const
    {
        if (at < listAt || at >= listEnd) {
            return false;
        }
        const std::size_t entryAt = at - (at - listAt) % (kKeyIdSize + kSignatureSize);
        const std::string keyId = file.substr(entryAt, kKeyIdSize);
        return std::none_of(trusted.keys.begin(), trusted.keys.end(),
                            [&keyId](const TrustedKey& key) { return key.key.Id() == keyId; });
    }

    /// Tells whether a byte is one of a signature, and not of its key's identifier.
    [[nodiscard]] bool IsInSignature(std::size_t at) const
    {
        return (at - listAt) % (kKeyIdSize + kSignatureSize) >= kKeyIdSize;
    }
};

} // namespace

class Attacks : public ::testing::TestWithParam<bool>
{
protected:
    static std::string Zip() { return GetParam() ? WithZip64End(SmallZip()) : SmallZip(); }
    static std::string Large() { return GetParam() ? WithZip64End(LargeZip()) : LargeZip(); }

    static void ExpectEveryBitStands(Target target)
    {
        ASSERT_EQ(WhyRefused(target.file, target.trusted), "");
        for (std::size_t bit = 0; bit < target.file.size() * 8; ++bit) {
            ASSERT_TRUE(target.StandsBit(bit)) << "bit " << bit << " of " << target.file.size() * 8;
        }
    }

    static void ExpectDrawnBitsStand(Target target)
    {
        constexpr int kDrawn = 100000;
        ASSERT_EQ(WhyRefused(target.file, target.trusted), "");
        std::mt19937 numbers(2);
        std::uniform_int_distribution<std::size_t> bits(0, target.file.size() * 8 - 1);
        for (int i = 0; i < kDrawn; ++i) {
            const std::size_t bit = bits(numbers);
            ASSERT_TRUE(target.StandsBit(bit)) << "bit " << bit;
        }
    }

    static void ExpectRefused(const std::string& file, const std::string& what)
    {
        EXPECT_NE(WhyRefused(file, Trusting(AllKeys())), "") << what;
    }
};

TEST_P(Attacks, NoBitOfASmallPackageChangesUnnoticed)
{
    ExpectEveryBitStands({Zip(), {&EdKey()}, {&EdKey()}});
    ExpectEveryBitStands({Zip(), {&P256Key()}, {&P256Key()}});
    ExpectEveryBitStands({Zip(), AllKeys(), AllKeys()});
}

TEST_P(Attacks, OnlySignaturesByUnknownKeysChangeUnnoticed)
{
    ExpectEveryBitStands({Zip(), AllKeys(), {&OtherEdKey()}});
    ExpectEveryBitStands({Zip(), AllKeys(), {&P256Key()}});
}

TEST_P(Attacks, NoDrawnBitOfALargePackageChangesUnnoticed)
{
    ExpectDrawnBitsStand({Large(), {&EdKey()}, {&EdKey()}});
}

TEST_P(Attacks, NoDrawnBitOfALargePackageWithThreeSignaturesChangesUnnoticed)
{
    ExpectDrawnBitsStand({Large(), AllKeys(), AllKeys()});
}

TEST_P(Attacks, NothingIsCutOffOrAdded)
{
    const std::string file = SignedBytes(Zip(), AllKeys());
    for (std::size_t size = 0; size < file.size(); ++size) {
        ExpectRefused(file.substr(0, size), "cut at " + std::to_string(size));
        ExpectRefused(file.substr(file.size() - size), "the last " + std::to_string(size));
    }
    for (const std::string& more : {std::string(1, '\0'), std::string("x"), Zip(), file}) {
        ExpectRefused(more + file, "in front");
        ExpectRefused(file + more, "behind");
    }
    for (std::size_t at = 0; at <= file.size(); ++at) {
        std::string longer = file;
        longer.insert(at, 1, '\0');
        ExpectRefused(longer, "inserted at " + std::to_string(at));
        std::string shorter = file;
        shorter.erase(at, 1);
        if (at < file.size()) {
            ExpectRefused(shorter, "removed at " + std::to_string(at));
        }
    }
}

TEST_P(Attacks, TheBlockStandsOnceAndInItsPlace)
{
    const std::string zip = Zip();
    const Block block = BlockFor(zip, AllKeys());
    const std::string bytes = BytesOf(block);
    const std::string file = WithBlock(zip, block);
    const std::size_t directoryAt = zip.find(archive::kCentral);

    ExpectRefused(bytes + zip, "moved to the front");
    ExpectRefused(zip + bytes, "moved to the end");
    for (const std::size_t at : {std::size_t{0}, zip.find(archive::kLocal, 4), directoryAt,
                                 directoryAt + bytes.size(), file.size()}) {
        std::string doubled = file;
        doubled.insert(at, bytes);
        ExpectRefused(doubled, "doubled at " + std::to_string(at));
        // With end records that tell the directory's new place.
        std::string moved = zip;
        moved.insert(at <= zip.size() ? at : 0, bytes);
        ExpectRefused(moved, "moved to " + std::to_string(at));
    }
    // Two blocks, both in front of the directory, and end records that tell so.
    const std::string behind = WithBlock(zip, block).substr(directoryAt + bytes.size());
    const std::string once = file.substr(0, directoryAt + bytes.size());
    std::string twice = once + bytes + behind;
    archive::Patch(twice, archive::kEndRecord, 16, archive::Bytes(once.size() + bytes.size(), 4));
    if (GetParam()) {
        twice.replace(twice.size() - 6, 4, 4, '\xff');
        archive::Patch(twice, "PK\6\6", 48, archive::Bytes(once.size() + bytes.size(), 8));
        archive::Patch(twice, "PK\6\7", 8, archive::Bytes(twice.size() - 98, 8));
    }
    ExpectRefused(twice, "two blocks");
}

TEST_P(Attacks, PartsOfTwoPackagesMakeNoThird)
{
    const std::string one = Zip();
    std::string other = one;
    other.replace(other.find("one"), 3, "ONE");
    const Block block = BlockFor(one, AllKeys());
    const Block otherBlock = BlockFor(other, AllKeys());

    ExpectRefused(WithBlock(other, block), "the block of another package of the same size");
    Block mixed = block;
    mixed.signatures[0] = otherBlock.signatures[0];
    ExpectRefused(WithBlock(one, mixed), "a signature of another package");
    Block renamed = block;
    renamed.statement.name = "other";
    ExpectRefused(WithBlock(one, renamed), "another name");
    Block statement = block;
    statement.statement = otherBlock.statement;
    ExpectRefused(WithBlock(other, statement), "another statement");
}

TEST_P(Attacks, AKeyOfOneTypeHasNoSignaturesOfTheOther)
{
    const std::string zip = Zip();
    Block block = BlockFor(zip, {&EdKey()});
    block.signatures[0].bytes = P256Key().Sign(TextOf(block.statement));
    EXPECT_EQ(WhyRefused(WithBlock(zip, block), Trusting({&EdKey()})), "bad signature");
    block.signatures[0].keyId = P256Key().Public().Id();
    EXPECT_EQ(WhyRefused(WithBlock(zip, block), Trusting({&P256Key()})), "");
    block.signatures[0].bytes = EdKey().Sign(TextOf(block.statement));
    EXPECT_EQ(WhyRefused(WithBlock(zip, block), Trusting({&P256Key()})), "bad signature");
}

TEST_P(Attacks, AListWithoutSignaturesIsNoSignature)
{
    const std::string zip = Zip();
    Block block = BlockFor(zip, {&EdKey()});
    block.signatures.clear();

    EXPECT_EQ(WhyRefused(WithBlock(zip, block), Trusting(AllKeys())),
              "its block of signatures has no signature, or too many");
    EXPECT_EQ(WhyRefused(zip, Trusting(AllKeys())), "is not signed");
}

INSTANTIATE_TEST_SUITE_P(Kinds, Attacks, ::testing::Bool(),
                         [](const auto& kind) { return kind.param ? "Zip64" : "Zip"; });

} // namespace kx::signature
