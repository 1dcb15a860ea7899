// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT

// The entry point, called under the name KxMain in a child: the language, the frame of "sync", and
// the exit codes.
#include "app/CommandLine.h"
#include "app/ForkedChild.h"
#include "app/Globals.h"
#include "engine/ScriptedStep.h"
#include "support/ShellRecorder.h"
#include "support/TempDir.h"

#include <QApplication>
#include <QObject>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <optional>
#include <stdexcept>

#include <sys/wait.h>

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

/// Runs the entry point with its output caught. The first "sync" notes the language and whether
/// the application object is there.
/// @return a line each: the notes, the commands, the output, the errors, the result
std::string Transcript(const std::vector<std::string>& words)
{
    CommandLine line(words);
    std::string text;
    ShellRecorder shell;
    shell.On("sync", [&text] {
        if (text.empty()) {
            text = "ER_MSG91 is " + QObject::tr("ER_MSG91").toStdString() + "\n";
            text +=
                G::App != nullptr && G::App == QCoreApplication::instance() ? "" : "no G::App\n";
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

TEST(EntryPoint, RunsTheModeWithWindowForAFolderOnTheDrive)
{
    const ChildResult child = RunInChild([] {
        unsetenv("LANG");
        return Transcript({"-upDir", "/kx_none"});
    });

    EXPECT_EQ(child.text, "ER_MSG91 is The installation failed.\n"
                          "command sync\n"
                          "command sync\n"
                          "kx_Updater: this build has no window yet; install an unpacked package "
                          "with -unzipedDir <folder>.\n"
                          "result 1\n");
}

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
    const ChildResult child = RunInChild([] {
        if (GetParam().lang) {
            setenv("LANG", GetParam().lang->c_str(), 1);
        } else {
            unsetenv("LANG");
        }
        return Transcript({"-upDir", "/kx_none"});
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
