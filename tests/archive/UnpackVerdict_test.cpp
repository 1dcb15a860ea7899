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
    ZipPart utf8 = kFile;
    utf8.flags = kZipUtf8;
    return {
        {"encrypted", With({encrypted}), 5, {R::kEncrypted}},
        {"newer", With({newer}), 81, {R::kVersion}},
        {"newest", With({known}), 0, {}},
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

std::vector<VerdictCase> ContentCases()
{
    ZipPart cut = DeflatedPart(std::string(1000, 'x') + "end");
    cut.packed.resize(cut.packed.size() - 3);
    // Where fewer packed bytes are told than there are, unzip runs for ever: no case here.
    ZipPart bzip2 = OfMethod(12, {"a", "a"});
    bzip2.packed = std::string("BZh91AY&SY\x19\x93\x9b\x6b\0\0\0\x01\0\x20\0\x20\0\x21\x18\x46\x82"
                               "\xee\x48\xa7\x0a\x12\x03\x32\x73\x6d\x60",
                               37);
    ZipPart followed = bzip2;
    followed.packed += "more";
    return {
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

std::vector<VerdictCase> StructureCases()
{
    return {
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

} // namespace

} // namespace kx::archive
