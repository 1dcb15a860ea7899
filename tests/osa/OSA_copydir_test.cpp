// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "osa/OSA.h"
#include "support/EngineFixture.h"
#include "support/ShellRecorder.h"
#include "support/SystemFiles.h"
#include "support/TempDir.h"

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include <sys/stat.h>

using ::testing::AllOf;
using ::testing::AnyOf;
using ::testing::ElementsAre;
using ::testing::Ge;
using ::testing::IsEmpty;
using ::testing::Le;
namespace fs = std::filesystem;

namespace
{

/// Copies from "s" to "t", both in one folder; only "s" is there.
class OsaCopyDirIn : public EngineFixture
{
protected:
    OsaCopyDirIn() : m_umask(umask(022)) { m_dir.MakeDir("s"); }
    ~OsaCopyDirIn() override { umask(m_umask); }

    [[nodiscard]] const TempDir& Dir() const { return m_dir; }
    [[nodiscard]] std::string In(const std::string& name) const { return m_dir / name; }

    /// The copy command for the entry @p name.
    [[nodiscard]] std::string Cp(const std::string& name) const
    {
        return CpTo("s/" + name, In("t/" + name));
    }
    [[nodiscard]] std::string CpTo(const std::string& name, const std::string& target) const
    {
        return "cp -f \"" + In(name) + "\" \"" + target + "\" ";
    }
    [[nodiscard]] std::string Mkdir(const std::string& name) const
    {
        return "mkdir -p \"" + In(name) + "\"";
    }

    /// Copies "s" to "t" with recording.
    [[nodiscard]] int Copy() const { return OSA_CopyDirIn(In("s").c_str(), In("t").c_str(), true); }

    /// The tree below "t".
    [[nodiscard]] std::vector<std::string> Target() const
    {
        std::vector<std::string> lines = m_dir.Tree();
        const auto isElsewhere = [](const std::string& line) {
            return line.compare(0, 2, "t/") != 0;
        };
        lines.erase(std::remove_if(lines.begin(), lines.end(), isElsewhere), lines.end());
        return lines;
    }

private:
    TempDir m_dir;
    mode_t m_umask;
};

/// A file system that may not tell the kinds of its entries, and counts who asks for one.
class Kinds final : public SystemFiles
{
public:
    explicit Kinds(bool areTold) : m_areTold(areTold) {}

    [[nodiscard]] int Stat(const char* path, struct stat* info) override
    {
        m_asked.push_back(fs::path(path).filename());
        return SystemFiles::Stat(path, info);
    }
    [[nodiscard]] int List(const char* dir, dirent*** entries) override
    {
        const int count = SystemFiles::List(dir, entries);
        for (int index = 0; index < count && !m_areTold; ++index) {
            (*entries)[index]->d_type = DT_UNKNOWN;
        }
        return count;
    }

    /// The names that were looked at.
    [[nodiscard]] const std::vector<std::string>& Asked() const { return m_asked; }

private:
    bool m_areTold;
    std::vector<std::string> m_asked;
};

} // namespace

TEST_F(OsaCopyDirIn, CopiesAHiddenFileThatIsTheOnlyOne)
{
    Dir().Write("s/.hidden", "");
    ShellRecorder shell;

    EXPECT_EQ(Copy(), 0);

    EXPECT_THAT(shell.Commands(), ElementsAre(Mkdir("t"), Cp(".hidden")));
    EXPECT_THAT(Folders(), ElementsAre(In("t")));
    EXPECT_THAT(Files(), ElementsAre(In("t/.hidden")));
}

TEST_F(OsaCopyDirIn, CopiesNamesInCollationOrder)
{
    for (const char* const name : {"s/b", "s/a", "s/B", "s/A", "s/.c"}) {
        Dir().Write(name, "");
    }
    ShellRecorder shell;

    EXPECT_EQ(Copy(), 0);

    EXPECT_THAT(shell.Commands(),
                ElementsAre(Mkdir("t"), Cp(".c"), Cp("A"), Cp("B"), Cp("a"), Cp("b")));
}

TEST_F(OsaCopyDirIn, CreatesAndRecordsTheTargetOfAMissingSource)
{
    ShellRecorder shell;

    EXPECT_EQ(OSA_CopyDirIn(In("missing").c_str(), In("t").c_str(), true), 0);

    EXPECT_THAT(shell.Commands(), ElementsAre(Mkdir("t")));
    EXPECT_THAT(Folders(), ElementsAre(In("t")));
    EXPECT_THAT(Files(), IsEmpty());
}

TEST_F(OsaCopyDirIn, CreatesTheTargetOfAMissingSourceWithoutRecordingIt)
{
    ShellRecorder shell;

    EXPECT_EQ(OSA_CopyDirIn(In("missing").c_str(), In("t").c_str(), false), 0);

    EXPECT_THAT(shell.Commands(), ElementsAre(Mkdir("t")));
    EXPECT_THAT(Folders(), IsEmpty());
}

