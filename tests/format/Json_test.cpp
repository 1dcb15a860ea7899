// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "format/Json.h"

#include <gtest/gtest.h>

#include <string>

namespace kx::format
{

namespace
{

JsonNode Parse(const std::string& text)
{
    std::size_t end = 0;
    return ParseJson(text, end);
}

/// "line:column" of a value.
std::string PlaceOf(const JsonNode& node)
{
    return std::to_string(node.position.line) + ":" + std::to_string(node.position.column);
}

/// The same of what is no JSON.
std::string PlaceOfError(const std::string& text)
{
    try {
        static_cast<void>(Parse(text));
    } catch (const JsonError& error) {
        return std::to_string(error.position.line) + ":" + std::to_string(error.position.column);
    }
    return "no error";
}

TEST(ParseJson, TellsTheLineAndColumnOfEachValue)
{
    const JsonNode root = Parse("\n {\"a\": 1,\n\n  \"b\": [true,\n null]}");

    EXPECT_EQ(PlaceOf(root), "2:2");
    EXPECT_EQ(PlaceOf(*root.Member("a")), "2:8");
    EXPECT_EQ(PlaceOf(*root.Member("b")), "4:8");
    EXPECT_EQ(PlaceOf(root.Member("b")->elements[0]), "4:9");
    EXPECT_EQ(PlaceOf(root.Member("b")->elements[1]), "5:2");
}

TEST(ParseJson, TellsWhereItIsNotRead)
{
    EXPECT_EQ(PlaceOfError("{}"), "no error");
    EXPECT_EQ(PlaceOfError("{\n  x}"), "2:3");
    EXPECT_EQ(PlaceOfError("[1,\n]"), "2:1");
}

TEST(ParseJson, KnowsEachKindOfValue)
{
    const char* const rows[][2] = {{"null", "null"},    {"true", "a flag"}, {"-1.5", "a number"},
                                   {"\"x\"", "a text"}, {"[]", "an array"}, {"{}", "an object"}};
    for (const auto& [text, name] : rows) {
        EXPECT_STREQ(Parse(text).KindName(), name);
    }
    EXPECT_TRUE(Parse("true").flag);
    EXPECT_FALSE(Parse("false").flag);
}

TEST(ParseJson, EndsBehindTheFirstValue)
{
    std::size_t end = 0;
    static_cast<void>(ParseJson("[1] more", end));

    EXPECT_EQ(end, 3U);
}

TEST(ParseJson, ReadsAsDeepAsItsBoundAndNoDeeper)
{
    const auto nested = [](std::size_t depth) {
        return std::string(depth, '[') + std::string(depth, ']');
    };
    const auto objects = [](std::size_t depth) {
        std::string text;
        for (std::size_t i = 1; i < depth; ++i) {
            text += "{\"\":";
        }
        return text + "{}" + std::string(depth - 1, '}');
    };

    // The value itself is the first level.
    EXPECT_EQ(PlaceOfError(nested(kDeepestJson - 1)), "no error");
    EXPECT_EQ(PlaceOfError(nested(kDeepestJson)), "1:1001");
    EXPECT_EQ(PlaceOfError(objects(kDeepestJson - 1)), "no error");
    EXPECT_NE(PlaceOfError(objects(kDeepestJson)), "no error");
}

TEST(JsonNode, TakesTheLastMemberOfAKey)
{
    const JsonNode root = Parse(R"({"a": "one", "b": 1, "a": "two"})");

    EXPECT_EQ(root.members.size(), 3U);
    EXPECT_EQ(root.TextOf("a"), "two");
    EXPECT_EQ(root.TextOf("b"), "") << "it is no text";
    EXPECT_EQ(root.TextOf("c"), "");
    EXPECT_EQ(root.Member("c"), nullptr);
}

} // namespace

} // namespace kx::format
