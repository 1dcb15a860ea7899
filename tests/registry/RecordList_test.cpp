// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "registry/RecordList.h"
#include "support/TempDir.h"
#include "support/Thrown.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include <fcntl.h>

namespace kx::registry
{

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace
{

constexpr const char* kSelf = "/r/installedFile.list";

struct Told {
    std::vector<std::string> entries;
    std::vector<std::string> problems;
    ListSummary sum;
};

ListSummary ReadFile(const std::string& path, const std::function<void(const ListEntry&)>& tell)
{
    return ReadRecordList(io::Descriptor(open(path.c_str(), O_RDONLY | O_CLOEXEC)), "shown", kSelf,
                          tell);
}

Told Read(const std::string& text)
{
    const TempDir dir;
    Told told;
    told.sum = ReadFile(dir.Write("list", text), [&told](const ListEntry& entry) {
        told.entries.push_back(std::to_string(entry.line) +
                               (entry.isFolder ? " folder " : " file ") + entry.path);
    });
    for (const RecordProblem& problem : told.sum.problems) {
        told.problems.push_back(std::string(problem.id) + ": " + problem.what);
    }
    return told;
}

TEST(ReadRecordList, TellsFoldersAndFilesInTheirOrder)
{
    const Told told =
        Read(" #dir\n/opt/app/bin/\n/r\n #file\n/opt/app/bin/run\n" + std::string(kSelf) + "\n");

    EXPECT_THAT(told.entries,
                ElementsAre("2 folder /opt/app/bin/", "3 folder /r", "5 file /opt/app/bin/run",
                            "6 file /r/installedFile.list"));
    EXPECT_THAT(told.problems, IsEmpty());
    EXPECT_EQ(told.sum.folders, 2U);
    EXPECT_EQ(told.sum.files, 2U);
    EXPECT_EQ(told.sum.omittedProblems, 0U);
}

TEST(ReadRecordList, TakesNamesAsTheyAre)
{
    const Told told =
        Read(" #dir\n #file\n/two words \n/\xff\x1b[2J\n/#file\n" + std::string(kSelf) + "\n");

    EXPECT_THAT(told.entries, ElementsAre("3 file /two words ", "4 file /\xff\x1b[2J",
                                          "5 file /#file", "6 file /r/installedFile.list"));
    EXPECT_THAT(told.problems, IsEmpty());
}

TEST(ReadRecordList, TellsThatAListIsEmpty)
{
    EXPECT_THAT(
        Read("").problems,
        ElementsAre("list-empty: installedFile.list is empty: it was not written completely"));
}

struct DamagedList {
    const char* name;
    std::string text;
    std::vector<std::string> problems;
};

class DamagedLists : public ::testing::TestWithParam<DamagedList>
{
};

TEST_P(DamagedLists, AreToldWithTheirLines)
{
    const Told told = Read(GetParam().text);

    EXPECT_EQ(told.problems, GetParam().problems);
}

const std::string kEnd = std::string(kSelf) + "\n";

INSTANTIATE_TEST_SUITE_P(
    ReadRecordList, DamagedLists,
    ::testing::Values(
        DamagedList{"NoFolders",
                    " #file\n" + kEnd,
                    {"list-damaged: line 1 ' #file' does not belong there"}},
        DamagedList{"FoldersTwice",
                    " #dir\n #dir\n #file\n" + kEnd,
                    {"list-damaged: line 2 ' #dir' does not belong there"}},
        DamagedList{"FilesTwice",
                    " #dir\n #file\n #file\n" + kEnd,
                    {"list-damaged: line 3 ' #file' does not belong there"}},
        DamagedList{
            "NoFiles",
            " #dir\n/a\n",
            {"list-damaged: the line ' #file' is missing: the list was not written completely"}},
        DamagedList{"Heading",
                    "one\ntwo\n #dir\n #file\n" + kEnd,
                    {"list-damaged: line 1 'one' comes before the line ' #dir'"}},
        DamagedList{"CutInALine",
                    " #dir\n #file\n/a/b",
                    {"list-damaged: line 3 is cut off: the list was not written completely",
                     "list-damaged: the list does not name itself: it was cut, or is another "
                     "record's"}},
        DamagedList{
            "CutInTheFirstLine",
            " #di",
            {"list-damaged: line 1 is cut off: the list was not written completely",
             "list-damaged: the line ' #file' is missing: the list was not written completely"}},
        DamagedList{
            "CutBehindTheFirstLine",
            "\n",
            {"list-damaged: line 1 comes before the line ' #dir'",
             "list-damaged: the line ' #file' is missing: the list was not written completely"}},
        DamagedList{"CutBetweenLines",
                    " #dir\n #file\n/a/b\n",
                    {"list-damaged: the list does not name itself: it was cut, or is another "
                     "record's"}},
        DamagedList{"NamedAsAFolder",
                    " #dir\n" + kEnd + " #file\n/a\n",
                    {"list-damaged: the list does not name itself: it was cut, or is another "
                     "record's"}},
        DamagedList{"EmptyLine", " #dir\n\n #file\n" + kEnd, {"list-damaged: line 2 is empty"}},
        DamagedList{"Relative",
                    " #dir\nopt/app\n #file\n" + kEnd,
                    {"list-damaged: line 2 'opt/app' is not a full path and cannot be looked up"}},
        DamagedList{"ZeroByte",
                    " #dir\n #file\n/a" + std::string(1, '\0') + "b\n" + kEnd,
                    {"list-damaged: line 3 '/a" + std::string(1, '\0') + "b' has a zero byte"}},
        DamagedList{
            "LongLine",
            " #dir\n #file\n/" + std::string(4095, 'x') + "\n" + kEnd,
            {"list-damaged: line 3 '/" + std::string(59, 'x') + "' is longer than a path can be"}},
        DamagedList{
            "CarriageReturns",
            " #dir\r\n #file\r\n/a\r\n",
            {"list-damaged: line 1 ' #dir\r' comes before the line ' #dir'",
             "list-damaged: the line ' #file' is missing: the list was not written completely"}}),
    [](const auto& row) { return std::string(row.param.name); });

TEST(ReadRecordList, GoesOnBehindADamagedLine)
{
    const Told told = Read(" #dir\nno path\n/a\n #file\n\n" + kEnd);

    EXPECT_THAT(told.entries, ElementsAre("3 folder /a", "6 file /r/installedFile.list"));
    EXPECT_EQ(told.sum.folders, 1U);
    EXPECT_EQ(told.sum.files, 1U);
}

TEST(ReadRecordList, TakesThePathOfTheGreatestLength)
{
    const std::string longest = "/" + std::string(4094, 'x');

    const Told told = Read(" #dir\n #file\n" + longest + "\n" + kEnd);

    EXPECT_THAT(told.problems, IsEmpty());
    EXPECT_EQ(told.entries[0], "3 file " + longest);
}

TEST(ReadRecordList, TellsTwentyProblemsAndCountsTheOthers)
{
    std::string text = " #dir\n";
    for (int i = 0; i < 30; ++i) {
        text += "x\n";
    }

    const Told told = Read(text + " #file\n" + kEnd);

    EXPECT_EQ(told.problems.size(), 20U);
    EXPECT_EQ(told.sum.omittedProblems, 10U);
}

TEST(ReadRecordList, FindsLinesAcrossPieces)
{
    std::string text = " #dir\n #file\n";
    std::size_t count = 0;
    for (; text.size() < 300'000; ++count) {
        text += "/mnt/" + std::to_string(count) + "\n";
    }

    const Told told = Read(text + kEnd);

    EXPECT_THAT(told.problems, IsEmpty());
    ASSERT_EQ(told.entries.size(), count + 1);
    EXPECT_EQ(told.entries[20'000], "20003 file /mnt/20000");
}

TEST(ReadRecordList, RefusesAHugeListAndWhatCannotBeRead)
{
    const TempDir dir;
    const std::string path = dir.Write("list", "");
    const auto ignore = [](const ListEntry& /*entry*/) {};
    std::filesystem::resize_file(path, std::uintmax_t{256} << 20);
    EXPECT_NO_THROW(static_cast<void>(ReadFile(path, ignore))) << "the largest that is read";
    std::filesystem::resize_file(path, (std::uintmax_t{256} << 20) + 1);

    EXPECT_EQ(Thrown([&] { static_cast<void>(ReadFile(path, ignore)); }),
              "3: shown: is larger than 256.0 MiB");
    EXPECT_EQ(Thrown([&] { static_cast<void>(ReadFile(dir.Path(), ignore)); }),
              "3: shown: cannot read: Is a directory");
}

} // namespace

} // namespace kx::registry
