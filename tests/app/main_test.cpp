// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT

// The entry point, called under the name KxMain in a child: the language, the frame of "sync", and
// the exit codes.
#include "app/CommandLine.h"
#include "app/ForkedChild.h"
#include "app/Globals.h"
#include "engine/ScriptedStep.h"
#include "gui/mainwindow.h"
#include "support/ShellRecorder.h"
#include "support/TempDir.h"

#include <QApplication>
#include <QLabel>
#include <QObject>
#include <QTimer>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <csignal>
#include <cstdlib>
#include <optional>
#include <stdexcept>

#include <sys/resource.h>
#include <sys/wait.h>

using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::StartsWith;

int KxMain(int argc, char** argv);

namespace
{

/// Writes a package of one ScriptedStep.
/// @return its folder
std::string WritePackage(const TempDir& dir)
{
    dir.Write("kx_test/UserPackage.kx-project",
              ProjectBuilder::File(ProjectBuilder::Root({ScriptedStep::Json("a")})));
    return dir / "kx_test";
}

/// Prepares the window system of a process that has none yet: a screen that nobody sees.
void UseScreen(const char* platform, const TempDir& runtimeDir)
{
    setenv("QT_QPA_PLATFORM", platform, 1);
    setenv("XDG_RUNTIME_DIR", runtimeDir.Path().c_str(), 1);
}

/// Notes what the window shows once the event loop runs, and ends the loop.
void LeaveEventLoop(std::string& text, int exitCode)
{
    QTimer::singleShot(0, QCoreApplication::instance(), [&text, exitCode] {
        const auto* const message = G::MainWin->findChild<QLabel*>(QStringLiteral("labelMsg"));
        text += "on " + QGuiApplication::platformName().toStdString() + ": " +
                message->text().toStdString() + "\n";
        QCoreApplication::exit(exitCode);
    });
}

/// Runs the entry point with its output caught. The first "sync" notes the language and whether
/// the application object is there. The window's event loop ends with @p exitCode.
/// @return a line each: the notes, the commands, the output, the errors, the result
std::string Transcript(const std::vector<std::string>& words, int exitCode = 0)
{
    CommandLine line(words);
    std::string text;
    ShellRecorder shell;
    shell.On("sync", [&text, exitCode] {
        if (text.empty()) {
            text = "ER_MSG91 is " + QObject::tr("ER_MSG91").toStdString() + "\n";
            text +=
                G::App != nullptr && G::App == QCoreApplication::instance() ? "" : "no G::App\n";
            LeaveEventLoop(text, exitCode);
        }
    });
    ::testing::internal::CaptureStdout();
    ::testing::internal::CaptureStderr();
    const int result = KxMain(line.Count(), line.Words());
    for (const std::string& command : shell.Commands()) {
        text += "command " + command + "\n";
    }
    text += ::testing::internal::GetCapturedStdout();
    text += ::testing::internal::GetCapturedStderr();
    return text + "result " + std::to_string(result) + "\n";
}

struct ResultCase {
    int result;
    int exitCode;
};

struct LanguageCase {
    std::string name;
    std::optional<std::string> lang;
    std::string text;
};

} // namespace

class ModeResult : public ::testing::TestWithParam<ResultCase>
{
};

TEST_P(ModeResult, BecomesTheExitCodeBetweenTwoSyncs)
{
    const TempDir dir;
    const std::string package = WritePackage(dir);

    const ChildResult child = RunInChild([&package] {
        const ScriptedStepTable table([](const std::string&, int) { return GetParam().result; });
        unsetenv("LANG");
        return Transcript({"-unzipedDir", package});
    });

    EXPECT_EQ(child.status, 0);
    EXPECT_EQ(child.text, "ER_MSG91 is The installation failed.\n"
                          "command sync\n"
                          "command /usr/bin/kxsystem/wprotect_off\n"
                          "command sync\n"
                          "**** Installation step 1/1\n"
                          "Installation failed in step 1.\n"
                          "result " +
                              std::to_string(GetParam().exitCode) + "\n");
}

INSTANTIATE_TEST_SUITE_P(Results, ModeResult,
                         ::testing::Values(ResultCase{1, 1}, ResultCase{5, 5}, ResultCase{100, 100},
                                           ResultCase{255, 255}, ResultCase{256, 101},
                                           ResultCase{768, 101}, ResultCase{2003, 101},
                                           ResultCase{INT_MAX, 101}, ResultCase{-1, 102},
                                           ResultCase{INT_MIN, 102}));

TEST(EntryPoint, EndsWith101WhenConsoleModeReturns2001)
{
    const TempDir dir;

    const ChildResult child = RunInChild([&dir] {
        unsetenv("LANG");
        return Transcript({"-unzipedDir", dir.Path()});
    });

    EXPECT_EQ(child.text, "ER_MSG91 is The installation failed.\n"
                          "command sync\n"
                          "command sync\n"
                          "Unable to access " +
                              dir.Path() +
                              "/UserPackage.kx-project file.\n"
                              "result 101\n");
}

