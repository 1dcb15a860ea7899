// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "osa/OSA.h"
#include "support/EngineFixture.h"
#include "support/ShellRecorder.h"
#include "support/TempDir.h"

#include <filesystem>
#include <string>
#include <vector>

#include <sys/stat.h>

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace
{

/// Copies of single files, to a folder that is there and to folders that are not.
class OsaCopyFile : public EngineFixture
{
protected:
    OsaCopyFile() : m_umask(umask(022)) {}
    ~OsaCopyFile() override { umask(m_umask); }

    [[nodiscard]] const TempDir& Dir() const { return m_dir; }

    /// The path of @p name below the folder that is there.
    [[nodiscard]] std::string In(const std::string& name) const { return m_dir / name; }

private:
    TempDir m_dir;
    mode_t m_umask;
};

} // namespace

TEST_F(OsaCopyFile, CreatesCopiesRecordsAndChangesTheModeOfTheTargetFolder)
{
    ShellRecorder shell;
    const std::string target = In("opt/x/");

    EXPECT_EQ(OSA_CopyFile("/a/f.txt", target.c_str(), true, "644"), 0);

    EXPECT_THAT(shell.Commands(),
                ElementsAre("mkdir -p \"" + target + "\"", "cp -f \"/a/f.txt\" \"" + target + "\" ",
                            "chmod 644 \"" + target + "\" "));
    EXPECT_THAT(Folders(), ElementsAre(target));
    EXPECT_THAT(Files(), ElementsAre(target + "f.txt"));
}

TEST_F(OsaCopyFile, NeitherCreatesNorRecordsATargetFolderThatIsThere)
{
    ShellRecorder shell;
    const std::string target = Dir().MakeDir("opt/x") + "/";

    EXPECT_EQ(OSA_CopyFile("/a/f.txt", target.c_str(), true, "644"), 0);

    EXPECT_THAT(shell.Commands(), ElementsAre("cp -f \"/a/f.txt\" \"" + target + "\" ",
                                              "chmod 644 \"" + target + "\" "));
    EXPECT_THAT(Folders(), IsEmpty());
    EXPECT_THAT(Files(), ElementsAre(target + "f.txt"));
}

TEST_F(OsaCopyFile, CreatesTheFolderOfATargetFileAndRecordsItWithItsMark)
{
    ShellRecorder shell;

    EXPECT_EQ(OSA_CopyFile("/a/f.txt", In("x/y/g.bin").c_str(), true, nullptr), 0);

    EXPECT_THAT(shell.Commands(), ElementsAre("mkdir -p \"" + In("x/y/") + "\"",
                                              "cp -f \"/a/f.txt\" \"" + In("x/y/g.bin") + "\" "));
    EXPECT_THAT(Folders(), ElementsAre(In("x/y/")));
    EXPECT_THAT(Files(), ElementsAre(In("x/y/g.bin")));
}

TEST_F(OsaCopyFile, RecordsNothingWhenRecordingIsOff)
{
    ShellRecorder shell;

    EXPECT_EQ(OSA_CopyFile("/a/f.txt", In("x/").c_str(), false, "600"), 0);

    EXPECT_THAT(shell.Commands(), ElementsAre("mkdir -p \"" + In("x/") + "\"",
                                              "cp -f \"/a/f.txt\" \"" + In("x/") + "\" ",
                                              "chmod 600 \"" + In("x/") + "\" "));
    EXPECT_THAT(Folders(), IsEmpty());
    EXPECT_THAT(Files(), IsEmpty());
}

TEST_F(OsaCopyFile, TakesAFileInTheFoldersPlaceForAMissingFolder)
{
    const std::string file = Dir().Write("x", "a file");
    ShellRecorder shell;
    shell.AnswerNth(1, 256);
    shell.AnswerNth(2, 512);

    EXPECT_EQ(OSA_CopyFile("/a/f", In("x/").c_str(), true, nullptr), 512);

    EXPECT_THAT(shell.Commands(), ElementsAre("mkdir -p \"" + In("x/") + "\"",
                                              "cp -f \"/a/f\" \"" + In("x/") + "\" "));
}

namespace
{

struct NoFolderRow {
    const char* name;
    const char* dst;
    const char* recorded;
};

const NoFolderRow kNoFolders[] = {
    {"TargetWithoutSlash", "name", "name"},
    {"TargetInTheRoot", "/name", "/name"},
    {"TargetIsTheRoot", "/", "/f.txt"},
    {"TargetIsTheRootTwice", "//", "//f.txt"},
    {"EmptyTarget", "", ""},
    {"BackslashIsNoMark", "x\\", "x\\"},
};

class OsaCopyFileWithoutFolder : public EngineFixture,
                                 public ::testing::WithParamInterface<NoFolderRow>
{
};

} // namespace

