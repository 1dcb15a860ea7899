// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "steps/StepFixture.h"
#include "support/ShellRecorder.h"
#include "support/TempDir.h"

#include <string>

#include <sys/stat.h>

using namespace std::string_literals;
using ProjectBuilder::CopyFolderStep;
using ProjectBuilder::CopyItem;
using ProjectBuilder::Flag;
using ProjectBuilder::Object;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace
{

/// A package unpacked in "p" of a folder of its own, to be copied to "t" beside it.
class SsCopyFolder : public StepFixture
{
protected:
    SsCopyFolder() : m_umask(umask(022)) { SetPackage(In("p")); }
    ~SsCopyFolder() override { umask(m_umask); }

    [[nodiscard]] const TempDir& Dir() const { return m_dir; }
    [[nodiscard]] std::string In(const std::string& name) const { return m_dir / name; }
    [[nodiscard]] std::string Cp(const std::string& from, const std::string& to) const
    {
        return "cp -f \"" + In(from) + "\" \"" + In(to) + "\" ";
    }
    [[nodiscard]] std::string Mkdir(const std::string& name) const
    {
        return "mkdir -p \"" + In(name) + "\"";
    }
    [[nodiscard]] Object Item(const std::string& target, const std::string& permissions = "") const
    {
        return CopyItem("C:\\work\\folder", In(target), permissions);
    }

private:
    TempDir m_dir;
    mode_t m_umask;
};

} // namespace

TEST_F(SsCopyFolder, DoesAndPrintsNothingForAnEmptyList)
{
    ShellRecorder shell;

    EXPECT_EQ(ExecuteStep(CopyFolderStep({})), 0);
    EXPECT_EQ(ExecuteStep(CopyFolderStep({}, true, false)), 0);

    EXPECT_THAT(shell.Commands(), IsEmpty());
    EXPECT_THAT(Lines(), IsEmpty());
}

TEST_F(SsCopyFolder, TakesAnItemFromTheFolderOfItsStepAndItsNumber)
{
    Dir().Write("p/2/0/a", "");
    Dir().Write("p/2/1/d/b", "");
    ShellRecorder shell;

    EXPECT_EQ(ExecuteStep(CopyFolderStep({Item("t"), Item("u/")}), 2), 0);

    EXPECT_THAT(shell.Commands(), ElementsAre(Mkdir("t"), Cp("p/2/0/a", "t/a"), Mkdir("u/"),
                                              Mkdir("u/d"), Cp("p/2/1/d/b", "u/d/b")));
    EXPECT_THAT(Folders(), ElementsAre(In("t"), In("u/"), In("u/d")));
    EXPECT_THAT(Files(), ElementsAre(In("t/a"), In("u/d/b")));
    EXPECT_THAT(Lines(), IsEmpty());
}

TEST_F(SsCopyFolder, NumbersFoldersInDecimal)
{
    Dir().Write("p/123/10/f", "");
    Dir().MakeDir("t");
    ShellRecorder shell;

    EXPECT_EQ(ExecuteStep(CopyFolderStep(std::vector<Object>(11, Item("t"))), 123), 0);

    EXPECT_THAT(shell.Commands(), ElementsAre(Cp("p/123/10/f", "t/f")));
}

TEST_F(SsCopyFolder, DoesNotUseSourcePathPermissionsAndIsRelativePath)
{
    Dir().Write("p/0/0/f", "");
    Dir().MakeDir("t");
    for (const bool isRelative : {false, true}) {
        Object step = CopyFolderStep({Item("t", "600")});
        step["IsRelativePath"] = Flag(isRelative);
        ShellRecorder shell;

        EXPECT_EQ(ExecuteStep(step), 0);

        EXPECT_THAT(shell.Commands(), ElementsAre(Cp("p/0/0/f", "t/f")));
    }
}

TEST_F(SsCopyFolder, RecordsNothingWithoutIsRemove)
{
    Dir().Write("p/0/0/d/f", "");
    ShellRecorder shell;

    EXPECT_EQ(ExecuteStep(CopyFolderStep({Item("t")}, false, false)), 0);

    EXPECT_THAT(shell.Commands(), ElementsAre(Mkdir("t"), Mkdir("t/d"), Cp("p/0/0/d/f", "t/d/f")));
    EXPECT_THAT(Folders(), IsEmpty());
    EXPECT_THAT(Files(), IsEmpty());
}

TEST_F(SsCopyFolder, CopiesToTheRoot)
{
    Dir().Write("p/0/0/kx-none", "");
    ShellRecorder shell;

    EXPECT_EQ(ExecuteStep(CopyFolderStep({CopyItem("x", "/")})), 0);

    EXPECT_THAT(shell.Commands(),
                ElementsAre("cp -f \"" + In("p/0/0/kx-none") + "\" \"/kx-none\" "));
    EXPECT_THAT(Folders(), IsEmpty());
    EXPECT_THAT(Files(), ElementsAre("/kx-none"));
}

TEST_F(SsCopyFolder, TakesAMissingPayloadForAnEmptyOne)
{
    ShellRecorder shell;

    EXPECT_EQ(ExecuteStep(CopyFolderStep({Item("t")})), 0);

    EXPECT_THAT(shell.Commands(), ElementsAre(Mkdir("t")));
    EXPECT_THAT(Folders(), ElementsAre(In("t")));
    EXPECT_THAT(Lines(), IsEmpty());
}