TEST(EntryPoint, ShowsTheWindowForAFolderOnTheDrive)
{
    const TempDir dir;

    const ChildResult child = RunInChild([&dir] {
        UseScreen("offscreen", dir);
        unsetenv("LANG");
        return Transcript({"-upDir", dir / "none"});
    });

    EXPECT_EQ(child.status, 0);
    EXPECT_EQ(child.text, "ER_MSG91 is The installation failed.\n"
                          "on offscreen: Unable to recognize the USB flash drive.\n"
                          "command sync\n"
                          "command /usr/bin/kxsystem/usb_umount\n"
                          "command sync\n"
                          "result 0\n");
}

TEST(EntryPoint, ShowsTheWindowOnTheDisplayThatTheEnvironmentNames)
{
    const TempDir dir;

    const ChildResult child = RunInChild([&dir] {
        UseScreen("minimal", dir);
        return Transcript({"-upDir", dir / "none"});
    });

    EXPECT_EQ(child.status, 0);
    EXPECT_THAT(child.text, HasSubstr("\non minimal: "));
}

TEST(EntryPoint, EndsWithoutADisplay)
{
    const TempDir dir;

    const ChildResult child = RunInChild([&dir] {
        UseScreen("nonexistent", dir);
        const rlimit noCore = {0, 0};
        setrlimit(RLIMIT_CORE, &noCore);
        return Transcript({"-upDir", dir / "none"});
    });

    EXPECT_TRUE(WIFSIGNALED(child.status));
    EXPECT_EQ(WTERMSIG(child.status), SIGABRT);
    EXPECT_EQ(child.text, "");
}

class LoopResult : public ::testing::TestWithParam<ResultCase>
{
};

TEST_P(LoopResult, BecomesTheExitCode)
{
    const TempDir dir;

    const ChildResult child = RunInChild([&dir] {
        UseScreen("offscreen", dir);
        return Transcript({"-upDir", dir / "none"}, GetParam().result);
    });

    EXPECT_THAT(child.text,
                EndsWith("command sync\nresult " + std::to_string(GetParam().exitCode) + "\n"));
}

INSTANTIATE_TEST_SUITE_P(Results, LoopResult,
                         ::testing::Values(ResultCase{0, 0}, ResultCase{7, 7}, ResultCase{256, 101},
                                           ResultCase{-1, 102}));

TEST(EntryPoint, PrintsTheUsageTextBeforeThereIsAnApplicationObjectOrACommand)
{
    const ChildResult child = RunInChild([] { return Transcript({"-x"}); });

    // The child ended in the middle of its work, and its recorder saw no command.
    EXPECT_TRUE(WIFEXITED(child.status));
    EXPECT_EQ(WEXITSTATUS(child.status), 100);
    EXPECT_EQ(child.text, "");
}

TEST(EntryPoint, LetsTheExceptionOfARootThatIsNoObjectEndTheProcess)
{
    const TempDir dir;
    dir.Write("UserPackage.kx-project", "\xEF\xBB\xBF[]");

    const ChildResult child = RunInChild([&dir]() -> std::string {
        try {
            return Transcript({"-unzipedDir", dir.Path()});
        } catch (const std::runtime_error&) {
            return "nothing caught it";
        }
    });

    EXPECT_EQ(child.text, "nothing caught it");
}

class Language : public ::testing::TestWithParam<LanguageCase>
{
};

TEST_P(Language, FollowsLangExactly)
{
    const TempDir dir;

    const ChildResult child = RunInChild([&dir] {
        UseScreen("offscreen", dir);
        if (GetParam().lang) {
            setenv("LANG", GetParam().lang->c_str(), 1);
        } else {
            unsetenv("LANG");
        }
        return Transcript({"-upDir", dir / "none"});
    });

    EXPECT_THAT(child.text, StartsWith("ER_MSG91 is " + GetParam().text + "\n"));
}

INSTANTIATE_TEST_SUITE_P(
    Values, Language,
    ::testing::Values(
        LanguageCase{"Unset", std::nullopt, "The installation failed."},
        LanguageCase{"Empty", "", "The installation failed."},
        LanguageCase{"C", "C", "The installation failed."},
        LanguageCase{"English", "en_US.UTF-8", "The installation failed."},
        LanguageCase{"Japanese", "ja_JP.UTF-8", "インストールに失敗しました。"},
        LanguageCase{"JapaneseInOtherSpelling", "ja_JP.utf8", "The installation failed."},
        LanguageCase{"JapaneseWithoutEncoding", "ja_JP", "The installation failed."},
        LanguageCase{"JapaneseWithMore", "ja_JP.UTF-8@x", "The installation failed."},
        LanguageCase{"JapaneseInOtherCase", "JA_JP.UTF-8", "The installation failed."}),
    [](const auto& test) { return test.param.name; });
