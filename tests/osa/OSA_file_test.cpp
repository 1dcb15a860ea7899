// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "osa/CallHooks.h"
#include "osa/OSA.h"
#include "support/TempDir.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <type_traits>

#include <sys/stat.h>
#include <unistd.h>

using namespace std::string_literals;
namespace fs = std::filesystem;

namespace
{

/// A buffer that frees its block, as every owner must.
struct OwnedBuffer : SefetyTextBuffer {
    OwnedBuffer() = default;
    OwnedBuffer(const OwnedBuffer&) = delete;
    OwnedBuffer& operator=(const OwnedBuffer&) = delete;
    ~OwnedBuffer() { std::free(data); }

    /// The block without its last byte, the terminating zero.
    [[nodiscard]] std::string Text() const { return {data, size - 1}; }
};

/// A file of @p size bytes that occupies no space.
std::string WriteSparse(const TempDir& dir, off_t size)
{
    std::string path = dir.Write("sparse", "");
    EXPECT_EQ(truncate(path.c_str(), size), 0);
    return path;
}

/// What the file tests say of one path.
struct FileKind {
    bool isExisting;
    bool isDir;
    int size;

    bool operator==(const FileKind& other) const
    {
        return isExisting == other.isExisting && isDir == other.isDir && size == other.size;
    }
    friend void PrintTo(const FileKind& kind, std::ostream* out)
    {
        *out << "exists " << kind.isExisting << " dir " << kind.isDir << " size " << kind.size;
    }
};

FileKind KindOf(const std::string& path)
{
    return {OSA_IsFileExist(path.c_str()), OSA_IsDir(path.c_str()), OSA_FileSize(path.c_str())};
}

} // namespace

TEST(OsaFileTests, TellARegularFile)
{
    const TempDir dir;

    EXPECT_EQ(KindOf(dir.Write("f", "12345")), (FileKind{true, false, 5}));
    EXPECT_EQ(KindOf(dir.Write("empty", "")), (FileKind{true, false, 0}));
    EXPECT_EQ(KindOf(dir.Write("zero bytes", "\0\0"s)), (FileKind{true, false, 2}));
}

TEST(OsaFileTests, GiveAFolderNoSize)
{
    const TempDir dir;

    EXPECT_EQ(KindOf(dir.Path()), (FileKind{true, true, -1}));
    EXPECT_EQ(KindOf(dir.Path() + "/"), (FileKind{true, true, -1}));
    EXPECT_EQ(KindOf("/"), (FileKind{true, true, -1}));
}

TEST(OsaFileTests, GiveADeviceNoSize)
{
    EXPECT_EQ(KindOf("/dev/null"), (FileKind{true, false, -1}));
}

TEST(OsaFileTests, GiveAFifoNoSize)
{
    const TempDir dir;
    ASSERT_EQ(mkfifo((dir / "fifo").c_str(), 0600), 0);

    EXPECT_EQ(KindOf(dir / "fifo"), (FileKind{true, false, -1}));
}

TEST(OsaFileTests, FollowLinks)
{
    const TempDir dir;
    dir.Write("file", "123");
    fs::create_symlink("file", dir / "to file");
    fs::create_symlink(".", dir / "to folder");
    fs::create_symlink("missing", dir / "to nothing");
    fs::create_symlink("to itself", dir / "to itself");

    EXPECT_EQ(KindOf(dir / "to file"), (FileKind{true, false, 3}));
    EXPECT_EQ(KindOf(dir / "to folder"), (FileKind{true, true, -1}));
    EXPECT_EQ(KindOf(dir / "to nothing"), (FileKind{false, false, -1}));
    EXPECT_EQ(KindOf(dir / "to itself"), (FileKind{false, false, -1}));
}

TEST(OsaFileTests, RefuseAPathThatCannotBeExamined)
{
    const TempDir dir;
    const std::string file = dir.Write("file", "123");

    EXPECT_EQ(KindOf(""), (FileKind{false, false, -1}));
    EXPECT_EQ(KindOf(dir / "missing"), (FileKind{false, false, -1}));
    EXPECT_EQ(KindOf(file + "/below"), (FileKind{false, false, -1}));
    EXPECT_EQ(KindOf(file + "/"), (FileKind{false, false, -1}));
    EXPECT_EQ(KindOf(dir / std::string(5000, 'n')), (FileKind{false, false, -1}));
}

TEST(OsaFileTests, TakeOddNamesAsTheyAre)
{
    const TempDir dir;

    for (const std::string name : {"%s%n", "a b", "\"q\"", "$HOME", "\xFF\xFE", "a\\b", "-rf"}) {
        EXPECT_EQ(KindOf(dir.Write(name, "1234")), (FileKind{true, false, 4})) << name;
    }
}

