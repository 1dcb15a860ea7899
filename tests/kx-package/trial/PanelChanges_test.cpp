// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "trial/PanelChanges.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace kx::tool
{

namespace
{

/// A summary with one added file of that path, written as in JSON.
std::string SummaryWith(const std::string& path)
{
    return R"({"files": [{"change": "added", "path": ")" + path +
           R"("}], "settings": [], "users": [], "packages": [], "reboot": false})";
}

std::string PathRead(const std::string& path)
{
    return ReadPanelChanges(SummaryWith(path)).files.at(0).path;
}

TEST(ReadPanelChanges, ReadsEverythingThatChanged)
{
    const PanelChanges changes = ReadPanelChanges(R"({
        "files": [
            {"change": "added", "path": "/a", "kind": "-", "mode": "-rw-r--r--", "octal": "0644",
             "owner": "root", "group": "adm", "size": 7},
            {"change": "changed", "path": "/b", "kind": "d", "mode": "drwxr-xr-x", "octal": "0755",
             "owner": "1", "group": "2", "size": 0},
            {"change": "added", "path": "/c", "kind": "l", "mode": "lrwxrwxrwx", "octal": "0777",
             "owner": "root", "group": "root", "size": 2, "target": "to"},
            {"change": "removed", "path": "/usr/d"}],
        "settings": [{"name": "N", "before": null, "after": "1"},
                     {"name": "M", "before": "1", "after": null}],
        "users": [{"name": "user", "change": "added"}],
        "packages": [{"name": "P", "change": "removed"}], "reboot": true})");

    ASSERT_EQ(changes.files.size(), 4U);
    const FileChange& file = changes.files[0];
    EXPECT_EQ(file.change + file.path + file.mode + file.octal + file.owner + file.group,
              "added/a-rw-r--r--0644rootadm");
    EXPECT_EQ(file.size, 7U);
    EXPECT_FALSE(changes.files[1].size.has_value());
    EXPECT_EQ(changes.files[2].target, "to");
    EXPECT_TRUE(changes.files[3].mode.empty());
    ASSERT_EQ(changes.settings.size(), 2U);
    EXPECT_FALSE(changes.settings[0].before.has_value());
    EXPECT_EQ(changes.settings[0].after, "1");
    EXPECT_FALSE(changes.settings[1].after.has_value());
    EXPECT_EQ(changes.users.at(0).name + changes.users.at(0).change, "useradded");
    EXPECT_EQ(changes.packages.at(0).name + changes.packages.at(0).change, "Premoved");
    EXPECT_TRUE(changes.isRebootAsked);
}

TEST(ReadPanelChanges, TurnsWhatStandsForBytesIntoThem)
{
    EXPECT_EQ(PathRead(R"(/a\udcff\uDC80)"), "/a\xff\x80");
    EXPECT_EQ(PathRead(R"(/\u00e4)"), "/ä");
    // The second half of a character is none of these bytes.
    EXPECT_EQ(PathRead(R"(/\ud83d\udc80)"), "/💀");
    // Nor is what only looks like them.
    EXPECT_EQ(PathRead(R"(/\\udcff)"), R"(/\udcff)");
    EXPECT_EQ(PathRead(R"(/\\\udcff)"), "/\\\xff");
    // The bounds of the bytes, of the first halves, and digits of all kinds.
    EXPECT_EQ(PathRead(R"(/\ud800\udc80)"), "/\xf0\x90\x82\x80");
    EXPECT_EQ(PathRead(R"(/\udbff\udcff)"), "/\xf4\x8f\xb3\xbf");
    EXPECT_EQ(PathRead(R"(/\udc89\udc90\udCfA\udc99)"), "/\x89\x90\xfa\x99");
    EXPECT_EQ(PathRead(R"(/\u0000b)"), std::string("/\0b", 3));
}

TEST(ReadPanelChanges, SaysWhatIsWrong)
{
    const auto told = [](const std::string& json) {
        try {
            static_cast<void>(ReadPanelChanges(json));
        } catch (const std::runtime_error& error) {
            return std::string(error.what());
        }
        return std::string("nothing thrown");
    };

    EXPECT_NE(told("x"), "nothing thrown");
    EXPECT_NE(told("x"), "an object is missing");
    EXPECT_EQ(told("[]"), "an object is missing");
    EXPECT_EQ(told(R"({"files": [1]})"), "an object is missing");
    EXPECT_EQ(told(R"({"files": 1})"), "the list 'files' is missing");
    EXPECT_EQ(told(R"({"files": []})"), "the list 'settings' is missing");
}

class BrokenSummary : public testing::TestWithParam<const char*>
{
};

TEST_P(BrokenSummary, IsRefused)
{
    EXPECT_THROW(static_cast<void>(ReadPanelChanges(GetParam())), std::runtime_error);
}

INSTANTIATE_TEST_SUITE_P(
    ReadPanelChanges, BrokenSummary,
    testing::Values("", "x", "[]", "{}", R"({"files": 1})", R"({"files": [1]})",
                    R"({"files": [], "settings": [], "users": [1], "packages": []})",
                    R"({"files": [], "settings": [], "users": []})", R"({"files": [)"));

} // namespace

} // namespace kx::tool
