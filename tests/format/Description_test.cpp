// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "format/Description.h"
#include "support/TempDir.h"
#include "support/Thrown.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

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
                    CountCase{"QuotesInTexts", R"({"a": "\"{{{"})", 1},
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

TEST(ParseDescription, SkipsThreeBytesWhateverTheyAre)
{
    EXPECT_FALSE(ParseDescription("").root.has_value());
    EXPECT_FALSE(ParseDescription("\xef\xbb\xbf").root.has_value());
    EXPECT_TRUE(ParseDescription("\xef\xbb\xbf"
                                 "1")
                    .root.has_value());
    EXPECT_TRUE(ParseDescription("abc{}").root.has_value());
    EXPECT_FALSE(ParseDescription("{\"a\": 1}").root.has_value());
    EXPECT_TRUE(ParseDescription("\xef\xbb\xbf{}").HasByteOrderMark());
    EXPECT_FALSE(ParseDescription("\xef\xbb{}").HasByteOrderMark());
}

TEST(ParseDescription, EndsAtAZeroByte)
{
    const Description description = ParseDescription(std::string("abc{}\0{", 7));

    EXPECT_TRUE(description.root.has_value());
    EXPECT_EQ(description.text, "{}");
    EXPECT_EQ(description.bytes.size(), 7U);
    EXPECT_EQ(description.end, 2U);
}

TEST(ReadDescription, FollowsALinkToAFileOfThePackageOnly)
{
    const TempDir dir;
    dir.Write("Foo/d/real", "abc{}");
    const std::string path = dir / "Foo";
    const std::string link = path + "/UserPackage.kx-project";
    const auto told = [&path] {
        return Thrown([&path] { static_cast<void>(ReadDescription(*archive::OpenFolder(path))); });
    };
    EXPECT_EQ(told(), "1: " + path +
                          ": there is no UserPackage.kx-project at its top level; pack "
                          "it from inside its folder");

    for (const char* const target : {"gone", "d", "../Foo/d/real", "/etc/hostname"}) {
        std::filesystem::create_symlink(target, link);
        EXPECT_EQ(told(), "1: " + path + ":UserPackage.kx-project: is a link to '" + target +
                              "', which is not a file in the package; pack the file itself (zip "
                              "without -y)");
        std::filesystem::remove(link);
    }
    std::filesystem::create_symlink("d/real", link);
    EXPECT_EQ(ReadDescription(*archive::OpenFolder(path)).bytes, "abc{}");
}

TEST(RecordName, IsTheNameWithoutWhatTheWindowAdds)
{
    EXPECT_EQ(RecordName("/mnt/usb/Foo.kx-update"), "Foo");
    EXPECT_EQ(RecordName("/mnt/usb/Foo.temp"), "Foo");
    EXPECT_EQ(RecordName("/mnt/usb/Foo"), "Foo");
    EXPECT_EQ(RecordName("/mnt/usb/a.b.kx-update"), "a.b");
}

} // namespace

} // namespace kx::format
