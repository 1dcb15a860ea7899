// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "compose/Layout.h"
#include "kx-package/manifest/Manifests.h"
#include "model/DB_FunctionDatas.h"
#include "model/DB_StepSets.h"
#include "support/ElfOf.h"
#include "support/Emulated.h"
#include "support/TempDir.h"
#include "support/Thrown.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

namespace kx::tool
{

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace
{

/// "name < source" for files, with a star for programs; "name" for folders.
std::vector<std::string> PayloadOf(const Layout& layout, const TempDir& dir)
{
    std::vector<std::string> told;
    for (const archive::ArchiveItem& item : layout.payload) {
        std::string source = item.source;
        source.erase(0, std::min(source.size(), dir.Path().size() + 1));
        told.push_back(item.isFolder ? item.name
                                     : item.name + (item.isExecutable ? "* < " : " < ") + source);
    }
    return told;
}

/// "source > target mode" of all items of all copy steps.
std::vector<std::string> ItemsOf(const Layout& layout)
{
    std::vector<std::string> told;
    const auto* const steps = ObjectAs<DB_StepSets>(layout.model->root.DB_StepSets);
    for (int i = 0; i < steps->count; ++i) {
        if (const auto* const step = ObjectAs<DB_CopyStepSet>(steps->ElementAt(i))) {
            const auto* const items = ObjectAs<DB_CopyFunctionDatas>(step->PathSetDatas);
            for (int j = 0; j < items->count; ++j) {
                const auto* const item = ObjectAs<DB_CopyFunctionData>(items->ElementAt(j));
                told.push_back(item->SourcePath + " > " + item->DestinationPath + " " +
                               item->Permissions);
            }
        }
    }
    return told;
}

/// "file:line:column: what" of all remarks.
std::vector<std::string> RemarksOf(const Layout& layout)
{
    std::vector<std::string> told;
    for (const Remark& remark : layout.remarks) {
        told.push_back(remark.where + ": " + remark.what);
    }
    return told;
}

std::string CopyFiles(const std::string& source, const std::string& target)
{
    return std::string(kIdentity) +
           "[[steps]]\nkind = \"copy-files\"\n[[steps.files]]\nsource = '" + source +
           "'\ntarget = '" + target + "'\n";
}

std::string CopyFolder(const std::string& source, const std::string& more = "")
{
    return std::string(kIdentity) +
           "[[steps]]\nkind = \"copy-folder\"\n[[steps.folders]]\nsource = '" + source +
           "'\ntarget = '/t'\n" + more;
}

} // namespace

class Layouts : public ::testing::Test
{
protected:
    [[nodiscard]] Layout Make(const std::string& manifest, const std::string& output = "") const
    {
        m_dir.Write("package.toml", manifest);
        return MakeLayout(ReadManifest(m_dir.Path()), output);
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

    TempDir m_dir;
};

TEST_F(Layouts, PutsPayloadUnderTheNumbersOfStepsAndItems)
{
    WriteEverything(m_dir);

    const Layout layout = MakeLayout(ReadManifest(m_dir.Path()), "");

    EXPECT_THAT(PayloadOf(layout, m_dir),
                ElementsAre("0/0/hello* < bin/hello", "0/1/hello < bin/hello",
                            "0/2/b.conf < etc/b.conf", "0/3/a.conf < etc/deep/a.conf",
                            "1/0/bin/run* < share/bin/run", "1/0/empty/",
                            "1/0/text.txt < share/text.txt", "1/1/"));
    EXPECT_THAT(ItemsOf(layout), ElementsAre("bin/hello > /mnt/user/bin/greet 4755",
                                             "bin/hello > /mnt/user/bin/hello 644",
                                             "etc/b.conf > /etc/demo/b.conf 600",
                                             "etc/deep/a.conf > /etc/demo/deep/a.conf 600",
                                             "share > /mnt/user/share ", "none > / "));
    EXPECT_THAT(RemarksOf(layout), IsEmpty());
}

TEST_F(Layouts, PacksAsProgramsWhatAnybodyMayExecute)
{
    m_dir.Write("bin/hello", "#!/bin/sh\n");
    const auto payloadOf = [this](const std::string& mode) {
        return PayloadOf(Make(CopyFiles("bin/hello", "/t") + "mode = \"" + mode + "\"\n"), m_dir);
    };

    for (const char* const mode : {"100", "010", "001", "755", "0755", "4111"}) {
        EXPECT_THAT(payloadOf(mode), ElementsAre("0/0/hello* < bin/hello")) << mode;
    }
    // The digit before the three has other bits.
    for (const char* const mode : {"666", "000", "0644", "1644", "7666"}) {
        EXPECT_THAT(payloadOf(mode), ElementsAre("0/0/hello < bin/hello")) << mode;
    }
}

TEST_F(Layouts, KeepsTheFoldersBehindTheLastPartWithoutAWildcard)
{
    m_dir.Write("data/a/x.conf", "");
    m_dir.Write("data/b/x.conf", "");

    EXPECT_THAT(ItemsOf(Make(CopyFiles("data/*/x.conf", "/t/"))),
                ElementsAre("data/a/x.conf > /t/a/x.conf 644", "data/b/x.conf > /t/b/x.conf 644"));
}

TEST_F(Layouts, TakesFilesFromOutsideTheFolder)
{
    m_dir.Write("outside/x", "");
    m_dir.Write("in/package.toml", CopyFiles("../outside/*", "/t/"));
    EXPECT_THAT(ItemsOf(MakeLayout(ReadManifest(m_dir / "in"), "")),
                ElementsAre("../outside/x > /t/x 644"));

    m_dir.Write("in/package.toml", CopyFiles(m_dir / "outside/x", "/t/y"));
    EXPECT_THAT(ItemsOf(MakeLayout(ReadManifest(m_dir / "in"), "")),
                ElementsAre((m_dir / "outside/x") + " > /t/y 644"));
}

TEST_F(Layouts, TakeNoFoldersForAPatternOfFiles)
{
    m_dir.Write("data/x", "");
    m_dir.Write("data/deep/y", "");

    EXPECT_THAT(ItemsOf(Make(CopyFiles("data/*", "/t/"))), ElementsAre("data/x > /t/x 644"));
}

TEST_F(Layouts, TakeFilesBelowTheRootByAPattern)
{
    if (IsEmulated()) {
        GTEST_SKIP() << "an emulator shows other files in the root folder";
    }
    EXPECT_THAT(ItemsOf(Make(CopyFiles("/et?/passwd", "/t/"))),
                ElementsAre("/etc/passwd > /t/etc/passwd 644"));
}

TEST_F(Layouts, NeverTakesThePackageItselfIn)
{
    m_dir.Write("out/demo.kx-update", "an older one");
    m_dir.Write("out/x", "");

    EXPECT_THAT(PayloadOf(Make(CopyFiles("out/*", "/t/"), m_dir / "out/demo.kx-update"), m_dir),
                ElementsAre("0/0/x < out/x"));
    EXPECT_THAT(PayloadOf(Make(CopyFolder("out"), m_dir / "out/demo.kx-update"), m_dir),
                ElementsAre("0/0/x < out/x"));
}

TEST_F(Layouts, KeepsFoldersWhoseNamesSortBetweenAnothersAndItsFiles)
{
    m_dir.Write("share/a/x", "");
    m_dir.MakeDir("share/a-b");

    EXPECT_THAT(PayloadOf(Make(CopyFolder("share")), m_dir),
                ElementsAre("0/0/a-b/", "0/0/a/x < share/a/x"));
}

TEST_F(Layouts, KeepOneFormOfAFoldersTarget)
{
    m_dir.MakeDir("share");
    const auto targetOf = [this](const std::string& written) {
        std::string manifest = CopyFolder("share");
        return ItemsOf(Make(manifest.replace(manifest.find("/t"), 2, written)));
    };

    EXPECT_THAT(targetOf("/t/"), ElementsAre("share > /t "));
    EXPECT_THAT(targetOf("/t///"), ElementsAre("share > /t "));
    EXPECT_THAT(targetOf("//"), ElementsAre("share > / "));
}

TEST_F(Layouts, RemarksOnProgramsThatWouldNotBeExecutable)
{
    m_dir.Write("share/run", "#!/bin/sh\n");
    m_dir.Write("share/elf", "\x7f"
                             "ELF\1\1");
    m_dir.Write("share/text", "#");

    m_dir.Write("share/libfoo.so", ElfOf().Bytes());
    m_dir.Write("share/program", ArmProgram().Bytes());

    const std::string what = " looks like a program, but no pattern of 'executable' matches it; it "
                             "will not be executable";
    EXPECT_THAT(RemarksOf(Make(CopyFolder("share"))),
                ElementsAre(m_dir / "package.toml:13:10: elf" + what,
                            m_dir / "package.toml:13:10: program" + what,
                            m_dir / "package.toml:13:10: run" + what));
    EXPECT_THAT(RemarksOf(Make(CopyFolder("share", "executable = ['*']"))), IsEmpty());
}

TEST_F(Layouts, RemarksOnPatternsThatKeepNothingOut)
{
    m_dir.Write("share/a/x.orig", "");
    m_dir.Write("share/.git/config", "");
    m_dir.Write("share/y", "");

    EXPECT_THAT(RemarksOf(Make(CopyFolder("share", "exclude = ['**/*.orig', '.git', '*.bak']"))),
                ElementsAre(m_dir / "package.toml:15:11: nothing in 'share' matches '*.bak' of "
                                    "'exclude'"));
}

TEST_F(Layouts, TellAllMistakesAndLeaveOutWhatIsWrong)
{
    m_dir.Write("share/a", "");
    m_dir.Write("good", "");
    m_dir.Write("dir/a$b", "");
    m_dir.Write("dir/a", "");
    m_dir.Write(
        "package.toml",
        std::string(kIdentity) +
            "[[steps]]\nkind = 'copy-files'\nfiles = [{ source = 'none', target = '/n' },\n"
            " { source = 'good', target = '/g' }]\n"
            "[[steps]]\nkind = 'copy-folder'\nfolders = [{ source = 'dir', target = '/d' },\n"
            " { source = 'share', target = '/s' }, { source = 'nope', target = '/p' }]\n");
    Mistakes mistakes;

    const Layout layout = MakeLayout(ReadManifest(m_dir.Path()), "", mistakes);

    EXPECT_THAT(PayloadOf(layout, m_dir), ElementsAre("0/0/good < good", "1/0/a < share/a"));
    ASSERT_EQ(mistakes.All().size(), 3U);
    EXPECT_EQ(mistakes.All()[0].Line(), m_dir / "package.toml:12:21: there is no file 'none'");
    EXPECT_EQ(mistakes.All()[2].Line(), m_dir / "package.toml:17:50: there is no folder 'nope'");
    ASSERT_EQ(layout.origins.size(), 2U);
    ASSERT_EQ(layout.origins[0].size(), 1U);
    EXPECT_EQ(layout.origins[0][0].source, m_dir / "package.toml:13:13");
    EXPECT_EQ(layout.origins[0][0].target, m_dir / "package.toml:13:30");
    ASSERT_EQ(layout.origins[1].size(), 1U);
    EXPECT_EQ(layout.origins[1][0].source, m_dir / "package.toml:17:13");
    EXPECT_EQ(Thrown([&] { static_cast<void>(MakeLayout(ReadManifest(m_dir.Path()), "")); }),
              "1: " + mistakes.All()[0].Line());
}

TEST_F(Layouts, SayWhatIsNotThere)
{
    m_dir.MakeDir("empty");
    EXPECT_EQ(Refused(CopyFiles("none", "/t")),
              "1: DIR/package.toml:13:10: there is no file 'none'");
    EXPECT_EQ(Refused(CopyFiles("empty", "/t")),
              "1: DIR/package.toml:13:10: 'empty' is not a file; copy a folder in a step of kind "
              "copy-folder");
    EXPECT_EQ(Refused(CopyFiles("none/*", "/t/")),
              "1: DIR/package.toml:13:10: there is no folder 'none'");
    EXPECT_EQ(Refused(CopyFiles("empty/*", "/t/")),
              "1: DIR/package.toml:13:10: no file matches 'empty/*'; folders and names with a "
              "leading dot do not count; '**' goes deeper");
    EXPECT_EQ(Refused(CopyFolder("none")), "1: DIR/package.toml:13:10: there is no folder 'none'");
    EXPECT_EQ(Refused(CopyFolder("empty", "executable = ['x']")),
              "1: DIR/package.toml:13:10: no file in 'empty' matches 'x' of 'executable'; patterns "
              "begin below the folder; '**' goes deeper");
}

TEST_F(Layouts, WantAFolderAsTargetOfAPattern)
{
    m_dir.Write("x", "");

    EXPECT_EQ(Refused(CopyFiles("*", "/t")),
              "1: DIR/package.toml:13:10: the target of a pattern must be a folder; write "
              "\"/t/\"");
}

TEST_F(Layouts, RefuseNamesThatWouldNotArrive)
{
    const std::string x = m_dir.Write("a/x$y", "");
    EXPECT_EQ(Refused(CopyFiles("a/*", "/t/")),
              "1: DIR/package.toml:13:10: DIR/a/x$y: the name contains $, which the panel's shell "
              "interprets; rename it");
    EXPECT_EQ(Refused(CopyFolder("a")), "1: DIR/package.toml:13:10: DIR/a/x$y: the name contains "
                                        "$, which the panel's shell interprets; rename it");

    std::filesystem::rename(x, m_dir / "a/x\xff");
    EXPECT_EQ(Refused(CopyFolder("a")),
              "1: DIR/package.toml:13:10: DIR/a/x\xff: the name is not UTF-8; rename it");

    std::filesystem::rename(m_dir / "a/x\xff", m_dir / "a/x:y");
    EXPECT_EQ(Refused(CopyFiles("a/x:y", "/t")),
              "1: DIR/package.toml:13:10: DIR/a/x:y: the name contains ':', and the panel drops "
              "what is before it; rename it, or copy its folder in a step of kind copy-folder");
    EXPECT_EQ(Refused(CopyFolder("a")), "nothing thrown");
}

} // namespace kx::tool
