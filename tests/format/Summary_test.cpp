// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "format/Summary.h"
#include "support/Program.h"
#include "support/ProjectBuilder.h"
#include "support/TempDir.h"
#include "support/Thrown.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace kx::format
{

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;

class Summaries : public ::testing::Test
{
protected:
    [[nodiscard]] Summary Of(const std::vector<ProjectBuilder::Object>& steps,
                             Secrets secrets = Secrets::kMask) const
    {
        return OfDescription(ProjectBuilder::File(ProjectBuilder::Root(steps)), secrets);
    }

    [[nodiscard]] Summary OfDescription(const std::string& description,
                                        Secrets secrets = Secrets::kMask) const
    {
        m_dir.Write("Foo.temp/UserPackage.kx-project", description);
        return Summarize(*archive::OpenPackage(m_dir / "Foo.temp"), secrets);
    }

    void Payload(const std::string& name, const std::string& content = "12345") const
    {
        m_dir.Write("Foo.temp/" + name, content);
    }

    TempDir m_dir;
};

TEST_F(Summaries, TellWhatTheCopyStepsHave)
{
    Payload("0/0/hello");
    Payload("1/0/a/x");
    Payload("1/0/a-b", "1");
    using namespace ProjectBuilder;

    const Summary summary = Of({
        CopyFileStep({CopyItem("C:\\work\\hello", "/mnt/bin/greet", "755"),
                      CopyItem("bin/none", "/mnt/bin/")}),
        CopyFolderStep({CopyItem("x", "/mnt/share"), CopyItem("x", "/")}),
        CopyFileStep({CopyItem("y", "/unrecorded/y")}, false, false),
    });

    EXPECT_EQ(summary.recordName, "Foo");
    EXPECT_EQ(summary.files, 3U);
    EXPECT_EQ(summary.size, 11U);
    const std::vector<SummaryItem>& files = summary.steps[0].items;
    EXPECT_EQ(files[0].mode, "755");
    EXPECT_FALSE(files[0].isMissing);
    EXPECT_EQ(files[0].size, 5U);
    EXPECT_TRUE(files[1].isMissing);
    EXPECT_EQ(summary.steps[1].items[0].files, 2U);
    EXPECT_TRUE(summary.steps[1].items[1].isMissing);
}

TEST_F(Summaries, TellWhatTheDescriptionSays)
{
    using namespace ProjectBuilder;

    const Summary summary = Of({
        ScriptStep("echo install", true),
        CopyFileStep({CopyItem("y", "/kept/y")}, false, true),
        CopyFolderStep({CopyItem("y", "/unrecorded")}, true, false),
    });

    EXPECT_THAT((std::vector{summary.title, summary.version, summary.comment, summary.model,
                             summary.osVersion, summary.date}),
                ElementsAre("Line 4 recipes", "1.0.3", "Adds the recipe viewer", "TP-0700", "2.1.0",
                            "2024/05/17"));
    ASSERT_EQ(summary.steps.size(), 3U);
    EXPECT_EQ(summary.steps[0].kind, "script");
    EXPECT_EQ(summary.steps[0].install, "echo install");
    EXPECT_EQ(summary.steps[0].uninstall, "echo uninstall");
    EXPECT_THAT(
        (std::vector{summary.steps[0].canSkip, summary.steps[1].canSkip, summary.steps[2].canSkip}),
        ElementsAre(true, false, true));
    EXPECT_THAT((std::vector{summary.steps[0].isRecorded, summary.steps[1].isRecorded,
                             summary.steps[2].isRecorded}),
                ElementsAre(false, true, false));
}

TEST_F(Summaries, TakeAFolderForNoFileAndAFileForNoFolder)
{
    Payload("0/0/hello/inside");
    m_dir.MakeDir("Foo.temp/1/0");
    using namespace ProjectBuilder;

    const Summary summary =
        Of({CopyFileStep({CopyItem("hello", "/a")}), CopyFolderStep({CopyItem("x", "/b")})});

    EXPECT_TRUE(summary.steps[0].items[0].isMissing);
    EXPECT_EQ(summary.steps[0].items[0].files, 0U);
    EXPECT_FALSE(summary.steps[1].items[0].isMissing) << "an empty folder is one";
    EXPECT_EQ(summary.files, 0U);
}

TEST_F(Summaries, MaskPasswords)
{
    using namespace ProjectBuilder;

    const Summary summary = Of({HardwareStep({
        HardwareConfig("User", {{"User", "u"}, {"Password", "secret"}}),
        HardwareConfig("Lan", {{"PASSWORD", "secret"}}, false),
    })});

    EXPECT_EQ(summary.steps[0].kind, "settings");
    EXPECT_EQ(summary.steps[0].settings[0].kind, "user");
    EXPECT_THAT(summary.steps[0].settings[0].items,
                ElementsAre(Pair("User", "u"), Pair("Password", "********")));
    EXPECT_FALSE(summary.steps[0].settings[1].isUsed);
    EXPECT_THAT(summary.steps[0].settings[1].items, ElementsAre(Pair("PASSWORD", "********")));

    const Summary shown =
        Of({HardwareStep({HardwareConfig("User", {{"Password", "secret"}})})}, Secrets::kShow);
    EXPECT_THAT(shown.steps[0].settings[0].items, ElementsAre(Pair("Password", "secret")));
}

TEST_F(Summaries, TellOfTheUpdater)
{
    EXPECT_FALSE(Of({}).updater.has_value());

    m_dir.Write("Foo.temp/kx_Updater", ProgramFor(*FindProcessor("arm")), 0755);
    const Summary good = Of({});
    EXPECT_TRUE(good.updater->isExecutable);
    EXPECT_EQ(good.updater->program->ProcessorName(), "arm");
    EXPECT_EQ(good.updater->size, 64U);

    m_dir.Write("Foo.temp/kx_Updater", "no program at all, whatever it says", 0644);
    const Summary bad = Of({});
    EXPECT_FALSE(bad.updater->program.has_value());
    EXPECT_FALSE(bad.updater->isExecutable);

    m_dir.Write("Foo.temp/kx_Updater", "no program", 0655);
    EXPECT_FALSE(Of({}).updater->isExecutable) << "not by its owner";
    m_dir.Write("Foo.temp/kx_Updater", "no program", 0744);
    EXPECT_TRUE(Of({}).updater->isExecutable);
}

TEST_F(Summaries, GoOnWhereADescriptionIsWrong)
{
    const Summary summary = OfDescription(
        "\xef\xbb\xbf{\"Title\": 5, \"DB_StepSets\": {\"$values\": [[], 1, {\"SS_StepSetId\": "
        "\"Zt.Plugins.SS_ScriptStepSet, Plexa\"}, {\"SS_StepSetId\": "
        "\"Zt.Plugins.SS_HardSettingStepSet,  Plexa\", \"HardSettingDatas\": 7}]}}");

    EXPECT_EQ(summary.title, "");
    ASSERT_EQ(summary.steps.size(), 4U);
    EXPECT_EQ(summary.steps[2].kind, "");
    EXPECT_EQ(summary.steps[2].id, "Zt.Plugins.SS_ScriptStepSet, Plexa");
    EXPECT_EQ(summary.steps[3].kind, "settings");
    EXPECT_THAT(summary.steps[3].settings, IsEmpty());
}

TEST_F(Summaries, SayWhereADescriptionCannotBeRead)
{
    const std::string place = (m_dir / "Foo.temp") + ":UserPackage.kx-project";
    EXPECT_EQ(Thrown([&] { static_cast<void>(OfDescription("{\"a\": 1}")); }),
              "1: " + place +
                  ":1:6: is not JSON from here on; the description must begin with a UTF-8 byte "
                  "order mark");
    EXPECT_EQ(
        Thrown([&] { static_cast<void>(OfDescription("\xef\xbb\xbf[]")); }),
        "1: " + place +
            ":1:1: is an array, not an object; begin with { and the \"$type\" of the project");
}

} // namespace kx::format
