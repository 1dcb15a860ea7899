// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "compose/DescriptionWriter.h"
#include "compose/Layout.h"
#include "kx-package/manifest/Manifests.h"
#include "manifest/Manifest.h"
#include "model/DB_FunctionDatas.h"
#include "model/DB_Hardware.h"
#include "model/DB_StepSets.h"
#include "model/UserPackageProjectReader.h"
#include "support/EngineFixture.h"
#include "support/TempDir.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>

namespace kx::tool
{

using ::testing::IsEmpty;

class DescriptionRoundTrip : public EngineFixture
{
protected:
    /// Reads a description with the updater's own reader.
    [[nodiscard]] std::unique_ptr<IPicoJ> Read(const std::string& description) const
    {
        const std::string path = m_dir.Write("read/UserPackage.kx-project", description);
        return std::unique_ptr<IPicoJ>(UserPackageProjectReader::Imp_Read(path.c_str()));
    }

    TempDir m_dir;
};

TEST_F(DescriptionRoundTrip, IsReadBackByTheUpdaterToTheSameModel)
{
    WriteEverything(m_dir);
    const Layout layout = MakeLayout(ReadManifest(m_dir.Path()), "");
    const std::string written = WriteDescription(layout.model->root);

    const auto read = Read(written);

    EXPECT_THAT(Lines(), IsEmpty());
    const auto* const root = ObjectAs<DB_KxUserProject>(read.get());
    ASSERT_NE(root, nullptr);
    EXPECT_EQ(WriteDescription(*root), written);
}

TEST_F(DescriptionRoundTrip, CarriesTheManifestsTextsIntoTheUpdatersFields)
{
    WriteEverything(m_dir);
    const auto read =
        Read(WriteDescription(MakeLayout(ReadManifest(m_dir.Path()), "").model->root));

    const auto* const root = ObjectAs<DB_KxUserProject>(read.get());
    ASSERT_NE(root, nullptr);
    EXPECT_EQ(root->Title, "D\xc3\xa9mo");
    EXPECT_EQ(root->Comment, "quotes \" and \\, a tab\tand a line\nbreak");
    EXPECT_EQ(root->Date, "2026/01/02");
    const auto* const steps = ObjectAs<DB_StepSets>(root->DB_StepSets);
    ASSERT_NE(steps, nullptr);
    ASSERT_EQ(steps->count, 5);
    const auto* const files = ObjectAs<DB_CopyStepSet>(steps->ElementAt(0));
    ASSERT_NE(files, nullptr);
    EXPECT_EQ(files->SS_StepSetId, "Zt.Plugins.SS_CopyFileStepSet,  Plexa");
    EXPECT_EQ(files->Comment, "programs");
    EXPECT_TRUE(files->CanSkip);
    EXPECT_FALSE(files->IsRemove);
    const auto* const items = ObjectAs<DB_CopyFunctionDatas>(files->PathSetDatas);
    ASSERT_NE(items, nullptr);
    ASSERT_EQ(items->count, 4);
    const auto* const last = ObjectAs<DB_CopyFunctionData>(items->ElementAt(3));
    EXPECT_EQ(last->SourcePath, "etc/deep/a.conf");
    EXPECT_EQ(last->DestinationPath, "/etc/demo/deep/a.conf");
    EXPECT_EQ(last->Permissions, "600");
    const auto* const script = ObjectAs<DB_ScriptStepSet>(steps->ElementAt(2));
    ASSERT_NE(script, nullptr);
    EXPECT_EQ(ObjectAs<DB_ScriptFunctionData>(script->InstallScriptFunctionData)->ScriptData,
              "#!/bin/sh\necho 1\n");
    const auto* const settings = ObjectAs<DB_HardSettingStepSet>(steps->ElementAt(4));
    ASSERT_NE(settings, nullptr);
    const auto* const data = ObjectAs<DB_HardSettingFunctionData>(settings->HardSettingDatas);
    const auto* const configs = ObjectAs<DB_HardwareConfigs>(data->DB_HardwareConfigs);
    ASSERT_EQ(configs->count, 9);
    const auto* const user = ObjectAs<DB_HardwareConfig>(configs->ElementAt(8));
    EXPECT_EQ(user->ConfigId, "Zt.Plugins.HW_UserConfigSet,  Plexa");
    const auto* const pairs = ObjectAs<DB_HardwareItems>(user->HardwareItems);
    ASSERT_EQ(pairs->count, 2);
    EXPECT_EQ(ObjectAs<DB_HardwareItem>(pairs->ElementAt(1))->Value, "secret");
}

TEST_F(DescriptionRoundTrip, KeepsEveryCharacterThatATextCanHold)
{
    ProjectModel model;
    model.root.DB_StepSets = &model.Make<DB_StepSets>();
    for (int c = 1; c < 0x80; ++c) {
        model.root.Title += static_cast<char>(c);
    }
    model.root.Title += "\xe3\x81\x82/";

    const auto read = Read(WriteDescription(model.root));

    const auto* const root = ObjectAs<DB_KxUserProject>(read.get());
    ASSERT_NE(root, nullptr);
    EXPECT_EQ(root->Title, model.root.Title);
}

TEST(WriteDescription, HasAByteOrderMarkTypesFirstAndTheTablesOrder)
{
    ProjectModel model;
    model.root.Title = "T\n";
    model.root.DB_StepSets = &model.Make<DB_StepSets>();

    EXPECT_EQ(WriteDescription(model.root), "\xef\xbb\xbf{\n"
                                            "  \"$type\": \"Zt.Plugins.DB_KxUserProject, Plexa\",\n"
                                            "  \"ModelName\": \"\",\n"
                                            "  \"OsVersion\": \"\",\n"
                                            "  \"PackageVersion\": \"\",\n"
                                            "  \"Title\": \"T\\n\",\n"
                                            "  \"Comment\": \"\",\n"
                                            "  \"Date\": \"\",\n"
                                            "  \"DB_StepSets\": {\n"
                                            "    \"$type\": \"Zt.Plugins.DB_StepSets, Plexa\",\n"
                                            "    \"$values\": []\n"
                                            "  }\n"
                                            "}\n");
}

TEST(WriteDescription, EscapesQuotesBackslashesAndWhatDoesNotShow)
{
    ProjectModel model;
    model.root.Title = "\"\\\t\r\x01\x1f \x7f/\xc3\xa9";
    model.root.DB_StepSets = &model.Make<DB_StepSets>();

    EXPECT_THAT(
        WriteDescription(model.root),
        ::testing::HasSubstr("\"Title\": \"\\\"\\\\\\t\\r\\u0001\\u001f \\u007f/\xc3\xa9\",\n"));
}

TEST(WriteDescription, RefusesAModelThatIsNotWhole)
{
    ProjectModel model;

    EXPECT_THROW(static_cast<void>(WriteDescription(model.root)), std::invalid_argument);
}

} // namespace kx::tool
