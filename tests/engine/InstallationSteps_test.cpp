// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT

// The installer's share of the road (InstallUnpacked), and what an observer of its steps is told.
#include "engine/IStepObserver.h"
#include "engine/Installation.h"
#include "engine/ScriptedStep.h"
#include "engine/UserPackageInstaller.h"
#include "support/EngineFixture.h"
#include "support/PanelFiles.h"
#include "support/ShellRecorder.h"
#include "support/TempDir.h"

#include <stdexcept>

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace
{

constexpr const char* kUnprotect = "/usr/bin/kxsystem/wprotect_off";
constexpr const char* kRemoveRecord = R"(rm -r "/var/lib/KxUserPackages/Foo")";
constexpr const char* kMakeRecord = R"(mkdir -p "/var/lib/KxUserPackages/Foo")";

/// Notes what it is told: "step 0/2", "end 0: 7".
class NotingObserver final : public IStepObserver
{
public:
    explicit NotingObserver(std::vector<std::string>& notes) : m_notes(&notes) {}

    void OnStep(int index, int count) override
    {
        m_notes->push_back("step " + std::to_string(index) + "/" + std::to_string(count));
    }
    void OnStepEnd(int index, int result) override
    {
        m_notes->push_back("end " + std::to_string(index) + ": " + std::to_string(result));
    }

private:
    std::vector<std::string>* m_notes;
};

/// The package Foo, unpacked, on a panel with no record of it.
class InstallingPackage : public EngineFixture
{
protected:
    [[nodiscard]] std::string Folder() const { return m_dir / "Foo.temp"; }
    [[nodiscard]] std::string CopyDescription() const
    {
        return "cp -f \"" + Folder() +
               "/UserPackage.kx-project\" "
               "\"/var/lib/KxUserPackages/Foo/UserPackage.kx-project\" ";
    }

    void Write(const std::vector<ProjectBuilder::Object>& steps) const
    {
        m_dir.Write("Foo.temp/UserPackage.kx-project",
                    ProjectBuilder::File(ProjectBuilder::Root(steps)));
    }

    /// Lets the command that makes the record's folder make it.
    void LetRecordBeMade()
    {
        m_shell.On(kMakeRecord, [this] { m_panel.MakeRecord("Foo"); });
    }

    /// Installs with the steps' scripts, the commands before each and the observer noted.
    int Install(const std::map<std::string, int>& results = {})
    {
        const ScriptedStepTable table([&](const std::string& name, int /*index*/) {
            m_notes.push_back(name + " after " + std::to_string(m_shell.Commands().size()));
            const auto found = results.find(name);
            return found != results.end() ? found->second : 0;
        });
        NotingObserver observer(m_notes);
        return Installation::InstallUnpacked(m_package, Folder(), &observer);
    }

    TempDir m_dir;
    PanelFiles m_panel;
    ShellRecorder m_shell;
    UserPackageInstaller m_package;
    std::vector<std::string> m_notes;
};

} // namespace

TEST_F(InstallingPackage, ReadsUnprotectsExecutesAndRecords)
{
    Write({ScriptedStep::Json("a"), ScriptedStep::Json("b")});
    LetRecordBeMade();

    EXPECT_EQ(Install(), 0);

    EXPECT_THAT(m_shell.Commands(), ElementsAre(kUnprotect, kMakeRecord, CopyDescription()));
    EXPECT_THAT(m_notes, ElementsAre("step 0/2", "a after 1", "end 0: 0", "step 1/2", "b after 1",
                                     "end 1: 0"));
    EXPECT_THAT(Lines(), ElementsAre("**** Installation step 1/2", "**** Installation step 2/2",
                                     "Installation succeeded."));
    EXPECT_EQ(ReadFile(m_panel.Real("/var/lib/KxUserPackages/Foo/installedFile.list")),
              " #dir\n/var/lib/KxUserPackages/Foo\n"
              " #file\n/var/lib/KxUserPackages/Foo/UserPackage.kx-project\n"
              "/var/lib/KxUserPackages/Foo/installedFile.list\n");
    EXPECT_EQ(m_package.packageDir, Folder());
    EXPECT_EQ(m_package.projectFile, Folder() + "/UserPackage.kx-project");
    EXPECT_TRUE(m_package.removeUnpacked);
}

TEST_F(InstallingPackage, DoesTheSameUnobserved)
{
    const ScriptedStepTable table([](const std::string&, int) { return 0; });
    Write({ScriptedStep::Json("a")});
    LetRecordBeMade();

    EXPECT_EQ(Installation::InstallUnpacked(m_package, Folder()), 0);

    EXPECT_THAT(table.Events(), ElementsAre("make a", "execute a 0", "delete a"));
    EXPECT_THAT(m_shell.Commands(), ElementsAre(kUnprotect, kMakeRecord, CopyDescription()));
}

TEST_F(InstallingPackage, RemovesAnEarlierRecordBeforeTheSteps)
{
    Write({ScriptedStep::Json("a")});
    m_panel.MakeRecord("Foo");

    EXPECT_EQ(Install(), 0);

    EXPECT_THAT(m_shell.Commands(),
                ElementsAre(kUnprotect, kRemoveRecord, kMakeRecord, CopyDescription()));
    EXPECT_THAT(m_notes, ElementsAre("step 0/1", "a after 2", "end 0: 0"));
}