TEST(OsaFileSize, TellsTheLargestSizeThatAnIntHolds)
{
    const TempDir dir;

    EXPECT_EQ(OSA_FileSize(WriteSparse(dir, INT_MAX).c_str()), 2147483647);
}

TEST(OsaFileSize, RefusesALargerFile)
{
    const TempDir dir;

    EXPECT_EQ(OSA_FileSize(WriteSparse(dir, off_t{INT_MAX} + 1).c_str()), -1);
    // Cut to an int, this size would look like five bytes.
    EXPECT_EQ(OSA_FileSize(WriteSparse(dir, (off_t{1} << 32) + 5).c_str()), -1);
}

TEST(OsaReadTextFile, ReadsTheWholeFileAndAddsAZero)
{
    const TempDir dir;
    OwnedBuffer buf;

    EXPECT_EQ(OSA_ReadTextFile(dir.Write("f", "two\nlines\n").c_str(), buf), 0);

    EXPECT_EQ(buf.size, 11U);
    EXPECT_STREQ(buf.data, "two\nlines\n");
}

TEST(OsaReadTextFile, ConvertsNothing)
{
    const TempDir dir;
    const std::string bytes = "\xEF\xBB\xBF a\r\nb\r \x1A \xFF\xFE \0 behind\n\n"s;
    OwnedBuffer buf;

    EXPECT_EQ(OSA_ReadTextFile(dir.Write("f", bytes).c_str(), buf), 0);

    EXPECT_EQ(buf.size, bytes.size() + 1);
    EXPECT_EQ(buf.Text(), bytes);
    EXPECT_EQ(buf.data[bytes.size()], '\0');
}

TEST(OsaReadTextFile, ReadsAnEmptyFileAsOneZeroByte)
{
    const TempDir dir;
    OwnedBuffer buf;

    EXPECT_EQ(OSA_ReadTextFile(dir.Write("f", "").c_str(), buf), 0);

    EXPECT_EQ(buf.size, 1U);
    EXPECT_EQ(buf.data[0], '\0');
}

TEST(OsaReadTextFile, ReadsAFileOfManyBlocks)
{
    const TempDir dir;
    std::string bytes;
    while (bytes.size() < 1000000) {
        bytes += std::to_string(bytes.size()) + "\n";
    }
    OwnedBuffer buf;

    EXPECT_EQ(OSA_ReadTextFile(dir.Write("f", bytes).c_str(), buf), 0);

    EXPECT_EQ(buf.Text(), bytes);
}

TEST(OsaReadTextFile, AllocatesNothingForAFolder)
{
    const TempDir dir;
    OwnedBuffer buf;

    EXPECT_EQ(OSA_ReadTextFile(dir.Path().c_str(), buf), 1002);

    EXPECT_EQ(buf.size, 0U);
    EXPECT_EQ(buf.data, nullptr);
}

TEST(OsaReadTextFile, AllocatesNothingForAMissingFile)
{
    const TempDir dir;
    OwnedBuffer buf;

    EXPECT_EQ(OSA_ReadTextFile((dir / "missing").c_str(), buf), 1002);

    EXPECT_EQ(buf.size, 0U);
    EXPECT_EQ(buf.data, nullptr);
}

TEST(OsaReadTextFile, LeavesAnEarlierBlockAloneWhenThereIsNothingToRead)
{
    const TempDir dir;
    OwnedBuffer buf;
    ASSERT_EQ(OSA_ReadTextFile(dir.Write("f", "kept").c_str(), buf), 0);

    EXPECT_EQ(OSA_ReadTextFile((dir / "missing").c_str(), buf), 1002);

    EXPECT_EQ(buf.Text(), "kept");
}

TEST(OsaReadTextFile, LeavesTheBlockToTheOwnerWhenTheFileVanishesBeforeItIsOpened)
{
    const TempDir dir;
    const std::string path = dir.Write("f", "12345");
    OwnedBuffer buf;
    CallHooks hooks;
    hooks.BeforeMalloc([&path] { fs::remove(path); });

    EXPECT_EQ(OSA_ReadTextFile(path.c_str(), buf), 1002);

    EXPECT_EQ(buf.size, 6U);
    EXPECT_NE(buf.data, nullptr);
}

TEST(OsaReadTextFile, FailsWhenTheFileShrinksBeforeItIsRead)
{
    const TempDir dir;
    const std::string path = dir.Write("f", "12345");
    OwnedBuffer buf;
    CallHooks hooks;
    hooks.BeforeMalloc([&path] { fs::resize_file(path, 4); });

    EXPECT_EQ(OSA_ReadTextFile(path.c_str(), buf), 1002);

    EXPECT_EQ(buf.size, 6U);
    EXPECT_NE(buf.data, nullptr);
}

