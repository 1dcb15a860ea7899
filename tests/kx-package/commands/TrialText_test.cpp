// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "commands/TrialText.h"
#include "kx-package/commands/Trials.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

namespace kx::tool
{

namespace
{

/// What people are told of a result with something of each kind.
std::string ToldOfAll(bool isVerbose)
{
    std::ostringstream out;
    std::ostringstream err;
    WriteTrialText({out, err}, kSubject, ResultOfAll(), isVerbose);
    EXPECT_EQ(err.str(), "");
    return out.str();
}

TEST(WriteTrialText, TellsPeopleEverythingOnSafeLinesWhenTheyWantIt)
{
    EXPECT_EQ(
        ToldOfAll(true),
        R"(F\x1b, the first time: not judged: step 3 starts programs for arm; step 2 failed and was skipped
  step 2 (script) failed and was skipped: exit status 3: run
  step 4 failed: echo 'a:********' | chpasswd; and 2 more of its items
  step 4 does\x1b
  one\x1b
  made to fail: step 2, echo 'user:********' | chpasswd

What the first installation changed
  added    -rw-r--r--  root:adm  12  /a\n
  changed  lrwxrwxrwx  1000:7     1  /b -> \xff
  removed                            /usr/c
settings
  N=2  (was 1)
  M=3
  L=  (was 4)
users
  u\x7f: added
records
  P: removed
a reboot was asked for

There is no record of it

What the updater printed
  | a
  | b\x0d

F\x1b, the second time: installed

What the second installation changed
  no file and no folder
settings
  none
users
  none
records
  none

Recorded as Foo: 1 folder, 1 file
  /d/  (folder)
  /f\x09

What the updater printed

What the shell changed
  no file and no folder
settings
  none
users
  none
records
  none
  late
)");
}

TEST(WriteTrialText, TellsPeopleWhatMatters)
{
    EXPECT_EQ(
        ToldOfAll(false),
        R"(F\x1b, the first time: not judged: step 3 starts programs for arm; step 2 failed and was skipped
  step 2 (script) failed and was skipped: exit status 3: run
  step 4 failed: echo 'a:********' | chpasswd; and 2 more of its items
  step 4 does\x1b
  one\x1b
  made to fail: step 2, echo 'user:********' | chpasswd

What the first installation changed
  added: 1 file
  changed: 1 file
  removed: 1 file
  changed  lrwxrwxrwx  1000:7  1  /b -> \xff
  removed                         /usr/c
settings
  N=2  (was 1)
  M=3
  L=  (was 4)
users
  u\x7f: added
records
  P: removed
a reboot was asked for

There is no record of it

What the updater printed
  | a
  | b\x0d

F\x1b, the second time: installed

What the second installation changed
  no file and no folder

Recorded as Foo: 1 folder, 1 file

What the shell changed
  no file and no folder
  late
)");
}

/// What is told of an only installation.
std::string ToldOf(const Installation& installation, bool isVerbose = false)
{
    TrialResult result;
    result.recordName = "Foo";
    result.installations = {installation};
    std::ostringstream out;
    WriteTrialText({out, out}, {"F", 0, ""}, result, isVerbose);
    return out.str();
}

TEST(WriteTrialText, NamesEveryPathOnce)
{
    Installation installation;
    installation.isUnpacked = true;
    installation.isInstalled = true;
    installation.changes.files = {
        {"added", "/opt/d", "drwxr-xr-x", "0755", "root", "root", std::nullopt, ""},
        {"added", "/opt/d/f", "-rw-r--r--", "0644", "root", "root", 3, ""},
        {"added", "/opt/g", "-rw-r--r--", "0644", "root", "root", 3, ""}};
    installation.record = TrialRecord{{"/opt/d/", "/old"}, {"/opt//d/f", "/old/f"}};

    const std::string told = ToldOf(installation, true);

    EXPECT_THAT(told, testing::HasSubstr("root:root     /opt/d  (recorded)\n"));
    EXPECT_THAT(told, testing::HasSubstr("root:root  3  /opt/d/f  (recorded)\n"));
    EXPECT_THAT(told, testing::HasSubstr("root:root  3  /opt/g\n"));
    EXPECT_THAT(told, testing::HasSubstr("Recorded as Foo: 2 folders, 2 files\n"
                                         "  /old  (folder)\n  /old/f\n"));
}

TEST(WriteTrialText, CountsWhatIsTooMuchForTheShortForm)
{
    Installation installation;
    installation.isUnpacked = true;
    for (int i = 0; i < 12; ++i) {
        installation.changes.files.push_back({"added", "/etc/" + std::to_string(i), "drwxr-xr-x",
                                              "0755", "root", "root", std::nullopt, ""});
        installation.log.Append("a\nb\n");
    }
    installation.changes.files.push_back(
        {"removed", "/opt/x", "-rw-r--r--", "0644", "root", "root", 3, ""});
    installation.changes.files.push_back(
        {"changed", "/var/lib/KxUserPackages/Foo/x", "-rw-r--r--", "0644", "root", "root", 3, ""});

    const std::string told = ToldOf(installation);

    EXPECT_THAT(told, testing::HasSubstr("  added: 12 folders\n  changed: 1 file\n"
                                         "  removed: 1 file\n"
                                         "  removed  -rw-r--r--  root:root  3  /opt/x\n"
                                         "  added    drwxr-xr-x  root:root     /etc/0\n"));
    EXPECT_THAT(told, testing::HasSubstr("/etc/8\n  and 3 more like these; see --verbose\n"));
    EXPECT_THAT(told, testing::HasSubstr("printed\n  | ... 4 more; see --verbose\n  | a\n"));
}

TEST(WriteTrialText, LeavesTheUpdatersOwnLinesOutWhenAllWentWell)
{
    Installation installation;
    installation.isUnpacked = true;
    installation.isInstalled = true;
    installation.log.Append("**** Installation step 1/1\nhello\nInstallation succeeded.\n");
    EXPECT_THAT(ToldOf(installation),
                testing::HasSubstr("What scripts and tools printed\n  | hello\n"));

    Installation silent;
    silent.isUnpacked = true;
    silent.isInstalled = true;
    silent.log.Append("**** Installation step 1/1\nInstallation succeeded.\n");
    EXPECT_THAT(ToldOf(silent), testing::Not(testing::HasSubstr("printed")));
    silent.isInstalled = false;
    EXPECT_THAT(ToldOf(silent), testing::HasSubstr("What the updater printed\n  | ****"));
}

TEST(WriteTrialText, ListsTheSkippedSteps)
{
    Installation installation;
    installation.isUnpacked = true;
    installation.isInstalled = true;
    const auto first = [&installation](const std::vector<int>& steps) {
        installation.failedSteps.clear();
        for (const int step : steps) {
            StepFailure failure;
            failure.step = step;
            installation.failedSteps.push_back(failure);
        }
        const std::string told = ToldOf(installation);
        return told.substr(0, told.find('\n'));
    };

    EXPECT_EQ(first({}), "F: installed");
    EXPECT_EQ(first({7}), "F: installed; step 7 failed and was skipped");
    EXPECT_EQ(first({2, 4}), "F: installed; steps 2 and 4 failed and were skipped");
    EXPECT_EQ(first({2, 4, 5}), "F: installed; steps 2, 4 and 5 failed and were skipped");
    installation.isInstalled = false;
    installation.exitCode = 3;
    EXPECT_EQ(first({2}), "F: not installed, exit code 3; step 2 failed and was skipped");
}

TEST(WriteTrialText, TellsHowTheStartUpScriptWent)
{
    TrialResult result;
    result.installations.resize(1);
    result.restart = Restart();
    result.restart->seconds = 1;
    const auto told = [&result](StartupScript script) {
        result.restart->script = script;
        std::ostringstream out;
        std::ostringstream err;
        WriteTrialText({out, err}, {"F", 0, ""}, result, false);
        const std::string text = out.str();
        return text.substr(text.find("The restart"));
    };

    EXPECT_EQ(told(StartupScript::kNone), "The restart: there is no start-up script\n");
    EXPECT_EQ(told(StartupScript::kNotExecutable),
              "The restart: the start-up script is not executable: a panel does not start it\n");
    result.restart->exitStatus = 3;
    result.restart->remarks = {"late"};
    result.restart->output.Append("a\x1b\n");
    EXPECT_EQ(told(StartupScript::kEnded),
              R"(The restart: the start-up script ended with exit status 3
  late
  | a\x1b

What the start-up script changed
  no file and no folder
)");
    EXPECT_THAT(told(StartupScript::kRunning),
                testing::StartsWith("The restart: the start-up script still ran after 1 second\n"));
    EXPECT_THAT(told(StartupScript::kStopped),
                testing::StartsWith("The restart: the start-up script was ended\n"));
}

TEST(WriteTrialText, TellsHowToGoOnWithAKeptPanel)
{
    TrialResult result;
    result.installations.resize(1);
    TrialSubject subject = {"F", 0, ""};
    subject.device = "/usr/lib/it's";
    const auto told = [&](const std::string& folder, bool isKept) {
        subject.keptAt = folder;
        result.isKept = isKept;
        std::ostringstream out;
        std::ostringstream err;
        WriteTrialText({out, err}, subject, result, false);
        return out.str();
    };

    EXPECT_EQ(told("my panel", true), R"(F: not installed

The panel is kept in my panel
  kx-package installed --root 'my panel'/root
  '/usr/lib/it'\''s/run' --state 'my panel' -- sh
  '/usr/lib/it'\''s/run' --erase --state 'my panel'
)");
    EXPECT_THAT(told("-x", true), testing::HasSubstr("installed --root ./-x/root\n"));
    EXPECT_EQ(told("panel", false), "F: not installed\n\nNo panel is kept: none was started\n");
}

TEST(WriteTrialText, TellsWhatAFailureDidNotDo)
{
    TrialResult result;
    result.installations.resize(1);
    result.installations[0].isUnpacked = true;
    result.installations[0].isInstalled = true;
    const TrialSubject subject = {"F", 1, "cp a b"};
    const auto lineOf = [&](bool isRefused, std::size_t number) {
        result.installations[0].isRefused = isRefused;
        std::ostringstream out;
        std::ostringstream err;
        WriteTrialText({out, err}, subject, result, false);
        std::istringstream lines(out.str());
        std::string line;
        for (std::size_t i = 0; i <= number; ++i) {
            std::getline(lines, line);
        }
        return line;
    };

    EXPECT_EQ(lineOf(false, 1), "  the command that was to fail was not reached: step 1, cp a b");
    EXPECT_EQ(lineOf(true, 1), "  made to fail: step 1, cp a b");
    EXPECT_EQ(lineOf(true, 2), "  the installation went on: the step may be skipped, or the "
                               "updater does not look at this command's result");
}

TEST(WriteTrialText, MasksNothingButPasswordsInTheCommandThatFailed)
{
    const auto shown = [](const std::string& command) {
        Installation installation;
        installation.isUnpacked = true;
        installation.isRefused = true;
        return RemarksOn(installation, {"F", 1, command}).at(0);
    };

    EXPECT_EQ(shown("echo 'a:b' | chpasswd"), "made to fail: step 1, echo 'a:********' | chpasswd");
    EXPECT_EQ(shown("echo 'a:b:c' | chpasswd"),
              "made to fail: step 1, echo 'a:********' | chpasswd");
    EXPECT_EQ(shown("echo 'ab' | chpasswd"), "made to fail: step 1, echo 'ab:********' | chpasswd");
    EXPECT_EQ(shown("echo 'a:b' | chpasswd -e"), "made to fail: step 1, echo 'a:b' | chpasswd -e");
    EXPECT_EQ(shown("cat 'a:b' | chpasswd"), "made to fail: step 1, cat 'a:b' | chpasswd");
    EXPECT_EQ(shown("echo '"), "made to fail: step 1, echo '");
}

TEST(WriteTrialText, RemarksOnNoCommandWhereNothingWasUnpacked)
{
    Installation installation;
    installation.remarks = {"cut"};

    EXPECT_THAT(RemarksOn(installation, {"F", 1, "cp"}), testing::ElementsAre("cut"));
    installation.isUnpacked = true;
    EXPECT_THAT(RemarksOn(installation, {"F", 0, ""}), testing::ElementsAre("cut"));
}

TEST(WriteTrialText, OfAPackageThatWasNotUnpackedIsWhatTheUnpackingPrinted)
{
    TrialResult result;
    result.installations.resize(1);
    const auto told = [&result] {
        std::ostringstream out;
        WriteTrialText({out, out, false, true}, {"F", 0, ""}, result, false);
        return out.str();
    };
    EXPECT_EQ(told(), "F: \x1b[31mnot installed\x1b[0m\n");

    result.installations[0].log.Append("bad\n");
    result.installations[0].remarks = {"why"};
    EXPECT_EQ(told(), "F: \x1b[31mnot installed\x1b[0m\n"
                      "  \x1b[33mwhy\x1b[0m\n"
                      "\n\x1b[1mWhat the unpacking printed\x1b[0m\n"
                      "  | bad\n");
}

TEST(ShellGreeting, TellsWhetherThePackageIsInstalled)
{
    EXPECT_EQ(ShellGreeting(true), "The package is installed. This is a shell on the panel; leave "
                                   "it with 'exit'.");
    EXPECT_EQ(ShellGreeting(false), "The package is not installed. This is a shell on the panel; "
                                    "leave it with 'exit'.");
}

} // namespace

} // namespace kx::tool
