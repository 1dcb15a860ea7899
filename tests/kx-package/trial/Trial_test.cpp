// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "io/Descriptor.h"
#include "io/Interruption.h"
#include "kx-package/trial/FakeDevice.h"
#include "support/Streams.h"
#include "support/TempDir.h"
#include "support/Thrown.h"
#include "trial/Trial.h"

#include <gmock/gmock.h>

#include <array>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace kx::tool
{

namespace
{

TEST(NamedPath, EndsInTheNameOfThePackage)
{
    const TempDir folder;
    const std::string root = std::filesystem::canonical(folder.Path()).string();
    std::filesystem::create_directories(root + "/pkg/0");
    std::ofstream(root + "/a.kx-update") << "x";

    EXPECT_EQ(NamedPath(root + "/pkg"), root + "/pkg");
    EXPECT_EQ(NamedPath(root + "/pkg//"), root + "/pkg");
    EXPECT_EQ(NamedPath(root + "/pkg/."), root + "/pkg");
    EXPECT_EQ(NamedPath(root + "/pkg/0/.."), root + "/pkg");
    EXPECT_EQ(NamedPath(root + "/a.kx-update"), root + "/a.kx-update");
}

TEST(NamedPath, RefusesWhatIsNoPackage)
{
    EXPECT_EQ(Thrown([] { static_cast<void>(NamedPath("/nowhere")); }),
              "1: /nowhere: cannot open: No such file or directory");
    EXPECT_EQ(Thrown([] { static_cast<void>(NamedPath("")); }),
              "1: cannot open: No such file or directory");
    EXPECT_EQ(Thrown([] { static_cast<void>(NamedPath("//")); }),
              "1: //: is not a package; name a package or the folder of an unpacked one");
    EXPECT_EQ(Thrown([] { static_cast<void>(NamedPath("/dev/null")); }),
              "1: /dev/null: is neither a file nor a folder; name a package or the folder of an "
              "unpacked one");
}

/// The end of a device's script that tells what an installation changed; other commands end with 0.
const std::string kTells = "[ -n \"$summary\" ] || exit 0\n"
                           "echo '{\"files\": [], \"settings\": [], \"users\": [], "
                           "\"packages\": [], \"reboot\": false}' >\"$summary\"\n"
                           "echo 'refused\tcp' >\"$trace\"\n";

/// What a trial on a device is told, but for its package.
TrialRequest RequestFor(const FakeDevice& device, bool isTwice = false)
{
    TrialRequest request;
    request.device = device.Folder();
    request.updater = "/none";
    request.bounds.disk = 1;
    request.isTwice = isTwice;
    request.road = {true,
                    "/mnt/usb/Foo.kx-update",
                    "/mnt/usb/Foo.temp",
                    "/var/lib/KxUserPackages/Foo",
                    {"sync"},
                    {"rm"}};
    return request;
}

/// Tries a folder on a device.
TrialResult Try(const FakeDevice& device, bool isTwice = false)
{
    const TempDir dir;
    TrialRequest request = RequestFor(device, isTwice);
    request.package = dir.MakeDir("Foo");
    return RunTrial(request);
}

TEST(RunTrial, TakesAnInstallationThatEndsWithZeroForInstalled)
{
    const FakeDevice device(kTells);

    const TrialResult result = Try(device);

    ASSERT_EQ(result.installations.size(), 1U);
    EXPECT_TRUE(result.installations[0].isInstalled);
    EXPECT_EQ(result.installations[0].exitCode, 0);
    EXPECT_TRUE(result.installations[0].isRefused);
    EXPECT_EQ(result.recordName, "Foo");
    EXPECT_TRUE(device.IsClean());
}

TEST(RunTrial, TakesNoInstallationForOneThatAFullDiskEndedWhateverItsExitCode)
{
    const FakeDevice device(kTells + kFillsTheDisk);

    const TrialResult result = Try(device);

    ASSERT_EQ(result.installations.size(), 1U);
    EXPECT_TRUE(result.installations[0].isUnpacked);
    EXPECT_FALSE(result.installations[0].isInstalled);
    EXPECT_EQ(result.installations[0].exitCode, 0);
    EXPECT_THAT(result.installations[0].remarks,
                testing::ElementsAre("ended because the panel's files take more than 1 MiB; see "
                                     "--disk"));
    EXPECT_TRUE(device.IsClean());
}

TEST(RunTrial, TellsThatUnpackingReachedABound)
{
    const FakeDevice device(kFillsTheDisk);

    const TrialResult result = Try(device, true);

    // Without an unpacked package there is nothing to install, and nothing a second time.
    ASSERT_EQ(result.installations.size(), 1U);
    EXPECT_FALSE(result.installations[0].isUnpacked);
    EXPECT_FALSE(result.installations[0].isInstalled);
    EXPECT_EQ(result.installations[0].exitCode, std::nullopt);
    EXPECT_EQ(result.installations[0].remarks.back(),
              "the package could not be unpacked in the given bounds");
    EXPECT_TRUE(device.IsClean());
}

TEST(RunTrial, GivesEachInstallationItsTimeAndTheReadingOfItsRecordAMinute)
{
    const FakeDevice device("echo \"$seconds\" >>\"${0%/*}/seconds\"\n" + kTells);

    const TrialResult result = Try(device, true);

    EXPECT_EQ(result.installations.size(), 2U);
    // Each time it is unpacked, installed and read.
    EXPECT_EQ(ReadFile(device.Folder() + "/seconds"), "600\n600\n60\n600\n600\n60\n");
}

/// A device's script that answers by the position of a call: the first unpacks, the second
/// installs, the third reads the record.
std::string AnswersTo(const std::string& unpacking, const std::string& installing,
                      const std::string& reading)
{
    return "case $(grep -c '^--state' \"${0%/*}/calls\") in\n"
           "1) " +
           unpacking + " ;;\n2) " + installing + " ;;\n3) " + reading + " ;;\nesac\n" + kTells;
}

/// How often a device's panel was started; scripts are told on several lines.
int StartsOf(const FakeDevice& device)
{
    std::istringstream lines(ReadFile(device.Folder() + "/calls"));
    int starts = 0;
    for (std::string line; std::getline(lines, line);) {
        starts += line.compare(0, 7, "--state") == 0 ? 1 : 0;
    }
    return starts;
}

TEST(RunTrial, ReadsTheRecordOfAnInstallation)
{
    const FakeDevice device(
        AnswersTo("", "", R"(printf 'Foo\n #dir\n/d/\n/e/\n #file\n/f\n/g h\n')"));

    const TrialResult result = Try(device);

    ASSERT_TRUE(result.installations.at(0).record.has_value());
    EXPECT_THAT(result.installations[0].record->folders, testing::ElementsAre("/d/", "/e/"));
    EXPECT_THAT(result.installations[0].record->files, testing::ElementsAre("/f", "/g h"));
}

TEST(RunTrial, TellsThatThereIsNoRecord)
{
    const FakeDevice device(AnswersTo("", "", "exit 1"));

    const Installation installation = Try(device).installations.at(0);

    EXPECT_FALSE(installation.record.has_value());
    EXPECT_TRUE(installation.isInstalled);
}

TEST(RunTrial, TakesAnInstallationThatDoesNotEndWithZeroForFailed)
{
    const FakeDevice device(AnswersTo("", "trap 'exit 101' EXIT", "exit 1"));

    const Installation installation = Try(device).installations.at(0);

    EXPECT_TRUE(installation.isUnpacked);
    EXPECT_FALSE(installation.isInstalled);
    EXPECT_EQ(installation.exitCode, 101);
}

TEST(RunTrial, SaysWhyAPackageWasNotUnpacked)
{
    const auto told = [](const std::string& ending) {
        const FakeDevice device(AnswersTo(ending, "exit 1", "exit 1"));
        const Installation installation = Try(device).installations.at(0);
        EXPECT_FALSE(installation.isUnpacked) << ending;
        EXPECT_EQ(StartsOf(device), 2) << ending; // to unpack, and to leave
        return testing::PrintToString(installation.remarks) +
               testing::PrintToString(installation.log.Lines());
    };

    EXPECT_EQ(told("exit 118"), "{ \"the package has no UserPackage.kx-project at its top level; "
                                "see kx-package check\" }{}");
    EXPECT_EQ(told("exit 120"), "{ \"the package could not be laid on the panel's drive\" }{}");
    EXPECT_EQ(told("echo bad; exit 9"), "{ \"a panel cannot unpack the package: unzip ends with 9; "
                                        "see kx-package check\" }{ \"bad\" }");
}

TEST(RunTrial, RemarksOnAPackageWithoutAnUpdaterAndInstallsWithItsOwn)
{
    const FakeDevice device(AnswersTo("exit 119", "", "exit 1"));

    const Installation installation = Try(device).installations.at(0);

    EXPECT_TRUE(installation.isInstalled);
    EXPECT_THAT(installation.remarks,
                testing::ElementsAre("the package has no kx_Updater that a panel could start; see "
                                     "kx-package check"));
}

TEST(RunTrial, RemarksOnNamesThatPanelsTakeOtherwise)
{
    const TempDir dir;
    const auto remarksOn = [&dir](const std::string& name) {
        const FakeDevice device(kTells);
        TrialRequest request = RequestFor(device);
        request.package = dir.MakeDir("Foo");
        request.road.archive = "/mnt/usb/" + name;
        return RunTrial(request).installations.at(0).remarks;
    };

    EXPECT_THAT(remarksOn("a b.kx-update"), testing::IsEmpty());
    EXPECT_THAT(remarksOn("a$b.kx-update"),
                testing::ElementsAre("the panel's shell interprets the $ in the package's name; "
                                     "see kx-package check"));
    EXPECT_THAT(remarksOn("\xc3\xa4.kx-update"),
                testing::ElementsAre("a panel would not start the installation: the package's "
                                     "name is not plain ASCII; see kx-package check"));
}

TEST(RunTrial, StartsNothingForAFileThatIsNoPackage)
{
    const TempDir dir;
    const FakeDevice device(kTells);
    TrialRequest request = RequestFor(device, true);
    request.package = dir.Write("Foo.zip", "x");
    request.road.isFound = false;

    const TrialResult result = RunTrial(request);

    ASSERT_EQ(result.installations.size(), 1U);
    EXPECT_THAT(result.installations[0].remarks,
                testing::ElementsAre("a panel finds no package: the file's name does not end in "
                                     ".kx-update"));
    EXPECT_FALSE(result.installations[0].isInstalled);
    EXPECT_EQ(StartsOf(device), 0);
    EXPECT_TRUE(device.IsClean());
}

TEST(RunTrial, TellsHowFarItHasCome)
{
    const FakeDevice device(AnswersTo("sleep 0.5",
                                      "echo '**** Installation step 1/2'; sleep 0.5; "
                                      "echo '**** Installation step 2/2'; sleep 0.5",
                                      "exit 1"));
    const TempDir dir;
    TrialRequest request = RequestFor(device);
    request.package = dir.MakeDir("Foo");
    std::vector<std::string> seen;
    request.onProgress = [&seen](const TrialProgress& now) {
        const std::string text = std::string(now.isInstalling ? "installing " : "unpacking ") +
                                 std::to_string(now.step) + "/" + std::to_string(now.steps);
        if (seen.empty() || seen.back() != text) {
            seen.push_back(text);
        }
        EXPECT_FALSE(now.isEnding);
    };

    static_cast<void>(RunTrial(request));

    ASSERT_FALSE(seen.empty());
    EXPECT_EQ(seen.front(), "unpacking 0/0");
    EXPECT_THAT(seen, testing::Contains("installing 1/2"));
    EXPECT_EQ(seen.back(), "installing 2/2");
}

TEST(RunTrial, CannotJudgeAnInstallationWhoseProgramsDoNotRunHere)
{
    const auto outcome = [](const std::string& program, bool isTwice = false) {
        const FakeDevice device(
            kTells + "case $(grep -c -- --trace-programs \"${0%/*}/calls\") in\n1) printf '" +
            program + "' >>\"$trace\" ;;\nesac\n");
        const TrialResult result = Try(device, isTwice);
        EXPECT_TRUE(result.installations.front().isInstalled);
        EXPECT_EQ(result.installations.back().Outcome(),
                  isTwice ? Verdict::kInstalled : result.Outcome());
        return std::pair(result.Outcome(), result.installations.front().doubts);
    };
    const std::vector<std::string> none;

    EXPECT_EQ(outcome(""), std::pair(Verdict::kInstalled, none));
    EXPECT_EQ(outcome("program\\t/a\\tarm\\t"
                      "yes\\t\\n"),
              std::pair(Verdict::kInstalled, none));
    const std::vector<std::string> doubts = {"the installation starts programs for arm"};
    EXPECT_EQ(outcome("program\\t/a\\tarm\\tno\\t\\n"), std::pair(Verdict::kNotJudged, doubts));
    EXPECT_EQ(outcome("program\\t/a\\tarm\\tno\\t\\n", true),
              std::pair(Verdict::kNotJudged, doubts));
}

TEST(RunTrial, JudgesProgramsByTheProcessorOfThePanel)
{
    const FakeDevice device(kTells + "printf 'program\\t/a\\triscv64\\t"
                                     "yes\\t\\n' >>\"$trace\"\n");
    const TempDir dir;
    TrialRequest request = RequestFor(device);
    request.package = dir.MakeDir("Foo");
    request.processor = "arm";

    EXPECT_THAT(RunTrial(request).installations.at(0).doubts,
                testing::ElementsAre(
                    "the installation starts programs for riscv64, the package is for arm"));
}

TEST(RunTrial, TellsTheStepThatWasMadeToFail)
{
    const FakeDevice device(kTells);
    const TempDir dir;
    TrialRequest request = RequestFor(device);
    request.package = dir.MakeDir("Foo");
    request.failure = ShellFailure{"cp", 1, 3};

    const Installation installation = RunTrial(request).installations.at(0);

    ASSERT_EQ(installation.failedSteps.size(), 1U);
    EXPECT_EQ(installation.failedSteps[0].step, 3);
    EXPECT_TRUE(installation.failedSteps[0].isSkipped);
}

TEST(RunTrial, SaysThatADeviceDidNotTellWhatChanged)
{
    const FakeDevice device("[ -z \"$summary\" ] || { echo x >\"$summary\"; : >\"$trace\"; }\n");

    EXPECT_THAT(Thrown([&device] { static_cast<void>(Try(device)); }),
                testing::StartsWith("3: " + device.Folder() +
                                    "/run: the device did not tell what changed: "));
    EXPECT_TRUE(device.IsClean());
}

TEST(RunTrial, TakesAPackageFromStandardInputUpToTheSizeOfTheDisk)
{
    const TempDir dir;
    const FakeDevice device(kTells);
    const std::string path = dir.Write("input", "packed");
    TrialRequest request = RequestFor(device);
    request.package = "-";
    {
        const ReplacedStream input(STDIN_FILENO, io::OpenFile(path));
        EXPECT_TRUE(RunTrial(request).installations.at(0).isInstalled);
    }
    EXPECT_THAT(ReadFile(device.Folder() + "/calls"), testing::HasSubstr("/package.kx-update="));

    std::filesystem::resize_file(path, (1U << 20) + 1);
    const ReplacedStream input(STDIN_FILENO, io::OpenFile(path));
    EXPECT_EQ(Thrown([&request] { static_cast<void>(RunTrial(request)); }),
              "3: standard input: is larger than 1.0 MiB; see --disk");
    EXPECT_TRUE(device.IsClean());
}

TEST(RunTrial, TriesAPackageThatIsMadeForIt)
{
    const FakeDevice device(AnswersTo("exit 119", "", "exit 1"));
    TrialRequest request = RequestFor(device);
    std::string made;
    request.build = [&made](const std::string& file) {
        made = file;
        EXPECT_FALSE(std::filesystem::exists(file));
        std::ofstream(file) << "packed";
    };
    request.whyNoUpdater = "none is here";

    const TrialResult result = RunTrial(request);

    EXPECT_TRUE(result.installations.at(0).isInstalled);
    EXPECT_THAT(result.installations[0].remarks, testing::ElementsAre("none is here"));
    EXPECT_THAT(ReadFile(device.Folder() + "/calls"), testing::HasSubstr("--put " + made + "="));
    EXPECT_TRUE(device.IsClean());
}

TEST(RunTrial, LeavesNothingOfAPackageThatCannotBeMade)
{
    const FakeDevice device(kTells);
    TrialRequest request = RequestFor(device);
    request.build = [](const std::string& file) {
        std::ofstream(file) << "half";
        throw io::Error(io::ExitCode::kNoAccess, "app", "cannot read");
    };

    EXPECT_EQ(Thrown([&request] { static_cast<void>(RunTrial(request)); }), "3: app: cannot read");
    EXPECT_TRUE(device.IsClean());
}

TEST(RunTrial, EndsWhereAPersonDoesNotWaitForItsPackage)
{
    const FakeDevice device(kTells);
    TrialRequest request = RequestFor(device);
    request.build = [](const std::string& /*file*/) { std::raise(SIGTERM); };
    std::string told;

    const auto interrupted = [&] {
        ASSERT_NE(std::signal(SIGTERM, SIG_DFL), SIG_ERR);
        const io::Interruption outer; // ends the test when all was looked at
        told = Thrown([&request] { static_cast<void>(RunTrial(request)); });
        std::fputs(told.c_str(), stderr);
        EXPECT_TRUE(device.IsClean());
    };

    EXPECT_EXIT(interrupted(), testing::KilledBySignal(SIGTERM), "3: the trial was interrupted");
    EXPECT_TRUE(device.IsClean());
}

TEST(RunTrial, RestartsThePanelOnceWithoutItsDriveAndBeforeItIsKept)
{
    const TempDir dir;
    const FakeDevice device(kTells);
    TrialRequest request = RequestFor(device, true);
    request.package = dir.MakeDir("Foo");
    request.bootSeconds = 3;
    request.keepAt = dir / "kept";

    const TrialResult result = RunTrial(request);

    ASSERT_TRUE(result.restart.has_value());
    EXPECT_EQ(result.restart->script, StartupScript::kEnded);
    const std::string calls = ReadFile(device.Folder() + "/calls");
    const std::size_t installed = calls.rfind("-unzipedDir");
    const std::size_t pulled = calls.find("drive pull");
    const std::size_t restarted = calls.find("--boot --no-startup");
    EXPECT_LT(installed, pulled);
    EXPECT_LT(pulled, restarted);
    EXPECT_EQ(calls.find("--boot", restarted + 7), std::string::npos);
    EXPECT_NE(calls.find("--seconds 3 "), std::string::npos);
    EXPECT_TRUE(device.IsClean());
}

TEST(RunTrial, RestartsNoPanelThatWasNotNeeded)
{
    const TempDir dir;
    const FakeDevice device(kTells);
    TrialRequest request = RequestFor(device);
    request.package = dir.Write("Foo.zip", "x");
    request.road.isFound = false;
    request.bootSeconds = 3;

    EXPECT_FALSE(RunTrial(request).restart.has_value());
}

TEST(RunTrial, KeepsThePanelWithoutItsDrive)
{
    const TempDir dir;
    const FakeDevice device("touch \"$state/x\"\n" + kTells);
    TrialRequest request = RequestFor(device);
    request.package = dir.MakeDir("Foo");
    request.keepAt = dir / "kept";

    const TrialResult result = RunTrial(request);

    EXPECT_TRUE(result.isKept);
    EXPECT_THAT(dir.Tree(), testing::Contains("kept/x f 644 "));
    EXPECT_THAT(ReadFile(device.Folder() + "/calls"),
                testing::HasSubstr("-- sh -c /usr/bin/kxsystem/drive pull "));
    EXPECT_TRUE(device.IsClean());
}

TEST(RunTrial, HasNoPanelToKeepWhereNothingIsFound)
{
    const TempDir dir;
    const FakeDevice device(kTells);
    TrialRequest request = RequestFor(device);
    request.package = dir.Write("Foo.zip", "x");
    request.road.isFound = false;
    request.keepAt = dir / "kept";

    EXPECT_FALSE(RunTrial(request).isKept);

    EXPECT_THAT(dir.Tree(), testing::ElementsAre("Foo.zip f 644 x"));
    EXPECT_TRUE(device.IsClean());
}

TEST(RunTrial, KeepsNothingOfATrialThatFails)
{
    const TempDir dir;
    const FakeDevice device("echo 'device/run: no namespaces' >&2; exit 125\n");
    TrialRequest request = RequestFor(device);
    request.package = dir.MakeDir("Foo");
    request.keepAt = dir / "kept";

    EXPECT_THAT(Thrown([&request] { static_cast<void>(RunTrial(request)); }),
                testing::StartsWith("3: "));

    EXPECT_THAT(dir.Tree(), testing::ElementsAre("Foo d 755"));
    EXPECT_TRUE(device.IsClean());
}

TEST(RunTrial, OpensAShellForTheRestOfTheDay)
{
    const TempDir dir;
    const FakeDevice device("echo \"$seconds\" >>\"${0%/*}/seconds\"\n" + kTells +
                            "[ \"$seconds\" != 86400 ] || exit 7\n");
    const TerminalStream person(STDIN_FILENO);
    TrialRequest request = RequestFor(device);
    request.package = dir.MakeDir("Foo");
    request.shellGreeting = [](bool isInstalled) {
        return std::string(isInstalled ? "installed" : "not installed");
    };

    const TrialResult result = RunTrial(request);

    ASSERT_TRUE(result.shell.has_value());
    EXPECT_EQ(result.shell->exitStatus, 7);
    EXPECT_EQ(ReadFile(device.Folder() + "/seconds"), "600\n600\n60\n86400\n");
    std::array<char, 64> seen{};
    EXPECT_GT(read(person.Screen(), seen.data(), seen.size() - 1), 0);
    EXPECT_STREQ(seen.data(), "installed\r\n");
    EXPECT_TRUE(device.IsClean());
}

} // namespace

} // namespace kx::tool
