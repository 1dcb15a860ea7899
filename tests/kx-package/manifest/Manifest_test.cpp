// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "kx-package/manifest/Manifests.h"
#include "manifest/Manifest.h"
#include "support/Environment.h"
#include "support/TempDir.h"
#include "support/Thrown.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

namespace kx::tool
{

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;

TEST(Manifest, IsReadWithAllItsKeys)
{
    const TempDir dir;
    WriteEverything(dir);

    const Manifest manifest = ReadManifest(dir.Path());

    EXPECT_EQ(manifest.path, dir / "package.toml");
    EXPECT_EQ(manifest.folder, dir.Path());
    EXPECT_EQ(manifest.name, "demo");
    EXPECT_EQ(manifest.title, "D\xc3\xa9mo");
    EXPECT_EQ(manifest.version, "1.2");
    EXPECT_EQ(manifest.comment, "quotes \" and \\, a tab\tand a line\nbreak");
    EXPECT_EQ(manifest.model, "TP-0700");
    EXPECT_EQ(manifest.osVersion, "2.1.0");
    EXPECT_EQ(manifest.date, "2026/01/02");
    EXPECT_STREQ(manifest.processor->name, "arm");
    ASSERT_EQ(manifest.steps.size(), 5U);

    const ManifestStep& files = manifest.steps[0];
    EXPECT_EQ(files.kind, &format::kCopyFilesKind);
    EXPECT_EQ(files.comment, "programs");
    EXPECT_TRUE(files.canSkip);
    EXPECT_FALSE(files.isRecorded);
    ASSERT_EQ(files.files.size(), 3U);
    EXPECT_EQ(files.files[0].source, "bin/hello");
    EXPECT_EQ(files.files[0].target, "/mnt/user/bin/greet");
    EXPECT_EQ(files.files[0].mode, "4755");
    EXPECT_EQ(files.files[0].where, (dir / "package.toml") + ":17:14");
    EXPECT_EQ(files.files[1].mode, "644");

    const ManifestStep& folders = manifest.steps[1];
    EXPECT_EQ(folders.kind, &format::kCopyFolderKind);
    EXPECT_EQ(folders.comment, "");
    EXPECT_FALSE(folders.canSkip);
    EXPECT_TRUE(folders.isRecorded);
    ASSERT_EQ(folders.folders.size(), 2U);
    EXPECT_EQ(folders.folders[0].target, "/mnt/user/share");
    EXPECT_THAT(folders.folders[0].exclude, ElementsAre("**/*.orig"));
    EXPECT_THAT(folders.folders[0].executable, ElementsAre("bin/*"));
    EXPECT_THAT(folders.folders[1].executable, IsEmpty());
}

TEST(Manifest, TakesScriptsFromTextsAndFilesWithLineFeeds)
{
    const TempDir dir;
    WriteEverything(dir);

    const Manifest manifest = ReadManifest(dir / "package.toml");

    EXPECT_EQ(manifest.steps[2].install, "#!/bin/sh\necho 1\n");
    EXPECT_EQ(manifest.steps[2].uninstall, "#!/bin/sh\n");
    EXPECT_EQ(manifest.steps[3].install, "#!/bin/sh\necho 2\n");
    EXPECT_EQ(manifest.steps[3].uninstall, "#!/bin/sh\necho 3\n");
}

TEST(Manifest, KeepsTheOrderOfSettingsAndOfTheirValues)
{
    const TempDir dir;
    WriteEverything(dir);

    const std::vector<ManifestSetting> settings = ReadManifest(dir.Path()).steps[4].settings;

    std::vector<std::string> kinds;
    kinds.reserve(settings.size());
    for (const ManifestSetting& setting : settings) {
        kinds.emplace_back(setting.kind->name);
    }
    EXPECT_THAT(kinds, ElementsAre("auto-start", "backlight", "cursor", "language", "lan", "sound",
                                   "s-start", "touch-beep", "user"));
    EXPECT_THAT(settings[0].values,
                ElementsAre(Pair("Mode", "script"), Pair("CustomScript", "#!/bin/sh\necho 2\n")));
    EXPECT_THAT(settings[1].values, ElementsAre(Pair("Zoom", "1"), Pair("Level", "8")));
    EXPECT_TRUE(settings[1].isUsed);
    EXPECT_FALSE(settings[2].isUsed);
    EXPECT_THAT(settings[8].values, ElementsAre(Pair("User", "user"), Pair("Password", "secret")));
}

TEST(Manifest, MayHaveNoSteps)
{
    const TempDir dir;
    dir.Write("package.toml", kIdentity);

    EXPECT_THAT(ReadManifest(dir.Path()).steps, IsEmpty());
}

TEST(Manifest, TakesTheDateOfTheEnvironmentWhenItHasNone)
{
    const Environment set("SOURCE_DATE_EPOCH", "1700000000");
    const TempDir dir;
    std::string text = kIdentity;
    dir.Write("package.toml", text);
    EXPECT_EQ(ReadManifest(dir.Path()).date, "2026/11/21");

    dir.Write("package.toml", text.erase(text.find("date"), 20));

    EXPECT_EQ(ReadManifest(dir.Path()).date, "2023/11/14");
}

TEST(Manifest, TakesTheNameOfItsFolderWhenItHasNone)
{
    const TempDir dir;
    std::string text = kIdentity;
    text.erase(text.find("name"), 14);
    dir.Write("recipes-2/package.toml", text);
    EXPECT_EQ(ReadManifest(dir / "recipes-2").name, "recipes-2");

    dir.Write("my recipes/package.toml", text);
    EXPECT_EQ(Thrown([&] { static_cast<void>(ReadManifest(dir / "my recipes")); }),
              "1: " + (dir / "my recipes/package.toml") +
                  ":1:1: the package's name 'my recipes' contains characters other than letters, "
                  "digits, '-', '_' and '.'; give 'package.name'");
}

TEST(Manifest, IsFoundFromItsOwnFolder)
{
    const TempDir dir;
    std::string text = kIdentity;
    dir.Write("recipes/package.toml", text.erase(text.find("name"), 14));
    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::current_path(dir / "recipes");

    EXPECT_EQ(ReadManifest(".").folder, ".");
    EXPECT_EQ(ReadManifest("package.toml").folder, ".");
    EXPECT_EQ(ReadManifest(".").name, "recipes");
    EXPECT_EQ(ReadManifest("package.toml").name, "recipes");

    std::filesystem::current_path(before);
}

TEST(Manifest, SaysWhatToDoWhereThereIsNone)
{
    const TempDir dir;

    EXPECT_EQ(Thrown([&] { static_cast<void>(ReadManifest(dir.Path())); }),
              "1: " + dir.Path() +
                  ": there is no package.toml in the folder; make one with kx-package new");
    EXPECT_EQ(Thrown([&] { static_cast<void>(ReadManifest(dir / "x.toml")); }),
              "1: " + (dir / "x.toml") + ": cannot open: No such file or directory");
}

} // namespace kx::tool
