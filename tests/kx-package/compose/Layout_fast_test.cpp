// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "archive/TarArchive.h"
#include "compose/Layout.h"
#include "compose/LayoutPackage.h"
#include "format/FastPackage.h"
#include "kx-package/manifest/Manifests.h"
#include "model/DB_FunctionDatas.h"
#include "model/DB_StepSets.h"
#include "support/TempDir.h"
#include "support/Thrown.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

namespace kx::tool
{

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace
{

class FastLayouts : public ::testing::Test
{
protected:
    /// A manifest with one fast folder, with further lines for the step and for the folder.
    [[nodiscard]] Layout Make(const std::string& step = "", const std::string& folder = "") const
    {
        m_dir.Write("package.toml",
                    std::string(kIdentity) + "[[steps]]\nkind = \"copy-folder\"\nfast = true\n" +
                        step + "[[steps.folders]]\nsource = 'tree'\ntarget = '/t/'\n" + folder);
        return MakeLayout(ReadManifest(m_dir.Path()), "");
    }

    [[nodiscard]] std::string ErrorOf(const std::string& folder) const
    {
        std::string line = Thrown([&] { static_cast<void>(Make("", folder)); });
        const std::size_t at = line.find(m_dir.Path());
        return at == std::string::npos ? line : line.replace(at, m_dir.Path().size(), "DIR");
    }

    TempDir m_dir;
};

/// The objects of the two steps that a fast folder becomes, from the step @p index on.
struct TwoSteps {
    const DB_CopyStepSet* copy;
    const DB_CopyFunctionData* item;
    const DB_ScriptStepSet* script;
    std::string install;
    std::string uninstall;
};

TwoSteps StepsFrom(const Layout& layout, int index)
{
    const auto* const steps = ObjectAs<DB_StepSets>(layout.model->root.DB_StepSets);
    const auto* const copy = ObjectAs<DB_CopyStepSet>(steps->ElementAt(index));
    const auto* const script = ObjectAs<DB_ScriptStepSet>(steps->ElementAt(index + 1));
    const auto* const items = ObjectAs<DB_CopyFunctionDatas>(copy->PathSetDatas);
    EXPECT_EQ(items->count, 1);
    return {copy, ObjectAs<DB_CopyFunctionData>(items->ElementAt(0)), script,
            ObjectAs<DB_ScriptFunctionData>(script->InstallScriptFunctionData)->ScriptData,
            ObjectAs<DB_ScriptFunctionData>(script->UninstallScriptFunctionData)->ScriptData};
}

/// "name mode size" of what is in the archive of a layout.
std::vector<std::string> ArchiveOf(const Layout& layout, std::size_t index)
{
    std::vector<std::string> told;
    EXPECT_TRUE(archive::ReadTar(*layout.archives.at(index), "archive",
                                 [&told](const archive::TarEntry& entry) -> archive::ContentSink {
                                     told.push_back(entry.name + " " + std::to_string(entry.mode) +
                                                    " " + std::to_string(entry.size));
                                     return {};
                                 }));
    return told;
}

} // namespace

TEST_F(FastLayouts, BecomeAnArchiveAndItsScript)
{
    m_dir.Write("tree/a", "1");
    m_dir.Write("tree/bin/run", "#!/bin/sh\n");
    m_dir.Write("tree/secret", std::string(1025, 's'));
    m_dir.Write("tree/secret.orig", "");
    m_dir.MakeDir("tree/empty/inside");

    const Layout layout =
        Make("comment = 'maps'\nskip = true\n",
             "executable = ['bin/*']\nexclude = ['*.orig']\nmodes = { secret = '600' }\n");

    const TwoSteps steps = StepsFrom(layout, 0);
    EXPECT_EQ(steps.copy->Comment, "maps");
    EXPECT_TRUE(steps.copy->CanSkip);
    EXPECT_FALSE(steps.copy->IsRemove);
    EXPECT_EQ(steps.item->SourcePath, "tree/files.tar");
    EXPECT_EQ(steps.item->DestinationPath, "/t.kx-fast.tar");
    EXPECT_EQ(steps.item->Permissions, "600");
    EXPECT_EQ(steps.script->Comment, "maps");
    EXPECT_TRUE(steps.script->CanSkip);
    const auto folder = format::ReadFastScripts(steps.install, steps.uninstall);
    ASSERT_TRUE(folder.has_value());
    EXPECT_EQ(folder->target, "/t");
    EXPECT_EQ(folder->archive, "/t.kx-fast.tar");
    EXPECT_EQ(folder->kib, 4U);
    EXPECT_EQ(folder->modes, 0755U);
    EXPECT_THAT(folder->emptyFolders, ElementsAre("empty/inside"));
    EXPECT_THAT(folder->files, ElementsAre("a", "bin/run", "secret"));
    EXPECT_THAT(ArchiveOf(layout, 0), ElementsAre("a 420 1", "bin/run 493 10", "secret 384 1025"));
    ASSERT_EQ(layout.payload.size(), 1U);
    EXPECT_EQ(layout.payload[0].name, "0/0/files.tar");
    EXPECT_EQ(folder->size, io::SizeOf(*layout.archives[0], "archive"));
    const LayoutPackage package("x.kx-update", true, layout, "");
    EXPECT_EQ(package.Read("0/0/files.tar", 1U << 20U).size(), folder->size);
}

TEST_F(FastLayouts, StandWhereTheOthersExpectThem)
{
    m_dir.Write("tree/a", "1");
    m_dir.Write("other/b", "22");
    m_dir.Write("plain/c", "3");

    const Layout layout =
        Make("", "[[steps.folders]]\nsource = 'other'\ntarget = '/'\narchive = '/tmp/o.tar'\n"
                 "[[steps]]\nkind = 'copy-folder'\n[[steps.folders]]\nsource = 'plain'\n"
                 "target = '/p'\n");

    ASSERT_EQ(layout.steps.size(), 5U);
    EXPECT_EQ(StepsFrom(layout, 0).item->DestinationPath, "/t.kx-fast.tar");
    const TwoSteps second = StepsFrom(layout, 2);
    EXPECT_EQ(second.item->DestinationPath, "/tmp/o.tar");
    EXPECT_FALSE(second.script->CanSkip);
    EXPECT_THAT(ArchiveOf(layout, 1), ElementsAre("b 420 2"));
    std::vector<std::string> names;
    for (const archive::ArchiveItem& item : layout.payload) {
        names.push_back(item.name);
    }
    EXPECT_THAT(names, ElementsAre("0/0/files.tar", "2/0/files.tar", "4/0/c"));
    ASSERT_EQ(layout.origins.size(), 5U);
    EXPECT_EQ(layout.origins[2][0].target, m_dir / "package.toml:19:11");
    EXPECT_EQ(layout.steps[3].installWhere, m_dir / "package.toml:17:10");
}

TEST_F(FastLayouts, ShowTheirFilesAsThoseOfThePackage)
{
    m_dir.Write("tree/a", "1");
    m_dir.Write("tree/sub/b", std::string(300000, 'b') + "end");
    m_dir.MakeDir("tree/empty");
    const Layout layout = Make("", "executable = ['a']\n");
    const LayoutPackage package("x.kx-update", true, layout, "");

    const format::FastPackage shown(package);

    std::vector<std::string> told;
    for (const archive::PackageEntry& entry : shown.Entries()) {
        told.push_back(entry.name + " " + std::to_string(entry.mode) + " " +
                       std::to_string(entry.size));
    }
    told.erase(std::remove_if(told.begin(), told.end(),
                              [](const std::string& line) { return line[0] == 'U'; }),
               told.end());
    EXPECT_THAT(told, ElementsAre("0 0 0", "0/0 0 0", "0/0/a 493 1", "0/0/empty 493 0",
                                  "0/0/sub 0 0", "0/0/sub/b 420 300003"));
    EXPECT_EQ(shown.Read("0/0/a", 100), "1");
    EXPECT_EQ(shown.Read("0/0/sub/b", 2), "bb");
    std::string streamed;
    shown.Stream("0/0/sub/b", [&streamed](std::string_view piece) {
        streamed += piece;
        return true;
    });
    EXPECT_EQ(streamed, std::string(300000, 'b') + "end");
    ASSERT_NE(shown.CopiedBy(0), nullptr);
    EXPECT_EQ(shown.CopiedBy(0)->origin, "tree");
    EXPECT_EQ(shown.CopiedBy(1), nullptr);
    EXPECT_EQ(package.SourceOf("0/0/sub/b"), m_dir / "tree/sub/b");
    EXPECT_EQ(shown.Read(archive::kDescriptionName, 3), "\xef\xbb\xbf");
}

TEST_F(FastLayouts, AreTheSameBytesWhateverTheDisk)
{
    m_dir.Write("tree/a", "1", 0600);
    const auto bytesOf = [](const Layout& layout) {
        return LayoutPackage("x.kx-update", true, layout, "").Read("0/0/files.tar", 1U << 20U);
    };
    const std::string before = bytesOf(Make());
    m_dir.Write("tree/a", "1", 0755);

    EXPECT_EQ(bytesOf(Make("", "executable = []\n")), before);
}

TEST_F(FastLayouts, MayHoldNoFiles)
{
    m_dir.MakeDir("tree");

    const Layout layout = Make();

    const TwoSteps steps = StepsFrom(layout, 0);
    EXPECT_THAT(ArchiveOf(layout, 0), IsEmpty());
    EXPECT_TRUE(format::ReadFastScripts(steps.install, steps.uninstall).has_value());
}

TEST_F(FastLayouts, RemoveNothingWhenTheyAreNotRecorded)
{
    m_dir.Write("tree/a", "1");

    const TwoSteps steps = StepsFrom(Make("record = false\n"), 0);

    EXPECT_EQ(steps.uninstall, "#!/bin/sh\n");
    EXPECT_TRUE(format::ReadFastScripts(steps.install, steps.uninstall).has_value());
}

TEST_F(FastLayouts, TakeTheNamesOfThePackage)
{
    m_dir.Write("tree/a", "1");
    m_dir.Write("tree/b", "2");

    EXPECT_THAT(ArchiveOf(Make("", "names = { a = 'z/.a' }\n"), 0),
                ElementsAre("b 420 1", "z/.a 420 1"));
}

TEST_F(FastLayouts, RefuseWhatWouldNotArrive)
{
    m_dir.Write("tree/a", "1");
    m_dir.Write("tree/b", "2");

    EXPECT_EQ(ErrorOf("names = { a = '$x' }\n"),
              "1: DIR/package.toml:14:10: '$x' contains $, which the panel's shell interprets; "
              "rename it");
    EXPECT_EQ(ErrorOf("names = { a = 'b' }\n"),
              "1: DIR/package.toml:14:10: 'b' would be in the archive twice; look at 'names'");
    EXPECT_EQ(ErrorOf("archive = '/t/a'\n"),
              "1: DIR/package.toml:16:11: 'a' in 'tree' would be where the archive is; name "
              "another place with 'archive'");
    EXPECT_EQ(ErrorOf("archive = '/t/c'\nnames = { a = 'c/a' }\n"),
              "1: DIR/package.toml:16:11: 'c/a' in 'tree' would be where the archive is; name "
              "another place with 'archive'");
}

} // namespace kx::tool
