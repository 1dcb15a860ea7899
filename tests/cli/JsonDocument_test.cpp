// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "cli/JsonDocument.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace kx::cli
{

using ::testing::ElementsAre;

namespace
{

const DocumentOwner kOwner = {"kx-some", "some-", {{"colour", OneOfWords({"red", "blue"})}}};

/// Returns the schema of a field of that type.
std::string SchemaOfField(const char* type)
{
    const Document document = {
        "look", "What was seen.", {"look"}, {{"look", {{"seen", type, "What."}}}, {"thing", {}}}};
    picojson::value field = MakeDocumentSchema({document}, "look", kOwner)
                                .get("$defs")
                                .get("look")
                                .get("properties")
                                .get("seen");
    field.get<picojson::object>().erase("description");
    return field.serialize();
}

} // namespace

TEST(MakeDocumentSchema, AllowsNoFieldThatIsNotListed)
{
    const Document document = {"look",
                               "What was seen.",
                               {"look"},
                               {{"look", {{"seen", "flag", "It was."}, {"far?", "flag", "Far."}}}}};

    EXPECT_EQ(MakeDocumentSchema({ErrorDocument(), document}, "look", kOwner).serialize(),
              R"({"$defs":{"look":{"additionalProperties":false,"properties":{"far":)"
              R"({"description":"Far.","type":"boolean"},"formatVersion":{"const":1,)"
              R"("description":"Another one when a field goes or means something else."},)"
              R"("seen":{"description":"It was.","type":"boolean"}},"required":)"
              R"(["formatVersion","seen"],"type":"object"}},"$id":"urn:kx-updater:some-look",)"
              R"("$schema":"https:\/\/json-schema.org\/draft\/2020-12\/schema",)"
              R"("anyOf":[{"$ref":"#\/$defs\/look"}],"description":"What was seen.",)"
              R"("title":"JSON of kx-some: look"})");
}

TEST(MakeDocumentSchema, KnowsEveryType)
{
    EXPECT_EQ(SchemaOfField("text"), R"({"type":"string"})");
    EXPECT_EQ(SchemaOfField("count"), R"({"minimum":0,"type":"integer"})");
    EXPECT_EQ(SchemaOfField("number"), R"({"minimum":1,"type":"integer"})");
    EXPECT_EQ(SchemaOfField("status"), R"({"type":"integer"})");
    EXPECT_EQ(SchemaOfField("exitCode"), R"({"enum":[1,2,3]})");
    EXPECT_EQ(SchemaOfField("colour"), R"({"enum":["red","blue"]})");
    EXPECT_EQ(SchemaOfField("one|two"), R"({"enum":["one","two"]})");
    EXPECT_EQ(SchemaOfField("thing"), R"({"$ref":"#\/$defs\/thing"})");
    EXPECT_EQ(SchemaOfField("[text]"), R"({"items":{"type":"string"},"type":"array"})");
    EXPECT_EQ(SchemaOfField("{text}"),
              R"({"additionalProperties":{"type":"string"},"type":"object"})");
    EXPECT_EQ(SchemaOfField("text?"), R"({"anyOf":[{"type":"string"},{"type":"null"}]})");
}

TEST(MakeDocumentSchema, HasNoneOfAnotherName)
{
    EXPECT_THAT(NamesOf({ErrorDocument()}), ElementsAre("error"));
    EXPECT_THROW(static_cast<void>(MakeDocumentSchema({ErrorDocument()}, "other", kOwner)),
                 std::logic_error);
}

} // namespace kx::cli
