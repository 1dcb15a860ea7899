// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "archive/ArchiveWriter.h"
#include "archive/Package.h"
#include "archive/StructureOf.h"
#include "support/Deadline.h"
#include "support/Environment.h"
#include "support/TempDir.h"
#include "support/Thrown.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <filesystem>

#include <sys/resource.h>
#include <sys/stat.h>
#include <zip.h>

namespace kx::archive
{

using ::testing::ElementsAre;

namespace
{

/// Three items in no order; the file's content is not compressible.
std::vector<ArchiveItem> SomeItems(const TempDir& dir)
{
    const std::string source = dir.Write("source", "from a file\n", 0600);
    return {{"kx_Updater", source, std::nullopt, false, true},
            {"0/0/empty/", "", std::nullopt, true, false},
            {"0/0/\xc3\xa4.txt", "", "", false, false},
            {"0/0/text", "", std::string(10000, 'x'), false, false}};
}

/// "name mode attributes size method" of every entry, in the archive's order; the attributes are
/// those for systems that know no modes.
std::vector<std::string> EntriesOf(const std::string& path)
{
    std::vector<std::string> told;
    const ZipStructure structure = StructureOf(ReadFile(path));
    zip_t* const archive = zip_open(path.c_str(), ZIP_RDONLY, nullptr);
    for (zip_int64_t i = 0; i < zip_get_num_entries(archive, 0); ++i) {
        const auto index = static_cast<std::size_t>(i);
        zip_stat_t info;
        static_cast<void>(zip_stat_index(archive, index, ZIP_FL_ENC_RAW, &info));
        zip_uint8_t system = 0;
        zip_uint32_t attributes = 0;
        zip_file_get_external_attributes(archive, index, 0, &system, &attributes);
        char text[200];
        static_cast<void>(
            snprintf(text, sizeof text, "%s %o %x %d %d", info.name, attributes >> 16,
                     attributes & 0xffffU, static_cast<int>(info.size),
                     // On 32-bit systems the library may have a shorter date before it.
                     static_cast<int>(structure.members.at(index).method)));
        told.emplace_back(text);
    }
    zip_discard(archive);
    return told;
}

} // namespace

TEST(ArchiveWriter, WritesSortedEntriesWithPlainModes)
{
    const TempDir dir;

    const WrittenArchive written = WriteArchive(dir / "x.kx-update", SomeItems(dir), {});

    EXPECT_THAT(EntriesOf(dir / "x.kx-update"),
                ElementsAre("0/0/empty/ 40755 10 0 0", "0/0/text 100644 0 10000 8",
                            "0/0/\xc3\xa4.txt 100644 0 0 0", "kx_Updater 100755 0 12 8"));
    EXPECT_EQ(written.size, std::filesystem::file_size(dir / "x.kx-update"));
    EXPECT_EQ(written.unpacked, 10012U);
}

TEST(ArchiveWriter, WritesWhatTheReaderReadsBack)
{
    const TempDir dir;
    static_cast<void>(WriteArchive(dir / "x.kx-update", SomeItems(dir), {}));

    const auto package = OpenPackage(dir / "x.kx-update");

    EXPECT_EQ(package->Read("kx_Updater", 100), "from a file\n");
    EXPECT_EQ(package->Read("0/0/text", 100000), std::string(10000, 'x'));
    EXPECT_EQ(package->Find("0/0/empty")->kind, PackageEntry::Kind::kFolder);
}

TEST(ArchiveWriter, WritesTheModesThatItIsTold)
{
    const TempDir dir;
    const std::string source = dir.Write("source", "", 0600);
    std::vector<ArchiveItem> items = {{"a", "", "", false, false},
                                      {"b", "", "", false, true},
                                      {"c", source, std::nullopt, false, false}};
    items[0].mode = 0600;
    items[1].mode = 0;
    items[2].mode = 0666;

    static_cast<void>(WriteArchive(dir / "x.kx-update", items, {}));

    EXPECT_THAT(EntriesOf(dir / "x.kx-update"),
                ElementsAre("a 100600 0 0 0", "b 100000 0 0 0", "c 100666 20 0 0"));
}

TEST(ArchiveWriter, GivesTheSameBytesForAnyOrderModeDateZoneAndUmask)
{
    const TempDir dir;
    static_cast<void>(WriteArchive(dir / "one.kx-update", SomeItems(dir), {}));

    std::vector<ArchiveItem> items = SomeItems(dir);
    std::reverse(items.begin(), items.end());
    std::filesystem::last_write_time(dir / "source", std::filesystem::file_time_type());
    std::filesystem::permissions(dir / "source", std::filesystem::perms::all);
    const Environment zone("TZ", "Asia/Tokyo");
    tzset();
    const mode_t before = umask(077);
    static_cast<void>(WriteArchive(dir / "other.kx-update", items, {}));
    umask(before);

    EXPECT_EQ(ReadFile(dir / "one.kx-update"), ReadFile(dir / "other.kx-update"));
}

TEST(ArchiveWriter, DatesEntriesByTheMomentInUniversalTime)
{
    const TempDir dir;
    ArchiveOptions options;
    options.moment = 1700000000; // 2023-11-14 22:13:20
    static_cast<void>(WriteArchive(dir / "x.kx-update", {{"a", "", "", false, false}}, options));
    const std::string bytes = ReadFile(dir / "x.kx-update");

    // Behind signature, version, flags and method: time, then date, low byte first.
    EXPECT_EQ(bytes.substr(10, 4), std::string("\xaa\xb1\x6e\x57", 4));
    EXPECT_EQ(OpenPackage(dir / "x.kx-update")->Find("a")->moment, 1700000000);

    static_cast<void>(WriteArchive(dir / "y.kx-update", {{"a", "", "", false, false}}, {}));
    EXPECT_EQ(ReadFile(dir / "y.kx-update").substr(10, 4), std::string("\x00\x00\x21\x00", 4));
}

TEST(ArchiveWriter, MarksNamesBeyondAsciiAsUtf8AndAddsNoExtraFields)
{
    const TempDir dir;
    static_cast<void>(
        WriteArchive(dir / "x.kx-update",
                     {{"a", "", "x", false, false}, {"\xc3\xa4", "", "x", false, false}}, {}));
    const std::string bytes = ReadFile(dir / "x.kx-update");

    std::vector<std::string> flags;
    for (std::size_t at = bytes.find("PK\x03\x04"); at != std::string::npos;
         at = bytes.find("PK\x03\x04", at + 1)) {
        flags.push_back(bytes.substr(at + 6, 2));
        EXPECT_EQ(bytes.substr(at + 28, 2), std::string("\0\0", 2)); // length of the extra field
    }
    for (std::size_t at = bytes.find("PK\x01\x02"); at != std::string::npos;
         at = bytes.find("PK\x01\x02", at + 1)) {
        flags.push_back(bytes.substr(at + 8, 2));
        EXPECT_EQ(bytes.substr(at + 30, 2), std::string("\0\0", 2));
    }
    const std::string plain("\0\0", 2);
    const std::string utf8("\0\x08", 2);
    EXPECT_THAT(flags, ElementsAre(plain, utf8, plain, utf8));
}

TEST(ArchiveWriter, TellsHowFarItIs)
{
    const TempDir dir;
    std::vector<double> told;
    ArchiveOptions options;
    options.onProgress = [&told](double fraction) { told.push_back(fraction); };

    static_cast<void>(WriteArchive(dir / "x.kx-update", SomeItems(dir), options));

    ASSERT_FALSE(told.empty());
    EXPECT_TRUE(std::is_sorted(told.begin(), told.end()));
    EXPECT_EQ(told.back(), 1.0);
}

TEST(ArchiveWriter, KeepsTheOlderFileWhenSomethingCannotBeRead)
{
    const TempDir dir;
    dir.Write("out/x.kx-update", "older");

    EXPECT_EQ(Thrown([&] {
                  static_cast<void>(WriteArchive(dir / "out/x.kx-update",
                                                 {{"a", dir / "none", std::nullopt, false, false}},
                                                 {}));
              }),
              "1: " + (dir / "none") + ": cannot read: No such file or directory");

    EXPECT_THAT(dir.Tree(), ElementsAre("out d 755", "out/x.kx-update f 644 older"));
}

TEST(ArchiveWriter, KeepsTheOlderFileWhenTheDiskIsFull)
{
    const TempDir dir;
    dir.Write("x.kx-update", "older");
    std::string content;
    for (unsigned i = 0, state = 1; i < 100000; ++i) {
        state = state * 1103515245 + 12345;
        content += static_cast<char>(state >> 16);
    }
    const Deadline deadline;
    // A limit on the size of files stands for the full disk.
    rlimit before{};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
    const rlimit limit = {20000, before.rlim_max};
    static_cast<void>(std::signal(SIGXFSZ, SIG_IGN));
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
    const std::string line = Thrown([&] {
        static_cast<void>(
            WriteArchive(dir / "x.kx-update", {{"a", "", content, false, false}}, {}));
    });
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &before), 0);

    EXPECT_EQ(line, "3: " + (dir / "x.kx-update") + ": cannot write: File too large");
    EXPECT_THAT(dir.Tree(), ElementsAre("x.kx-update f 644 older"));
}

TEST(ArchiveWriterDeathTest, EndsByTheSignalAndKeepsTheOlderFile)
{
    const TempDir dir;
    dir.Write("x.kx-update", "older");
    ArchiveOptions options;
    options.onProgress = [](double /*fraction*/) { static_cast<void>(std::raise(SIGTERM)); };

    EXPECT_EXIT(static_cast<void>(WriteArchive(dir / "x.kx-update",
                                               {{"a", "", std::string(1000000, 'x'), false, false}},
                                               options)),
                ::testing::KilledBySignal(SIGTERM), "");

    EXPECT_THAT(dir.Tree(), ElementsAre("x.kx-update f 644 older"));
}

} // namespace kx::archive
