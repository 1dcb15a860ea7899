// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT

// UserPackageInstaller::ExecuteInstallStep: the loop over the steps of a package.
#include "engine/ScriptedStep.h"
#include "engine/UserPackageInstaller.h"
#include "model/DB_KxUserProject.h"
#include "osa/ResultCodes.h"
#include "support/EngineFixture.h"
#include "support/TempDir.h"

#include <climits>
#include <stdexcept>

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace
{

using ProjectBuilder::Object;

constexpr const char* kUnknownId = "Test.Unknown,  Test";

Object UnknownStep(const char* id = kUnknownId)
{
    Object step = ScriptedStep::Json("unknown");
    step["SS_StepSetId"] = ProjectBuilder::Text(id);
    return step;
}

/// An object that is no step.
Object HardwareItemJson()
{
    return {{"$type", ProjectBuilder::Text("Zt.DB_HardwareItem, Drovic")},
            {"ItemName", ProjectBuilder::Text("name")},
            {"Value", ProjectBuilder::Text("value")}};
}

} // namespace

class StepLoop : public EngineFixture
{
protected:
    StepLoop() { m_package.packageDir = m_dir.Path(); }

    /// Reads a description with these steps.
    void Read(const std::vector<Object>& steps) { ReadRoot(ProjectBuilder::Root(steps)); }

    void ReadRoot(const Object& root)
    {
        m_package.projectFile = m_dir.Write("UserPackage.kx-project", ProjectBuilder::File(root));
        ASSERT_EQ(m_package.ReadKxProjectFile(), 0);
    }

    /// Lets every step end with the result that @p results holds for its name, or with 0.
    static ScriptedStep::Script Ending(const std::map<std::string, int>& results)
    {
        return [results](const std::string& name, int /*index*/) {
            const auto found = results.find(name);
            return found != results.end() ? found->second : 0;
        };
    }

    TempDir m_dir;
    UserPackageInstaller m_package;
};

TEST_F(StepLoop, ExecutesTheStepsInOrderAndDeletesEachAtOnce)
{
    const ScriptedStepTable table(Ending({}));
    Read({ScriptedStep::Json("a"), ScriptedStep::Json("b"), ScriptedStep::Json("c")});

    EXPECT_EQ(m_package.ExecuteInstallStep(), 0);

    EXPECT_THAT(table.Events(),
                ElementsAre("make a", "execute a 0", "delete a", "make b", "execute b 1",
                            "delete b", "make c", "execute c 2", "delete c"));
    EXPECT_THAT(Lines(), ElementsAre("**** Installation step 1/3", "**** Installation step 2/3",
                                     "**** Installation step 3/3", "Installation succeeded."));
}

TEST_F(StepLoop, EndsAtTheSecondOfThreeStepsThatReturnsSeven)
{
    const ScriptedStepTable table(Ending({{"b", 7}}));
    Read({ScriptedStep::Json("a"), ScriptedStep::Json("b"), ScriptedStep::Json("c")});

    EXPECT_EQ(m_package.ExecuteInstallStep(), 7);

    EXPECT_THAT(table.Events(), ElementsAre("make a", "execute a 0", "delete a", "make b",
                                            "execute b 1", "delete b"));
    EXPECT_THAT(Lines(), ElementsAre("**** Installation step 1/3", "**** Installation step 2/3",
                                     "Installation failed in step 2."));
}

TEST_F(StepLoop, DeletesAFailedStepBeforeItReportsIt)
{
    std::size_t eventsAtTheReport = 0;
    const ScriptedStepTable table(Ending({{"a", 1}}));
    Read({ScriptedStep::Json("a")});
    /// Remembers how much had happened when a line came.
    class Watch final : public ILogger
    {
    public:
        Watch(const ScriptedStepTable& steps, std::size_t& events)
            : m_steps(&steps), m_events(&events)
        {
        }
        void OutLine(const char* /*format*/, ...) override { *m_events = m_steps->Events().size(); }
        void OutMsg(const char* /*text*/) override {}

    private:
        const ScriptedStepTable* m_steps;
        std::size_t* m_events;
    };
    Watch watch(table, eventsAtTheReport);
    q_UpdaterEngine::SysLogger = &watch;

    EXPECT_EQ(m_package.ExecuteInstallStep(), 1);

    EXPECT_EQ(eventsAtTheReport, 3U);
}

