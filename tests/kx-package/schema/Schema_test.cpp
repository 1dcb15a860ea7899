// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "schema/Schema.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace kx::tool
{

using ::testing::ElementsAre;

namespace
{

/// The value behind the keys.
const picojson::value& At(const picojson::value& schema, const std::vector<std::string>& keys)
{
    const picojson::value* at = &schema;
    for (const std::string& key : keys) {
        at = &at->get(key);
    }
    return *at;
}

std::vector<std::string> Texts(const picojson::value& array)
{
    std::vector<std::string> texts;
    for (const picojson::value& text : array.get<picojson::array>()) {
        texts.push_back(text.get<std::string>());
    }
    return texts;
}

TEST(MakeSchema, IsOfTheDraftAndHasANameThatIsNoAddress)
{
    const picojson::value schema = MakeSchema();

    EXPECT_EQ(At(schema, {"$schema"}).to_str(), "https://json-schema.org/draft/2020-12/schema");
    EXPECT_EQ(At(schema, {"$id"}).to_str(), "urn:kx-updater:package-description");
    EXPECT_EQ(At(schema, {"$ref"}).to_str(), "#/$defs/DB_KxUserProject");
}

TEST(MakeSchema, DefinesEveryClass)
{
    const picojson::value schema = MakeSchema();

    std::vector<std::string> names;
    for (const auto& [name, about] : At(schema, {"$defs"}).get<picojson::object>()) {
        names.push_back(name);
    }
    EXPECT_THAT(names, ElementsAre("DB_CopyFunctionData", "DB_CopyFunctionDatas", "DB_CopyStepSet",
                                   "DB_HardSettingFunctionData", "DB_HardSettingStepSet",
                                   "DB_HardwareConfig", "DB_HardwareConfigs", "DB_HardwareItem",
                                   "DB_HardwareItems", "DB_KxUserProject", "DB_ScriptFunctionData",
                                   "DB_ScriptStepSet", "DB_StepSets"));
}

TEST(MakeSchema, TellsARecordWithTheFieldsOfItsBaseFirst)
{
    const picojson::value schema = MakeSchema();

    const picojson::value& step = At(schema, {"$defs", "DB_ScriptStepSet"});
    EXPECT_THAT(Texts(At(step, {"required"})),
                ElementsAre("$type", "SS_StepSetId", "Comment", "CanSkip",
                            "InstallScriptFunctionData", "UninstallScriptFunctionData"));
    EXPECT_EQ(At(step, {"properties", "$type"}).serialize(),
              R"({"const":"Zt.Plugins.DB_ScriptStepSet, Plexa"})");
    EXPECT_EQ(At(step, {"properties", "CanSkip", "type"}).to_str(), "boolean");
    EXPECT_EQ(At(step, {"properties", "Comment", "type"}).to_str(), "string");
    EXPECT_EQ(At(step, {"properties", "InstallScriptFunctionData", "$ref"}).to_str(),
              "#/$defs/DB_ScriptFunctionData");
}

TEST(MakeSchema, NamesTheKindsOfAStepsClassAndTheirWords)
{
    const picojson::value schema = MakeSchema();

    const picojson::value& kind =
        At(schema, {"$defs", "DB_CopyStepSet", "properties", "SS_StepSetId"});
    EXPECT_THAT(Texts(At(kind, {"enum"})), ElementsAre("Zt.Plugins.SS_CopyFileStepSet,  Plexa",
                                                       "Zt.Plugins.SS_CopyFolderStepSet,  Plexa"));
    EXPECT_EQ(At(kind, {"description"}).to_str(),
              "What the step does. There are two blanks after the comma. "
              "In this order: copy-files, copy-folder.");
    EXPECT_EQ(
        Texts(At(schema, {"$defs", "DB_HardwareConfig", "properties", "ConfigId", "enum"})).size(),
        9U);
}

} // namespace

} // namespace kx::tool
