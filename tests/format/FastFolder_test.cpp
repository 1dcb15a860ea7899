// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "format/FastFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace kx::format
{

using ::testing::ElementsAre;
using ::testing::HasSubstr;

namespace
{

FastFolder Example()
{
    FastFolder folder;
    folder.target = "/mnt/user/my tree";
    folder.archive = "/tmp/my tree.tar";
    folder.size = 9728;
    folder.fileCount = 4;
    folder.kib = 17;
    folder.modes = 0755;
    folder.emptyFolders = {"empty/in", "kx-end"};
    folder.files = {"-dash", "a", "sub/deep/kx-end", "sub/run"};
    return folder;
}

/// Takes one part of a text out, or puts another one in its place.
std::string Changed(std::string text, const std::string& part, const std::string& other)
{
    const std::size_t at = text.find(part);
    EXPECT_NE(at, std::string::npos) << part;
    return text.replace(at, part.size(), other);
}

} // namespace

TEST(FastFolder, PutsItsArchiveBesideTheTarget)
{
    EXPECT_EQ(DefaultFastArchive("/mnt/user/tree"), "/mnt/user/tree.kx-fast.tar");
    EXPECT_EQ(DefaultFastArchive("/"), "/kx-fast.tar");
}

TEST(FastFolder, ListsTheFoldersOfItsFiles)
{
    EXPECT_THAT(FoldersOf(Example()),
                ElementsAre("empty", "empty/in", "kx-end", "sub", "sub/deep"));
    EXPECT_THAT(FoldersOf(FastFolder()), ElementsAre());
}

TEST(FastFolder, SaysInTheInstallScriptWhatItUnpacks)
{
    EXPECT_THAT(FastInstallScript(Example()),
                HasSubstr("\ntarget=\"/mnt/user/my tree\"\narchive=\"/tmp/my tree.tar\"\n"
                          "size=9728\nfiles=4\nkib=17\nmodes=0755\n\n"));
    EXPECT_THAT(FastInstallScript(Example()),
                HasSubstr("done <<'kx-end'\n./empty/in\n./kx-end\nkx-end\nrm -f \"$archive\""));
}

TEST(FastFolder, RemovesItsFilesAndThenItsFoldersFromTheInside)
{
    EXPECT_THAT(FastUninstallScript(Example()),
                HasSubstr("<<'kx-end'\n./-dash\n./a\n./sub/deep/kx-end\n./sub/run\nkx-end\n"));
    EXPECT_THAT(
        FastUninstallScript(Example()),
        HasSubstr("<<'kx-end'\n./sub/deep\n./sub\n./kx-end\n./empty/in\n./empty\nkx-end\nexit"));
}

TEST(FastFolder, HasNothingToRemoveWhenItIsNotRecorded)
{
    FastFolder folder = Example();
    folder.isRecorded = false;

    EXPECT_EQ(FastUninstallScript(folder), "#!/bin/sh\n");
}

TEST(FastFolder, IsKnownAgainByItsScripts)
{
    for (const bool isRecorded : {true, false}) {
        FastFolder folder = Example();
        folder.isRecorded = isRecorded;
        folder.files = isRecorded ? folder.files : std::vector<std::string>();

        const auto read = ReadFastScripts(FastInstallScript(folder), FastUninstallScript(folder));

        ASSERT_TRUE(read.has_value());
        EXPECT_EQ(read->target, folder.target);
        EXPECT_EQ(read->archive, folder.archive);
        EXPECT_EQ(read->size, folder.size);
        EXPECT_EQ(read->fileCount, folder.fileCount);
        EXPECT_EQ(read->kib, folder.kib);
        EXPECT_EQ(read->modes, folder.modes);
        EXPECT_EQ(read->emptyFolders, folder.emptyFolders);
        EXPECT_EQ(read->isRecorded, isRecorded);
        EXPECT_EQ(read->files, folder.files);
    }
}

TEST(FastFolder, IsKnownWithoutAnyFile)
{
    FastFolder folder;
    folder.target = "/t";
    folder.archive = "/t.tar";

    EXPECT_TRUE(
        ReadFastScripts(FastInstallScript(folder), FastUninstallScript(folder)).has_value());
}

TEST(FastFolder, IsNotKnownWithNamesThatBuildRefuses)
{
    const std::vector<std::vector<std::string>> rows = {
        {"/a"}, {"a//b"}, {"./a"}, {"a/.."}, {"../a"}, {""}, {"a\"b"}, {"b", "a"}, {"a", "a"}};
    for (const std::vector<std::string>& names : rows) {
        FastFolder folder = Example();
        folder.files = names;
        folder.fileCount = names.size();
        EXPECT_FALSE(ReadFastScripts(FastInstallScript(folder), FastUninstallScript(folder)))
            << names[0];
        folder = Example();
        folder.emptyFolders = names;
        EXPECT_FALSE(ReadFastScripts(FastInstallScript(folder), FastUninstallScript(folder)))
            << names[0];
    }
    for (const char* const path : {"", "t", "/t\"; reboot; \"", "/$(reboot)", "/a\nb"}) {
        FastFolder folder = Example();
        folder.target = path;
        EXPECT_FALSE(ReadFastScripts(FastInstallScript(folder), FastUninstallScript(folder)))
            << path;
        folder = Example();
        folder.archive = path;
        EXPECT_FALSE(ReadFastScripts(FastInstallScript(folder), FastUninstallScript(folder)))
            << path;
    }
}

TEST(FastFolder, IsNotKnownByOtherInstallScripts)
{
    const std::string install = FastInstallScript(Example());
    const std::string uninstall = FastUninstallScript(Example());
    struct Row {
        const char* part;
        const char* other;
    };
    const std::vector<Row> rows = {
        {"#!/bin/sh", "#!/bin/bash"},
        {"target=\"/mnt/user/my tree\"", "target='/mnt/user/my tree'"},
        {"target=\"/mnt/user/my tree\"", "target=\"/mnt/user/other\""},
        {"archive=\"", R"(archive=""")"},
        {"size=9728", "size=09728"},
        {"size=9728", "size=98765432109876543210"},
        {"files=4", "files=5"},
        {"files=4", "files= 4"},
        {"kib=17", "kib=-17"},
        {"modes=0755", "modes=755"},
        {"modes=0755", "modes=0758"},
        {"tar -x -m -o", "tar -x"},
        {"./empty/in\n", "empty/in\n"},
        {"./kx-end\nkx-end\n", "./kx-end\n"},
        {"rm -f \"$archive\" ||", "true ||"},
        {"cannot remove $archive\"\n", "cannot remove $archive\"\nreboot\n"},
    };
    for (const Row& row : rows) {
        EXPECT_FALSE(ReadFastScripts(Changed(install, row.part, row.other), uninstall).has_value())
            << row.part << " > " << row.other;
    }
    EXPECT_FALSE(ReadFastScripts("", uninstall).has_value());
    for (std::size_t size = 0; size < install.size(); ++size) {
        EXPECT_FALSE(ReadFastScripts(install.substr(0, size), uninstall).has_value()) << size;
    }
}

TEST(FastFolder, IsNotKnownByOtherUninstallScripts)
{
    const std::string install = FastInstallScript(Example());
    const std::string uninstall = FastUninstallScript(Example());
    struct Row {
        const char* part;
        const char* other;
    };
    const std::vector<Row> rows = {
        {"/mnt/user/my tree", "/mnt/user/other"},
        {"./a\n", ""},
        {"./a\n", "./a\n./b\n"},
        {"./a\n", "a\n"},
        {"./sub\n", ""},
        {"exit $failed\n", "exit $failed\nreboot\n"},
        {"rm -f", "rm -rf"},
    };
    for (const Row& row : rows) {
        EXPECT_FALSE(ReadFastScripts(install, Changed(uninstall, row.part, row.other)).has_value())
            << row.part << " > " << row.other;
    }
    EXPECT_FALSE(ReadFastScripts(install, "").has_value());
}

} // namespace kx::format