TEST_F(StepLoop, LogsOnlyItsSuccessWhenThePackageHasNoSteps)
{
    Read({});

    EXPECT_EQ(m_package.ExecuteInstallStep(), 0);

    EXPECT_THAT(Lines(), ElementsAre("Installation succeeded."));
}

TEST_F(StepLoop, LogsNoStepLineWhenTheFirstStepIsOfUnknownKind)
{
    const ScriptedStepTable table(Ending({}));
    Read({UnknownStep(), ScriptedStep::Json("b")});

    EXPECT_EQ(m_package.ExecuteInstallStep(), 2001);

    EXPECT_THAT(table.Events(), IsEmpty());
    EXPECT_THAT(Lines(), ElementsAre("Test.Unknown,  Test is unknown class.",
                                     "Test.Unknown,  Test is not support functon."));
}

TEST_F(StepLoop, EndsAtALaterStepOfUnknownKind)
{
    const ScriptedStepTable table(Ending({}));
    Read({ScriptedStep::Json("a"), UnknownStep("%s"), ScriptedStep::Json("c")});

    EXPECT_EQ(m_package.ExecuteInstallStep(), kGeneralError);

    EXPECT_THAT(table.Events(), ElementsAre("make a", "execute a 0", "delete a"));
    EXPECT_THAT(Lines(), ElementsAre("**** Installation step 1/3", "%s is unknown class.",
                                     "%s is not support functon."));
}

TEST_F(StepLoop, CountsTheStepsAnewBeforeEachPass)
{
    UserPackageInstaller& package = m_package;
    const ScriptedStepTable table([&package](const std::string& name, int /*index*/) {
        auto* const steps = ObjectAs<DB_StepSets>(package.Project()->DB_StepSets);
        if (name == "a") {
            steps->AddJ(steps->ElementAt(1));
        }
        return 0;
    });
    Read({ScriptedStep::Json("a"), ScriptedStep::Json("b")});

    EXPECT_EQ(m_package.ExecuteInstallStep(), 0);

    EXPECT_THAT(Lines(), ElementsAre("**** Installation step 1/2", "**** Installation step 2/3",
                                     "**** Installation step 3/3", "Installation succeeded."));
}

class StepResult : public StepLoop, public ::testing::WithParamInterface<int>
{
};

TEST_P(StepResult, IsReturnedUnchangedAndNotSkippedByTheLoop)
{
    const ScriptedStepTable table(Ending({{"a", GetParam()}}));
    Object step = ScriptedStep::Json("a");
    step["CanSkip"] = ProjectBuilder::Flag(true);
    Read({step, ScriptedStep::Json("b")});

    EXPECT_EQ(m_package.ExecuteInstallStep(), GetParam());

    EXPECT_THAT(Lines(),
                ElementsAre("**** Installation step 1/2", "Installation failed in step 1."));
}

INSTANTIATE_TEST_SUITE_P(Results, StepResult,
                         ::testing::Values(1, -1, 5, 255, 256, 768, 2001, 32512, INT_MAX, INT_MIN));

TEST_F(StepLoop, PointsAtThePackageFolderOnlyWhileStepsRun)
{
    std::vector<const std::string*> seen;
    const ScriptedStepTable table([&seen](const std::string& /*name*/, int /*index*/) {
        seen.push_back(q_UpdaterEngine::CurrentPackage);
        return 0;
    });
    Read({ScriptedStep::Json("a"), ScriptedStep::Json("b")});

    EXPECT_EQ(m_package.ExecuteInstallStep(), 0);

    EXPECT_THAT(seen, ElementsAre(&m_package.packageDir, &m_package.packageDir));
    EXPECT_EQ(q_UpdaterEngine::CurrentPackage, nullptr);
}