TEST_P(OsaCopyFileWithoutFolder, CreatesAndRecordsNoFolder)
{
    const std::string dst = GetParam().dst;
    ShellRecorder shell;

    EXPECT_EQ(OSA_CopyFile("/a/f.txt", dst.c_str(), true, nullptr), 0);

    EXPECT_THAT(shell.Commands(), ElementsAre("cp -f \"/a/f.txt\" \"" + dst + "\" "));
    EXPECT_THAT(Folders(), IsEmpty());
    EXPECT_THAT(Files(), ElementsAre(GetParam().recorded));
}

INSTANTIATE_TEST_SUITE_P(Targets, OsaCopyFileWithoutFolder, ::testing::ValuesIn(kNoFolders),
                         [](const auto& row) { return std::string(row.param.name); });

TEST_F(OsaCopyFile, RecordsTheSourcesNameBehindAnySeparator)
{
    ShellRecorder shell;

    EXPECT_EQ(OSA_CopyFile("C:\\work\\app.bin", "/", true, nullptr), 0);
    EXPECT_EQ(OSA_CopyFile("C:tool", "/", true, nullptr), 0);
    EXPECT_EQ(OSA_CopyFile("/a/b/", "/", true, nullptr), 0);

    EXPECT_THAT(Files(), ElementsAre("/app.bin", "/tool", "/"));
}

TEST_F(OsaCopyFile, RecordsTheSameTargetOnce)
{
    ShellRecorder shell;

    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(OSA_CopyFile("/a/f.txt", In("x/").c_str(), true, nullptr), 0);
    }
    EXPECT_EQ(OSA_CopyFile("/b/other", In("x/f.txt").c_str(), true, nullptr), 0);

    EXPECT_EQ(shell.Commands().size(), 6U);
    EXPECT_THAT(Folders(), ElementsAre(In("x/")));
    EXPECT_THAT(Files(), ElementsAre(In("x/f.txt")));
}

TEST_F(OsaCopyFile, RecordsInTheOrderOfTheCopies)
{
    ShellRecorder shell;

    EXPECT_EQ(OSA_CopyFile("/a/2", In("y/").c_str(), true, nullptr), 0);
    EXPECT_EQ(OSA_CopyFile("/a/1", In("x/").c_str(), true, nullptr), 0);
    EXPECT_EQ(OSA_CopyFile("/a/0", In("y/").c_str(), true, nullptr), 0);

    EXPECT_THAT(Folders(), ElementsAre(In("y/"), In("x/")));
    EXPECT_THAT(Files(), ElementsAre(In("y/2"), In("x/1"), In("y/0")));
}

TEST_F(OsaCopyFile, RecordsOnlyTheFolderItCreatedWhenTheCopyFails)
{
    ShellRecorder shell;
    shell.AnswerNth(2, 256);

    EXPECT_EQ(OSA_CopyFile("/a/f.txt", In("x/").c_str(), true, "644"), 256);

    EXPECT_THAT(shell.Commands(), ElementsAre("mkdir -p \"" + In("x/") + "\"",
                                              "cp -f \"/a/f.txt\" \"" + In("x/") + "\" "));
    EXPECT_THAT(Folders(), ElementsAre(In("x/")));
    EXPECT_THAT(Files(), IsEmpty());
}

TEST_F(OsaCopyFile, LeavesTheListsAloneWhenTheCopyToAnExistingFolderFails)
{
    ShellRecorder shell;
    shell.AnswerNth(1, -1);

    EXPECT_EQ(OSA_CopyFile("/a/f.txt", (Dir().Path() + "/").c_str(), true, "644"), -1);

    EXPECT_EQ(shell.Commands().size(), 1U);
    EXPECT_THAT(Folders(), IsEmpty());
    EXPECT_THAT(Files(), IsEmpty());
}

TEST_F(OsaCopyFile, GoesOnToTheCopyWhenTheFolderCannotBeCreated)
{
    ShellRecorder shell;
    shell.AnswerNth(1, 256);

    EXPECT_EQ(OSA_CopyFile("/a/f.txt", In("x/").c_str(), true, nullptr), 0);

    EXPECT_THAT(Folders(), ElementsAre(In("x/")));
    EXPECT_THAT(Files(), ElementsAre(In("x/f.txt")));
}

