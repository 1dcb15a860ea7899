// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "format/Description.h"

#include <gtest/gtest.h>

namespace kx::format
{

namespace
{

struct CountCase {
    const char* name;
    const char* text;
    std::uint64_t count;
};

class FilledObjectsOf : public testing::TestWithParam<CountCase>
{
};

TEST_P(FilledObjectsOf, AreDoubledByEachListAroundThem)
{
    EXPECT_EQ(FilledObjects(GetParam().text, 1000), GetParam().count);
}

INSTANTIATE_TEST_SUITE_P(
    Texts, FilledObjectsOf,
    testing::Values(CountCase{"Nothing", "", 0}, CountCase{"Object", "{}", 1},
                    CountCase{"ObjectInObject", R"({"a": {}, "b": {}})", 3},
                    CountCase{"List", R"({"a": [{}, {}]})", 5},
                    CountCase{"ListInList", R"({"a": [{"b": [{}]}]})", 7},
                    CountCase{"ListAfterList", R"({"a": [{"b": []}], "c": [{}]})", 5},
                    CountCase{"ArraysInAList", R"({"a": [[[{}]]]})", 3},
                    CountCase{"OuterArray", "[{}]", 1},
                    CountCase{"BracketsInTexts", R"({"a": "[{\"{[", "b\\": {}})", 2},
                    CountCase{"NoJson", "]}]}{{", 2}, CountCase{"OpenText", R"({"{{{)", 1}),
    [](const auto& row) { return row.param.name; });

TEST(FilledObjects, AreCountedUpToABound)
{
    std::string text;
    for (int i = 0; i < 1000; ++i) {
        text += R"({"a": [)";
    }

    EXPECT_EQ(FilledObjects(text, 1000), 1000U);
}

} // namespace

} // namespace kx::format
