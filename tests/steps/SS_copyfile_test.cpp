// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "steps/StepFixture.h"
#include "support/ShellRecorder.h"
#include "support/TempDir.h"

#include <string>
#include <vector>

#include <sys/stat.h>

using namespace std::string_literals;
using ProjectBuilder::CopyFileStep;
using ProjectBuilder::CopyItem;
using ProjectBuilder::Flag;
using ProjectBuilder::Object;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace
{

class SsCopyFile : public StepFixture
{
};

} // namespace

TEST_F(SsCopyFile, DoesAndPrintsNothingForAnEmptyList)
{
    ShellRecorder shell;

    EXPECT_EQ(ExecuteStep(CopyFileStep({})), 0);
    EXPECT_EQ(ExecuteStep(CopyFileStep({}, true, false)), 0);

    EXPECT_THAT(shell.Commands(), IsEmpty());
    EXPECT_THAT(Lines(), IsEmpty());
}

TEST_F(SsCopyFile, TakesAnItemFromTheFolderOfItsStepAndItsNumber)
{
    ShellRecorder shell;

    EXPECT_EQ(ExecuteStep(CopyFileStep({CopyItem("C:\\work\\first.bin", "/a", "644"),
                                        CopyItem("C:\\work\\app.bin", "/b", "755")}),
                          2),
              0);

    EXPECT_THAT(shell.Commands(),
                ElementsAre(R"(cp -f "/pkg/2/0/first.bin" "/a" )", R"(chmod 644 "/a" )",
                            R"(cp -f "/pkg/2/1/app.bin" "/b" )", R"(chmod 755 "/b" )"));
    EXPECT_THAT(Files(), ElementsAre("/a", "/b"));
    EXPECT_THAT(Lines(), IsEmpty());
}

TEST_F(SsCopyFile, NumbersFoldersInDecimal)
{
    const std::vector<Object> items(12, CopyItem("f", "/g"));
    ShellRecorder shell;

    EXPECT_EQ(ExecuteStep(CopyFileStep(items), 123), 0);

    EXPECT_EQ(shell.Commands().size(), 24U);
    EXPECT_EQ(shell.Commands().at(22), R"(cp -f "/pkg/123/11/f" "/g" )");
    EXPECT_THAT(Files(), ElementsAre("/g"));
}

TEST_F(SsCopyFile, GivesMode777ForEmptyPermissions)
{
    ShellRecorder shell;

    EXPECT_EQ(ExecuteStep(CopyFileStep({CopyItem("f", "/kx-none/bin/", "")})), 0);

    EXPECT_THAT(shell.Commands(),
                ElementsAre(R"(mkdir -p "/kx-none/bin/")", R"(cp -f "/pkg/0/0/f" "/kx-none/bin/" )",
                            R"(chmod 777 "/kx-none/bin/" )"));
}

TEST_F(SsCopyFile, RecordsWhatItCreatesForRemoval)
{
    ShellRecorder shell;

    EXPECT_EQ(ExecuteStep(CopyFileStep(
                  {CopyItem("bin/f", "/kx-none/bin/"), CopyItem("bin/f", "/kx-none/etc/g")}, false,
                  true)),
              0);

    EXPECT_THAT(Folders(), ElementsAre("/kx-none/bin/", "/kx-none/etc/"));
    EXPECT_THAT(Files(), ElementsAre("/kx-none/bin/f", "/kx-none/etc/g"));
}

TEST_F(SsCopyFile, RecordsNothingWithoutIsRemove)
{
    ShellRecorder shell;

    EXPECT_EQ(ExecuteStep(CopyFileStep({CopyItem("f", "/kx-none/bin/", "644")}, false, false)), 0);

    EXPECT_THAT(shell.Commands(),
                ElementsAre(R"(mkdir -p "/kx-none/bin/")", R"(cp -f "/pkg/0/0/f" "/kx-none/bin/" )",
                            R"(chmod 644 "/kx-none/bin/" )"));
    EXPECT_THAT(Folders(), IsEmpty());
    EXPECT_THAT(Files(), IsEmpty());
}

TEST_F(SsCopyFile, DoesNotLookAtIsRelativePath)
{
    for (const bool isRelative : {false, true}) {
        Object step = CopyFileStep({CopyItem("/abs/f", "g", "644")});
        step["IsRelativePath"] = Flag(isRelative);
        ShellRecorder shell;

        EXPECT_EQ(ExecuteStep(step), 0);

        EXPECT_THAT(shell.Commands(),
                    ElementsAre(R"(cp -f "/pkg/0/0/f" "g" )", R"(chmod 644 "g" )"));
    }
}

