// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "compose/DescriptionWriter.h"
#include "compose/Layout.h"
#include "compose/LayoutPackage.h"
#include "kx-package/manifest/Manifests.h"
#include "support/TempDir.h"
#include "support/Thrown.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstdio>

namespace kx::tool
{

// What a manifest carries for packages that were not made by build.

using ::testing::ElementsAre;
using ::testing::HasSubstr;

class CarriedLayouts : public ::testing::Test
{
protected:
    [[nodiscard]] Layout Make(const std::string& manifest) const
    {
        m_dir.Write("package.toml", manifest);
        return MakeLayout(ReadManifest(m_dir.Path()), "");
    }

    /// Returns what is said about a manifest, with DIR for the folder.
    [[nodiscard]] std::string Refused(const std::string& manifest) const
    {
        std::string line = Thrown([&] { static_cast<void>(Make(manifest)); });
        for (std::size_t at = line.find(m_dir.Path()); at != std::string::npos;
             at = line.find(m_dir.Path())) {
            line.replace(at, m_dir.Path().size(), "DIR");
        }
        return line;
    }

    [[nodiscard]] std::string RefusedStep(const std::string& step) const
    {
        return Refused(std::string(kIdentity) + "[[steps]]\n" + step);
    }

    /// "name mode" of everything that a package would hold.
    [[nodiscard]] std::vector<std::string> EntriesOf(const Layout& layout) const
    {
        std::vector<std::string> told;
        const LayoutPackage package("x.kx-update", true, layout, "");
        for (const archive::PackageEntry& entry : package.Entries()) {
            std::array<char, 8> mode{};
            static_cast<void>(std::snprintf(mode.data(), mode.size(), " %03o", entry.mode));
            told.push_back(entry.name + mode.data());
        }
        return told;
    }

    TempDir m_dir;
};

TEST_F(CarriedLayouts, SayWhereTheAuthorHadAFileAndWhatItIsCalled)
{
    m_dir.Write("payload/local", "x");

    const Layout layout =
        Make(std::string(kIdentity) +
             "[[steps]]\nkind = \"copy-files\"\nfiles = [{ source = \"payload/local\", "
             "origin = 'C:\\work\\a.bin', target = \"/opt/a\" }]\n");

    EXPECT_THAT(EntriesOf(layout),
                ElementsAre("0 000", "0/0 000", "0/0/a.bin 644", "UserPackage.kx-project 644"));
    EXPECT_THAT(WriteDescription(layout.model->root), HasSubstr(R"("C:\\work\\a.bin")"));
}

TEST_F(CarriedLayouts, GiveFilesOfAFolderOtherModesAndNames)
{
    m_dir.Write("tree/key", "x");
    m_dir.Write("tree/_git/config", "#!/bin/sh\n");
    m_dir.MakeDir("tree/empty");

    const Layout layout =
        Make(std::string(kIdentity) +
             "[[steps]]\nkind = \"copy-folder\"\n[[steps.folders]]\nsource = \"tree\"\n"
             "target = \"/opt\"\norigin = \"D:\\\\tree\"\n"
             "[steps.folders.modes]\n\"key\" = \"600\"\n\"_git/config\" = \"644\"\n"
             "[steps.folders.names]\n\"_git/config\" = \".git/config\"\n\"empty\" = \"a$b\"\n");

    EXPECT_THAT(EntriesOf(layout),
                ElementsAre("0 000", "0/0 000", "0/0/.git 000", "0/0/.git/config 644",
                            "0/0/a$b 755", "0/0/key 600", "UserPackage.kx-project 644"));
    EXPECT_TRUE(layout.remarks.empty());
}

TEST_F(CarriedLayouts, TakeStepsAndTextsAsTheyAre)
{
    m_dir.Write("step.json", R"({"$type": "Zt.Plugins.DB_ScriptFunctionData, Plexa",
                                 "ScriptData": "a\u0000b"})");
    m_dir.Write("texts.json", R"({"$type": "Zt.Plugins.DB_KxUserProject, Plexa",
        "ModelName": "m", "OsVersion": "o", "PackageVersion": "v", "Title": "t\u0000u",
        "Comment": "c", "Date": "d"})");
    m_dir.Write("payload/0/x", "x");

    const Layout layout = Make("[package]\nname = \"x\"\nprocessor = \"arm\"\n"
                               "description-file = \"texts.json\"\n"
                               "[[steps]]\nkind = \"verbatim\"\ndescription-file = \"step.json\"\n"
                               "payload = { source = \"payload\" }\n");

    const std::string description = WriteDescription(layout.model->root);
    EXPECT_THAT(description, HasSubstr(R"("Title": "t\u0000u")"));
    EXPECT_THAT(description, HasSubstr(R"("ScriptData": "a\u0000b")"));
    EXPECT_THAT(EntriesOf(layout),
                ElementsAre("0 000", "0/0 000", "0/0/x 644", "UserPackage.kx-project 644"));
}

