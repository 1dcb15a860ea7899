// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "io/Faults.h"
#include "journal/Baseline.h"
#include "journal/TestState.h"
#include "support/ProjectBuilder.h"
#include "support/Thrown.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace kx::guard
{

namespace
{

using testing::ElementsAre;
using testing::Pair;

/// What is remembered, in a temporary folder that also stands for the panel's root.
struct Memory {
    TempDir dir;
    State state{PlaceIn(dir)};
    io::RootedFolder panel{dir.Path()};
};

void WriteRecord(const TempDir& dir, const std::string& name, const std::string& version)
{
    ProjectBuilder::Object root = ProjectBuilder::Root();
    root["PackageVersion"] = ProjectBuilder::Text(version);
    dir.Write("var/lib/KxUserPackages/" + name + "/UserPackage.kx-project",
              ProjectBuilder::File(root));
}

} // namespace

TEST(Baseline, IsNoneBeforeTheFirstInstallation)
{
    const Memory memory;

    EXPECT_EQ(HighestVersion(memory.state.Folder(), "Hello"), std::nullopt);
    EXPECT_THAT(AllVersions(memory.state.Folder()), ElementsAre());
}

TEST(Baseline, IsRaisedAndNeverLowered)
{
    const Memory memory;
    const StateFolder& state = memory.state.Folder();

    RaiseVersion(state, "Hello", "1.9");
    RaiseVersion(state, "Hello", "1.10");
    RaiseVersion(state, "Hello", "1.9");
    RaiseVersion(state, "Other", "3");

    EXPECT_EQ(HighestVersion(state, "Hello"), "1.10");
    EXPECT_THAT(AllVersions(state), ElementsAre(Pair("Hello", "1.10"), Pair("Other", "3")));
}

TEST(Baseline, IsOnTheDiskWithTheFolderThatWasMadeForIt)
{
    const Memory memory;
    const std::string state = memory.dir / "state";
    const io::Placing placing;

    RaiseVersion(memory.state.Folder(), "Hello", "1");

    EXPECT_THAT(placing.Calls(), ElementsAre("sync " + state + "/versions/.Hello.new, 10 bytes",
                                             "name " + state + "/versions/Hello",
                                             "sync " + state + "/versions", "sync " + state));
}

TEST(Baseline, LeavesOutWhatCannotBeCompared)
{
    const Memory memory;

    RaiseVersion(memory.state.Folder(), "Hello", "newest");
    RaiseVersion(memory.state.Folder(), "Hello", "1\n2");

    EXPECT_EQ(HighestVersion(memory.state.Folder(), "Hello"), std::nullopt);
}

class DamagedBaseline : public testing::TestWithParam<const char*>
{
};

TEST_P(DamagedBaseline, IsNotTakenForNone)
{
    const Memory memory;
    memory.dir.Write("state/versions/Hello", GetParam());
    const std::string error =
        "1: " + memory.dir.Path() +
        "/state/versions/Hello: is damaged, so it cannot be told what was installed; compare the "
        "panel's packages with what it should have, then remove the file";

    EXPECT_EQ(Thrown([&] { static_cast<void>(HighestVersion(memory.state.Folder(), "Hello")); }),
              error);
    EXPECT_EQ(Thrown([&] { RaiseVersion(memory.state.Folder(), "Hello", "9"); }), error);
    EXPECT_EQ(ReadFile(memory.dir / "state/versions/Hello"), GetParam());
}

INSTANTIATE_TEST_SUITE_P(All, DamagedBaseline,
                         testing::Values("", "Hello\n1.2\n", "Hello\n1.2\n1.2", "Hello\n1.2\n1.3\n",
                                         "Other\n1.2\n1.2\n", "Hello\nx\nx\n",
                                         "Hello\n1.2\n1.2\n\n"));

TEST(Baseline, RemembersWhatWasBegunUntilItIsForgotten)
{
    const Memory memory;
    const StateFolder& state = memory.state.Folder();

    EXPECT_FALSE(FindBegun(state).has_value());
    NoteBegun(state, {"Hello", "1.2", 7});
    const std::optional<Begun> begun = FindBegun(state);
    ForgetBegun(state);

    ASSERT_TRUE(begun.has_value());
    EXPECT_EQ(begun->name, "Hello");
    EXPECT_EQ(begun->version, "1.2");
    EXPECT_EQ(begun->historyId, 7U);
    EXPECT_FALSE(FindBegun(state).has_value());
}

TEST(Baseline, HasWhatIsForgottenOffTheDisk)
{
    const Memory memory;
    NoteBegun(memory.state.Folder(), {"Hello", "1.2", 7});
    const io::Placing placing;

    ForgetBegun(memory.state.Folder());

    EXPECT_THAT(placing.Calls(), ElementsAre("sync " + (memory.dir / "state")));
}

TEST(Baseline, RefusesADamagedNoteOfWhatWasBegun)
{
    const Memory memory;
    for (const char* const note : {"", "Hello\n1\n", "../x\n1\n2\n", "Hello\n1\n-2\n"}) {
        memory.dir.Write("state/begun", note);
        EXPECT_THAT(Thrown([&] { static_cast<void>(FindBegun(memory.state.Folder())); }),
                    testing::StartsWith("1: " + memory.dir.Path() + "/state/begun: is damaged"))
            << note;
    }
}

TEST(Baseline, CountsWhatWasBegunAndIsRecorded)
{
    const Memory memory;
    const StateFolder& state = memory.state.Folder();
    RaiseVersion(state, "Hello", "1.1");
    NoteBegun(state, {"Hello", "1.2", 7});

    EXPECT_EQ(HighestVersionNow(state, memory.panel, "Hello"), "1.1") << "no record";
    WriteRecord(memory.dir, "Hello", "1.1");
    EXPECT_EQ(HighestVersionNow(state, memory.panel, "Hello"), "1.1") << "an older record";
    WriteRecord(memory.dir, "Hello", "1.2");
    EXPECT_EQ(HighestVersionNow(state, memory.panel, "Hello"), "1.2");
    EXPECT_EQ(HighestVersionNow(state, memory.panel, "Other"), std::nullopt);
    EXPECT_EQ(HighestVersion(state, "Hello"), "1.1") << "nothing was changed";
}

} // namespace kx::guard
