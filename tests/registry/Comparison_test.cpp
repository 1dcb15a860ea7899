// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "registry/Comparison.h"
#include "registry/Panel.h"
#include "support/Thrown.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include <sys/stat.h>

namespace kx::registry
{

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace
{

Comparison Compare(const Panel& panel, const std::string& name)
{
    return CompareRecord(io::RootedFolder(panel.Root()), name);
}

std::string ErrorFor(const Panel& panel, const std::string& name)
{
    return Thrown([&] { static_cast<void>(Compare(panel, name)); });
}

/// "5 missing /mnt/x", …
std::vector<std::string> Lines(const Comparison& comparison)
{
    std::vector<std::string> lines;
    for (const Deviation& deviation : comparison.deviations) {
        constexpr const char* kWords[] = {"missing", "file", "folder", "other", "unknown"};
        lines.push_back(std::to_string(deviation.entry.line) + " " +
                        kWords[static_cast<int>(deviation.standing.kind)] + " " +
                        deviation.entry.path);
    }
    return lines;
}

TEST(CompareRecord, FindsThatAllIsThere)
{
    const Panel panel;
    panel.Link("/opt", "/mnt/user");
    panel.Record("demo", {"/mnt/user/bin/"}, {"/mnt/user/bin/hello", "/opt/bin/hello"});

    const Comparison comparison = Compare(panel, "demo");

    EXPECT_FALSE(comparison.HasProblems());
    EXPECT_THAT(comparison.deviations, IsEmpty());
    EXPECT_EQ(comparison.folders.present, 2U);
    EXPECT_EQ(comparison.folders.Sum(), 2U);
    EXPECT_EQ(comparison.files.present, 4U);
    EXPECT_EQ(comparison.files.Sum(), 4U);
    EXPECT_EQ(comparison.Unknown(), 0U);
}

TEST(CompareRecord, FindsWhatIsMissingOrSomethingElse)
{
    const Panel panel;
    panel.Link("/mnt/out", panel.Outside() + "/secret");
    ASSERT_EQ(mkfifo((panel.Root() + "/mnt/pipe").c_str(), 0600), 0);
    panel.Record(
        "demo", {"/mnt/user/bin/", "/mnt/user/bin/hello/", "/mnt/gone"},
        {"/mnt/user/bin", "/mnt/user/bin/gone", "/mnt/out", "/mnt/pipe", "/../outside/secret"});

    const Comparison comparison = Compare(panel, "demo");

    EXPECT_TRUE(comparison.HasProblems());
    EXPECT_THAT(Lines(comparison),
                ElementsAre("3 file /mnt/user/bin/hello/", "4 missing /mnt/gone",
                            "7 folder /mnt/user/bin", "8 missing /mnt/user/bin/gone",
                            "9 missing /mnt/out", "10 other /mnt/pipe",
                            "11 missing /../outside/secret"));
    EXPECT_EQ(comparison.folders.present, 2U);
    EXPECT_EQ(comparison.folders.missing, 1U);
    EXPECT_EQ(comparison.folders.otherKind, 1U);
    EXPECT_EQ(comparison.files.present, 2U);
    EXPECT_EQ(comparison.files.missing, 3U);
    EXPECT_EQ(comparison.files.otherKind, 2U);
    EXPECT_EQ(comparison.Missing(), 4U);
    EXPECT_EQ(comparison.OtherKind(), 3U);
}

TEST(CompareRecord, TellsWhatAloneIsWrong)
{
    const Panel panel;
    panel.Record("file", {"/mnt/user/bin/hello"}, {});
    panel.Record("folder", {}, {"/mnt/user/bin"});
    panel.Record("missing", {}, {"/mnt/gone"});
    for (const char* const name : {"file", "folder", "missing"}) {
        EXPECT_TRUE(Compare(panel, name).HasProblems()) << name;
        EXPECT_EQ(Compare(panel, name).deviations.size(), 1U) << name;
    }
}

TEST(CompareRecord, ListsTenThousandAndCountsTheOthers)
{
    const Panel panel;
    std::vector<std::string> files;
    files.reserve(10'005);
    for (int i = 0; i < 10'005; ++i) {
        files.push_back("/gone/" + std::to_string(i));
    }
    panel.Record("demo", {}, files);

    const Comparison comparison = Compare(panel, "demo");

    EXPECT_EQ(comparison.deviations.size(), 10'000U);
    EXPECT_EQ(comparison.omitted, 5U);
    EXPECT_EQ(comparison.files.missing, 10'005U);
}

TEST(CompareRecord, FindsADamagedRecordWrong)
{
    const Panel panel;
    panel.Record("demo", {}, {});
    std::filesystem::remove(panel.Root() + RecordPath("demo") + "/installedFile.list");

    const Comparison comparison = Compare(panel, "demo");

    EXPECT_TRUE(comparison.HasProblems());
    EXPECT_EQ(comparison.files.Sum(), 0U);
}

TEST(CompareRecord, RefusesNamesThatNoRecordHas)
{
    const Panel panel;
    panel.Record("demo", {}, {});
    const std::string remedy = "; kx-package installed lists what there is";

    EXPECT_EQ(ErrorFor(panel, ""), "2: the name is empty" + remedy);
    EXPECT_EQ(ErrorFor(panel, "."), "2: .: is not the name of a record" + remedy);
    EXPECT_EQ(ErrorFor(panel, ".."), "2: ..: is not the name of a record" + remedy);
    EXPECT_EQ(ErrorFor(panel, "demo/"),
              "2: demo/: is not the name of a record: it contains a '/'" + remedy);
    EXPECT_EQ(ErrorFor(panel, "../x"),
              "2: ../x: is not the name of a record: it contains a '/'" + remedy);
}

TEST(CompareRecord, NamesTheNearestRecord)
{
    const Panel panel;
    const std::string none =
        ": there is no record of that name in " + panel.Root() + "/var/lib/KxUserPackages; ";
    EXPECT_EQ(ErrorFor(panel, "demo"), "2: demo" + none + "no packages are recorded");

    panel.Record("demo", {}, {});
    panel.Record("recipes", {}, {});

    EXPECT_EQ(ErrorFor(panel, "Demo"), "2: Demo" + none + "did you mean 'demo'?");
    EXPECT_EQ(ErrorFor(panel, "recipe"), "2: recipe" + none + "did you mean 'recipes'?");
    EXPECT_EQ(ErrorFor(panel, "zzzz"), "2: zzzz" + none + "there are demo and recipes");
    EXPECT_EQ(ErrorFor(panel, "demo\xff"), "2: demo\xff" + none + "did you mean 'demo'?");

    for (int i = 0; i < 18; ++i) {
        panel.MakeDir(RecordPath("filler" + std::to_string(i)));
    }
    EXPECT_THAT(ErrorFor(panel, "zzzz"), ::testing::EndsWith("filler8, filler9 and recipes"));
    panel.MakeDir(RecordPath("filler18"));
    EXPECT_EQ(ErrorFor(panel, "Demo"), "2: Demo" + none + "did you mean 'demo'?");
    EXPECT_EQ(ErrorFor(panel, "zzzz"),
              "2: zzzz" + none + "kx-package installed lists what there is");
}

TEST(CompareRecord, TakesNamesOfAnyBytes)
{
    const Panel panel;
    for (const char* const name : {"two words", "-x", "\xff\x1b", "$(x)"}) {
        panel.Record(name, {}, {"/mnt/user/bin/hello"});

        EXPECT_EQ(Compare(panel, name).files.present, 3U) << name;
    }
}

} // namespace

} // namespace kx::registry