namespace
{

struct SourceRow {
    const char* name;
    std::string sourcePath;
    const char* payload;
};

const SourceRow kSources[] = {
    {"BareName", "app", "/pkg/0/0/app"},
    {"UnixPath", "bin/viewer", "/pkg/0/0/viewer"},
    {"DesktopPath", "C:\\work\\app.bin", "/pkg/0/0/app.bin"},
    {"DriveOnly", "C:app.bin", "/pkg/0/0/app.bin"},
    {"Mixed", "C:\\a/b:c", "/pkg/0/0/c"},
    {"Folder", "bin/", "/pkg/0/0/"},
    {"Empty", "", "/pkg/0/0/"},
    {"Hidden", "home/.profile", "/pkg/0/0/.profile"},
    {"Blanks", "a b c", "/pkg/0/0/a b c"},
    {"Percent", "%s%n", "/pkg/0/0/%s%n"},
    {"NotUtf8", "\xFF\xFE", "/pkg/0/0/\xFF\xFE"},
    {"NotEscaped", "a\"$b`c", "/pkg/0/0/a\"$b`c"},
    {"ZeroByteEndsIt", "ab\0/c"s, "/pkg/0/0/ab"},
};

class SsCopyFileSource : public StepFixture, public ::testing::WithParamInterface<SourceRow>
{
};

} // namespace

TEST_P(SsCopyFileSource, IsFoundByTheNameInTheItemsPath)
{
    ShellRecorder shell;

    EXPECT_EQ(ExecuteStep(CopyFileStep({CopyItem(GetParam().sourcePath, "/g", "644")})), 0);

    EXPECT_THAT(shell.Commands(),
                ElementsAre("cp -f \""s + GetParam().payload + "\" \"/g\" ", R"(chmod 644 "/g" )"));
}

INSTANTIATE_TEST_SUITE_P(Paths, SsCopyFileSource, ::testing::ValuesIn(kSources),
                         [](const auto& row) { return std::string(row.param.name); });

TEST_F(SsCopyFile, EndsATargetAtAZeroByte)
{
    ShellRecorder shell;

    EXPECT_EQ(ExecuteStep(CopyFileStep({CopyItem("f", "/g\0/h"s, "64\0 4"s)})), 0);

    EXPECT_THAT(shell.Commands(), ElementsAre(R"(cp -f "/pkg/0/0/f" "/g" )", R"(chmod 64 "/g" )"));
    EXPECT_THAT(Files(), ElementsAre("/g"));
}

TEST_F(SsCopyFile, TakesAPathOf5000Bytes)
{
    const std::string name(5000, 'n');
    ShellRecorder shell;

    EXPECT_EQ(ExecuteStep(CopyFileStep({CopyItem(name, "/" + name, "644")})), 0);

    EXPECT_THAT(shell.Commands(), ElementsAre("cp -f \"/pkg/0/0/" + name + "\" \"/" + name + "\" ",
                                              "chmod 644 \"/" + name + "\" "));
    EXPECT_THAT(Files(), ElementsAre("/" + name));
}

TEST_F(SsCopyFile, EndsAtTheFirstFailureAndKeepsWhatWasCopied)
{
    ShellRecorder shell;
    shell.Answer(R"(cp -f "/pkg/1/1/g" "/b" )", 256);

    EXPECT_EQ(ExecuteStep(CopyFileStep({CopyItem("f", "/a", "644"), CopyItem("x/g", "/b", "755"),
                                        CopyItem("h", "/c", "")}),
                          1),
              256);

    EXPECT_THAT(shell.Commands(), ElementsAre(R"(cp -f "/pkg/1/0/f" "/a" )", R"(chmod 644 "/a" )",
                                              R"(cp -f "/pkg/1/1/g" "/b" )"));
    EXPECT_THAT(Lines(), ElementsAre("File copy error(= 256) is corrupted. From /pkg/1/1/g to /b  "
                                     "(Permissions=755)"));
    EXPECT_THAT(Files(), ElementsAre("/a"));
}

