// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "archive/TarArchive.h"
#include "io/Interruption.h"
#include "io/TemporaryFile.h"
#include "io/Transfer.h"
#include "support/TempDir.h"
#include "support/Thrown.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <csignal>
#include <cstdio>

#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kx::archive
{

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace
{

std::string BytesOf(const io::Descriptor& file)
{
    constexpr std::uint64_t kMost = std::uint64_t{1} << 24;
    EXPECT_EQ(lseek(file.Number(), 0, SEEK_SET), 0);
    return io::ReadAll(file.Number(), kMost, "archive");
}

/// A file on the disk that goes into an archive.
struct Source {
    std::string name;
    std::string path;
    unsigned mode;
};

std::uint64_t Write(const io::Descriptor& file, const std::vector<Source>& sources)
{
    std::vector<TarItem> items;
    items.reserve(sources.size());
    for (const Source& source : sources) {
        items.push_back(TarItemOf(source.name, source.path, source.mode));
    }
    return WriteTar(file, "archive", items);
}

std::string TarOf(const std::vector<Source>& sources)
{
    const io::Descriptor file = io::MakeTemporaryFile();
    const std::uint64_t size = Write(file, sources);
    std::string bytes = BytesOf(file);
    EXPECT_EQ(bytes.size(), size);
    return bytes;
}

io::Descriptor FileOf(const std::string& bytes)
{
    io::Descriptor file = io::MakeTemporaryFile();
    io::WriteAll(file.Number(), bytes, "archive");
    return file;
}

/// While one lives, no file grows beyond a mebibyte.
class LittleFiles
{
public:
    LittleFiles()
    {
        static_cast<void>(std::signal(SIGXFSZ, SIG_IGN));
        EXPECT_EQ(getrlimit(RLIMIT_FSIZE, &m_before), 0);
        Limit(1U << 20U);
    }
    LittleFiles(const LittleFiles&) = delete;
    LittleFiles& operator=(const LittleFiles&) = delete;
    ~LittleFiles() { Limit(m_before.rlim_cur); }

private:
    void Limit(rlim_t size) const
    {
        const rlimit limit = {size, m_before.rlim_max};
        EXPECT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
    }

    rlimit m_before{};
};

/// "name mode size content" of all that is in an archive; "damaged" at the end.
std::vector<std::string> TarTold(const std::string& bytes)
{
    std::vector<std::string> told;
    const io::Descriptor file = FileOf(bytes);
    const bool isWhole = ReadTar(file, "archive", [&told](const TarEntry& entry) -> ContentSink {
        told.push_back(entry.name + " " + std::to_string(entry.mode) + " " +
                       std::to_string(entry.size) + " ");
        return [&told](std::string_view piece) {
            told.back().append(piece.substr(0, 100));
            return true;
        };
    });
    if (!isWhole) {
        told.emplace_back("damaged");
    }
    return told;
}

} // namespace

TEST(TarArchive, HoldsNamesModesAndContents)
{
    const TempDir dir;
    const std::string one = dir.Write("one", "1");
    const std::string none = dir.Write("none", "");
    const std::string longName = std::string(200, 'x') + "/" + std::string(200, 'y');

    const std::string bytes = TarOf({{"z z", one, 0644},
                                     {"-dash", one, 0755},
                                     {"Grüße", none, 0600},
                                     {longName, one, 0664},
                                     {"two\nlines", one, 0}});

    EXPECT_THAT(TarTold(bytes), ElementsAre("-dash 493 1 1", "Grüße 384 0 ", "two\nlines 0 1 1",
                                            longName + " 436 1 1", "z z 420 1 1"));
}

TEST(TarArchive, IsTheSameWhateverTheOrderAndTheDatesOfTheFiles)
{
    const TempDir dir;
    const std::string one = dir.Write("one", "1", 0600);
    const std::string two = dir.Write("two", "2");

    const std::string bytes = TarOf({{"a", one, 0644}, {"b", two, 0644}});
    ASSERT_EQ(chmod(one.c_str(), 0755), 0);
    const std::string again = TarOf({{"b", two, 0644}, {"a", one, 0644}});

    EXPECT_EQ(bytes, again);
    // Two heads, two contents and the end, in blocks.
    EXPECT_EQ(bytes.size(), 6 * 512U);
    // The owner is root by number alone, and the date is 0.
    EXPECT_EQ(bytes.substr(108, 7), "0000000");
    EXPECT_EQ(bytes.substr(136, 11), "00000000000");
}

TEST(TarArchive, TellsTheTimeZero)
{
    const TempDir dir;
    const std::string one = dir.Write("one", "1");
    const std::string bytes = TarOf({{"a", one, 0644}, {"b", one, 0644}});
    constexpr std::size_t kTime = 136; // in a head
    constexpr std::size_t kSecond = 1024;
    EXPECT_EQ(bytes.substr(kTime, 11), "00000000000");
    EXPECT_EQ(bytes.substr(kSecond + kTime, 11), "00000000000");
}

TEST(TarArchive, MayHoldNothing)
{
    EXPECT_EQ(TarOf({}), std::string(1024, '\0'));
    EXPECT_THAT(TarTold(std::string(1024, '\0')), IsEmpty());
}

TEST(TarArchive, ReadsAgainAtItsOwnBeginning)
{
    const TempDir dir;
    const io::Descriptor file = io::MakeTemporaryFile();
    static_cast<void>(Write(file, {{"a", dir.Write("a", "1"), 0644}}));
    for (int i = 0; i < 2; ++i) {
        int count = 0;
        EXPECT_TRUE(ReadTar(file, "archive", [&count](const TarEntry&) -> ContentSink {
            ++count;
            return {};
        }));
        EXPECT_EQ(count, 1);
    }
}

TEST(TarArchive, TellsWhereTheContentsLie)
{
    const TempDir dir;
    const std::string bytes = TarOf({{"a", dir.Write("a", "first"), 0644},
                                     {std::string(300, 'b'), dir.Write("b", "second"), 0644}});
    std::vector<std::string> contents;
    EXPECT_TRUE(ReadTar(FileOf(bytes), "archive", [&](const TarEntry& entry) -> ContentSink {
        contents.push_back(bytes.substr(static_cast<std::size_t>(entry.offset),
                                        static_cast<std::size_t>(entry.size)));
        return {};
    }));
    EXPECT_THAT(contents, ElementsAre("first", "second"));
}

TEST(TarArchive, RefusesContentsThatChange)
{
    for (const char* const content : {"", "1", "333"}) {
        const TarItem item = {
            "x", 0644, 2, [content](const ContentSink& sink) { static_cast<void>(sink(content)); }};
        EXPECT_EQ(Thrown([&] {
                      static_cast<void>(WriteTar(io::MakeTemporaryFile(), "archive", {item}));
                  }),
                  "3: archive: 'x' changed while it was read; try again");
    }
}

TEST(TarArchive, TellsWhatItCannotRead)
{
    const io::Descriptor file = io::MakeTemporaryFile();
    const auto write = [&file] { static_cast<void>(Write(file, {{"x", "/no/x", 0}})); };

    EXPECT_EQ(Thrown(write), "3: /no/x: cannot read: No such file or directory");
}

TEST(TarArchive, RefusesWhatIsNoArchive)
{
    const TempDir dir;
    const std::string whole = TarOf({{"a", dir.Write("a", std::string(2000, 'a')), 0644}});

    EXPECT_THAT(TarTold("no archive at all"), ElementsAre("damaged"));
    EXPECT_THAT(TarTold(std::string(600, 'x')), ElementsAre("damaged"));
    // In the middle of the content.
    EXPECT_EQ(TarTold(whole.substr(0, 1024)).back(), "damaged");
    // Another checksum.
    std::string other = whole;
    other[0] = 'y';
    EXPECT_EQ(TarTold(other).back(), "damaged");
}

TEST(TarArchive, RefusesWhatItWouldNotWrite)
{
    const TempDir dir;
    const std::string bytes = TarOf({{"a", dir.Write("a", ""), 0644}});
    // The kinds: a hard link, a link, a device, a folder.
    for (const char kind : {'1', '2', '3', '5'}) {
        std::string other = bytes;
        unsigned sum = 0;
        other[156] = kind;
        other.replace(157, 3, "b/c");
        other.replace(148, 8, "        ");
        for (std::size_t i = 0; i < 512; ++i) {
            sum += static_cast<unsigned char>(other[i]);
        }
        std::array<char, 8> text{};
        static_cast<void>(std::snprintf(text.data(), text.size(), "%06o", sum));
        other.replace(148, 7, text.data(), 7);
        EXPECT_THAT(TarTold(other), ElementsAre("damaged")) << kind;
    }
}

TEST(TarArchive, SaysHowLargeAFileBeyondEightGibIs)
{
    // A file full of holes, of which only the beginning gets to the disk.
    const TempDir dir;
    const std::string path = dir.Write("large", "");
    constexpr off_t kSize = off_t{9} << 30;
    ASSERT_EQ(truncate(path.c_str(), kSize), 0);
    const LittleFiles limit;
    const io::Descriptor file = io::MakeTemporaryFile();

    const std::string error = Thrown([&] {
        static_cast<void>(Write(file, {{"large", path, 0644}}));
    });
    std::vector<std::uint64_t> sizes;
    const bool isWhole = ReadTar(file, "archive", [&sizes](const TarEntry& entry) -> ContentSink {
        sizes.push_back(entry.size);
        return {};
    });

    EXPECT_EQ(error, "3: archive: cannot write: File too large");
    EXPECT_THAT(sizes, ElementsAre(static_cast<std::uint64_t>(kSize)));
    EXPECT_FALSE(isWhole);
}

TEST(TarArchive, LeavesAFileInTheMiddleWhenTheProgramIsToEnd)
{
    const TempDir dir;
    const std::string path = dir.Write("large", "");
    ASSERT_EQ(truncate(path.c_str(), off_t{64} << 20), 0);
    const LittleFiles limit;
    const io::Descriptor file = io::MakeTemporaryFile();
    static_cast<void>(std::signal(SIGINT, [](int) {})); // it is raised again at the end
    const io::Interruption interruption;
    ASSERT_EQ(raise(SIGINT), 0);

    const std::string error = Thrown([&] {
        static_cast<void>(Write(file, {{"large", path, 0644}}));
    });

    EXPECT_EQ(error, "3: archive: cannot write: Interrupted system call");
    EXPECT_LT(io::SizeOf(file, "archive"), 65536); // nothing is filled up
}

} // namespace kx::archive
