// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "archive/ZipContent.h"
#include "archive/ZipOf.h"

#include <gtest/gtest.h>

namespace kx::archive
{

namespace
{

/// Reads the one entry of an archive.
ContentResult Read(const std::string& zip, std::string* text = nullptr,
                   std::uint64_t limit = 1 << 30)
{
    const MemoryBytes bytes(zip);
    const ZipStructure structure = ReadZipStructure(bytes);
    return ContentReader(bytes).Read(structure.members.at(0), limit,
                                     [text](std::string_view piece) {
                                         if (text != nullptr) {
                                             text->append(piece);
                                         }
                                         return true;
                                     });
}

TEST(ContentReader, GivesWhatWasPacked)
{
    const std::string text = std::string(1000000, 'x') + "end";
    std::string read;

    EXPECT_EQ(Read(ZipOf({DeflatedPart(text)}), &read).state, ContentState::kFine);
    EXPECT_EQ(read, text);

    read.clear();
    EXPECT_EQ(Read(ZipOf({{"a", text}}), &read).state, ContentState::kFine);
    EXPECT_EQ(read, text);
    EXPECT_EQ(Read(ZipOf({{"a", ""}})).state, ContentState::kFine);
}

TEST(ContentReader, UnpacksNotMuchMoreThanTheBeginningThatIsWanted)
{
    const std::string zip = ZipOf({DeflatedPart(std::string(1000000, 'x'))});
    const MemoryBytes bytes(zip);
    const ZipStructure structure = ReadZipStructure(bytes);
    const auto sizeOfFirstPiece = [&](std::uint64_t wanted) {
        std::size_t size = 0;
        const ContentResult result =
            ContentReader(bytes, wanted)
                .Read(structure.members.at(0), UINT64_MAX, [&size](std::string_view piece) {
                    size = piece.size();
                    return false;
                });
        EXPECT_EQ(result.state, ContentState::kTooLarge);
        return size;
    };

    EXPECT_EQ(sizeOfFirstPiece(0), 512);
    EXPECT_EQ(sizeOfFirstPiece(5), 512);
    EXPECT_EQ(sizeOfFirstPiece(10000), 10000);
    EXPECT_EQ(sizeOfFirstPiece(UINT64_MAX), 1U << 18U);
}

TEST(ContentReader, FindsDamagedBytes)
{
    std::string zip = ZipOf({DeflatedPart(std::string(1000, 'x') + "end")});
    zip[31] = '\x07';
    EXPECT_EQ(Read(zip).state, ContentState::kDamaged);

    ZipPart cut = DeflatedPart("some text that is long enough");
    cut.packed.resize(cut.packed.size() - 3);
    EXPECT_EQ(Read(ZipOf({cut})).state, ContentState::kDamaged);
}

TEST(ContentReader, FindsAWrongSumAndAWrongSize)
{
    std::string zip = ZipOf({{"a", "text"}});
    Patch(zip, kLocal, 14, "none");
    EXPECT_EQ(Read(zip).state, ContentState::kWrongCrc);

    zip = ZipOf({DeflatedPart("text")});
    Patch(zip, kLocal, 22, "\5");
    EXPECT_EQ(Read(zip).state, ContentState::kWrongSize);
}

TEST(ContentReader, StopsAtItsLimit)
{
    // NOLINTNEXTLINE(bugprone-string-constructor): as large as meant
    const std::string zeros(10000000, '\0');
    const ContentResult result = Read(ZipOf({DeflatedPart(zeros)}), nullptr, 1000000);

    EXPECT_EQ(result.state, ContentState::kTooLarge);
    EXPECT_LT(result.size, 1000000U + (1U << 18) + 1);
}

TEST(ContentReader, ReadsAllThatFitsItsLimitExactly)
{
    const std::string text(1000, 'x');

    EXPECT_EQ(Read(ZipOf({DeflatedPart(text)}), nullptr, 1000).state, ContentState::kFine);
    EXPECT_EQ(Read(ZipOf({{"a", text}}), nullptr, 1000).state, ContentState::kFine);
    EXPECT_EQ(Read(ZipOf({{"a", text}}), nullptr, 999).state, ContentState::kTooLarge);
}

TEST(ContentReader, DoesNotGuessAtUnknownMethods)
{
    ZipPart part{"a", "text"};
    part.method = 14;

    EXPECT_EQ(Read(ZipOf({part})).state, ContentState::kUnsupported);
    EXPECT_FALSE(IsReadableMethod(14));
}

TEST(ContentReader, BelievesTheDirectoryWhenTheSizesFollowTheContent)
{
    std::string zip = ZipOf({{"a", "text"}});
    Patch(zip, kLocal, 6, Bytes(kZipDescriptor, 2));
    Patch(zip, kLocal, 14, Bytes(0, 12));

    EXPECT_EQ(Read(zip).state, ContentState::kFine);
}

} // namespace

} // namespace kx::archive
