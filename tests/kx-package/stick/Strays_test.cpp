// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "stick/Strays.h"
#include "support/TempDir.h"
#include "support/Thrown.h"

#include <gmock/gmock.h>

#include <stdexcept>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kx::tool
{

namespace
{

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class StrayTest : public testing::Test
{
protected:
    StrayTest() : m_folder(open(m_drive.Path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {}

    /// "name: kind" of all that is found beside a.kx-update.
    [[nodiscard]] std::vector<std::string> Found(bool isCaseBlind = false) const
    {
        std::vector<std::string> found;
        for (const Stray& stray : FindStrays(m_folder, "usb", "a.kx-update", isCaseBlind)) {
            found.push_back(stray.name + ": " + StrayWord(stray.kind));
        }
        return found;
    }

    void Remove(const std::string& name, StrayKind kind) const
    {
        RemoveStray(m_folder, {name, kind, 0}, "usb/" + name);
    }

    TempDir m_drive;
    io::Descriptor m_folder;
};

TEST_F(StrayTest, WhatThePanelDoesNotTakeForAPackageIsNone)
{
    for (const char* const name :
         {"a.kx-update", "b.KX-UPDATE", ".kx-update", "b.kx-update.zip", "b.kx-updat", "kx-update",
          "Pictures/c.kx-update", "Pictures/c.temp/UserPackage.kx-project", "b.temp",
          "c.temp/notes.txt", "d.temp/0/0/x", ".a.kx-update.12", ".a.kx-update.x-1",
          ".kx-update.1-1", "a.kx-update.1-1", ".a.zip.1-1", ".a.kx-update.12-"}) {
        m_drive.Write(name, "x");
    }
    m_drive.MakeDir(".b.kx-update.1-1");

    EXPECT_THAT(Found(), IsEmpty());
    EXPECT_THAT(Found(true), IsEmpty());
}

TEST_F(StrayTest, EveryKindIsFoundAndOnlyAtTheTop)
{
    for (const char* const name :
         {"._a.kx-update", ".hidden.kx-update", "b.kx-update", "A.kx-update", "a.KX-update",
          "c.temp/UserPackage.kx-project", "c.temp/own", "b.temp/0/0/x", ".a.kx-update.1234-0",
          ".b.kx-update.1-12", "sub/z.kx-update"}) {
        m_drive.Write(name, "x");
    }
    m_drive.MakeDir("d.kx-update");
    ASSERT_EQ(symlink("nowhere", (m_drive / "l.kx-update").c_str()), 0);

    EXPECT_THAT(Found(),
                ElementsAre("._a.kx-update: hidden-twin", ".a.kx-update.1234-0: unfinished",
                            ".b.kx-update.1-12: unfinished", ".hidden.kx-update: hidden-twin",
                            "A.kx-update: package", "b.kx-update: package", "b.temp: unpacked",
                            "c.temp: unpacked", "d.kx-update: folder", "l.kx-update: package"));
    EXPECT_THAT(Found(true),
                ElementsAre("._a.kx-update: hidden-twin", ".a.kx-update.1234-0: unfinished",
                            ".b.kx-update.1-12: unfinished", ".hidden.kx-update: hidden-twin",
                            "A.kx-update: other-case", "a.KX-update: other-case",
                            "b.kx-update: package", "b.temp: unpacked", "c.temp: unpacked",
                            "d.kx-update: folder", "l.kx-update: package"));
}

TEST_F(StrayTest, WhereThePackageWillBeUnpackedEverythingCounts)
{
    m_drive.MakeDir("a.temp");
    EXPECT_THAT(Found(), ElementsAre("a.temp: unpacked"));
    m_drive.Write("a.temp/12/0/x", "");
    m_drive.Write("a.temp/kx_Updater", "");
    EXPECT_THAT(Found(), ElementsAre("a.temp: unpacked"));
    m_drive.Write("a.temp/letters", "");
    EXPECT_THAT(Found(), ElementsAre("a.temp: in-the-way"));
    m_drive.Write("a.temp/UserPackage.kx-project", "");
    EXPECT_THAT(Found(), ElementsAre("a.temp: unpacked"));
}

TEST_F(StrayTest, AFileOrLinkWhereThePackageWillBeUnpackedIsInTheWay)
{
    m_drive.Write("a.temp", "letters");
    EXPECT_THAT(Found(), ElementsAre("a.temp: in-the-way"));
    ASSERT_EQ(unlink((m_drive / "a.temp").c_str()), 0);
    ASSERT_EQ(symlink(".", (m_drive / "a.temp").c_str()), 0);
    EXPECT_THAT(Found(), ElementsAre("a.temp: in-the-way"));
    ASSERT_EQ(unlink((m_drive / "a.temp").c_str()), 0);
    m_drive.Write("A.TEMP/letters", "");
    EXPECT_THAT(Found(), IsEmpty());
    EXPECT_THAT(Found(true), ElementsAre("A.TEMP: in-the-way"));
}

TEST_F(StrayTest, AFolderOfThePackagesNameIsTold)
{
    m_drive.Write("a.kx-update/own", "");
    EXPECT_THAT(Found(), ElementsAre("a.kx-update: folder"));
}

TEST_F(StrayTest, OnlyTheStrayIsRemovedAndNoLinkIsFollowed)
{
    m_drive.Write("keep/own", "kept");
    m_drive.Write("c.temp/UserPackage.kx-project", "x");
    m_drive.Write("c.temp/0/0/deep/x", "x");
    m_drive.Write("b.kx-update", "x");
    ASSERT_EQ(symlink("../keep", (m_drive / "c.temp/0/link").c_str()), 0);
    ASSERT_EQ(symlink("keep", (m_drive / "l.kx-update").c_str()), 0);
    ASSERT_EQ(mkfifo((m_drive / "c.temp/fifo").c_str(), 0600), 0);

    Remove("c.temp", StrayKind::kUnpacked);
    Remove("b.kx-update", StrayKind::kPackage);
    Remove("l.kx-update", StrayKind::kPackage);

    EXPECT_THAT(m_drive.Tree(), ElementsAre("keep d 755", "keep/own f 644 kept"));
}

TEST_F(StrayTest, WhatMayBeAnythingIsNotRemoved)
{
    m_drive.Write("a.temp/own", "x");

    EXPECT_THROW(Remove("a.temp", StrayKind::kInTheWay), std::logic_error);
    EXPECT_THROW(Remove("a.temp", StrayKind::kFolder), std::logic_error);
    EXPECT_EQ(ReadFile(m_drive / "a.temp/own"), "x");
    for (const StrayKind kind : {StrayKind::kPackage, StrayKind::kTwin, StrayKind::kOtherCase,
                                 StrayKind::kUnpacked, StrayKind::kUnfinished}) {
        EXPECT_TRUE(IsRemovable(kind)) << StrayWord(kind);
    }
}

TEST_F(StrayTest, WhatCannotBeRemovedIsAnError)
{
    EXPECT_EQ(Thrown([this] { Remove("none.kx-update", StrayKind::kPackage); }),
              "3: usb/none.kx-update: cannot remove: No such file or directory");
}

TEST_F(StrayTest, WhatItTakesOnTheDriveIsCounted)
{
    m_drive.Write("c.temp/0/x", std::string(100000, 'x'));
    m_drive.Write("c.temp/1/x", std::string(1, 'x'));

    EXPECT_GE(BytesTaken(m_folder, "c.temp"), 100001U);
    EXPECT_LE(BytesTaken(m_folder, "c.temp"), 200000U);
    EXPECT_EQ(BytesTaken(m_folder, "none"), 0U);
}

TEST(StrayProblems, SayWhatThePanelDoesAndWhatToDo)
{
    const auto line = [](StrayKind kind) { return StrayProblem({"x", kind, 0}, "usb/x").Line(); };

    EXPECT_EQ(
        line(StrayKind::kPackage),
        "usb/x: is another package; of several the panel installs none; --replace removes it");
    EXPECT_THAT(line(StrayKind::kTwin), HasSubstr("usb/x: is a hidden file "));
    EXPECT_THAT(line(StrayKind::kOtherCase), HasSubstr("in other letters"));
    EXPECT_EQ(line(StrayKind::kFolder),
              "usb/x: is a folder that the panel counts as a package; give it another name");
    EXPECT_THAT(line(StrayKind::kUnpacked), HasSubstr("unpacked for an installation"));
    EXPECT_EQ(
        line(StrayKind::kInTheWay),
        "usb/x: is where the panel unpacks the package; it removes what is there before; give "
        "it another name, or the package");
    EXPECT_THAT(line(StrayKind::kUnfinished), HasSubstr("by a kx-package that was stopped"));
}

} // namespace

} // namespace kx::tool
