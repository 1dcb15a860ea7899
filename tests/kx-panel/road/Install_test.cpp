// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "InProcess.h"
#include "archive/ZipOf.h"
#include "confined/Unread.h"
#include "io/Error.h"
#include "io/Interruption.h"
#include "journal/Baseline.h"
#include "journal/History.h"
#include "journal/TestState.h"
#include "road/Install.h"
#include "support/Emulated.h"
#include "support/ProjectBuilder.h"
#include "support/TempDir.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace kx::guard
{

namespace
{

using testing::ElementsAre;
using testing::IsEmpty;

/// Says what it was told to say, and unpacks.
class ToldJudge final : public IJudge
{
public:
    Decision BeforeCopy(const OpenPackageFile& package) override
    {
        names.push_back(package.name);
        beforeCopy();
        return early;
    }

    Decision OfCopy(const OpenPackageFile& copy, const HighestVersions& highest) override
    {
        judged = copy.bytes.Read(0, static_cast<std::size_t>(copy.bytes.Size()));
        highestBefore = highest("Hello");
        ofCopy();
        return late;
    }

    std::vector<std::string> Secrets(const OpenPackageFile& /*copy*/) override { return secrets; }

    void Unpack(const OpenPackageFile& copy, IContentsTaker& taker) override
    {
        InProcess confinement;
        StreamContents(confinement, copy.bytes, copy.descriptor, Limits(), taker);
        unpacked();
    }

    Decision early;
    Decision late;
    std::vector<std::string> secrets;
    std::function<void()> beforeCopy = [] {};
    std::function<void()> ofCopy = [] {};
    std::function<void()> unpacked = [] {};
    std::vector<std::string> names;
    std::string judged;
    std::optional<std::string> highestBefore;
};

class Watcher final : public IRoadObserver
{
public:
    void OnStep(RoadStep step) override { steps.push_back(step); }
    void OnLine(const std::string& line) override { lines.push_back(line); }
    void OnRemark(const std::string& text) override { remarks.push_back(text); }

    std::vector<RoadStep> steps;
    std::vector<std::string> lines;
    std::vector<std::string> remarks;
};

/// A panel in a temporary folder, with a shell script in the updater's place.
class InstallTest : public testing::Test
{
protected:
    InstallTest()
    {
        m_judge.late.facts.name = "Hello";
        m_judge.late.facts.version = "1.2";
        m_places.state = PlaceIn(m_dir);
        m_places.stepFolder = m_dir / "Zt/";
        m_places.root = m_dir.Path();
        Updater("echo installing\n");
        m_file = m_dir.Write("usb/Other name.kx-update",
                             archive::ZipOf({{"payload/file", "content"}, {"top", "t"}}));
    }

    void Updater(const std::string& script)
    {
        m_places.updater = m_dir.Write("updater", "#!/bin/sh\n" + script, 0755);
    }

    Installation Run()
    {
        m_watcher = Watcher();
        const io::Interruption interruption; // as its caller has one
        return Install(m_policy, m_places, m_judge, m_file, m_watcher);
    }

    /// What is in the state folder besides the history.
    [[nodiscard]] std::vector<std::string> Remembered() const
    {
        std::vector<std::string> names;
        for (const std::string& line : m_dir.Tree()) {
            const bool isState = line.compare(0, 6, "state/") == 0;
            if (isState && line.compare(6, 7, "history") != 0) {
                names.push_back(line.substr(6));
            }
        }
        return names;
    }

    [[nodiscard]] PastInstallation Past(std::uint64_t id) const
    {
        const auto past = ReadHistoryEntry(*OpenStateToRead(m_places.state), id);
        EXPECT_TRUE(past.has_value());
        return past.value_or(PastInstallation());
    }

    void WriteRecord(const std::string& version) const
    {
        ProjectBuilder::Object root = ProjectBuilder::Root();
        root["PackageVersion"] = ProjectBuilder::Text(version);
        m_dir.Write("var/lib/KxUserPackages/Hello/UserPackage.kx-project",
                    ProjectBuilder::File(root));
    }

    TempDir m_dir;
    Policy m_policy;
    RoadPlaces m_places;
    ToldJudge m_judge;
    Watcher m_watcher;
    std::string m_file;
};

const std::vector<std::string> kOnlyTheLock = {"lock f 600 "};
const std::vector<std::string> kOneVersion = {"lock f 600 ", "versions d 700",
                                              "versions/Hello f 600 Hello\n1.2\n1.2\n"};

} // namespace

TEST_F(InstallTest, UnpacksUnderTheSignedNameAndInstallsWithThePanelsUpdater)
{
    Updater("echo \"$2\"\ncd \"$2\" && find . | sort\nstat -c %a " + (m_dir / "Zt") + "\n");

    const Installation done = Run();

    EXPECT_EQ(done.ending.outcome, Outcome::kInstalled);
    EXPECT_EQ(done.ending.status, 0);
    EXPECT_EQ(done.ending.from, Speaker::kUpdater);
    EXPECT_EQ(done.ending.message, "");
    EXPECT_THAT(m_watcher.lines, ElementsAre(m_dir / "state/unpacked/Hello.temp", ".", "./payload",
                                             "./payload/file", "./top", "700"));
    EXPECT_THAT(m_watcher.steps,
                ElementsAre(RoadStep::kClearing, RoadStep::kLooking, RoadStep::kCopying,
                            RoadStep::kDeciding, RoadStep::kUnpacking, RoadStep::kInstalling));
    EXPECT_THAT(m_judge.names, ElementsAre("Other name.kx-update"));
    EXPECT_EQ(Remembered(), kOneVersion);
    EXPECT_FALSE(std::filesystem::exists(m_dir / "Zt"));
}

TEST_F(InstallTest, NotesEverythingInTheHistory)
{
    m_judge.late.facts.signer = "factory";
    m_judge.secrets = {"s3cret"};
    Updater("echo 'with s3cret'\nprintf '\\033[2J\\n'\nexit 101\n");

    const Installation done = Run();

    const PastInstallation past = Past(done.historyId);
    EXPECT_EQ(past.file, "Other name.kx-update");
    EXPECT_EQ(past.name, "Hello");
    EXPECT_EQ(past.version, "1.2");
    EXPECT_EQ(past.signer, "factory");
    ASSERT_EQ(past.lines.size(), 2U);
    EXPECT_EQ(past.lines[0].text, "with ********");
    EXPECT_EQ(past.lines[1].text, "\\x1b[2J");
    EXPECT_THAT(m_watcher.lines, ElementsAre("with ********", "\\x1b[2J"));
    ASSERT_TRUE(past.ending.has_value());
    EXPECT_EQ(past.ending->outcome, Outcome::kFailed);
    EXPECT_EQ(past.ending->status, 101);
    EXPECT_EQ(past.ending->from, Speaker::kUpdater);
}

TEST_F(InstallTest, DoesNotRaiseTheVersionWhenTheUpdaterFails)
{
    Updater("exit 101\n");

    const Installation done = Run();

    EXPECT_EQ(done.ending.outcome, Outcome::kFailed);
    EXPECT_EQ(done.ending.status, 101);
    EXPECT_EQ(Remembered(), kOnlyTheLock);
}

TEST_F(InstallTest, KeepsTheHighestVersionWhenAnOlderOneFails)
{
    static_cast<void>(Run());
    m_judge.late.facts.version = "1.1";
    Updater("exit 1\n");

    static_cast<void>(Run());

    EXPECT_EQ(m_judge.highestBefore, "1.2");
    EXPECT_EQ(Remembered(), kOneVersion);
}

TEST_F(InstallTest, CopiesNothingOfWhatIsRefusedBefore)
{
    m_judge.early.reasons = {{ReasonId::kSignatureMissing, {}}};
    std::ofstream(m_file, std::ios::app).close();

    const Installation done = Run();

    EXPECT_EQ(done.ending.outcome, Outcome::kRefused);
    EXPECT_EQ(done.ending.status, 1);
    EXPECT_EQ(done.ending.from, Speaker::kPanel);
    EXPECT_THAT(m_watcher.steps, ElementsAre(RoadStep::kClearing, RoadStep::kLooking));
    EXPECT_EQ(Remembered(), kOnlyTheLock);
    ASSERT_EQ(Past(done.historyId).reasons.size(), 1U);
    EXPECT_EQ(Past(done.historyId).reasons[0].word, ReasonWord(ReasonId::kSignatureMissing));
}

TEST_F(InstallTest, UnpacksNothingOfWhatIsRefused)
{
    m_judge.late.reasons = {{ReasonId::kModel, {"a", "b"}}, {ReasonId::kVersionOlder, {"1", "2"}}};

    const Installation done = Run();

    EXPECT_EQ(done.ending.outcome, Outcome::kRefused);
    EXPECT_THAT(done.decision.reasons, testing::SizeIs(2));
    EXPECT_THAT(Past(done.historyId).reasons, testing::SizeIs(2));
    EXPECT_THAT(m_watcher.steps, testing::Not(testing::Contains(RoadStep::kUnpacking)));
    EXPECT_EQ(Remembered(), kOnlyTheLock);
}

TEST_F(InstallTest, LooksAtTheCopyOnlyOnceThereIsOne)
{
    const std::string before = ReadFile(m_file);
    m_judge.ofCopy = [this] {
        std::ofstream(m_file) << archive::ZipOf({{"evil", "e"}});
        std::filesystem::rename(m_file, m_file + ".gone");
    };
    Updater("cd \"$2\" && find . -type f | sort\n");

    const Installation done = Run();

    EXPECT_EQ(done.ending.outcome, Outcome::kInstalled);
    EXPECT_EQ(m_judge.judged, before);
    EXPECT_THAT(m_watcher.lines, ElementsAre("./payload/file", "./top"));
}

TEST_F(InstallTest, JudgesTheBytesThatWereCopiedAndNotThoseLookedAtFirst)
{
    const std::string other = archive::ZipOf({{"other", "o"}});
    m_judge.beforeCopy = [this, &other] { std::ofstream(m_file) << other; };

    static_cast<void>(Run());

    // As long as the file was at first.
    EXPECT_THAT(m_judge.judged, testing::AnyOf("", testing::StartsWith(other)));
}

TEST_F(InstallTest, RefusesANameThatIsNoneWhateverTheJudgeSays)
{
    for (const char* const name : {"", "../x", "a/b", "a.temp", "$(reboot)", "a b"}) {
        m_judge.late.facts.name = name;

        const Installation done = Run();

        EXPECT_EQ(done.ending.outcome, Outcome::kRefused) << name;
        ASSERT_EQ(done.decision.reasons.size(), 1U) << name;
        EXPECT_EQ(done.decision.reasons[0].id, ReasonId::kName) << name;
        EXPECT_EQ(Remembered(), kOnlyTheLock) << name;
    }
}

TEST_F(InstallTest, TellsWhatCouldNotBeReadAndLeavesNothing)
{
    const std::string whole = m_file;
    m_file = m_dir / "missing.kx-update";

    const Installation missing = Run();
    m_file = whole;
    m_judge.unpacked = [] {
        throw io::Error(io::ExitCode::kNoAccess, "disk", "cannot write: No space left on device");
    };
    const Installation full = Run();
    m_judge.unpacked = [] { throw Unread("it was ended by signal 31"); };
    const Installation unread = Run();

    EXPECT_EQ(missing.ending.outcome, Outcome::kError);
    EXPECT_EQ(missing.ending.status, 1);
    EXPECT_EQ(missing.ending.message,
              m_dir.Path() + "/missing.kx-update: cannot open: No such file or directory");
    EXPECT_EQ(full.ending.outcome, Outcome::kError);
    EXPECT_EQ(full.ending.status, 3);
    EXPECT_EQ(full.ending.message, "disk: cannot write: No space left on device");
    EXPECT_EQ(Past(full.historyId).ending->message, full.ending.message);
    EXPECT_EQ(unread.ending.outcome, Outcome::kRefused);
    EXPECT_EQ(unread.decision.reasons.at(0).id, ReasonId::kUnread);
    EXPECT_EQ(Remembered(), kOnlyTheLock);
}

TEST_F(InstallTest, TellsThatTheUpdaterCannotBeStarted)
{
    m_places.updater = m_dir / "missing";

    const Installation done = Run();

    EXPECT_EQ(done.ending.outcome, Outcome::kError);
    EXPECT_EQ(done.ending.from, Speaker::kPanel);
    EXPECT_EQ(done.ending.message,
              m_dir.Path() + "/missing: cannot start: No such file or directory");
    EXPECT_EQ(Remembered(), kOnlyTheLock);
}

TEST_F(InstallTest, RefusesWhenItCannotRemember)
{
    m_dir.MakeDir("state"); // open to others

    const Installation done = Run();

    EXPECT_EQ(done.ending.outcome, Outcome::kRefused);
    EXPECT_EQ(done.historyId, 0U);
    ASSERT_EQ(done.decision.reasons.size(), 1U);
    EXPECT_EQ(done.decision.reasons[0].id, ReasonId::kState);
    EXPECT_THAT(Remembered(), IsEmpty());
}

TEST_F(InstallTest, InstallsNothingThatItCannotNoteButTellsWhyItWouldRefuse)
{
    struct sigaction before {
    };
    struct sigaction ignore {
    };
    ignore.sa_handler = SIG_IGN;
    sigaction(SIGXFSZ, &ignore, &before);
    rlimit usual{};
    getrlimit(RLIMIT_FSIZE, &usual);
    const rlimit none{0, usual.rlim_max};
    setrlimit(RLIMIT_FSIZE, &none); // as on a disk that is full

    const Installation unnoted = Run();
    m_judge.early.reasons = {{ReasonId::kRoom, {"/data", "2", "1", "2", "1"}}};
    const Installation refused = Run();

    setrlimit(RLIMIT_FSIZE, &usual);
    sigaction(SIGXFSZ, &before, nullptr);
    EXPECT_EQ(unnoted.ending.outcome, Outcome::kError);
    EXPECT_EQ(unnoted.ending.status, 3);
    EXPECT_EQ(unnoted.ending.message, m_dir.Path() +
                                          "/state/history/0000000001.jsonl: cannot write: File too "
                                          "large");
    EXPECT_EQ(refused.ending.outcome, Outcome::kRefused);
    EXPECT_EQ(Remembered(), kOnlyTheLock);
    EXPECT_TRUE(std::filesystem::is_empty(m_dir / "state/history"));
}

TEST_F(InstallTest, IsTheOnlyOne)
{
    const State other(m_places.state);

    EXPECT_THROW(static_cast<void>(Run()), Busy);
    EXPECT_THAT(m_watcher.steps, IsEmpty());
}

TEST_F(InstallTest, IsTheOnlyOneWhileItsUpdaterRuns)
{
    bool wasBusy = false;
    m_judge.unpacked = [this, &wasBusy] {
        try {
            const State other(m_places.state);
        } catch (const Busy&) {
            wasBusy = true;
        }
    };

    EXPECT_EQ(Run().ending.outcome, Outcome::kInstalled);
    EXPECT_TRUE(wasBusy);
}

class InterruptedInstall : public InstallTest
{
protected:
    InterruptedInstall()
    {
        struct sigaction pass {
        };
        pass.sa_handler = [](int /*number*/) {};
        sigaction(SIGTERM, &pass, &m_before);
    }
    ~InterruptedInstall() override { sigaction(SIGTERM, &m_before, nullptr); }

private:
    struct sigaction m_before {
    };
};

TEST_F(InterruptedInstall, EndsCleanlyBeforeTheUpdaterRuns)
{
    Updater("touch " + (m_dir / "ran") + "\n");
    for (auto* const moment : {&m_judge.beforeCopy, &m_judge.ofCopy, &m_judge.unpacked}) {
        *moment = [] { raise(SIGTERM); };

        const Installation done = Run();

        EXPECT_EQ(done.ending.outcome, Outcome::kStopped);
        EXPECT_EQ(done.ending.status, 3);
        EXPECT_EQ(Past(done.historyId).ending->outcome, Outcome::kStopped);
        EXPECT_EQ(Remembered(), kOnlyTheLock);
        *moment = [] {};
    }
    EXPECT_FALSE(std::filesystem::exists(m_dir / "ran"));
    EXPECT_FALSE(std::filesystem::exists(m_dir / "Zt"));
}

TEST_F(InterruptedInstall, WaitsForTheUpdaterOnceItRuns)
{
    Updater("kill -TERM $PPID\nsleep 0.3\necho done\n");

    const Installation done = Run();

    EXPECT_EQ(done.ending.outcome, Outcome::kInstalled);
    EXPECT_THAT(m_watcher.remarks,
                ElementsAre("asked to end; the installation goes on, and is waited for"));
    EXPECT_EQ(Remembered(), kOneVersion);
}

class AfterACut : public InstallTest
{
protected:
    /// Does what an installation has done when the power is cut while the updater runs.
    void Cut()
    {
        const State state(m_places.state);
        const HistoryEntry entry(state.Folder(), m_policy.limits, "Hello.kx-update", 0);
        NoteBegun(state.Folder(), {"Hello", "1.2", entry.Id()});
        m_dir.Write("state/package", "copy");
        m_dir.Write("state/unpacked/Hello.temp/payload/file", "f");
        m_dir.Write("state/installer.lock", "");
        m_dir.Write("state/.begun.new", "half");
        m_dir.Write("state/history/.0000000001.jsonl.new", "half");
        m_dir.Write("Zt/temp.sh", "");
        m_cut = entry.Id();
        m_judge.early.reasons = {{ReasonId::kSignatureMissing, {}}}; // for the next start
    }

    std::uint64_t m_cut = 0;
};

TEST_F(AfterACut, TheNextStartClearsWhatIsLeft)
{
    Cut();

    static_cast<void>(Run());

    EXPECT_EQ(Remembered(), kOnlyTheLock);
    EXPECT_FALSE(std::filesystem::exists(m_dir / "Zt"));
    EXPECT_FALSE(std::filesystem::exists(m_dir / "state/history/.0000000001.jsonl.new"));
    EXPECT_EQ(Past(m_cut).ending->outcome, Outcome::kInterrupted);
    EXPECT_THAT(
        m_watcher.remarks,
        ElementsAre("the installation of Hello 1.2 was interrupted; the panel's record says "
                    "that not all of its steps were done"));
}

TEST_F(AfterACut, AnInstallationThatIsRecordedCounts)
{
    Cut();
    WriteRecord("1.2");

    static_cast<void>(Run());

    EXPECT_EQ(Remembered(), kOneVersion);
    EXPECT_THAT(
        m_watcher.remarks,
        ElementsAre("the installation of Hello 1.2 was interrupted; the panel's record says "
                    "that all of its steps were done"));
}

TEST_F(AfterACut, NothingIsClearedWhileTheInstallerStillRuns)
{
    Cut();
    auto state = std::make_unique<State>(m_places.state);
    const io::Descriptor lock = state->LockForInstaller();
    state.reset();
    const std::vector<std::string> before = m_dir.Tree();

    EXPECT_THROW(static_cast<void>(Run()), Busy);
    EXPECT_EQ(m_dir.Tree(), before);
}

TEST_F(AfterACut, AKilledUpdaterLeavesNothingThatCouldStillRun)
{
    Updater("kill -9 $$\n");

    const Installation done = Run();

    EXPECT_EQ(done.ending.outcome, Outcome::kFailed);
    EXPECT_EQ(done.ending.status, 137);
    EXPECT_EQ(done.ending.from, Speaker::kUpdater);
    EXPECT_EQ(done.ending.message, "the updater was ended by signal 9");
    EXPECT_EQ(Remembered(), kOnlyTheLock);
}

TEST_F(AfterACut, WhatAKilledUpdaterLeftRunningIsClearedWhenItHasEnded)
{
    if (IsEmulated()) {
        GTEST_SKIP() << "an emulator lets no process take in what its children started";
    }
    const std::string pid = m_dir / "pid";
    Updater("sleep 60 &\necho $! > " + pid + "\nkill -9 $$\n");
    m_places.patience = std::chrono::milliseconds(100);

    const Installation done = Run();

    EXPECT_EQ(done.ending.message, "the updater was ended by signal 9; programs that it started "
                                   "still run; what was unpacked is removed when they have ended");
    EXPECT_THAT(Remembered(), testing::Contains("unpacked/Hello.temp/top f 644 t"));
    EXPECT_TRUE(std::filesystem::exists(m_dir / "Zt"));
    EXPECT_THROW(static_cast<void>(Run()), Busy);
    const int process = std::stoi(ReadFile(pid));
    kill(process, SIGKILL);
    while (kill(process, 0) == 0) {
        usleep(10000);
        waitpid(process, nullptr, WNOHANG);
    }
    Updater("exit 0\n");
    EXPECT_EQ(Run().ending.outcome, Outcome::kInstalled);
    EXPECT_EQ(Remembered(), kOneVersion);
    EXPECT_FALSE(std::filesystem::exists(m_dir / "Zt"));
    EXPECT_EQ(Past(done.historyId).ending->outcome, Outcome::kFailed) << "not changed later";
}

} // namespace kx::guard
