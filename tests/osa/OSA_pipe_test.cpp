// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "osa/CallHooks.h"
#include "osa/OSA.h"
#include "support/TempDir.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace std::string_literals;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace
{

/// Reads @p stream to its end.
std::vector<std::string> LinesOf(OSA_PipeInStream& stream)
{
    std::vector<std::string> lines;
    for (const char* line = stream.gets(); line != nullptr; line = stream.gets()) {
        lines.emplace_back(line);
    }
    return lines;
}

/// The writing end of a FIFO. It is opened for reading as well, so that it waits for nobody.
class Writer
{
public:
    explicit Writer(const std::string& path) : m_fd(open(path.c_str(), O_RDWR | O_NONBLOCK)) {}
    Writer(const Writer&) = delete;
    Writer& operator=(const Writer&) = delete;
    ~Writer() { Close(); }

    void Write(std::string_view text) const
    {
        EXPECT_EQ(write(m_fd, text.data(), text.size()), static_cast<ssize_t>(text.size()));
    }

    void Close()
    {
        if (m_fd >= 0) {
            close(m_fd);
        }
        m_fd = -1;
    }

private:
    int m_fd;
};

mode_t ModeOf(const std::string& path)
{
    struct stat info {
    };
    EXPECT_EQ(lstat(path.c_str(), &info), 0);
    return info.st_mode;
}

} // namespace

TEST(OsaPipeInStream, CreatesAFifoThatOnlyItsOwnerMayExecute)
{
    const TempDir dir;
    const std::string path = dir / "fifo";
    mode_t requested = 0;
    mode_t created = 0;
    CallHooks hooks;
    hooks.AfterMkfifo([&](const std::string& fifo, mode_t mode) {
        EXPECT_EQ(fifo, path);
        requested = mode;
        created = ModeOf(fifo);
        // Nobody will write, and opening it must not wait for anybody.
        EXPECT_EQ(unlink(fifo.c_str()), 0);
    });

    OSA_PipeInStream stream(path.c_str());

    EXPECT_EQ(requested, 04010100U);
    EXPECT_EQ(created, static_cast<mode_t>(S_IFIFO | S_IXUSR));
    EXPECT_EQ(stream.gets(), nullptr);
}

TEST(OsaPipeInStream, ReadsTheLinesOfAWriterAndLeavesTheFifo)
{
    const TempDir dir;
    const std::string path = dir / "fifo";
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    Writer writer(path);
    {
        OSA_PipeInStream stream(path.c_str());
        writer.Write("one\ntwo\n\nrest");
        writer.Close();

        EXPECT_THAT(LinesOf(stream), ElementsAre("one\n", "two\n", "\n", "rest"));
        EXPECT_EQ(stream.gets(), nullptr);
    }

    EXPECT_EQ(ModeOf(path), static_cast<mode_t>(S_IFIFO | 0600));
}

TEST(OsaPipeInStream, ClosesItsEndWithItsLife)
{
    const TempDir dir;
    const std::string path = dir / "fifo";
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    Writer writer(path);
    {
        const OSA_PipeInStream stream(path.c_str());
        writer.Close();
    }

    // Without a reader a writer that does not wait is turned away.
    EXPECT_EQ(open(path.c_str(), O_WRONLY | O_NONBLOCK), -1);
    EXPECT_EQ(errno, ENXIO);
}

TEST(OsaPipeInStream, UsesAnExistingFileAsItIs)
{
    const TempDir dir;
    const std::string path = dir.Write("file", "a\nb", 0640);

    OSA_PipeInStream stream(path.c_str());

    EXPECT_THAT(LinesOf(stream), ElementsAre("a\n", "b"));
    EXPECT_EQ(ModeOf(path), static_cast<mode_t>(S_IFREG | 0640));
}

TEST(OsaPipeInStream, HasNoLinesInAnEmptyFile)
{
    const TempDir dir;

    OSA_PipeInStream stream(dir.Write("file", "").c_str());

    EXPECT_THAT(LinesOf(stream), IsEmpty());
    EXPECT_EQ(stream.gets(), nullptr);
}

TEST(OsaPipeInStream, HasNoLinesWhenOpeningFailed)
{
    const TempDir dir;

    OSA_PipeInStream stream((dir / "missing/fifo").c_str());

    EXPECT_EQ(stream.gets(), nullptr);
    EXPECT_EQ(stream.gets(), nullptr);
}

TEST(OsaPipeInStream, HasNoLinesInAFolder)
{
    const TempDir dir;

    OSA_PipeInStream stream(dir.Path().c_str());

    EXPECT_EQ(stream.gets(), nullptr);
}

namespace
{

struct LengthRow {
    const char* name;
    std::size_t length; ///< characters before the line feed
    std::vector<std::size_t> pieces;
};

const LengthRow kLengths[] = {
    {"LineFeedIsCharacter998", 997, {998}},     {"LineFeedIsCharacter999", 998, {998, 1}},
    {"LineFeedIsCharacter1000", 999, {998, 2}}, {"LineFeedIsCharacter1001", 1000, {998, 3}},
    {"TwoWholePieces", 1995, {998, 998}},       {"LongLine", 5000, {998, 998, 998, 998, 998, 11}},
};

class OsaPipeInStreamLine : public ::testing::TestWithParam<LengthRow>
{
};

} // namespace

TEST_P(OsaPipeInStreamLine, ComesInPiecesOf998Characters)
{
    const TempDir dir;
    const std::string line = std::string(GetParam().length, 'x') + "\n";

    OSA_PipeInStream stream(dir.Write("file", line + "next\n").c_str());
    const std::vector<std::string> pieces = LinesOf(stream);

    std::vector<std::size_t> lengths;
    std::string joined;
    for (const std::string& piece : pieces) {
        lengths.push_back(piece.size());
        joined += piece;
    }
    std::vector<std::size_t> expected = GetParam().pieces;
    expected.push_back(5);
    EXPECT_EQ(lengths, expected);
    EXPECT_EQ(joined, line + "next\n");
}

INSTANTIATE_TEST_SUITE_P(Lengths, OsaPipeInStreamLine, ::testing::ValuesIn(kLengths),
                         [](const auto& row) { return std::string(row.param.name); });

TEST(OsaPipeInStream, PassesBytesOnAsTheyAre)
{
    const TempDir dir;

    OSA_PipeInStream stream(dir.Write("file", "\xFF\xFE%s\r\nab\0cd\n"s).c_str());

    EXPECT_THAT(LinesOf(stream), ElementsAre("\xFF\xFE%s\r\n", "ab"));
}

TEST(OsaPipeInStream, CanBeDerivedFrom)
{
    EXPECT_TRUE(std::has_virtual_destructor_v<OSA_PipeInStream>);
    EXPECT_FALSE(std::is_copy_constructible_v<OSA_PipeInStream>);
}