TEST_F(OsaCopyDirIn, CreatesTheTargetOfAnEmptySource)
{
    ShellRecorder shell;

    EXPECT_EQ(Copy(), 0);

    EXPECT_THAT(shell.Commands(), ElementsAre(Mkdir("t")));
    EXPECT_THAT(Folders(), ElementsAre(In("t")));
}

TEST_F(OsaCopyDirIn, TakesAFileForAnEmptySource)
{
    const std::string file = Dir().Write("file", "");
    ShellRecorder shell;

    EXPECT_EQ(OSA_CopyDirIn(file.c_str(), In("t").c_str(), true), 0);

    EXPECT_THAT(shell.Commands(), ElementsAre(Mkdir("t")));
}

TEST_F(OsaCopyDirIn, DoesNothingForAMissingSourceAndAnExistingTarget)
{
    Dir().MakeDir("t");
    ShellRecorder shell;

    EXPECT_EQ(OSA_CopyDirIn(In("missing").c_str(), In("t").c_str(), true), 0);

    EXPECT_THAT(shell.Commands(), IsEmpty());
    EXPECT_THAT(Folders(), IsEmpty());
}

TEST_F(OsaCopyDirIn, RecordsOnlyTheFilesInAnExistingTarget)
{
    Dir().Write("s/a", "");
    Dir().Write("s/d/b", "");
    Dir().MakeDir("t/d");
    ShellRecorder shell;

    EXPECT_EQ(Copy(), 0);

    EXPECT_THAT(shell.Commands(), ElementsAre(Cp("a"), Cp("d/b")));
    EXPECT_THAT(Folders(), IsEmpty());
    EXPECT_THAT(Files(), ElementsAre(In("t/a"), In("t/d/b")));
}

TEST_F(OsaCopyDirIn, RecordsEachFolderLevelItCreatesWithoutAMark)
{
    Dir().Write("s/d/e/f", "");
    Dir().MakeDir("s/empty");
    Dir().Write("s/z", "");
    ShellRecorder shell;

    EXPECT_EQ(OSA_CopyDirIn(In("s").c_str(), In("new/t").c_str(), true), 0);

    EXPECT_THAT(shell.Commands(), ElementsAre(Mkdir("new/t"), Mkdir("new/t/d"), Mkdir("new/t/d/e"),
                                              CpTo("s/d/e/f", In("new/t/d/e/f")),
                                              Mkdir("new/t/empty"), CpTo("s/z", In("new/t/z"))));
    EXPECT_THAT(Folders(),
                ElementsAre(In("new/t"), In("new/t/d"), In("new/t/d/e"), In("new/t/empty")));
    EXPECT_THAT(Files(), ElementsAre(In("new/t/d/e/f"), In("new/t/z")));
}

TEST_F(OsaCopyDirIn, RecordsATargetWithAMarkAsItIsGiven)
{
    Dir().Write("s/d/f", "");
    ShellRecorder shell;

    EXPECT_EQ(OSA_CopyDirIn(In("s").c_str(), In("t/").c_str(), true), 0);

    EXPECT_THAT(shell.Commands(), ElementsAre(Mkdir("t/"), Mkdir("t/d"), Cp("d/f")));
    EXPECT_THAT(Folders(), ElementsAre(In("t/"), In("t/d")));
    EXPECT_THAT(Files(), ElementsAre(In("t/d/f")));
}

TEST_F(OsaCopyDirIn, AddsNoSecondMarkToASourceThatHasOne)
{
    Dir().Write("s/d/f", "");
    Dir().Write("s/g", "");
    ShellRecorder shell;

    EXPECT_EQ(OSA_CopyDirIn(In("s/").c_str(), In("t").c_str(), true), 0);

    EXPECT_THAT(shell.Commands(), ElementsAre(Mkdir("t"), Mkdir("t/d"), Cp("d/f"), Cp("g")));
}

TEST_F(OsaCopyDirIn, CopiesToTheRootWithoutCreatingOrRecordingIt)
{
    Dir().Write("s/kx-no-such-file", "");
    Dir().Write("s/kx-no-such-folder/f", "");
    ShellRecorder shell;

    EXPECT_EQ(OSA_CopyDirIn(In("s").c_str(), "/", true), 0);

    EXPECT_THAT(shell.Commands(),
                ElementsAre(CpTo("s/kx-no-such-file", "/kx-no-such-file"),
                            "mkdir -p \"/kx-no-such-folder\"",
                            CpTo("s/kx-no-such-folder/f", "/kx-no-such-folder/f")));
    EXPECT_THAT(Folders(), ElementsAre("/kx-no-such-folder"));
    EXPECT_THAT(Files(), ElementsAre("/kx-no-such-file", "/kx-no-such-folder/f"));
}