TEST_F(SsCopyFolder, EndsAtTheFirstFailureAndKeepsWhatWasCopied)
{
    Dir().Write("p/1/0/a", "");
    Dir().Write("p/1/1/b", "");
    Dir().Write("p/1/1/c", "");
    Dir().Write("p/1/2/d", "");
    ShellRecorder shell;
    shell.Answer(Cp("p/1/1/b", "u/b"), 256);

    EXPECT_EQ(ExecuteStep(CopyFolderStep({Item("t"), Item("u", "755"), Item("v")}), 1), 256);

    EXPECT_THAT(shell.Commands(),
                ElementsAre(Mkdir("t"), Cp("p/1/0/a", "t/a"), Mkdir("u"), Cp("p/1/1/b", "u/b")));
    EXPECT_THAT(Lines(), ElementsAre("File copy error( = 256) is corrupted. From " + In("p/1/1") +
                                     " to " + In("u") + "  (Permissions=755)"));
    EXPECT_THAT(Folders(), ElementsAre(In("t"), In("u")));
    EXPECT_THAT(Files(), ElementsAre(In("t/a")));
}

TEST_F(SsCopyFolder, GoesOnBehindEveryFailureWithCanSkip)
{
    for (const char* const name : {"p/0/0/a", "p/0/0/b", "p/0/1/c", "p/0/2/d"}) {
        Dir().Write(name, "");
    }
    Dir().MakeDir("t");
    ShellRecorder shell;
    shell.Answer(Cp("p/0/0/a", "t/a"), 256);
    shell.Answer(Cp("p/0/2/d", "t/d"), 512);

    EXPECT_EQ(ExecuteStep(CopyFolderStep({Item("t", "1"), Item("t", "2"), Item("t", "3")}, true)),
              0);

    // A failure ends the item, not the step.
    EXPECT_THAT(shell.Commands(),
                ElementsAre(Cp("p/0/0/a", "t/a"), Cp("p/0/1/c", "t/c"), Cp("p/0/2/d", "t/d")));
    EXPECT_THAT(Lines(), ElementsAre("File copy error( = 256) is corrupted. From " + In("p/0/0") +
                                         " to " + In("t") + "  (Permissions=1)",
                                     "File copy error( = 512) is corrupted. From " + In("p/0/2") +
                                         " to " + In("t") + "  (Permissions=3)"));
    EXPECT_THAT(Files(), ElementsAre(In("t/c")));
}

class SsCopyFolderStatus : public SsCopyFolder, public ::testing::WithParamInterface<int>
{
};

TEST_P(SsCopyFolderStatus, IsReportedAndReturnedRaw)
{
    Dir().Write("p/0/0/f", "");
    Dir().MakeDir("%s");
    ShellRecorder shell;
    shell.AnswerNth(1, GetParam());

    EXPECT_EQ(ExecuteStep(CopyFolderStep({Item("%s", "%n")})), GetParam());

    EXPECT_THAT(Lines(), ElementsAre("File copy error( = " + std::to_string(GetParam()) +
                                     ") is corrupted. From " + In("p/0/0") + " to " + In("%s") +
                                     "  (Permissions=%n)"));
}

INSTANTIATE_TEST_SUITE_P(Statuses, SsCopyFolderStatus, ::testing::Values(1, 9, 256, 65280, -1));

TEST_F(SsCopyFolder, EndsATargetAtAZeroByte)
{
    Dir().Write("p/0/0/f", "");
    ShellRecorder shell;

    EXPECT_EQ(ExecuteStep(CopyFolderStep({Item("t\0/u"s)})), 0);

    EXPECT_THAT(shell.Commands(), ElementsAre(Mkdir("t"), Cp("p/0/0/f", "t/f")));
    EXPECT_THAT(Folders(), ElementsAre(In("t")));
}

TEST_F(SsCopyFolder, ReallyCopiesThePayload)
{
    Dir().Write("p/0/0/bin/tool", "tool", 0755);
    Dir().Write("p/0/0/.conf", "conf", 0600);
    Dir().Write("t/bin/kept", "kept");
    ShellRecorder shell(ShellRecorder::Mode::PassThrough);

    EXPECT_EQ(ExecuteStep(CopyFolderStep({Item("t", "700")})), 0);

    EXPECT_THAT(Dir().Tree(),
                ElementsAre("p d 755", "p/0 d 755", "p/0/0 d 755", "p/0/0/.conf f 600 conf",
                            "p/0/0/bin d 755", "p/0/0/bin/tool f 755 tool", "t d 755",
                            "t/.conf f 600 conf", "t/bin d 755", "t/bin/kept f 644 kept",
                            "t/bin/tool f 755 tool"));
    EXPECT_THAT(Folders(), IsEmpty());
    EXPECT_THAT(Files(), ElementsAre(In("t/.conf"), In("t/bin/tool")));
    EXPECT_THAT(Lines(), IsEmpty());
}

TEST_F(SsCopyFolder, ReallyReportsAFileInTheTargetsPlace)
{
    Dir().Write("p/0/0/f", "new");
    Dir().Write("t", "a file");
    ShellRecorder shell(ShellRecorder::Mode::PassThrough);

    EXPECT_EQ(ExecuteStep(CopyFolderStep({Item("t")})), 256);

    EXPECT_THAT(Lines(), ElementsAre("File copy error( = 256) is corrupted. From " + In("p/0/0") +
                                     " to " + In("t") + "  (Permissions=)"));
    EXPECT_EQ(ReadFile(In("t")), "a file");
}
