// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT

// What is said of archives, and what unzip itself says of them.
#include "archive/UnpackVerdict.h"
#include "archive/ZipOf.h"
#include "support/TempDir.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>

namespace kx::archive
{

namespace
{

/// Runs `unzip -o` on an archive in a folder of its own and returns its exit status.
int StatusOfUnzip(const std::string& zip)
{
    const TempDir folder;
    const std::string file = folder.Write("x.kx-update", zip);
    const std::string target = folder.MakeDir("x.temp");
    posix_spawn_file_actions_t streams;
    posix_spawn_file_actions_init(&streams);
    posix_spawn_file_actions_addopen(&streams, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&streams, 1, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&streams, 2, "/dev/null", O_WRONLY, 0);
    std::string words[] = {"unzip", "-o", file, "-d", target};
    char* const arguments[] = {words[0].data(), words[1].data(), words[2].data(),
                               words[3].data(), words[4].data(), nullptr};
    std::string locale = "LC_ALL=C.UTF-8";
    char* const environment[] = {locale.data(), nullptr};
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSID); // no terminal to ask for passwords
    pid_t child = 0;
    EXPECT_EQ(posix_spawn(&child, "/usr/bin/unzip", &streams, &attributes, arguments, environment),
              0);
    posix_spawn_file_actions_destroy(&streams);
    posix_spawnattr_destroy(&attributes);
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

UnpackVerdict Judged(const std::string& zip)
{
    const MemoryBytes bytes(zip);
    return JudgeUnpacking(bytes, ReadZipStructure(bytes));
}

/// Some archive with a file and a folder, and what is added to it.
std::string With(const std::vector<ZipPart>& more)
{
    std::vector<ZipPart> parts = more;
    parts.push_back({"dir/file", "three"});
    return ZipOf(parts);
}

ZipPart OfMethod(unsigned method, ZipPart part = {"a", "one"})
{
    part.method = method;
    return part;
}

ZipPart OfSystem(unsigned madeOn, const std::string& name)
{
    ZipPart part{name, "one"};
    part.madeOn = madeOn;
    return part;
}

std::string Patched(std::string zip, const char* mark, std::size_t offset, const std::string& bytes)
{
    Patch(zip, mark, offset, bytes);
    return zip;
}

/// A path of many folders.
std::string LongPath(std::size_t size)
{
    std::string path;
    while (path.size() + 200 < size) {
        path += std::string(99, 'd') + '/';
    }
    return path + std::string(size - path.size(), 'f');
}

struct VerdictCase {
    const char* name;
    std::string zip;
    int status; ///< unzip's own
    std::vector<UnpackReason> reasons;
};

void PrintTo(const VerdictCase& row, std::ostream* out)
{
    *out << row.name;
}

// Entries that the cases add to.
const ZipPart kFile{"a", "one"};
const ZipPart kLink{"l", "a", 0120777};

using R = UnpackReason;

std::vector<VerdictCase> NameCases()
{
    return {
        {"nothing", ZipOf({}), 1, {R::kEmpty}},
        {"good", With({kFile, {"empty/", "", 040755}, kLink}), 0, {}},
        {"backslashDos", With({OfSystem(0, "x\\y")}), 1, {R::kBackslash}},
        {"backslashOnly", With({OfSystem(0, "x\\")}), 1, {R::kBackslash}},
        {"backslashAndSlash", With({OfSystem(0, "x\\y/z")}), 0, {}},
        {"backslashUnix", With({OfSystem(3, "x\\y")}), 0, {}},
        {"absolute", With({{"/a", "one"}}), 1, {R::kAbsolute}},
        {"up", With({{"../a", "one"}}), 1, {R::kUp}},
        {"upInside", With({{"q/../a", "one"}}), 1, {R::kUp}},
        {"upAlone", With({{"../", "", 040755}}), 1, {R::kUp}},
        {"here", With({{"./", "", 040755}, {"./q", "q"}}), 0, {}},
        {"rootAlone", With({{"/", "", 040755}}), 2, {R::kAbsolute, R::kNoName}},
        {"controlAlone", With({{"\1", "x"}}), 2, {R::kNoName}},
        {"versionAlone", With({{";1", "x"}}), 2, {R::kNoName}},
        {"dotFile", With({{".", "x"}, {"q/..", "x"}}), 0, {}},
        {"longestPart", With({{std::string(255, 'n'), "x"}}), 0, {}},
        {"longestPath", With({{LongPath(4000), "x"}}), 0, {}},
        {"longPart", With({{std::string(256, 'n'), "x"}}), 50, {R::kLongName}},
        {"diskLabel", Patched(With({OfSystem(0, "LABEL")}), kCentral, 38, "\x08"), 0, {}},
        {"twice", With({kFile, {"a", "two"}}), 0, {}},
        {"folderTwice", With({{"q/", "", 040755}, {"q/", "", 040755}}), 0, {}},
        {"folderAfterwards", With({{"q/r", "r"}, {"q-r", "x"}, {"q/", "", 040755}}), 0, {}},
        {"fileBeforeFolder", With({kFile, {"a/", "", 040755}}), 2, {R::kConflict}},
        {"folderBeforeFile", With({{"a/", "", 040755}, kFile}), 50, {R::kConflict}},
        {"belowFile", With({kFile, {"a-b", "x"}, {"a/c", "y"}}), 2, {R::kConflict}},
        {"fileAbove", With({{"a/c", "y"}, {"a-b", "x"}, kFile}), 50, {R::kConflict}},
        {"neighbours", With({{"a-b", "x"}, {"a!", "x"}, {"a/c", "y"}, {"a.c", "y"}}), 0, {}},
        {"farNeighbours",
         With({{"a", "1"}, {"a!/b", "2"}, {"a-b", "3"}, {"a.d", "4"}, {"a/b/c", "5"}}),
         2,
         {R::kConflict}},
        {"belowLink", With({kFile, kLink, {"l/x", "1"}}), 2, {R::kConflict}},
        {"linkAbove", With({{"l/x", "1"}, kLink}), 50, {R::kConflict}},
        {"conflictByBackslash",
         With({{"x", "1"}, OfSystem(0, "x\\y")}),
         2,
         {R::kBackslash, R::kConflict}},
        {"conflictByUp", With({{"x", "1"}, {"../x/y", "1"}}), 2, {R::kUp, R::kConflict}},
    };
}

std::vector<VerdictCase> HeaderCases()
{
    ZipPart encrypted{"a", std::string(40, 'x')};
    encrypted.flags = kZipEncrypted;
    encrypted.packed = std::string(52, 'x'); // the encryption's own 12 bytes come first
    ZipPart newer = kFile;
    newer.version = 47;
    ZipPart known = kFile;
    known.version = 46;
    ZipPart ofSystem = kFile;
    ofSystem.version = 3U << 8 | 20;
    ZipPart utf8 = kFile;
    utf8.flags = kZipUtf8;
    return {
        {"encrypted", With({encrypted}), 5, {R::kEncrypted}},
        {"newer", With({newer}), 81, {R::kVersion}},
        {"newest", With({known}), 0, {}},
        {"versionOfSystem", With({ofSystem}), 0, {}},
        {"lzma", With({OfMethod(14)}), 81, {R::kMethod}},
        {"lzmaFolder", With({OfMethod(14, {"a/", "", 040755})}), 81, {R::kMethod}},
        {"aes", With({OfMethod(99)}), 81, {R::kMethod}},
        {"tokenized", With({OfMethod(7)}), 81, {R::kMethod}},
        {"reduced", With({OfMethod(2)}), 81, {R::kMethod}},
        {"ownMethod", Patched(With({kFile}), kLocal, 8, "\x0e"), 1, {R::kLocalMethod}},
        {"ownMethodOfFolder", Patched(With({{"a/", "", 040755}}), kLocal, 8, Bytes(99, 2)), 0, {}},
        {"otherName", Patched(With({kFile}), kLocal, 30, "b"), 1, {R::kLocalName}},
        {"otherSet", Patched(With({utf8}), kLocal, 6, Bytes(0, 2)), 1, {R::kLocalUtf8}},
        {"twoSizes",
         Patched(Patched(With({kFile}), kLocal, 22, "\5"), kCentral, 24, "\5"),
         1,
         {R::kStoredSizes, R::kWrongSize}},
        {"twoSizesOfFolder",
         Patched(With({{"a/", "", 040755}}), kLocal, 22, "\5"),
         1,
         {R::kStoredSizes}},
    };
}

std::vector<VerdictCase> PackedCases()
{
    // Where fewer packed bytes are told than there are, unzip runs for ever: no case here.
    ZipPart bzip2 = OfMethod(12, {"a", "a"});
    bzip2.packed = std::string("BZh91AY&SY\x19\x93\x9b\x6b\0\0\0\x01\0\x20\0\x20\0\x21\x18\x46\x82"
                               "\xee\x48\xa7\x0a\x12\x03\x32\x73\x6d\x60",
                               37);
    ZipPart followed = bzip2;
    followed.packed += "more";
    // Three codes of nine bits.
    ZipPart shrunk = OfMethod(1);
    shrunk.packed = Bytes('o' | 'n' << 9 | 'e' << 18, 4);
    return {
        {"shrunk", With({shrunk}), 0, {R::kUnchecked}},
        {"bzip2", With({bzip2}), 0, {}},
        {"bzip2AndMore", With({followed}), 0, {}},
        {"bzip2OfMoreThanThereIs",
         Patched(With({bzip2}), kLocal, 18, Bytes(40, 4)),
         12,
         {R::kStructure}},
        {"deflatedOfMoreThanThereIs",
         Patched(With({DeflatedPart("text")}), kLocal, 18, Bytes(40, 4)),
         0,
         {}},
        {"deflatedOfMoreInTheDirectory",
         Patched(With({DeflatedPart("text")}), kCentral, 20, Bytes(40, 4)),
         0,
         {}},
        {"deflatedOfLessInTheDirectory",
         Patched(With({DeflatedPart("text")}), kCentral, 20, Bytes(1, 4)),
         0,
         {R::kStructure}},
        {"deflatedOfLess",
         Patched(With({DeflatedPart(std::string(1000, 'x') + "end")}), kLocal, 18, Bytes(3, 4)),
         2,
         {R::kStructure, R::kDamaged}},
        {"deflatedOfMoreThanTheFileHas",
         Patched(With({DeflatedPart("text")}), kLocal, 18, Bytes(4000, 4)),
         0,
         {}},
        {"storedOfMoreInTheDirectory", Patched(With({kFile}), kCentral, 20, Bytes(40, 4)), 0, {}},
    };
}

std::vector<VerdictCase> ContentCases()
{
    ZipPart cut = DeflatedPart(std::string(1000, 'x') + "end");
    cut.packed.resize(cut.packed.size() - 3);
    return {
        {"deflated", With({DeflatedPart("text")}), 0, {}},
        {"deflated64", With({OfMethod(9, DeflatedPart("text"))}), 0, {}},
        {"deflated64Damaged",
         Patched(With({OfMethod(9, DeflatedPart("text"))}), kLocal, 31, "\x07"),
         2,
         {R::kDamaged}},
        {"sum", Patched(With({kFile}), kLocal, 14, "none"), 2, {R::kWrongCrc}},
        {"sumOfLink", Patched(With({kLink}), kLocal, 14, "none"), 2, {R::kWrongCrc}},
        {"sumOfFolder", Patched(With({{"a/", "", 040755}}), kLocal, 14, "none"), 0, {}},
        {"sumOfLabel",
         Patched(Patched(With({OfSystem(0, "L")}), kLocal, 14, "none"), kCentral, 38, "\x08"),
         0,
         {}},
        {"damaged", Patched(With({DeflatedPart("text")}), kLocal, 31, "\x07"), 2, {R::kDamaged}},
        {"cut", With({cut}), 2, {R::kDamaged}},
        {"noBytes", With({OfMethod(8, {"a", ""})}), 2, {R::kDamaged}},
        {"wrongSize",
         Patched(With({DeflatedPart("text")}), kLocal, 22, "\x09"),
         0,
         {R::kWrongSize}},
        {"sumAndAbsolute",
         Patched(With({{"/a", "one"}}), kLocal, 14, "none"),
         2,
         {R::kAbsolute, R::kWrongCrc}},
    };
}

/// An archive of that size with an end record that begins so many bytes before its end.
std::string WithEnd(std::size_t distance, std::size_t size)
{
    constexpr std::size_t kEndSize = 22;
    const std::size_t around = ZipOf({{"a", ""}}).size() - kEndSize;
    return ZipOf({{"a", std::string(size - around - distance, 'x')}}) +
           std::string(distance - kEndSize, '\0');
}

/// unzip reads whole blocks of 8,192 bytes from the end on, until they are 66,000 bytes or more.
std::vector<VerdictCase> EndCases()
{
    constexpr std::size_t kBlock = 8192;
    constexpr std::size_t kExact =
        66000 % kBlock; // bytes in the last block: seven more fit exactly
    const std::size_t blocks = 40 * kBlock;
    return {
        // Where a comment of the greatest length would begin, and further.
        {"asFarAsComments", WithEnd(65557, blocks + kExact), 0, {R::kStructure}},
        {"furtherThanComments", WithEnd(65558, blocks + kExact), 0, {R::kStructure}},
        {"inTheExactBlocks", WithEnd(66000, blocks + kExact), 0, {R::kStructure}},
        {"beforeTheExactBlocks", WithEnd(66001, blocks + kExact), 9, {R::kStructure}},
        {"inOneByteMore", WithEnd(66001, blocks + kExact + 1), 0, {R::kStructure}},
        {"beforeOneByteMore", WithEnd(66002, blocks + kExact + 1), 9, {R::kStructure}},
        {"inAnotherBlock", WithEnd(66000 + kBlock - 1, blocks + kExact - 1), 0, {R::kStructure}},
        {"beforeAnotherBlock", WithEnd(66000 + kBlock, blocks + kExact - 1), 9, {R::kStructure}},
        {"inWholeBlocks", WithEnd(9 * kBlock, blocks), 0, {R::kStructure}},
        {"beforeWholeBlocks", WithEnd(9 * kBlock + 1, blocks), 9, {R::kStructure}},
        {"inASmallFile", WithEnd(60000, 65000), 0, {R::kStructure}},
    };
}

/// A deflated entry and what follows its content instead of the sizes in its header, then another.
std::string Followed(const std::string& descriptor)
{
    std::string zip = ZipOf({DeflatedPart("some text")});
    const std::size_t directory = zip.find(kCentral);
    const ZipPart next{"b", "two"};
    std::string both = ZipOf({DeflatedPart("some text"), next});
    Patch(both, kLocal, 6, Bytes(kZipDescriptor, 2));
    Patch(both, kLocal, 14, Bytes(0, 12));
    both.insert(directory, descriptor);
    Patch(both, kCentral, 42, Bytes(directory + descriptor.size(), 4), 1);
    Patch(both, kEndRecord, 16, Bytes(both.find(kCentral), 4));
    return both;
}

std::vector<VerdictCase> DescriptorCases()
{
    const std::string text = "some text";
    const std::string mark = "PK\7\x08";
    const std::string sum = ZipOf({{"a", text}}).substr(14, 4);
    const std::string sizes = Bytes(Deflated(text).size(), 4) + Bytes(text.size(), 4);
    const std::string longSizes = Bytes(Deflated(text).size(), 8) + Bytes(text.size(), 8);
    return {
        {"marked", Followed(mark + sum + sizes), 0, {}},
        {"unmarked", Followed(sum + sizes), 0, {}},
        {"wrongSum", Followed(mark + "none" + sizes), 0, {}},
        {"wrongSumUnmarked", Followed("none" + sizes), 0, {}},
        {"wrongSizes", Followed(mark + sum + Bytes(1, 4) + Bytes(1, 4)), 0, {}},
        {"longSizes", Followed(mark + sum + longSizes), 0, {}},
        {"none", Followed(""), 12, {R::kStructure}},
    };
}

std::vector<VerdictCase> StructureCases()
{
    ZipPart oddField = kFile;
    oddField.extra = "x";
    return {
        {"oddField", With({oddField}), 0, {R::kStructure}},
        {"leading", "MZ" + With({kFile}), 1, {R::kStructure}},
        {"trailing", With({kFile}) + "more", 0, {R::kStructure}},
        {"disk", Patched(With({kFile}), kEndRecord, 4, "\2"), 1, {R::kStructure}},
        {"otherDisk", Patched(With({kFile}), kEndRecord, 6, "\2"), 0, {R::kStructure}},
        {"comment", Patched(With({kFile}), kEndRecord, 20, "\2"), 1, {R::kStructure}},
        {"text", "text", 9, {R::kStructure}},
        {"count",
         Patched(Patched(With({kFile}), kEndRecord, 8, "\3"), kEndRecord, 10, "\3"),
         3,
         {R::kStructure}},
        {"noHeader", Patched(With({kFile}), kLocal, 0, "x"), 2, {R::kStructure, R::kStructure}},
        {"shared", Patched(With({kFile}), kLocal, 18, "\5"), 12, {R::kStructure, R::kStoredSizes}},
    };
}

class Verdict : public testing::TestWithParam<VerdictCase>
{
};

TEST_P(Verdict, IsThatOfUnzip)
{
    const VerdictCase& row = GetParam();

    const UnpackVerdict verdict = Judged(row.zip);

    std::vector<UnpackReason> reasons;
    for (const UnpackFault& fault : verdict.faults) {
        reasons.push_back(fault.reason);
    }
    EXPECT_EQ(reasons, row.reasons);
    EXPECT_EQ(verdict.status, row.status);
    EXPECT_EQ(StatusOfUnzip(row.zip), row.status);
}

std::string NameOf(const testing::TestParamInfo<VerdictCase>& row)
{
    return row.param.name;
}

INSTANTIATE_TEST_SUITE_P(Names, Verdict, testing::ValuesIn(NameCases()), NameOf);
INSTANTIATE_TEST_SUITE_P(Headers, Verdict, testing::ValuesIn(HeaderCases()), NameOf);
INSTANTIATE_TEST_SUITE_P(Contents, Verdict, testing::ValuesIn(ContentCases()), NameOf);
INSTANTIATE_TEST_SUITE_P(Packed, Verdict, testing::ValuesIn(PackedCases()), NameOf);
INSTANTIATE_TEST_SUITE_P(Descriptors, Verdict, testing::ValuesIn(DescriptorCases()), NameOf);
INSTANTIATE_TEST_SUITE_P(Ends, Verdict, testing::ValuesIn(EndCases()), NameOf);
INSTANTIATE_TEST_SUITE_P(Structures, Verdict, testing::ValuesIn(StructureCases()), NameOf);

TEST(UnpackVerdict, TellsOfWhichEntry)
{
    const UnpackVerdict verdict = Judged(Patched(With({kFile}), kLocal, 14, "none"));

    ASSERT_EQ(verdict.faults.size(), 1U);
    EXPECT_EQ(verdict.faults[0].index, 0U);
    EXPECT_EQ(verdict.faults[0].status, 2);
    EXPECT_TRUE(verdict.Has(UnpackReason::kWrongCrc));
    EXPECT_FALSE(verdict.Has(UnpackReason::kDamaged));
}

TEST(UnpackVerdict, LeavesRoomForTheFolderInFrontOfAPath)
{
    // unzip cuts what is longer than the system takes, and the file is not where it should be.
    EXPECT_FALSE(Judged(With({{LongPath(4000), "x"}})).Has(UnpackReason::kLongName));
    EXPECT_TRUE(Judged(With({{LongPath(4001), "x"}})).Has(UnpackReason::kLongName));
}

TEST(UnpackVerdict, KnowsMethodsThatItCannotFollow)
{
    const UnpackVerdict verdict = Judged(With({OfMethod(6)})); // imploded

    EXPECT_EQ(verdict.status, 0);
    ASSERT_EQ(verdict.faults.size(), 1U);
    EXPECT_EQ(verdict.faults[0].reason, UnpackReason::kUnchecked);
}

TEST(UnpackVerdict, DoesNotReadArchivesWithTooManyEntries)
{
    const std::string zip = With({kFile});
    ZipStructure structure = ReadZipStructure(MemoryBytes(zip));
    structure.Report(ZipFlaw::kTooMany);
    structure.members[0].local.crc = 0; // would be found

    const UnpackVerdict verdict = JudgeUnpacking(MemoryBytes(zip), structure);

    EXPECT_EQ(verdict.status, 50);
    EXPECT_EQ(verdict.faults.size(), 1U);
}

TEST(UnpackVerdict, DoesNotReadWhatUnpacksToTooMuchAltogether)
{
    // Loosely packed, as it is told, so that only the sum is too large.
    ZipPart part{"a", ""};
    part.content.resize(25000000, 'x');
    part.method = 8;
    ZipPart second = part;
    second.name = "b";
    ZipPart third = part;
    third.name = "c";
    std::string zip = ZipOf({part, second, third});
    for (std::size_t nth = 0; nth < 3; ++nth) {
        Patch(zip, kLocal, 22, Bytes(0xfffffffe, 4), nth);
    }

    const UnpackVerdict verdict = Judged(zip);

    EXPECT_EQ(verdict.status, 50);
    ASSERT_EQ(verdict.faults.size(), 1U);
    EXPECT_EQ(verdict.faults[0].reason, UnpackReason::kBomb);
    EXPECT_EQ(verdict.faults[0].amount, std::uint64_t{3} * 0xfffffffe);
}

TEST(UnpackVerdict, DoesNotReadOnWhereAnEntryLies)
{
    // NOLINTNEXTLINE(bugprone-string-constructor): as large as meant
    ZipPart part = DeflatedPart(std::string((std::size_t{64} << 20) + 1000000, '\0'));
    std::string zip = ZipOf({part});
    Patch(zip, kLocal, 22, Bytes(5, 4));

    const UnpackVerdict verdict = Judged(zip);

    EXPECT_EQ(verdict.status, 50);
    EXPECT_TRUE(verdict.Has(UnpackReason::kLiar));
}

TEST(UnpackVerdict, DoesNotReadWhatUnpacksToAnEnormousSize)
{
    // NOLINTNEXTLINE(bugprone-string-constructor): as large as meant, and no deflated content
    ZipPart part{"a", std::string(20000000, 'x')};
    part.method = 8;
    std::string zip = ZipOf({part});
    Patch(zip, kLocal, 22, Bytes(0xfffffffe, 4));

    const UnpackVerdict verdict = Judged(zip);

    EXPECT_EQ(verdict.status, 50);
    ASSERT_EQ(verdict.faults.size(), 1U);
    EXPECT_EQ(verdict.faults[0].reason, UnpackReason::kBomb);
}

TEST(UnpackVerdict, ReadsNoMoreThanItIsTold)
{
    const std::string zip = ZipOf({{"a", "one"}, {"b", "two"}, {"c", "three"}});
    std::string wrong = zip;
    Patch(wrong, kLocal, 14, Bytes(1, 4), 2);
    const MemoryBytes bytes(wrong);
    const ZipStructure structure = ReadZipStructure(bytes);

    EXPECT_TRUE(JudgeUnpacking(bytes, structure, 11).Has(UnpackReason::kWrongCrc));
    EXPECT_FALSE(JudgeUnpacking(bytes, structure, 6).Has(UnpackReason::kWrongCrc));
    EXPECT_TRUE(JudgeUnpacking(bytes, structure, 5).Has(UnpackReason::kLiar));
}

TEST(JudgeHeaders, SaysTheSameButForContents)
{
    std::string zip = ZipOf({OfMethod(99, {"b", "two"}), {"/a", "one"}});
    Patch(zip, kLocal, 14, Bytes(1, 4), 1);
    const MemoryBytes bytes(zip);
    const ZipStructure structure = ReadZipStructure(bytes);

    const UnpackVerdict headers = JudgeHeaders(bytes, structure);

    EXPECT_EQ(headers.status, 81);
    EXPECT_TRUE(headers.Has(UnpackReason::kMethod));
    EXPECT_TRUE(headers.Has(UnpackReason::kAbsolute));
    EXPECT_FALSE(headers.Has(UnpackReason::kWrongCrc));
    EXPECT_TRUE(JudgeUnpacking(bytes, structure).Has(UnpackReason::kWrongCrc));
}

} // namespace

} // namespace kx::archive