TEST_F(OsaCopyFile, ReturnsTheStatusOfAFailedModeChangeAndKeepsTheRecords)
{
    ShellRecorder shell;
    shell.AnswerNth(2, 512);

    EXPECT_EQ(OSA_CopyFile("/a/f", In("g").c_str(), true, "999"), 512);

    EXPECT_THAT(shell.Commands(), ElementsAre("cp -f \"/a/f\" \"" + In("g") + "\" ",
                                              "chmod 999 \"" + In("g") + "\" "));
    EXPECT_THAT(Files(), ElementsAre(In("g")));
}

TEST_F(OsaCopyFile, ChangesTheModeTo777ForEmptyPermissions)
{
    ShellRecorder shell;

    EXPECT_EQ(OSA_CopyFile("/a/f", In("g").c_str(), false, ""), 0);

    EXPECT_THAT(shell.Commands(), ElementsAre("cp -f \"/a/f\" \"" + In("g") + "\" ",
                                              "chmod 777 \"" + In("g") + "\" "));
}

TEST_F(OsaCopyFile, TakesAPathOf5000Bytes)
{
    const std::string folder = "/" + std::string(4998, 'p') + "/";
    ShellRecorder shell;

    EXPECT_EQ(OSA_CopyFile("/a/f", folder.c_str(), true, nullptr), 0);

    EXPECT_THAT(shell.Commands(),
                ElementsAre("mkdir -p \"" + folder + "\"", "cp -f \"/a/f\" \"" + folder + "\" "));
    EXPECT_THAT(Folders(), ElementsAre(folder));
    EXPECT_THAT(Files(), ElementsAre(folder + "f"));
}

TEST_F(OsaCopyFile, PassesOddNamesOnAsTheyAre)
{
    ShellRecorder shell;

    EXPECT_EQ(OSA_CopyFile("/%s/\xFF$a`\"", In("%n \xFE").c_str(), true, "%d"), 0);

    EXPECT_THAT(shell.Commands(), ElementsAre("cp -f \"/%s/\xFF$a`\"\" \"" + In("%n \xFE") + "\" ",
                                              "chmod %d \"" + In("%n \xFE") + "\" "));
    EXPECT_THAT(Files(), ElementsAre(In("%n \xFE")));
}

TEST_F(OsaCopyFile, ReallyCopiesIntoANewFolderAndChangesOnlyTheFoldersMode)
{
    const std::string source = Dir().Write("f.txt", "content", 0640);
    ShellRecorder shell(ShellRecorder::Mode::PassThrough);

    EXPECT_EQ(OSA_CopyFile(source.c_str(), In("x/y/").c_str(), true, "700"), 0);

    EXPECT_THAT(Dir().Tree(), ElementsAre("f.txt f 640 content", "x d 755", "x/y d 700",
                                          "x/y/f.txt f 640 content"));
    EXPECT_THAT(Folders(), ElementsAre(In("x/y/")));
    EXPECT_THAT(Files(), ElementsAre(In("x/y/f.txt")));
}

TEST_F(OsaCopyFile, ReallyCopiesIntoAFolderGivenWithoutAMarkButRecordsTheFoldersName)
{
    const std::string source = Dir().Write("f.txt", "content");
    const std::string folder = Dir().MakeDir("x");
    ShellRecorder shell(ShellRecorder::Mode::PassThrough);

    EXPECT_EQ(OSA_CopyFile(source.c_str(), folder.c_str(), true, nullptr), 0);

    EXPECT_THAT(Dir().Tree(),
                ElementsAre("f.txt f 644 content", "x d 755", "x/f.txt f 644 content"));
    EXPECT_THAT(Files(), ElementsAre(folder));
}

TEST_F(OsaCopyFile, ReallyReplacesAnExistingTarget)
{
    const std::string source = Dir().Write("f", "new");
    const std::string target = Dir().Write("g", "old and longer", 0600);
    ShellRecorder shell(ShellRecorder::Mode::PassThrough);

    EXPECT_EQ(OSA_CopyFile(source.c_str(), target.c_str(), true, "755"), 0);

    EXPECT_THAT(Dir().Tree(), ElementsAre("f f 644 new", "g f 755 new"));
}

TEST_F(OsaCopyFile, ReallyFailsForAMissingSource)
{
    ShellRecorder shell(ShellRecorder::Mode::PassThrough);

    EXPECT_EQ(OSA_CopyFile(In("missing").c_str(), In("x/").c_str(), true, "644"), 256);

    EXPECT_THAT(Dir().Tree(), ElementsAre("x d 755"));
    EXPECT_THAT(Folders(), ElementsAre(In("x/")));
    EXPECT_THAT(Files(), IsEmpty());
}
