// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "steps/StepFixture.h"
#include "support/DeviceFixture.h"
#include "support/ShellRecorder.h"
#include "support/TempDir.h"

#include <filesystem>
#include <fstream>
#include <string>

using namespace std::string_literals;
using ProjectBuilder::CopyItem;
using ProjectBuilder::Object;
using ProjectBuilder::ScriptStep;
using ProjectBuilder::Value;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
namespace fs = std::filesystem;

namespace
{

constexpr const char* kFolder = "/tmp/Zt";
constexpr const char* kFile = "/tmp/Zt/temp.sh";

constexpr const char* kMkdir = R"(mkdir -p "/tmp/Zt/")";
constexpr const char* kChmod = R"(chmod +x "/tmp/Zt/temp.sh")";
constexpr const char* kRun = R"("/tmp/Zt/temp.sh")";

/// Script steps, which write to a fixed place. Commands run for real unless they are answered.
class SsScript : public DeviceFixture
{
protected:
    SsScript() { fs::remove_all(kFolder); }
    ~SsScript() override { fs::remove_all(kFolder); }

    [[nodiscard]] ShellRecorder& Shell() { return m_shell; }

private:
    ShellRecorder m_shell{ShellRecorder::Mode::PassThrough};
};

void WriteFile(const char* path, const std::string& text)
{
    fs::create_directories(fs::path(path).parent_path());
    std::ofstream(path, std::ios::binary) << text;
}

} // namespace

TEST_F(SsScript, WritesTheScriptMakesItExecutableRunsItAndLeavesIt)
{
    const TempDir dir;
    const std::string script = "#!/bin/sh\necho done > " + (dir / "out") + "\n";

    EXPECT_EQ(ExecuteStep(ScriptStep(script)), 0);

    EXPECT_THAT(Shell().Commands(), ElementsAre(kMkdir, kChmod, kRun));
    EXPECT_EQ(ReadFile(dir / "out"), "done\n");
    EXPECT_EQ(ReadFile(kFile), script);
    EXPECT_NE(fs::status(kFile).permissions() & fs::perms::owner_exec, fs::perms::none);
    EXPECT_THAT(Lines(), IsEmpty());
    EXPECT_THAT(Files(), IsEmpty());
    EXPECT_THAT(Folders(), IsEmpty());
}

TEST_F(SsScript, TurnsDesktopLineEndsIntoLineFeeds)
{
    EXPECT_EQ(ExecuteStep(ScriptStep("#!/bin/sh\r\n\r\nexit 0\r\n# a lone \r\r\n")), 0);

    EXPECT_EQ(ReadFile(kFile), "#!/bin/sh\n\nexit 0\n# a lone \r\n");
}

TEST_F(SsScript, WritesEveryOtherByteAsItIs)
{
    const std::string script = "exit 0\n%s%n \xFF\xFE\0 \t\x1B end without line feed"s;
    Shell().Answer(kRun, 0);

    EXPECT_EQ(ExecuteStep(ScriptStep(script)), 0);

    EXPECT_EQ(ReadFile(kFile), script);
}

TEST_F(SsScript, ReplacesTheScriptOfTheStepBefore)
{
    EXPECT_EQ(ExecuteStep(ScriptStep("exit 0 # " + std::string(5000, 'x') + "\n"), 0), 0);
    EXPECT_EQ(ExecuteStep(ScriptStep("exit 0\n"), 1), 0);

    EXPECT_EQ(ReadFile(kFile), "exit 0\n");
}

TEST_F(SsScript, RunsAScriptOfAMegabyte)
{
    std::string script = "#!/bin/sh\n";
    while (script.size() < 1000000) {
        script += "# nothing to do in this line\n";
    }
    script += "exit 7\n";

    EXPECT_EQ(ExecuteStep(ScriptStep(script)), 1792);
}

TEST_F(SsScript, LetsTheFirstLineChooseTheInterpreter)
{
    EXPECT_EQ(ExecuteStep(ScriptStep("#!/bin/false\nexit 0\n")), 256);
    EXPECT_EQ(ExecuteStep(ScriptStep("#!/bin/true\nexit 1\n")), 0);

    EXPECT_THAT(Lines(), ElementsAre("Script execution returned an error(=256) in step no 1"));
}

TEST_F(SsScript, RunsAScriptWithoutAFirstLineOfThatKindInTheShell)
{
    EXPECT_EQ(ExecuteStep(ScriptStep("exit 4\n")), 1024);
    EXPECT_EQ(ExecuteStep(ScriptStep("")), 0);

    EXPECT_EQ(ReadFile(kFile), "");
}

TEST_F(SsScript, NeverRunsTheUninstallScript)
{
    const TempDir dir;
    Object step = ScriptStep("exit 0\n");
    ProjectBuilder::Child(step, "UninstallScriptFunctionData")["ScriptData"] =
        ProjectBuilder::Text("touch " + (dir / "out") + "\n");

    EXPECT_EQ(ExecuteStep(step), 0);

    EXPECT_EQ(ReadFile(kFile), "exit 0\n");
    EXPECT_THAT(dir.Tree(), IsEmpty());
}

