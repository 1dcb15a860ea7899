// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "compose/PackageSource.h"
#include "kx-package/manifest/Manifests.h"
#include "support/TempDir.h"
#include "support/Thrown.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include <sys/stat.h>

namespace kx::tool
{

namespace
{

using ::testing::ElementsAre;

/// A manifest with one file, which names its updater when there is one.
std::string ManifestWith(const std::string& updater)
{
    std::string text = kIdentity;
    text.pop_back(); // the empty line
    text += updater.empty() ? "" : "updater = \"" + updater + "\"\n";
    return text + "[[steps]]\nkind = \"copy-files\"\n"
                  "files = [{ source = \"app\", target = \"/opt/app\", mode = \"755\" }]\n";
}

/// The head of a program for arm.
std::string ArmProgram()
{
    std::string head("\x7f"
                     "ELF\x01\x01\x01");
    head.resize(52);
    head[16] = 3;
    head[18] = 40;
    return head;
}

std::vector<std::string> NamesIn(const archive::Package& package)
{
    std::vector<std::string> names;
    for (const archive::PackageEntry& entry : package.Entries()) {
        names.push_back(entry.name);
    }
    return names;
}

TEST(IsSource, TellsManifestsAndTheirFoldersFromPackages)
{
    const TempDir dir;
    dir.Write("source/package.toml", "");
    dir.Write("unpacked/UserPackage.kx-project", "");
    dir.Write("both/package.toml", "");
    dir.Write("both/UserPackage.kx-project", "");
    dir.Write("empty.toml", "");
    dir.Write("one.toml", "P");
    dir.Write("archive.toml", "PK\x05\x06");
    dir.Write("text", "[package]\n");
    dir.MakeDir("none");
    dir.MakeDir("folder.toml");
    dir.MakeDir("dangling");
    std::filesystem::create_symlink("nowhere", dir / "dangling/package.toml");
    std::filesystem::create_symlink("nowhere", dir / "dangling.toml");
    std::filesystem::create_symlink("empty.toml", dir / "link.toml");
    ASSERT_EQ(mkfifo((dir / "pipe.toml").c_str(), 0600), 0);

    std::vector<std::string> sources;
    for (const auto& entry : std::filesystem::directory_iterator(dir.Path())) {
        if (IsSource(entry.path().string())) {
            sources.push_back(entry.path().filename().string());
        }
    }
    std::sort(sources.begin(), sources.end());

    EXPECT_THAT(sources, ElementsAre("dangling", "empty.toml", "link.toml", "one.toml", "source"));
    EXPECT_TRUE(IsSource(dir / "both/package.toml"));
    EXPECT_FALSE(IsSource(dir / "absent.toml"));
}

TEST(OpenAsPackage, ShowsWhatAManifestMakes)
{
    const TempDir dir;
    dir.Write("app", "program");
    dir.Write("kx_Updater", ArmProgram());
    dir.Write("package.toml", ManifestWith("kx_Updater"));

    const OpenedPackage opened = OpenAsPackage(dir.Path());

    EXPECT_EQ(opened.package->Path(), "demo.kx-update");
    EXPECT_TRUE(opened.package->IsArchive());
    EXPECT_THAT(NamesIn(*opened.package),
                ElementsAre("0", "0/0", "0/0/app", "UserPackage.kx-project", "kx_Updater"));
    EXPECT_EQ(opened.package->Read("0/0/app", 100), "program");
    EXPECT_FALSE(IsUpdaterElsewhere(opened));
}

TEST(OpenAsPackage, TakesAnUpdaterThatIsNotHereForOneThatComesLater)
{
    const TempDir dir;
    dir.Write("app", "program");
    const std::string manifest = dir.Write("package.toml", ManifestWith(""));

    const OpenedPackage opened = OpenAsPackage(manifest);

    EXPECT_TRUE(IsUpdaterElsewhere(opened));
    EXPECT_THAT(NamesIn(*opened.package),
                ElementsAre("0", "0/0", "0/0/app", "UserPackage.kx-project"));
}

TEST(OpenAsPackage, TellsAllMistakesOfAManifest)
{
    const TempDir dir;
    const std::string manifest = dir.Write("package.toml", "x = 1\n" + ManifestWith(""));

    try {
        static_cast<void>(OpenAsPackage(manifest));
        FAIL() << "nothing thrown";
    } catch (const io::Errors& errors) {
        ASSERT_EQ(errors.All().size(), 2U);
        EXPECT_EQ(errors.All()[0].Where(), manifest + ":1:1");
        EXPECT_STREQ(errors.All()[1].what(), "there is no file 'app'");
        EXPECT_EQ(errors.Code(), io::ExitCode::kProblems);
    }
}

TEST(OpenAsPackage, OpensAPackageThatIsThere)
{
    const TempDir dir;
    dir.Write("pkg/UserPackage.kx-project", "");

    const OpenedPackage opened = OpenAsPackage(dir / "pkg");

    EXPECT_EQ(opened.source, nullptr);
    EXPECT_FALSE(IsUpdaterElsewhere(opened));
    EXPECT_THAT(NamesIn(*opened.package), ElementsAre("UserPackage.kx-project"));
    EXPECT_EQ(Thrown([&dir] { static_cast<void>(OpenAsPackage(dir / "none.toml")); }),
              "1: " + dir.Path() + "/none.toml: cannot open: No such file or directory");
}

TEST(WritePackage, WritesWhatTheSourceShowsWithAnUpdaterOrWithout)
{
    const TempDir dir;
    dir.Write("app", "program");
    dir.Write("kx_Updater", ArmProgram());
    dir.Write("package.toml", ManifestWith(""));
    const PackageSource source = ReadSource(dir.Path());
    double last = -1;

    static_cast<void>(WritePackage(dir / "without", source.manifest, source.layout, "",
                                   [&last](double fraction) { last = fraction; }));
    static_cast<void>(
        WritePackage(dir / "with", source.manifest, source.layout, dir / "kx_Updater", nullptr));

    EXPECT_EQ(last, 1.0);
    EXPECT_EQ(NamesIn(*archive::OpenPackage(dir / "without")), NamesIn(*PackageOf(source)));
    const auto with = archive::OpenPackage(dir / "with");
    EXPECT_EQ(with->Find("kx_Updater")->mode, 0755U);
    EXPECT_EQ(with->Read("UserPackage.kx-project", 1U << 20U),
              PackageOf(source)->Read("UserPackage.kx-project", 1U << 20U));
}

} // namespace

} // namespace kx::tool