TEST_F(OsaCopyDirIn, LooksOnlyAtEntriesThatMayBeFolders)
{
    Dir().Write("s/a", "");
    Dir().Write("s/b/c", "");
    fs::create_symlink("a", In("s/d"));
    fs::create_directory_symlink("b", In("s/e"));
    ShellRecorder shell;
    const Kinds kinds(true);

    EXPECT_EQ(Copy(), 0);

    EXPECT_THAT(kinds.Asked(), ElementsAre("t", "b", "b", "d", "e", "e"));
    EXPECT_THAT(shell.Commands(), ElementsAre(Mkdir("t"), Cp("a"), Mkdir("t/b"), Cp("b/c"), Cp("d"),
                                              Mkdir("t/e"), Cp("e/c")));
}

TEST_F(OsaCopyDirIn, LooksAtEveryEntryWhoseKindIsNotTold)
{
    Dir().Write("s/a", "");
    Dir().Write("s/b/c", "");
    ShellRecorder shell;
    const Kinds kinds(false);

    EXPECT_EQ(Copy(), 0);

    EXPECT_THAT(kinds.Asked(), ElementsAre("t", "a", "b", "b", "c"));
    EXPECT_THAT(shell.Commands(), ElementsAre(Mkdir("t"), Cp("a"), Mkdir("t/b"), Cp("b/c")));
}

TEST_F(OsaCopyDirIn, RecordsFilesInTheOrderOfTheirCopying)
{
    for (const char* const name : {"s/a", "s/b/c", "s/b/d/e", "s/b/f", "s/g"}) {
        Dir().Write(name, "");
    }
    ShellRecorder shell;

    EXPECT_EQ(Copy(), 0);

    EXPECT_THAT(Files(),
                ElementsAre(In("t/a"), In("t/b/c"), In("t/b/d/e"), In("t/b/f"), In("t/g")));
}

TEST_F(OsaCopyDirIn, RecordsNothingWhenRecordingIsOff)
{
    Dir().Write("s/d/f", "");
    ShellRecorder shell;

    EXPECT_EQ(OSA_CopyDirIn(In("s").c_str(), In("t").c_str(), false), 0);

    EXPECT_THAT(shell.Commands(), ElementsAre(Mkdir("t"), Mkdir("t/d"), Cp("d/f")));
    EXPECT_THAT(Folders(), IsEmpty());
    EXPECT_THAT(Files(), IsEmpty());
}

TEST_F(OsaCopyDirIn, RecordsTheSameTreeOnce)
{
    Dir().Write("s/d/f", "");
    ShellRecorder shell;

    EXPECT_EQ(Copy(), 0);
    EXPECT_EQ(Copy(), 0);

    EXPECT_THAT(Folders(), ElementsAre(In("t"), In("t/d")));
    EXPECT_THAT(Files(), ElementsAre(In("t/d/f")));
}

TEST_F(OsaCopyDirIn, EndsAtTheThirdFileOfASubfolderThatCannotBeCopied)
{
    for (const char* const name : {"s/a", "s/d/1", "s/d/2", "s/d/3", "s/d/4", "s/e/f", "s/z"}) {
        Dir().Write(name, "");
    }
    ShellRecorder shell;
    shell.Answer(Cp("d/3"), 512);

    EXPECT_EQ(Copy(), 512);

    EXPECT_THAT(shell.Commands(),
                ElementsAre(Mkdir("t"), Cp("a"), Mkdir("t/d"), Cp("d/1"), Cp("d/2"), Cp("d/3")));
    EXPECT_THAT(Folders(), ElementsAre(In("t"), In("t/d")));
    EXPECT_THAT(Files(), ElementsAre(In("t/a"), In("t/d/1"), In("t/d/2")));
}

TEST_F(OsaCopyDirIn, GoesOnToTheCopiesWhenTheTargetCannotBeCreated)
{
    Dir().Write("s/a", "");
    ShellRecorder shell;
    shell.Answer(Mkdir("t"), 256);
    shell.Answer(Cp("a"), 256);

    EXPECT_EQ(Copy(), 256);

    EXPECT_THAT(shell.Commands(), ElementsAre(Mkdir("t"), Cp("a")));
    EXPECT_THAT(Folders(), ElementsAre(In("t")));
    EXPECT_THAT(Files(), IsEmpty());
}

TEST_F(OsaCopyDirIn, PassesOddNamesOnAsTheyAre)
{
    for (const char* const name : {"s/%s%n", "s/a \"b\"", "s/\xFF\xFE", "s/$x`y\\"}) {
        Dir().Write(name, "");
    }
    ShellRecorder shell;

    EXPECT_EQ(Copy(), 0);

    EXPECT_THAT(shell.Commands(),
                ElementsAre(Mkdir("t"), Cp("$x`y\\"), Cp("%s%n"), Cp("a \"b\""), Cp("\xFF\xFE")));
}

