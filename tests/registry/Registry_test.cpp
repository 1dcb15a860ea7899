// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "engine/q_UpdaterEngine.h"
#include "registry/Panel.h"
#include "registry/Registry.h"
#include "support/Thrown.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include <sys/stat.h>

namespace kx::registry
{

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace
{

const std::string kRegistry = kRegistryPath;
constexpr const char* kMark = "\xef\xbb\xbf";

std::vector<std::string> ProblemsOf(const Panel& panel, const std::string& name)
{
    std::vector<std::string> problems;
    for (const RecordProblem& problem : ReadRecord(io::RootedFolder(panel.Root()), name).problems) {
        problems.push_back(std::string(problem.id) + ": " + problem.what);
    }
    return problems;
}

/// The only problem of a record whose description is the text.
std::string ProblemWith(const std::string& description)
{
    const Panel panel;
    panel.Record("demo", {}, {});
    panel.Write(kRegistry + "/demo/UserPackage.kx-project", description);
    const Record record = ReadRecord(io::RootedFolder(panel.Root()), "demo");
    EXPECT_FALSE(record.identity.has_value());
    EXPECT_TRUE(record.has.has_value());
    const std::vector<std::string> problems = ProblemsOf(panel, "demo");
    return problems.size() == 1 ? problems[0] : "not one problem";
}

TEST(RegistryNames, AreThoseOfEverythingInTheOrderOfTheirBytes)
{
    const Panel panel;
    panel.Record("demo", {}, {});
    panel.Record("Demo", {}, {});
    panel.Record("two words", {}, {});
    panel.Record(".temp", {}, {});
    panel.Record("\xff", {}, {});
    panel.Write(kRegistry + "/stray", "");

    EXPECT_THAT(RegistryNames(io::RootedFolder(panel.Root())),
                ElementsAre(".temp", "Demo", "demo", "stray", "two words", "\xff"));
}

TEST(RegistryNames, AreNoneWithoutARegistry)
{
    const Panel panel;
    EXPECT_THAT(RegistryNames(io::RootedFolder(panel.Root())), IsEmpty());
    panel.MakeDir(kRegistry);
    EXPECT_THAT(RegistryNames(io::RootedFolder(panel.Root())), IsEmpty());
}

TEST(RegistryNames, RefuseARegistryThatIsNoFolder)
{
    const Panel panel;
    panel.Write(kRegistry, "");

    EXPECT_EQ(Thrown([&] { static_cast<void>(RegistryNames(io::RootedFolder(panel.Root()))); }),
              "1: " + panel.Root() + kRegistry + ": is not a folder");
}

TEST(RegistryNames, AreNotTakenFromOutside)
{
    const Panel panel;
    panel.Link("/var/lib/KxUserPackages", panel.Outside());

    EXPECT_THAT(RegistryNames(io::RootedFolder(panel.Root())), IsEmpty());
}

TEST(ReadRecord, TellsWhatTheDescriptionAndTheListSay)
{
    const Panel panel;
    panel.Record("demo", {"/mnt/user/bin/"}, {"/mnt/user/bin/hello", "/mnt/x"});

    const Record record = ReadRecord(io::RootedFolder(panel.Root()), "demo");

    EXPECT_TRUE(record.isRecord);
    ASSERT_TRUE(record.identity.has_value());
    EXPECT_EQ(record.identity->title, "T demo");
    EXPECT_EQ(record.identity->version, "1.2");
    EXPECT_EQ(record.identity->comment, "C");
    EXPECT_EQ(record.identity->model, "TP");
    EXPECT_EQ(record.identity->osVersion, "2.0");
    EXPECT_EQ(record.identity->date, "2026/11/21");
    ASSERT_TRUE(record.has.has_value());
    EXPECT_EQ(record.has->folders, 2U);
    EXPECT_EQ(record.has->files, 4U);
    EXPECT_THAT(record.problems, IsEmpty());
    EXPECT_EQ(q_UpdaterEngine::SysLogger, nullptr); // lent for the reading only
}

TEST(ReadRecord, ReadsTheRootOnlyAsTheUpdatersListDoes)
{
    const Panel panel;
    panel.Record("demo", {}, {});
    const std::string whole = Panel::Description("demo");
    const std::string root = whole.substr(0, whole.find(R"({"$type": "Zt.Plugins.DB_StepSets)"));
    panel.Write(kRegistry + "/demo/UserPackage.kx-project", root + "7} and more");

    EXPECT_THAT(ProblemsOf(panel, "demo"), IsEmpty());
}

TEST(ReadRecord, TellsWhatIsWrongWithADescription)
{
    EXPECT_EQ(ProblemWith(""), "description-unreadable: UserPackage.kx-project is not JSON: line "
                               "1, column 1 after the byte order mark");
    EXPECT_EQ(ProblemWith(std::string(kMark) + "{\n \"a\": x}"),
              "description-unreadable: UserPackage.kx-project is not JSON: line 2, column 7 after "
              "the byte order mark");
    EXPECT_EQ(ProblemWith(std::string(kMark) + "[1]"),
              "description-unreadable: UserPackage.kx-project is an array, not a JSON object: the "
              "updater's window ends when it shows its list");
    EXPECT_EQ(ProblemWith(std::string(kMark) + "{}"),
              "description-unreadable: UserPackage.kx-project is not a package description: its "
              "\"$type\" is not 'Zt.Plugins.DB_KxUserProject, Plexa'");
    std::string noDate = Panel::Description("demo");
    noDate.replace(noDate.find("\"Date\""), 6, "\"Data\"");
    EXPECT_EQ(ProblemWith(noDate),
              "description-unreadable: UserPackage.kx-project is refused by the updater: No "
              "Zt.Plugins.DB_KxUserProject, Plexa.Date field specified in .kx-project .");
}

TEST(ReadRecord, IsNotHeldUpByHostileDescriptions)
{
    // Lists in lists: the updater's reader would take longer than anybody waits.
    constexpr int kDepth = 60;
    std::string nested;
    for (int i = 0; i < kDepth; ++i) {
        nested += R"({"$type": "Zt.Plugins.DB_StepSets, Plexa", "$values": [)";
    }
    for (int i = 0; i < kDepth; ++i) {
        nested += "]}";
    }
    EXPECT_EQ(ProblemWith(kMark + nested).substr(0, 77),
              "description-unreadable: UserPackage.kx-project is not a package description: ");
    EXPECT_EQ(ProblemWith(kMark + std::string(1'000'000, '[')).substr(0, 59),
              "description-unreadable: UserPackage.kx-project is not JSON:");
    EXPECT_EQ(ProblemWith(std::string((16U << 20) + 1, ' ')),
              "description-unreadable: UserPackage.kx-project is larger than 16.0 MiB");
}

TEST(ReadRecord, TellsWhichFilesARecordLacks)
{
    const Panel panel;
    panel.Record("a", {}, {});
    panel.Record("b", {}, {});
    std::filesystem::remove(panel.Root() + kRegistry + "/a/UserPackage.kx-project");
    std::filesystem::remove(panel.Root() + kRegistry + "/b/installedFile.list");

    EXPECT_THAT(ProblemsOf(panel, "a"),
                ElementsAre("description-missing: there is no UserPackage.kx-project: the "
                            "updater's list leaves the package out"));
    EXPECT_THAT(
        ProblemsOf(panel, "b"),
        ElementsAre(
            "list-missing: there is no installedFile.list: the record was not written completely"));
    EXPECT_FALSE(ReadRecord(io::RootedFolder(panel.Root()), "b").has.has_value());
}

TEST(ReadRecord, TellsFilesThatAreNone)
{
    const Panel panel;
    panel.MakeDir(kRegistry + "/a/UserPackage.kx-project");
    panel.MakeDir(kRegistry + "/a");
    ASSERT_EQ(mkfifo((panel.Root() + kRegistry + "/a/installedFile.list").c_str(), 0600), 0);

    EXPECT_THAT(ProblemsOf(panel, "a"),
                ElementsAre("description-unreadable: UserPackage.kx-project is not a file",
                            "list-unreadable: installedFile.list is not a file"));
}

TEST(ReadRecord, TellsAListThatCannotBeRead)
{
    const Panel panel;
    panel.Record("a", {}, {});
    std::filesystem::resize_file(panel.Root() + kRegistry + "/a/installedFile.list",
                                 std::uintmax_t{1} << 30);

    EXPECT_THAT(ProblemsOf(panel, "a"),
                ElementsAre("list-unreadable: installedFile.list is larger than 256.0 MiB"));
}

TEST(ReadRecord, CountsTheProblemsOfAListThatItLeavesOut)
{
    const Panel panel;
    panel.Record("a", std::vector<std::string>(23, "no path"), {});

    const Record record = ReadRecord(io::RootedFolder(panel.Root()), "a");

    EXPECT_EQ(record.problems.size(), 20U);
    EXPECT_EQ(record.omittedProblems, 3U);
}

TEST(ReadRecord, TellsWhatIsNoRecord)
{
    const Panel panel;
    panel.MakeDir(kRegistry + "/empty");
    panel.Write(kRegistry + "/stray", "x");
    panel.Write(kRegistry + "/UserPackage.kx-project", Panel::Description("nameless"));
    panel.Write(kRegistry + "/installedFile.list", "x");
    panel.Link(kRegistry + "/link", panel.Outside());
    ASSERT_EQ(mkfifo((panel.Root() + kRegistry + "/pipe").c_str(), 0600), 0);

    EXPECT_THAT(ProblemsOf(panel, "empty"),
                ElementsAre("no-record: is a folder without a record's files"));
    EXPECT_THAT(ProblemsOf(panel, "stray"), ElementsAre("no-record: is a file"));
    EXPECT_THAT(
        ProblemsOf(panel, "UserPackage.kx-project"),
        ElementsAre(
            "no-record: is a file of a package that was unpacked into a folder without a name"));
    EXPECT_THAT(
        ProblemsOf(panel, "installedFile.list"),
        ElementsAre(
            "no-record: is a file of a package that was unpacked into a folder without a name"));
    EXPECT_THAT(ProblemsOf(panel, "link"), ElementsAre("no-record: is a link that leads nowhere"));
    EXPECT_THAT(ProblemsOf(panel, "pipe"),
                ElementsAre("no-record: is a device, a pipe or a socket"));
    EXPECT_FALSE(ReadRecord(io::RootedFolder(panel.Root()), "stray").isRecord);
}

TEST(ReadRecord, FollowsLinksInsideThePanelOnly)
{
    const Panel panel;
    panel.Record("real", {}, {});
    panel.Link(kRegistry + "/alias", "real");
    panel.Record("leak", {}, {});
    const std::string description = kRegistry + "/leak/UserPackage.kx-project";
    std::ofstream(panel.Outside() + "/description") << Panel::Description("outside");
    std::filesystem::remove(panel.Root() + description);
    panel.Link(description, panel.Outside() + "/description");

    // The list names the record that it was made for.
    EXPECT_THAT(ProblemsOf(panel, "alias"),
                ElementsAre("list-damaged: the list does not name itself: it was cut, or is "
                            "another record's"));
    EXPECT_EQ(ReadRecord(io::RootedFolder(panel.Root()), "alias").identity->title, "T real");
    EXPECT_THAT(ProblemsOf(panel, "leak"),
                ElementsAre("description-missing: there is no UserPackage.kx-project: the "
                            "updater's list leaves the package out"));
}

} // namespace

} // namespace kx::registry