TEST_F(CarriedLayouts, HoldWhatNoStepUses)
{
    m_dir.Write("extra/README", "x");
    m_dir.Write("extra/7/0/x", "x");

    const Layout layout = Make(std::string(kIdentity) + "[package.extra]\nsource = \"extra\"\n"
                                                        "executable = [\"README\"]\n");

    EXPECT_THAT(EntriesOf(layout), ElementsAre("7 000", "7/0 000", "7/0/x 644", "README 755",
                                               "UserPackage.kx-project 644"));
}

TEST_F(CarriedLayouts, NameAnUpdaterAndDatesOfTheirOwn)
{
    m_dir.Write("package.toml",
                "[package]\nname = \"x\"\ntitle = \"\"\nversion = \"\"\nmodel = \"\"\n"
                "os-version = \"\"\ndate = \"\"\nupdater = \"up/kx_Updater\"\n"
                "timestamp = 2023-11-14T23:13:20+01:00\n");

    const Manifest manifest = ReadManifest(m_dir.Path());

    EXPECT_EQ(manifest.updater, m_dir / "up/kx_Updater");
    EXPECT_EQ(manifest.timestamp, 1700000000);
    EXPECT_EQ(manifest.processor, nullptr);
}

TEST_F(CarriedLayouts, RefuseTwoThingsOfOneName)
{
    m_dir.Write("a", "x");
    for (const char* const name : {"0/0/a", "kx_Updater", "UserPackage.kx-project"}) {
        const TempDir none;
        m_dir.Write(std::string("extra/") + name, "x");
        EXPECT_EQ(Refused(std::string(kIdentity) +
                          "[package.extra]\nsource = \"extra\"\nexclude = [\"none\"]\n"
                          "[[steps]]\nkind = \"copy-files\"\nfiles = [{ source = \"a\", target = "
                          "\"/a\" }]\n"),
                  std::string("1: DIR/package.toml: '") + name +
                      "' would be in the package twice; look at 'extra', 'payload' and 'names'");
        std::remove((m_dir / (std::string("extra/") + name)).c_str());
    }
}

TEST_F(CarriedLayouts, RefuseModesAndNamesOfFilesThatAreNotThere)
{
    m_dir.Write("tree/a", "x");
    const std::string begin = "kind = \"copy-folder\"\n[[steps.folders]]\nsource = \"tree\"\n"
                              "target = \"/opt\"\n";
    EXPECT_EQ(RefusedStep(begin + "modes = { b = \"600\" }\n"),
              "1: DIR/package.toml:13:10: there is no 'b' in 'tree', which 'modes' names; paths "
              "begin below the folder");
    EXPECT_EQ(RefusedStep(begin + "names = { b = \"c\" }\n"),
              "1: DIR/package.toml:13:10: there is no 'b' in 'tree', which 'names' names; paths "
              "begin below the folder");
}