TEST_F(InstallingPackage, TouchesNothingWithoutADescription)
{
    EXPECT_EQ(Install(), 2001);

    EXPECT_THAT(m_shell.Commands(), IsEmpty());
    EXPECT_THAT(m_notes, IsEmpty());
}

TEST_F(InstallingPackage, TouchesNothingWhenTheRootIsNoObject)
{
    m_dir.Write("Foo.temp/UserPackage.kx-project", "\xEF\xBB\xBF[]");

    EXPECT_THROW(Install(), std::runtime_error);

    EXPECT_THAT(m_shell.Commands(), IsEmpty());
}

TEST_F(InstallingPackage, GoesOnWhenNeitherProtectionNorRecordCanBeTakenAway)
{
    Write({ScriptedStep::Json("a")});
    m_panel.MakeRecord("Foo");
    m_shell.Answer(kUnprotect, 32512);
    m_shell.Answer(kRemoveRecord, 256);

    EXPECT_EQ(Install(), 0);

    EXPECT_THAT(m_shell.Commands(),
                ElementsAre(kUnprotect, kRemoveRecord, kMakeRecord, CopyDescription()));
}

TEST_F(InstallingPackage, EndsAtAFailingStepWithoutARecord)
{
    Write({ScriptedStep::Json("a"), ScriptedStep::Json("b"), ScriptedStep::Json("c")});

    EXPECT_EQ(Install({{"b", 768}}), 768);

    EXPECT_THAT(m_shell.Commands(), ElementsAre(kUnprotect));
    EXPECT_THAT(m_notes, ElementsAre("step 0/3", "a after 1", "end 0: 0", "step 1/3", "b after 1",
                                     "end 1: 768"));
}

TEST_F(InstallingPackage, TellsTheObserverOfRecordsThatAreNoKnownStep)
{
    Write({ScriptedStep::Json("a"), ScriptedStep::UnknownJson()});

    EXPECT_EQ(Install(), 2001);

    EXPECT_THAT(m_shell.Commands(), ElementsAre(kUnprotect));
    EXPECT_THAT(m_notes,
                ElementsAre("step 0/2", "a after 1", "end 0: 0", "step 1/2", "end 1: 2001"));
    EXPECT_THAT(Lines(), ElementsAre("**** Installation step 1/2", "Test.Unknown is unknown class.",
                                     "Test.Unknown is not support functon."));
}

TEST_F(InstallingPackage, TellsTheObserverOfAnEndAfterItWasReported)
{
    /// Notes how many lines there were.
    class LineCounter final : public IStepObserver
    {
    public:
        LineCounter(const LineLogger& logger, std::vector<std::size_t>& counts)
            : m_logger(&logger), m_counts(&counts)
        {
        }
        void OnStep(int /*index*/, int /*count*/) override { Note(); }
        void OnStepEnd(int /*index*/, int /*result*/) override { Note(); }

    private:
        void Note() { m_counts->push_back(m_logger->Lines().size()); }

        const LineLogger* m_logger;
        std::vector<std::size_t>* m_counts;
    };
    const ScriptedStepTable table([](const std::string&, int) { return 1; });
    Write({ScriptedStep::Json("a")});
    LineLogger logger;
    q_UpdaterEngine::SysLogger = &logger;
    std::vector<std::size_t> counts;
    LineCounter counter(logger, counts);

    EXPECT_EQ(Installation::InstallUnpacked(m_package, Folder(), &counter), 1);

    EXPECT_THAT(counts, ElementsAre(0U, 2U));
}

TEST_F(InstallingPackage, TellsTheObserverOfNoEndWhenAnExceptionPasses)
{
    const ScriptedStepTable table(
        [](const std::string&, int) -> int { throw std::logic_error("step"); });
    Write({ScriptedStep::Json("a")});
    NotingObserver observer(m_notes);

    EXPECT_THROW(static_cast<void>(Installation::InstallUnpacked(m_package, Folder(), &observer)),
                 std::logic_error);

    EXPECT_THAT(m_notes, ElementsAre("step 0/1"));
}

TEST_F(InstallingPackage, HasNothingToTellOfAPackageWithoutSteps)
{
    Write({});
    LetRecordBeMade();

    EXPECT_EQ(Install(), 0);

    EXPECT_THAT(m_shell.Commands(), ElementsAre(kUnprotect, kMakeRecord, CopyDescription()));
    EXPECT_THAT(m_notes, IsEmpty());
}

TEST_F(InstallingPackage, ReturnsTheStatusOfARecordThatCannotBeCopied)
{
    Write({});
    LetRecordBeMade();
    m_shell.Answer(CopyDescription(), 256);

    EXPECT_EQ(Install(), 256);

    EXPECT_THAT(m_shell.Commands(), ElementsAre(kUnprotect, kMakeRecord, CopyDescription()));
    EXPECT_THAT(Lines(), ElementsAre("Installation succeeded."));
}

TEST_F(InstallingPackage, ReturnsTheFailureOfAListThatCannotBeWritten)
{
    Write({});

    EXPECT_EQ(Install(), 1003);

    EXPECT_THAT(m_shell.Commands(),
                ElementsAre(kUnprotect, kMakeRecord, R"(mkdir -p "/var/lib/KxUserPackages/Foo/")",
                            CopyDescription()));
}