TEST(OsaReadTextFile, ReadsTheSizeItSawWhenTheFileGrowsMeanwhile)
{
    const TempDir dir;
    const std::string path = dir.Write("f", "12345");
    OwnedBuffer buf;
    CallHooks hooks;
    hooks.BeforeMalloc([&dir] { dir.Write("f", "1234567"); });

    EXPECT_EQ(OSA_ReadTextFile(path.c_str(), buf), 0);

    EXPECT_EQ(buf.Text(), "12345");
}

TEST(OsaReadTextFile, FailsWithoutMemory)
{
    const TempDir dir;
    const std::string path = WriteSparse(dir, INT_MAX);
    OwnedBuffer buf;
    CallHooks hooks;
    hooks.FailMalloc();

    EXPECT_EQ(OSA_ReadTextFile(path.c_str(), buf), 1002);

    EXPECT_EQ(buf.size, 2147483648U);
    EXPECT_EQ(buf.data, nullptr);
}

TEST(OsaReadTextFile, RefusesAFileWhoseSizeIsUnknown)
{
    const TempDir dir;
    OwnedBuffer buf;

    EXPECT_EQ(OSA_ReadTextFile(WriteSparse(dir, off_t{INT_MAX} + 1).c_str(), buf), 1002);

    EXPECT_EQ(buf.data, nullptr);
}

TEST(SefetyTextBufferRecord, StartsEmptyAndLeavesItsBlockToTheOwner)
{
    const SefetyTextBuffer buf;

    EXPECT_EQ(buf.size, 0U);
    EXPECT_EQ(buf.data, nullptr);
    EXPECT_TRUE(std::is_trivially_destructible_v<SefetyTextBuffer>);
}

namespace
{

struct TextRow {
    const char* name;
    std::string text;
};

const TextRow kTexts[] = {
    {"Empty", ""},
    {"OneByte", "a"},
    {"WithoutLineEnd", "a\nb"},
    {"DesktopLineEnds", "a\r\nb\r\n"},
    {"ZeroBytes", "\0a\0"s},
    {"NotUtf8", "\xFF\xFE\x80"},
    {"Percent", "%s %n %d"},
    {"Large", std::string(3000000, 'x')},
};

class OsaWriteStringToFile : public ::testing::TestWithParam<TextRow>
{
};

} // namespace

TEST_P(OsaWriteStringToFile, WritesTheBytesAndNothingElse)
{
    const TempDir dir;
    std::string text = GetParam().text;

    EXPECT_EQ(OSA_WriteStringToFile(text, (dir / "f").c_str()), 0);

    EXPECT_EQ(ReadFile(dir / "f"), GetParam().text);
    EXPECT_EQ(text, GetParam().text);
}

TEST_P(OsaWriteStringToFile, ReplacesALongerFileAndKeepsItsMode)
{
    const TempDir dir;
    const std::string path = dir.Write("f", std::string(3000001, 'o'), 0755);
    std::string text = GetParam().text;

    EXPECT_EQ(OSA_WriteStringToFile(text, path.c_str()), 0);

    EXPECT_EQ(ReadFile(path), GetParam().text);
    EXPECT_EQ(fs::status(path).permissions(), static_cast<fs::perms>(0755));
}

INSTANTIATE_TEST_SUITE_P(Texts, OsaWriteStringToFile, ::testing::ValuesIn(kTexts),
                         [](const auto& row) { return std::string(row.param.name); });

TEST(OsaWriteStringToFileFailure, IsReportedForATargetThatCannotBeOpened)
{
    const TempDir dir;
    dir.Write("file", "");
    std::string text = "text";
    std::string empty;

    EXPECT_EQ(OSA_WriteStringToFile(text, (dir / "missing/f").c_str()), 1003);
    EXPECT_EQ(OSA_WriteStringToFile(empty, (dir / "missing/f").c_str()), 1003);
    EXPECT_EQ(OSA_WriteStringToFile(text, (dir / "file/f").c_str()), 1003);
    EXPECT_EQ(OSA_WriteStringToFile(text, dir.Path().c_str()), 1003);
    EXPECT_EQ(OSA_WriteStringToFile(text, (dir / std::string(5000, 'n')).c_str()), 1003);
    EXPECT_EQ(OSA_WriteStringToFile(text, ""), 1003);
}

TEST(OsaWriteStringToFileFailure, IsReportedForAFullDisk)
{
    std::string small = "text";
    std::string large(100000, 'x');

    EXPECT_EQ(OSA_WriteStringToFile(small, "/dev/full"), 1003);
    EXPECT_EQ(OSA_WriteStringToFile(large, "/dev/full"), 1003);
}

TEST(OsaWriteStringToFileFailure, IsNotReportedForNothingToWriteOnAFullDisk)
{
    std::string empty;

    EXPECT_EQ(OSA_WriteStringToFile(empty, "/dev/full"), 0);
}