TEST_F(CarriedLayouts, RefuseWhatNoPackageHolds)
{
    m_dir.Write("tree/a", "x");
    m_dir.Write("none.json", "nothing");
    m_dir.Write("two.json", "{} {}");
    m_dir.Write("other.json", "{}");
    const std::string begin = "kind = \"copy-folder\"\n[[steps.folders]]\nsource = \"tree\"\n"
                              "target = \"/opt\"\n";
    for (const char* const mode : {"", "64", "0644", "888", "u+x"}) {
        EXPECT_EQ(RefusedStep(begin + "modes = { a = \"" + mode + "\" }\n"),
                  "1: DIR/package.toml:15:9: 'steps[0].folders[0].modes' has '" +
                      std::string(mode) +
                      "' for 'a', which is no mode; write three octal digits, like \"600\"");
    }
    for (const char* const name : {"", "/a", "a/", "../a", "a/../b", "a//b", ".", "a\\nb"}) {
        EXPECT_THAT(RefusedStep(begin + "names = { a = \"" + name + "\" }\n"),
                    HasSubstr("which is no path; write the path below the folder"))
            << name;
    }
    const std::string file = "kind = \"copy-files\"\n[[steps.files]]\ntarget = \"/opt/\"\n";
    for (const char* const origin : {"a/", "..", "C:", "a$b"}) {
        EXPECT_EQ(RefusedStep(file + "source = \"tree/a\"\norigin = \"" + origin + "\"\n"),
                  "1: DIR/package.toml:15:10: 'steps[0].files[0].origin' ends in no name that a "
                  "file can have in the package; end it with another name");
    }
    EXPECT_EQ(RefusedStep(file + "source = \"tree/*\"\norigin = \"a\"\n"),
              "1: DIR/package.toml:15:10: 'steps[0].files[0].origin' is given together with a "
              "pattern; name one file");
    const std::string verbatim = "kind = \"verbatim\"\ndescription-file = \"";
    EXPECT_EQ(RefusedStep("kind = \"verbatim\"\n"),
              "1: DIR/package.toml:10:1: 'steps[0].description-file' is missing; name the file "
              "with the JSON object");
    EXPECT_EQ(
        RefusedStep(verbatim + "missing.json\"\n"),
        "1: DIR/package.toml:12:20: DIR/missing.json: cannot open: No such file or directory");
    EXPECT_EQ(RefusedStep(verbatim + "none.json\"\n"),
              "1: DIR/none.json:1:2: is not JSON from here on; write one JSON object, as it stands "
              "in a description");
    EXPECT_EQ(RefusedStep(verbatim + "two.json\"\n"),
              "1: DIR/two.json:1:1: is more, or something else, than one object; write one JSON "
              "object, as it stands in a description");
    EXPECT_EQ(RefusedStep(verbatim + "other.json\"\n"),
              "1: DIR/other.json:1:1: is no object of a class that panels know; no panel reads "
              "such a description");
}

TEST_F(CarriedLayouts, RefuseDatesThatNoArchiveHolds)
{
    const std::string begin =
        "[package]\nname = \"x\"\ntitle = \"\"\nversion = \"\"\nmodel = \"\"\n"
        "os-version = \"\"\ndate = \"\"\nprocessor = \"arm\"\ntimestamp = ";
    EXPECT_EQ(Refused(begin + "2108-01-01T00:00:00Z\n"),
              "1: DIR/package.toml:9:13: 'package.timestamp' is not a time from 1970 to 2107; an "
              "archive can hold no other");
    for (const char* const time : {"\"2023-11-14\"", "2023-11-14", "2023-11-14T22:13:20"}) {
        EXPECT_THAT(Refused(begin + time + "\n"),
                    HasSubstr("'package.timestamp' must be a date-time with an offset, like "
                              "2026-11-21T10:20:30Z, not a "));
    }
}

} // namespace kx::tool