TEST_F(SsScript, DoesNotLookAtTheClassOfTheUninstallScript)
{
    Object step = ScriptStep("exit 0\n");
    step["UninstallScriptFunctionData"] = Value(CopyItem("f", "/g"));

    EXPECT_EQ(ExecuteStep(step), 0);

    EXPECT_THAT(Lines(), IsEmpty());
}

namespace
{

struct StatusRow {
    const char* name;
    const char* script;
    int status;
};

const StatusRow kScripts[] = {
    {"ExitStatus1", "exit 1\n", 256},
    {"ExitStatus3", "#!/bin/sh\nexit 3\n", 768},
    {"ExitStatus255", "exit 255\n", 65280},
    {"MissingInterpreter", "#!/kx-no-such-folder/sh\n", 32512},
    {"UnknownCommandLast", "kx-no-such-command 2>/dev/null\n", 32512},
};

class SsScriptStatus : public SsScript, public ::testing::WithParamInterface<StatusRow>
{
};

} // namespace

TEST_P(SsScriptStatus, IsReportedAndReturnedRaw)
{
    EXPECT_EQ(ExecuteStep(ScriptStep(GetParam().script), 2), GetParam().status);

    EXPECT_THAT(Shell().Commands(), ElementsAre(kMkdir, kChmod, kRun));
    EXPECT_THAT(Lines(), ElementsAre("Script execution returned an error(=" +
                                     std::to_string(GetParam().status) + ") in step no 3"));
}

TEST_P(SsScriptStatus, IsReportedAndPassedOverWithCanSkip)
{
    EXPECT_EQ(ExecuteStep(ScriptStep(GetParam().script, true), 2), 0);

    EXPECT_THAT(Shell().Commands(), ElementsAre(kMkdir, kChmod, kRun));
    EXPECT_THAT(Lines(), ElementsAre("Script execution returned an error(=" +
                                     std::to_string(GetParam().status) + ") in step no 3"));
}

INSTANTIATE_TEST_SUITE_P(Scripts, SsScriptStatus, ::testing::ValuesIn(kScripts),
                         [](const auto& row) { return std::string(row.param.name); });

TEST_F(SsScript, ReportsThatNoShellWasStarted)
{
    Shell().Answer(kRun, -1);

    EXPECT_EQ(ExecuteStep(ScriptStep("exit 0\n")), -1);

    EXPECT_THAT(Lines(), ElementsAre("Script execution returned an error(=-1) in step no 1"));
}

namespace
{

/// Failures with and without CanSkip.
class SsScriptFailure : public SsScript, public ::testing::WithParamInterface<bool>
{
};

} // namespace

TEST_P(SsScriptFailure, OfTheModeChangeIsTakenForAFailureOfTheScript)
{
    Shell().Answer(kChmod, 256);

    EXPECT_EQ(ExecuteStep(ScriptStep("exit 0\n", GetParam())), GetParam() ? 0 : 256);

    EXPECT_THAT(Shell().Commands(), ElementsAre(kMkdir, kChmod));
    EXPECT_THAT(Lines(), ElementsAre("Script execution returned an error(=256) in step no 1"));
}

TEST_P(SsScriptFailure, OfTheWriteIsReportedAndNothingIsRun)
{
    fs::create_directories(kFile); // a folder in the file's place

    EXPECT_EQ(ExecuteStep(ScriptStep("exit 0\n", GetParam())), GetParam() ? 0 : 1003);

    EXPECT_THAT(Shell().Commands(), ElementsAre(kMkdir));
    EXPECT_THAT(Lines(), ElementsAre("File write is corrupted. file=/tmp/Zt/temp.sh"));
}

TEST_P(SsScriptFailure, OfTheWriteBecauseOfAFullDiskIsReported)
{
    fs::create_directories(kFolder);
    fs::create_symlink("/dev/full", kFile);

    EXPECT_EQ(ExecuteStep(ScriptStep("exit 0\n", GetParam())), GetParam() ? 0 : 1003);

    EXPECT_THAT(Shell().Commands(), ElementsAre(kMkdir));
    EXPECT_THAT(Lines(), ElementsAre("File write is corrupted. file=/tmp/Zt/temp.sh"));
}

TEST_P(SsScriptFailure, OfTheFolderShowsInTheWrite)
{
    WriteFile(kFolder, "a file in the folder's place");

    EXPECT_EQ(ExecuteStep(ScriptStep("exit 0\n", GetParam())), GetParam() ? 0 : 1003);

    EXPECT_THAT(Shell().Commands(), ElementsAre(kMkdir));
    EXPECT_THAT(Lines(), ElementsAre("File write is corrupted. file=/tmp/Zt/temp.sh"));
}

INSTANTIATE_TEST_SUITE_P(CanSkip, SsScriptFailure, ::testing::Bool());

TEST_F(SsScript, DoesNotLookAtTheFoldersStatus)
{
    fs::create_directories(kFolder);
    Shell().Answer(kMkdir, 256);

    EXPECT_EQ(ExecuteStep(ScriptStep("exit 0\n")), 0);

    EXPECT_THAT(Shell().Commands(), ElementsAre(kMkdir, kChmod, kRun));
    EXPECT_THAT(Lines(), IsEmpty());
}
