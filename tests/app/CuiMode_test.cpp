// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT

// Console mode, as far as it writes to no fixed path of the device.
#include "app/CuiModeFixture.h"
#include "engine/ScriptedStep.h"
#include "support/ShellRecorder.h"

#include <stdexcept>

#include <unistd.h>

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace
{

constexpr const char* kUnprotect = "/usr/bin/kxsystem/wprotect_off";

/// A script for steps that all end well.
int EndWell(const std::string& /*name*/, int /*index*/)
{
    return 0;
}

} // namespace

using ConsoleMode = T_CuiMode<EngineFixture>;

TEST_F(ConsoleMode, EndsBeforeItTouchesAnythingWhenTheDescriptionIsMissing)
{
    const ShellRecorder shell;

    const CuiRun run = Run();

    EXPECT_EQ(run.result, 2001);
    EXPECT_EQ(run.output, "Unable to access " + Package() + "/UserPackage.kx-project file.\n");
    EXPECT_THAT(shell.Commands(), IsEmpty());
}

TEST_F(ConsoleMode, PrintsTheWholeChainOfABrokenDescription)
{
    ProjectBuilder::Object root = ProjectBuilder::Root();
    root.erase("Date");
    WriteBytes(ProjectBuilder::File(root));
    const ShellRecorder shell;

    const CuiRun run = Run();

    EXPECT_EQ(run.result, 2001);
    EXPECT_EQ(run.output,
              "No Zt.Plugins.DB_KxUserProject, Plexa.Date field specified in .kx-project .\n"
              "Initialized error in Zt.Plugins.DB_KxUserProject, Plexa class.\n" +
                  Package() +
                  "/UserPackage.kx-project file is not kx-package.\n"
                  " Root object of this file is not DB_KxUserProject.\n");
    EXPECT_THAT(shell.Commands(), IsEmpty());
}

TEST_F(ConsoleMode, LetsTheExceptionOfARootThatIsNoObjectPass)
{
    WriteBytes("\xEF\xBB\xBF[]");
    const ShellRecorder shell;

    EXPECT_THROW(static_cast<void>(CuiMode(nullptr)), std::runtime_error);

    EXPECT_THAT(shell.Commands(), IsEmpty());
}

TEST_F(ConsoleMode, StopsWhenStepTwoOfThreeFailsWithFive)
{
    const ScriptedStepTable table(
        [](const std::string& name, int /*index*/) { return name == "b" ? 5 : 0; });
    WriteSteps({ScriptedStep::Json("a"), ScriptedStep::Json("b"), ScriptedStep::Json("c")});
    const ShellRecorder shell;

    const CuiRun run = Run();

    EXPECT_EQ(run.result, 5);
    EXPECT_EQ(run.output, "**** Installation step 1/3\n"
                          "**** Installation step 2/3\n"
                          "Installation failed in step 2.\n");
    EXPECT_THAT(shell.Commands(), ElementsAre(kUnprotect));
}

TEST_F(ConsoleMode, StopsAtAStepOfUnknownKind)
{
    WriteSteps({ScriptedStep::UnknownJson()});
    const ShellRecorder shell;

    const CuiRun run = Run();

    EXPECT_EQ(run.result, 2001);
    EXPECT_EQ(run.output, "Test.Unknown is unknown class.\n"
                          "Test.Unknown is not support functon.\n");
    EXPECT_THAT(shell.Commands(), ElementsAre(kUnprotect));
}

TEST_F(ConsoleMode, DoesNotMindADeviceWithoutWriteProtection)
{
    const ScriptedStepTable table([](const std::string&, int) { return 9; });
    WriteSteps({ScriptedStep::Json("a")});
    ShellRecorder shell;
    shell.Answer(kUnprotect, 32512);

    const CuiRun run = Run();

    EXPECT_EQ(run.result, 9);
    EXPECT_EQ(run.output, "**** Installation step 1/1\nInstallation failed in step 1.\n");
}

TEST_F(ConsoleMode, ReturnsTheStatusOfARecordThatCannotBeWritten)
{
    WriteSteps({ProjectBuilder::CopyFileStep(
        {ProjectBuilder::CopyItem("C:\\work\\viewer", "/opt/kx_none/viewer", "755")})});
    const std::string copy = "cp -f \"" + Package() +
                             "/UserPackage.kx-project\" "
                             "\"/var/lib/KxUserPackages/kx_test_package/UserPackage.kx-project\" ";
    ShellRecorder shell;
    shell.Answer(copy, 256);

    const CuiRun run = Run();

    EXPECT_EQ(run.result, 256);
    EXPECT_EQ(run.output, "**** Installation step 1/1\nInstallation succeeded.\n");
    EXPECT_THAT(shell.Commands(),
                ElementsAre(kUnprotect, R"(mkdir -p "/opt/kx_none/")",
                            "cp -f \"" + Package() + R"(/0/0/viewer" "/opt/kx_none/viewer" )",
                            R"(chmod 755 "/opt/kx_none/viewer" )",
                            R"(mkdir -p "/var/lib/KxUserPackages/kx_test_package")",
                            R"(mkdir -p "/var/lib/KxUserPackages/kx_test_package/")", copy));
}