TEST_F(OsaCopyDirIn, TakesATargetOf5000Bytes)
{
    Dir().Write("s/f", "");
    const std::string target = "/" + std::string(4999, 'p');
    ShellRecorder shell;

    EXPECT_EQ(OSA_CopyDirIn(In("s").c_str(), target.c_str(), true), 0);

    EXPECT_THAT(shell.Commands(),
                ElementsAre("mkdir -p \"" + target + "\"", CpTo("s/f", target + "/f")));
    EXPECT_THAT(Folders(), ElementsAre(target));
    EXPECT_THAT(Files(), ElementsAre(target + "/f"));
}

TEST_F(OsaCopyDirIn, ReallyCopiesATree)
{
    Dir().Write("s/.hidden", "h");
    Dir().Write("s/bin/tool", "#!/bin/sh\n", 0755);
    Dir().Write("s/data/a b", "content", 0600);
    Dir().MakeDir("s/empty");
    ShellRecorder shell(ShellRecorder::Mode::PassThrough);

    EXPECT_EQ(Copy(), 0);

    EXPECT_THAT(Target(),
                ElementsAre("t/.hidden f 644 h", "t/bin d 755", "t/bin/tool f 755 #!/bin/sh\n",
                            "t/data d 755", "t/data/a b f 600 content", "t/empty d 755"));
    EXPECT_THAT(Folders(), ElementsAre(In("t"), In("t/bin"), In("t/data"), In("t/empty")));
    EXPECT_THAT(Files(), ElementsAre(In("t/.hidden"), In("t/bin/tool"), In("t/data/a b")));
}

TEST_F(OsaCopyDirIn, ReallyReplacesFilesAndKeepsOthers)
{
    Dir().Write("s/d/f", "new");
    Dir().Write("t/d/f", "old and longer");
    Dir().Write("t/d/kept", "kept");
    ShellRecorder shell(ShellRecorder::Mode::PassThrough);

    EXPECT_EQ(Copy(), 0);

    EXPECT_THAT(Target(), ElementsAre("t/d d 755", "t/d/f f 644 new", "t/d/kept f 644 kept"));
    EXPECT_THAT(Files(), ElementsAre(In("t/d/f")));
}

TEST_F(OsaCopyDirIn, ReallyFollowsLinks)
{
    Dir().Write("elsewhere/f", "content");
    fs::create_symlink("../elsewhere/f", In("s/file"));
    fs::create_symlink("../elsewhere", In("s/folder"));
    ShellRecorder shell(ShellRecorder::Mode::PassThrough);

    EXPECT_EQ(Copy(), 0);

    EXPECT_THAT(Target(),
                ElementsAre("t/file f 644 content", "t/folder d 755", "t/folder/f f 644 content"));
    EXPECT_FALSE(fs::is_symlink(In("t/file")));
    EXPECT_FALSE(fs::is_symlink(In("t/folder")));
}

TEST_F(OsaCopyDirIn, ReallyEndsAtALinkToNothing)
{
    Dir().Write("s/a", "a");
    fs::create_symlink("missing", In("s/b"));
    Dir().Write("s/c", "c");
    ShellRecorder shell(ShellRecorder::Mode::PassThrough);

    EXPECT_EQ(Copy(), 256);

    EXPECT_THAT(Target(), ElementsAre("t/a f 644 a"));
    EXPECT_THAT(Files(), ElementsAre(In("t/a")));
}

TEST_F(OsaCopyDirIn, EndsInAFolderThatLinksToItself)
{
    fs::create_symlink(".", In("s/loop"));
    ShellRecorder shell(ShellRecorder::Mode::PassThrough);

    // The system follows a path through forty links at most, and through fewer when it has to
    // start over on a busy machine. There the listing is empty or the copy fails.
    EXPECT_THAT(Copy(), AnyOf(0, 256));

    EXPECT_THAT(Folders().size(), AllOf(Ge(2U), Le(41U)));
    EXPECT_THAT(Files(), IsEmpty());
}

TEST_F(OsaCopyDirIn, ReallyFailsWhereAFileStandsInAFoldersPlace)
{
    Dir().Write("s/d/f", "new");
    Dir().Write("t/d", "a file");
    ShellRecorder shell(ShellRecorder::Mode::PassThrough);

    EXPECT_EQ(Copy(), 256);

    EXPECT_THAT(Target(), ElementsAre("t/d f 644 a file"));
    EXPECT_THAT(Folders(), ElementsAre(In("t/d")));
    EXPECT_THAT(Files(), IsEmpty());
}
