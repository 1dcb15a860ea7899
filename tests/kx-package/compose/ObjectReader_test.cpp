// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "compose/DescriptionWriter.h"
#include "compose/ObjectReader.h"
#include "support/Thrown.h"

#include <gtest/gtest.h>

namespace kx::tool
{

namespace
{

constexpr const char* kItem = R"({
  "$type": "Zt.DB_HardwareItem, Drovic",
  "ItemName": "a\u0000b",
  "Value": "ä"
}
)";

format::JsonNode Parsed(const std::string& text)
{
    std::size_t end = 0;
    return format::ParseJson(text, end);
}

std::string WrittenAndRead(const std::string& text)
{
    ProjectModel model;
    return WriteObject(MakeObject(Parsed(text), "x.json", model));
}

std::string Refusal(const std::string& text)
{
    return Thrown([&text] { static_cast<void>(WrittenAndRead(text)); });
}

} // namespace

TEST(ObjectReader, ReadsWhatIsWritten)
{
    EXPECT_EQ(WrittenAndRead(kItem), kItem);
}

TEST(ObjectReader, TakesAnyClassAnywhere)
{
    const std::string list = R"({
  "$type": "Zt.Plugins.DB_StepSets, Plexa",
  "$values": [
    {
      "$type": "Zt.Plugins.DB_ScriptFunctionData, Plexa",
      "ScriptData": ""
    }
  ]
}
)";
    EXPECT_EQ(WrittenAndRead(list), list);
}

TEST(ObjectReader, PassesOverWhatNoClassHas)
{
    std::string text = kItem;
    text.replace(text.find("\"ItemName\""), 0, "\"More\": [1], ");

    EXPECT_EQ(WrittenAndRead(text), kItem);
}

TEST(ObjectReader, TellsWhatIsMissingAndWhere)
{
    const std::string remedy = "; no panel reads such a description";
    EXPECT_EQ(Refusal("{}"), "1: x.json:1:1: is no object of a class that panels know" + remedy);
    EXPECT_EQ(Refusal("\n {\"$type\": \"Zt.DB_HardwareItem, Drovic\"}"),
              "1: x.json:2:2: has no ItemName" + remedy);
    EXPECT_EQ(Refusal("{\"$type\": \"Zt.DB_HardwareItem, Drovic\",\n\"ItemName\": 1}"),
              "1: x.json:2:13: is a number, which ItemName must not be" + remedy);
    EXPECT_EQ(Refusal("{\"$type\": \"Zt.DB_HardwareItems, Drovic\", \"$values\": {}}"),
              "1: x.json:1:53: is an object, which $values must not be" + remedy);
    EXPECT_EQ(Refusal("{\"$type\": \"Zt.DB_HardwareItems, Drovic\", \"$values\": [1]}"),
              "1: x.json:1:54: is no object of a class that panels know" + remedy);
}

TEST(ObjectReader, TakesOnlyARootForOne)
{
    ProjectModel model;
    EXPECT_EQ(Thrown([&model] { FillRoot(Parsed(kItem), "x.json", model); }),
              "1: x.json:1:1: is no Zt.Plugins.DB_KxUserProject, Plexa; no panel reads such a "
              "description");
}

} // namespace kx::tool