TEST_F(ConsoleMode, ReportsAFailingCopyWithItsRawStatus)
{
    WriteSteps(
        {ProjectBuilder::CopyFileStep({ProjectBuilder::CopyItem("viewer", "/kx_none", "644")})});
    const std::string copy = "cp -f \"" + Package() + R"(/0/0/viewer" "/kx_none" )";
    ShellRecorder shell;
    shell.Answer(copy, 256);

    const CuiRun run = Run();

    EXPECT_EQ(run.result, 256);
    EXPECT_EQ(run.output, "**** Installation step 1/1\n"
                          "File copy error(= 256) is corrupted. From " +
                              Package() +
                              "/0/0/viewer to /kx_none  (Permissions=644)\n"
                              "Installation failed in step 1.\n");
    EXPECT_THAT(shell.Commands(), ElementsAre(kUnprotect, copy));
}

TEST_F(ConsoleMode, PreparesTheGlobalInstallerAndStartsTheEngine)
{
    const ScriptedStepTable table([](const std::string&, int) { return 1; });
    WriteSteps({ScriptedStep::Json("a")});
    const ShellRecorder shell;
    q_UpdaterEngine::ChildlenMode = 1;

    EXPECT_EQ(Run().result, 1);

    EXPECT_EQ(G::TargetUP.packageDir, Package());
    EXPECT_EQ(G::TargetUP.projectFile, Package() + "/UserPackage.kx-project");
    EXPECT_TRUE(G::TargetUP.removeUnpacked);
    EXPECT_EQ(m_table.Prototypes().count, 13);
    EXPECT_EQ(q_UpdaterEngine::ChildlenMode, 0);
    EXPECT_EQ(q_UpdaterEngine::CurrentPackage, nullptr);
}

TEST_F(ConsoleMode, TakesTheFolderUnchanged)
{
    G::Opts.unzipedDir = Package() + "/";
    const ShellRecorder shell;

    const CuiRun run = Run();

    EXPECT_EQ(G::TargetUP.packageDir, Package() + "/");
    EXPECT_EQ(run.output, "Unable to access " + Package() + "//UserPackage.kx-project file.\n");
}

TEST_F(ConsoleMode, EndsEveryLineWithExactlyOneLineBreakAndAMessageWithNone)
{
    const ScriptedStepTable table([](const std::string&, int) {
        ILogger* const log = q_UpdaterEngine::SysLogger;
        log->OutMsg("message %d");
        log->OutLine("line %d", 1);
        log->OutLine("%s", "two\n");
        log->OutLine("%s", "");
        log->OutMsg("");
        return 1;
    });
    WriteSteps({ScriptedStep::Json("a")});
    const ShellRecorder shell;

    const CuiRun run = Run();

    EXPECT_EQ(run.output, "**** Installation step 1/1\n"
                          "message %dline 1\n"
                          "two\n"
                          "\n"
                          "\n"
                          "Installation failed in step 1.\n");
}

TEST_F(ConsoleMode, WritesLinesOfAnyLengthAndBytesWhole)
{
    const std::string text = std::string(100000, 'x') + "\xFF%s";
    const ScriptedStepTable table([&text](const std::string&, int) {
        q_UpdaterEngine::SysLogger->OutLine("%s", text.c_str());
        q_UpdaterEngine::SysLogger->OutMsg(text.c_str());
        return 1;
    });
    WriteSteps({ScriptedStep::Json("a")});
    const ShellRecorder shell;

    const CuiRun run = Run();

    EXPECT_EQ(run.output, "**** Installation step 1/1\n" + text + "\n" + text +
                              "Installation failed in step 1.\n");
}

TEST_F(ConsoleMode, FlushesAfterEveryWrite)
{
    std::vector<off_t> sizes;
    const ScriptedStepTable table([&sizes](const std::string&, int) {
        sizes.push_back(lseek(STDOUT_FILENO, 0, SEEK_CUR));
        q_UpdaterEngine::SysLogger->OutMsg("12345");
        sizes.push_back(lseek(STDOUT_FILENO, 0, SEEK_CUR));
        q_UpdaterEngine::SysLogger->OutLine("%s", "1234");
        sizes.push_back(lseek(STDOUT_FILENO, 0, SEEK_CUR));
        return 1;
    });
    WriteSteps({ScriptedStep::Json("a")});
    const ShellRecorder shell;

    Run();

    const off_t line = 27; // "**** Installation step 1/1" and its line break
    EXPECT_THAT(sizes, ElementsAre(line, line + 5, line + 10));
}

TEST_F(ConsoleMode, UnprotectsTheDeviceAfterReadingAndBeforeTheSteps)
{
    std::vector<std::string> order;
    const ScriptedStepTable table([&order](const std::string&, int) {
        order.emplace_back("step");
        return 1;
    });
    WriteSteps({ScriptedStep::Json("a")});
    ShellRecorder shell;
    shell.On(kUnprotect, [&order] {
        order.emplace_back(G::TargetUP.Project() != nullptr ? "read" : "not read");
        order.emplace_back("unprotect");
    });

    Run();

    EXPECT_THAT(order, ElementsAre("read", "unprotect", "step"));
}

TEST_F(ConsoleMode, RunsThousandsOfSteps)
{
    const ScriptedStepTable table(EndWell);
    std::vector<ProjectBuilder::Object> steps(1000, ScriptedStep::Json("s"));
    steps.push_back(ScriptedStep::UnknownJson());
    WriteSteps(steps);
    const ShellRecorder shell;

    EXPECT_EQ(Run().result, 2001);

    EXPECT_EQ(table.Events().size(), 3000U);
}