TEST_F(StepLoop, PutsTheEarlierPackageBackOnEveryWayOut)
{
    const ScriptedStepTable table([](const std::string& name, int /*index*/) {
        return name == "bad" ? 3 : name == "worse" ? throw std::runtime_error("worse") : 0;
    });
    const std::string earlier = "/earlier";
    const auto run = [this, &earlier](const std::vector<Object>& steps) {
        Read(steps);
        q_UpdaterEngine::CurrentPackage = &earlier;
        return m_package.ExecuteInstallStep();
    };

    EXPECT_EQ(run({ScriptedStep::Json("good")}), 0);
    EXPECT_EQ(q_UpdaterEngine::CurrentPackage, &earlier);
    EXPECT_EQ(run({ScriptedStep::Json("bad")}), 3);
    EXPECT_EQ(q_UpdaterEngine::CurrentPackage, &earlier);
    EXPECT_EQ(run({UnknownStep()}), kGeneralError);
    EXPECT_EQ(q_UpdaterEngine::CurrentPackage, &earlier);
    EXPECT_EQ(run({HardwareItemJson()}), kFieldError);
    EXPECT_EQ(q_UpdaterEngine::CurrentPackage, &earlier);
    EXPECT_THROW(static_cast<void>(run({ScriptedStep::Json("worse")})), std::runtime_error);
    EXPECT_EQ(q_UpdaterEngine::CurrentPackage, &earlier);
}

TEST_F(StepLoop, DeletesAStepThatThrows)
{
    const ScriptedStepTable table(
        [](const std::string&, int) -> int { throw std::runtime_error("step"); });
    Read({ScriptedStep::Json("a"), ScriptedStep::Json("b")});

    EXPECT_THROW(static_cast<void>(m_package.ExecuteInstallStep()), std::runtime_error);

    EXPECT_THAT(table.Events(), ElementsAre("make a", "execute a 0", "delete a"));
    EXPECT_THAT(Lines(), ElementsAre("**** Installation step 1/2"));
}

TEST_F(StepLoop, DoesNotUseAnElementThatIsNoStep)
{
    const ScriptedStepTable table(Ending({}));
    Read({ScriptedStep::Json("a"), HardwareItemJson(), ScriptedStep::Json("c")});

    EXPECT_EQ(m_package.ExecuteInstallStep(), 2002);

    EXPECT_THAT(table.Events(), ElementsAre("make a", "execute a 0", "delete a"));
    EXPECT_THAT(Lines(), ElementsAre("**** Installation step 1/3",
                                     "Unexpected Zt.DB_HardwareItem, Drovic object in step 2.",
                                     "Installation failed in step 2."));
}

TEST_F(StepLoop, DoesNotUseAStepListOfAnotherClass)
{
    Object root = ProjectBuilder::Root();
    root["DB_StepSets"] = ProjectBuilder::Value(HardwareItemJson());
    ReadRoot(root);

    EXPECT_EQ(m_package.ExecuteInstallStep(), 2002);

    EXPECT_THAT(Lines(), ElementsAre("Unexpected Zt.DB_HardwareItem, Drovic object in step 1.",
                                     "Installation failed in step 1."));
}

TEST_F(StepLoop, FailsSilentlyWithoutADescription)
{
    EXPECT_EQ(m_package.ExecuteInstallStep(), 2001);

    EXPECT_THAT(Lines(), IsEmpty());
    EXPECT_EQ(q_UpdaterEngine::CurrentPackage, nullptr);
}

TEST_F(StepLoop, FailsSilentlyAfterARootOnlyRead)
{
    Read({ScriptedStep::Json("a")});
    ASSERT_EQ(m_package.ReadRootOnlyKxProjectFile(), 0);

    EXPECT_EQ(m_package.ExecuteInstallStep(), 2001);

    EXPECT_THAT(Lines(), IsEmpty());
}

TEST_F(StepLoop, ManagesThousandsOfSteps)
{
    const ScriptedStepTable table(Ending({}));
    Read(std::vector<Object>(2000, ScriptedStep::Json("s")));

    EXPECT_EQ(m_package.ExecuteInstallStep(), 0);

    ASSERT_EQ(Lines().size(), 2001U);
    EXPECT_EQ(Lines()[1999], "**** Installation step 2000/2000");
    EXPECT_EQ(table.Events().size(), 6000U);
}