TEST_F(SsCopyFile, GoesOnBehindEveryFailureWithCanSkip)
{
    ShellRecorder shell;
    shell.AnswerNth(1, 256);
    shell.AnswerNth(4, 512);

    EXPECT_EQ(ExecuteStep(CopyFileStep(
                  {CopyItem("f", "/a", "644"), CopyItem("g", "/b", "755"), CopyItem("h", "/c", "")},
                  true)),
              0);

    EXPECT_THAT(shell.Commands(),
                ElementsAre(R"(cp -f "/pkg/0/0/f" "/a" )", R"(cp -f "/pkg/0/1/g" "/b" )",
                            R"(chmod 755 "/b" )", R"(cp -f "/pkg/0/2/h" "/c" )"));
    EXPECT_THAT(
        Lines(),
        ElementsAre("File copy error(= 256) is corrupted. From /pkg/0/0/f to /a  (Permissions=644)",
                    "File copy error(= 512) is corrupted. From /pkg/0/2/h to /c  (Permissions=)"));
    EXPECT_THAT(Files(), ElementsAre("/b"));
}

TEST_F(SsCopyFile, TakesAFailedModeChangeForAFailedCopyOfAFileThatStaysRecorded)
{
    for (const bool canSkip : {false, true}) {
        ShellRecorder shell;
        shell.AnswerNth(2, 256);

        EXPECT_EQ(ExecuteStep(CopyFileStep({CopyItem("f", "/a", "9")}, canSkip)),
                  canSkip ? 0 : 256);

        EXPECT_EQ(Lines().back(),
                  "File copy error(= 256) is corrupted. From /pkg/0/0/f to /a  (Permissions=9)");
        EXPECT_THAT(Files(), ElementsAre("/a"));
    }
    EXPECT_EQ(Lines().size(), 2U);
}

TEST_F(SsCopyFile, RecordsAFolderItCreatedForAFailedCopy)
{
    ShellRecorder shell;
    shell.AnswerNth(2, 256);

    EXPECT_EQ(ExecuteStep(CopyFileStep({CopyItem("f", "/kx-none/x/g", "")})), 256);

    EXPECT_THAT(Folders(), ElementsAre("/kx-none/x/"));
    EXPECT_THAT(Files(), IsEmpty());
}

class SsCopyFileStatus : public StepFixture, public ::testing::WithParamInterface<int>
{
};

TEST_P(SsCopyFileStatus, IsReportedAndReturnedRaw)
{
    ShellRecorder shell;
    shell.AnswerNth(1, GetParam());

    EXPECT_EQ(ExecuteStep(CopyFileStep({CopyItem("f", "/%s", "%d")})), GetParam());

    EXPECT_THAT(Lines(), ElementsAre("File copy error(= " + std::to_string(GetParam()) +
                                     ") is corrupted. From /pkg/0/0/f to /%s  (Permissions=%d)"));
}

INSTANTIATE_TEST_SUITE_P(Statuses, SsCopyFileStatus, ::testing::Values(1, 9, 256, 65280, -1));

TEST_F(SsCopyFile, ReallyCopiesThePayload)
{
    const mode_t saved = umask(022);
    const TempDir dir;
    SetPackage(dir / "p.temp");
    dir.Write("p.temp/2/0/a.txt", "first", 0600);
    dir.Write("p.temp/2/1/app.bin", "second");
    dir.Write("opt/old.bin", "old and longer", 0600);
    ShellRecorder shell(ShellRecorder::Mode::PassThrough);

    const int result = ExecuteStep(CopyFileStep({CopyItem("D:\\x\\a.txt", dir / "opt/new/", "750"),
                                                 CopyItem("app.bin", dir / "opt/old.bin", "")}),
                                   2);
    umask(saved);

    EXPECT_EQ(result, 0);
    EXPECT_THAT(dir.Tree(),
                ElementsAre("opt d 755", "opt/new d 750", "opt/new/a.txt f 600 first",
                            "opt/old.bin f 777 second", "p.temp d 755", "p.temp/2 d 755",
                            "p.temp/2/0 d 755", "p.temp/2/0/a.txt f 600 first", "p.temp/2/1 d 755",
                            "p.temp/2/1/app.bin f 644 second"));
    EXPECT_THAT(Folders(), ElementsAre(dir / "opt/new/"));
    EXPECT_THAT(Files(), ElementsAre(dir / "opt/new/a.txt", dir / "opt/old.bin"));
    EXPECT_THAT(Lines(), IsEmpty());
}

TEST_F(SsCopyFile, ReallyReportsAMissingPayload)
{
    const TempDir dir;
    SetPackage(dir.Path());
    ShellRecorder shell(ShellRecorder::Mode::PassThrough);

    EXPECT_EQ(ExecuteStep(CopyFileStep({CopyItem("f", dir / "g", "644")})), 256);

    EXPECT_THAT(Lines(),
                ElementsAre("File copy error(= 256) is corrupted. From " + (dir / "0/0/f") +
                            " to " + (dir / "g") + "  (Permissions=644)"));
    EXPECT_THAT(dir.Tree(), IsEmpty());
}
