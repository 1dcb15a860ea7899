// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "rehearsal/VirtualPanel.h"
#include "support/TempDir.h"
#include "support/Thrown.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kx::rehearsal
{

using testing::ElementsAre;
using testing::IsEmpty;
using Kind = VirtualPanel::Kind;

namespace
{

constexpr std::uint64_t kLimit = 1000;

VirtualPanel::Bytes Bytes(const std::string& text)
{
    return std::make_shared<const std::string>(text);
}

void Link(const std::string& target, const std::string& path)
{
    ASSERT_EQ(symlink(target.c_str(), path.c_str()), 0);
}

/// Names repeated into a long path: "/name/name".
std::string Repeated(const std::string& name, int times)
{
    std::string path;
    for (int i = 0; i < times; ++i) {
        path += "/" + name;
    }
    return path;
}

// ---- a fresh panel ----

TEST(VirtualPanel, FreshHasWhatEveryPanelHas)
{
    const VirtualPanel panel("");

    EXPECT_EQ(panel.KindOf("/"), Kind::kFolder);
    EXPECT_EQ(panel.KindOf("/mnt/user"), Kind::kFolder);
    EXPECT_EQ(panel.KindOf("/var/lib/"), Kind::kFolder);
    EXPECT_EQ(panel.KindOf("/etc/passwd"), Kind::kFile);
    EXPECT_EQ(panel.KindOf("/bin/unzip"), Kind::kFile) << "behind a link";
    EXPECT_EQ(panel.KindOf("/etc/other"), Kind::kNone);
    EXPECT_EQ(panel.KindOf("/opt/demo"), Kind::kNone);
    EXPECT_THAT(panel.Names("/mnt"), ElementsAre("usb", "user"));
    EXPECT_THAT(panel.Names("/var"), ElementsAre("cache", "lib", "log", "run", "tmp"));
}

TEST(VirtualPanel, NothingIsWhereNoNameIs)
{
    VirtualPanel panel("");

    EXPECT_EQ(panel.KindOf(""), Kind::kNone);
    EXPECT_FALSE(panel.MakeFolder(""));
    EXPECT_FALSE(panel.MakeFile(""));
    EXPECT_FALSE(panel.MakeLink("", "/etc"));
    EXPECT_FALSE(panel.Remove(""));
    ASSERT_TRUE(panel.MakeFile("/opt/a"));
    EXPECT_FALSE(panel.CopyFile("/opt/a", ""));
    EXPECT_FALSE(panel.CopyFile("", "/opt/b"));
}

struct PathCase {
    const char* name;
    const char* path;
    Kind kind;
};

class VirtualPanelPath : public testing::TestWithParam<PathCase>
{
};

TEST_P(VirtualPanelPath, IsFollowedPartByPart)
{
    VirtualPanel panel("");
    ASSERT_TRUE(panel.MakeFolder("/opt/dir"));
    ASSERT_TRUE(panel.MakeFile("/opt/file"));

    EXPECT_EQ(panel.KindOf(GetParam().path), GetParam().kind);
}

INSTANTIATE_TEST_SUITE_P(
    Paths, VirtualPanelPath,
    testing::Values(PathCase{"Doubled", "//opt///dir", Kind::kFolder},
                    PathCase{"Slash", "/opt/dir/", Kind::kFolder},
                    PathCase{"Dots", "/opt/./dir/../file", Kind::kFile},
                    PathCase{"Above", "/../../opt/dir", Kind::kFolder},
                    PathCase{"Relative", "opt/file", Kind::kFile},
                    PathCase{"SlashBehindAFile", "/opt/file/", Kind::kNone},
                    PathCase{"DotBehindAFile", "/opt/file/.", Kind::kNone},
                    PathCase{"DotsBehindAFile", "/opt/file/../dir", Kind::kNone},
                    PathCase{"BelowAFile", "/opt/file/x", Kind::kNone},
                    PathCase{"DotsBehindNothing", "/opt/gone/../dir", Kind::kNone}),
    [](const auto& row) { return row.param.name; });

TEST(VirtualPanel, MakesFoldersWithTheirParents)
{
    VirtualPanel panel("");

    EXPECT_TRUE(panel.MakeFolder("/opt/a/b/c/"));
    EXPECT_TRUE(panel.MakeFolder("/opt/a/b/c"));
    EXPECT_TRUE(panel.MakeFolder("relative/x"));

    EXPECT_EQ(panel.KindOf("/opt/a/b/c"), Kind::kFolder);
    EXPECT_THAT(panel.Names("/opt/a"), ElementsAre("b"));
    EXPECT_EQ(panel.KindOf("/relative/x"), Kind::kFolder);
}

TEST(VirtualPanel, MakesTheFolderBeforeDotsToo)
{
    VirtualPanel panel("");

    EXPECT_TRUE(panel.MakeFolder("/opt/a/../b"));

    EXPECT_THAT(panel.Names("/opt"), ElementsAre("a", "b"));
}

TEST(VirtualPanel, MakesNoFolderThroughAFile)
{
    VirtualPanel panel("");
    ASSERT_TRUE(panel.MakeFile("/opt/file"));

    EXPECT_FALSE(panel.MakeFolder("/opt/file"));
    EXPECT_FALSE(panel.MakeFolder("/opt/file/a"));
}

TEST(VirtualPanel, MakesFilesOnlyInFolders)
{
    VirtualPanel panel("");

    EXPECT_TRUE(panel.MakeFile("/opt/file", Bytes("text")));
    EXPECT_FALSE(panel.MakeFile("/opt/gone/file"));
    EXPECT_FALSE(panel.MakeFile("/opt/file/file"));
    EXPECT_FALSE(panel.MakeFile("/opt/new/"));
    EXPECT_FALSE(panel.MakeFile("/opt"));
    EXPECT_FALSE(panel.MakeFile("/"));
    EXPECT_THAT(panel.Names("/opt"), ElementsAre("file"));
    EXPECT_EQ(*panel.Content("/opt/file", kLimit), "text");
    EXPECT_EQ(panel.SizeOf("/opt/file"), 4U);
    EXPECT_EQ(panel.Content("/opt", kLimit), nullptr);
    EXPECT_EQ(panel.Content("/opt/gone", kLimit), nullptr);
    EXPECT_EQ(panel.SizeOf("/opt"), 0U);
}

TEST(VirtualPanel, TakesPathsOnlyAsLongAsLinuxDoes)
{
    VirtualPanel panel("");
    const std::string folder = "/opt" + Repeated("n", 2044); // 4,092 bytes

    EXPECT_TRUE(panel.MakeFile("/opt/" + std::string(255, 'n')));
    EXPECT_FALSE(panel.MakeFile("/opt/" + std::string(256, 'n')));
    EXPECT_FALSE(panel.MakeFolder("/opt/" + std::string(256, 'n')));
    EXPECT_TRUE(panel.MakeFolder(folder));
    EXPECT_TRUE(panel.MakeFile(folder + "/ab"));
    EXPECT_FALSE(panel.MakeFile(folder + "/abc"));
    EXPECT_EQ(panel.KindOf(folder + "/ab"), Kind::kFile);
}

TEST(VirtualPanel, ListsByByteValueAndNothingFromDeeper)
{
    VirtualPanel panel("");
    for (const char* const name : {"b", "B", "a", "a.b", "a!", "\xff", "\xc3\xa4", "_"}) {
        ASSERT_TRUE(panel.MakeFile(std::string("/home/") + name));
    }
    ASSERT_TRUE(panel.MakeFolder("/home/c/d/e"));
    ASSERT_TRUE(panel.MakeFile("/home/c/f"));
    ASSERT_TRUE(panel.MakeFile("/home/c.f"));
    ASSERT_TRUE(panel.MakeFile("/home/c0"));
    ASSERT_TRUE(panel.MakeFile("/homer"));

    EXPECT_THAT(panel.Names("/home"), ElementsAre("B", "_", "a", "a!", "a.b", "b", "c", "c.f", "c0",
                                                  "user", "\xc3\xa4", "\xff"));
    EXPECT_THAT(panel.Names("/home/c"), ElementsAre("d", "f"));
    EXPECT_THAT(panel.Names("/home/a"), IsEmpty());
    EXPECT_THAT(panel.Names("/gone"), IsEmpty());
}

TEST(VirtualPanel, CopiesOntoAFileIntoAFolderAndNowhereElse)
{
    VirtualPanel panel("");
    ASSERT_TRUE(panel.MakeFile("/tmp/a", Bytes("text")));
    ASSERT_TRUE(panel.MakeFile("/opt/old", Bytes("old")));
    ASSERT_TRUE(panel.MakeFolder("/home/a"));

    EXPECT_TRUE(panel.CopyFile("/tmp/a", "/opt/old"));
    EXPECT_TRUE(panel.CopyFile("/tmp/a", "/opt/new"));
    EXPECT_TRUE(panel.CopyFile("/tmp/a", "/root/"));
    EXPECT_TRUE(panel.CopyFile("/tmp/a", "/"));
    EXPECT_FALSE(panel.CopyFile("/tmp/a", "/home")) << "a folder has the name there";
    EXPECT_FALSE(panel.CopyFile("/tmp/a", "/opt/gone/a"));
    EXPECT_FALSE(panel.CopyFile("/tmp/a", "/opt/old/")) << "a file is no folder";
    EXPECT_FALSE(panel.CopyFile("/tmp/a", "/tmp/a")) << "onto itself";
    EXPECT_FALSE(panel.CopyFile("/tmp/a", "/tmp"));
    EXPECT_FALSE(panel.CopyFile("/tmp/gone", "/opt/x"));
    EXPECT_FALSE(panel.CopyFile("/tmp", "/opt/x")) << "a folder";

    EXPECT_EQ(*panel.Content("/opt/old", kLimit), "text");
    EXPECT_EQ(*panel.Content("/root/a", kLimit), "text");
    EXPECT_EQ(*panel.Content("/a", kLimit), "text");
    EXPECT_THAT(panel.Names("/opt"), ElementsAre("new", "old"));
}

TEST(VirtualPanel, RemovesWithAllBelow)
{
    VirtualPanel panel("");
    ASSERT_TRUE(panel.MakeFolder("/opt/a/b"));
    ASSERT_TRUE(panel.MakeFile("/opt/a/b/c"));
    ASSERT_TRUE(panel.MakeFile("/opt/a.c"));

    EXPECT_TRUE(panel.Remove("/opt/a/"));
    EXPECT_FALSE(panel.Remove("/opt/a"));

    EXPECT_THAT(panel.Names("/opt"), ElementsAre("a.c"));
    EXPECT_EQ(panel.KindOf("/opt/a/b/c"), Kind::kNone);
    EXPECT_TRUE(panel.MakeFolder("/opt/a"));
    EXPECT_THAT(panel.Names("/opt/a"), IsEmpty());
}

TEST(VirtualPanel, RefusesToRemoveWhatRmRefuses)
{
    VirtualPanel panel("");
    ASSERT_TRUE(panel.MakeFolder("/opt/a"));

    for (const char* const path : {"/", "//", "/opt/a/.", "/opt/a/..", "/opt/a/../", "/opt/a/./"}) {
        EXPECT_FALSE(panel.Remove(path)) << path;
    }
    EXPECT_EQ(panel.KindOf("/opt/a"), Kind::kFolder);
}

// ---- links that were made ----

TEST(VirtualPanel, FollowsLinks)
{
    VirtualPanel panel("");
    ASSERT_TRUE(panel.MakeFolder("/opt/dir"));
    ASSERT_TRUE(panel.MakeFile("/opt/dir/file", Bytes("text")));
    ASSERT_TRUE(panel.MakeLink("/opt/up", ".."));
    ASSERT_TRUE(panel.MakeLink("/opt/relative", "dir"));
    ASSERT_TRUE(panel.MakeLink("/opt/absolute", "/opt/dir/file"));
    ASSERT_TRUE(panel.MakeLink("/opt/chain", "relative/file"));

    EXPECT_EQ(panel.KindOf("/opt/up/opt/up/opt/dir"), Kind::kFolder);
    EXPECT_EQ(panel.KindOf("/opt/relative"), Kind::kFolder);
    EXPECT_EQ(panel.KindOf("/opt/absolute"), Kind::kFile);
    EXPECT_EQ(panel.Resolved("/opt/chain"), "/opt/dir/file");
    EXPECT_EQ(*panel.Content("/opt/chain", kLimit), "text");
    EXPECT_EQ(panel.Resolved("/opt/relative/../x"), "/opt/x");
    EXPECT_THAT(panel.Names("/opt/relative"), ElementsAre("file"));
    EXPECT_TRUE(panel.MakeFile("/opt/relative/new"));
    EXPECT_EQ(panel.KindOf("/opt/dir/new"), Kind::kFile);
    EXPECT_FALSE(panel.CopyFile("/opt/chain", "/opt/dir/file")) << "onto itself";
    EXPECT_TRUE(panel.CopyFile("/opt/absolute", "/tmp"));
    EXPECT_THAT(panel.Names("/tmp"), ElementsAre("absolute"));
}

TEST(VirtualPanel, ALinkThatLeadsNowhereIsInTheWay)
{
    VirtualPanel panel("");
    ASSERT_TRUE(panel.MakeLink("/opt/link", "gone"));
    ASSERT_TRUE(panel.MakeFile("/opt/a"));

    EXPECT_EQ(panel.KindOf("/opt/link"), Kind::kNone);
    EXPECT_THAT(panel.Names("/opt"), ElementsAre("a", "link"));
    EXPECT_FALSE(panel.MakeFolder("/opt/link"));
    EXPECT_FALSE(panel.MakeFolder("/opt/link/x"));
    EXPECT_FALSE(panel.CopyFile("/opt/a", "/opt/link")) << "cp does not write through it";
    EXPECT_FALSE(panel.CopyFile("/opt/link", "/opt/b"));
    EXPECT_TRUE(panel.Remove("/opt/link"));
    EXPECT_THAT(panel.Names("/opt"), ElementsAre("a"));
}

TEST(VirtualPanel, FollowsFortyLinksAndNotOneMore)
{
    VirtualPanel panel("");
    ASSERT_TRUE(panel.MakeFolder("/opt/dir"));
    ASSERT_TRUE(panel.MakeLink("/opt/dir/l", "../dir"));
    ASSERT_TRUE(panel.MakeLink("/opt/round", "round"));
    ASSERT_TRUE(panel.MakeLink("/opt/empty", ""));

    EXPECT_EQ(panel.KindOf("/opt/dir" + Repeated("l", 40)), Kind::kFolder);
    EXPECT_EQ(panel.KindOf("/opt/dir" + Repeated("l", 41)), Kind::kNone);
    EXPECT_EQ(panel.KindOf("/opt/round"), Kind::kNone);
    EXPECT_EQ(panel.KindOf("/opt/empty"), Kind::kNone);
    EXPECT_FALSE(panel.MakeFolder("/opt/round"));
}

TEST(VirtualPanel, RemovesALinkAndNotWhatItLeadsTo)
{
    VirtualPanel panel("");
    ASSERT_TRUE(panel.MakeFolder("/opt/dir"));
    ASSERT_TRUE(panel.MakeLink("/opt/link", "dir"));

    EXPECT_TRUE(panel.Remove("/opt/link"));

    EXPECT_THAT(panel.Names("/opt"), ElementsAre("dir"));
}

TEST(VirtualPanel, MakesNoLinkOverAFolder)
{
    VirtualPanel panel("");
    ASSERT_TRUE(panel.MakeFile("/opt/file"));

    EXPECT_FALSE(panel.MakeLink("/opt", "tmp"));
    EXPECT_FALSE(panel.MakeLink("/gone/link", "tmp"));
    EXPECT_TRUE(panel.MakeLink("/opt/file", "/tmp"));
    EXPECT_EQ(panel.KindOf("/opt/file"), Kind::kFolder);
}

// ---- a given panel ----

TEST(VirtualPanelOfARoot, BeginsWithWhatIsThere)
{
    const TempDir root;
    root.Write("etc/motd", "hello");
    root.MakeDir("opt/empty");
    VirtualPanel panel(root.Path());

    EXPECT_EQ(panel.KindOf("/etc/motd"), Kind::kFile);
    EXPECT_EQ(panel.KindOf("/opt/empty"), Kind::kFolder);
    EXPECT_EQ(panel.KindOf("/mnt/usb"), Kind::kNone);
    EXPECT_EQ(*panel.Content("/etc/motd", kLimit), "hello");
    EXPECT_EQ(panel.SizeOf("/etc/motd"), 5U);
    EXPECT_TRUE(panel.MakeFile("/opt/new"));
    EXPECT_TRUE(panel.MakeFile("/etc/motd", Bytes("other")));
    EXPECT_THAT(panel.Names("/"), ElementsAre("etc", "opt"));
    EXPECT_THAT(panel.Names("/opt"), ElementsAre("empty", "new"));
    EXPECT_EQ(*panel.Content("/etc/motd", kLimit), "other");
}

TEST(VirtualPanelOfARoot, IsNeverChanged)
{
    const TempDir root;
    root.Write("opt/a/b", "old");
    const std::vector<std::string> before = root.Tree();
    VirtualPanel panel(root.Path());

    EXPECT_TRUE(panel.CopyFile("/opt/a/b", "/opt/c"));
    EXPECT_TRUE(panel.MakeFolder("/new/folder"));
    EXPECT_TRUE(panel.MakeFile("/opt/a/b", Bytes("new")));
    EXPECT_TRUE(panel.MakeLink("/opt/link", "a"));
    EXPECT_TRUE(panel.Remove("/opt/a"));

    EXPECT_EQ(root.Tree(), before);
}

TEST(VirtualPanelOfARoot, WhatWasRemovedStaysGoneBelowANewFolder)
{
    const TempDir root;
    root.Write("opt/a/b/c", "old");
    VirtualPanel panel(root.Path());

    ASSERT_TRUE(panel.Remove("/opt/a"));
    EXPECT_EQ(panel.KindOf("/opt/a/b/c"), Kind::kNone);
    ASSERT_TRUE(panel.MakeFolder("/opt/a"));

    EXPECT_EQ(panel.KindOf("/opt/a/b"), Kind::kNone);
    EXPECT_THAT(panel.Names("/opt/a"), IsEmpty());
    EXPECT_THAT(panel.Names("/opt"), ElementsAre("a"));
    ASSERT_TRUE(panel.Remove("/opt/a"));
    EXPECT_THAT(panel.Names("/opt"), IsEmpty());
    EXPECT_TRUE(panel.MakeFolder("/opt/a"));
    EXPECT_TRUE(panel.MakeFile("/opt/a/b"));
    EXPECT_EQ(panel.KindOf("/opt/a/b/c"), Kind::kNone);
}

TEST(VirtualPanelOfARoot, ItsLinksAreItsOwnAndNeverLeadOut)
{
    const TempDir outside;
    outside.Write("secret", "s");
    const TempDir root;
    root.Write("usr/bin/tool", "t");
    root.MakeDir("deep/folder");
    Link("usr/bin", root / "bin");
    Link("/usr", root / "absolute");
    Link(outside.Path(), root / "away");
    Link(outside / "secret", root / "file");
    Link("../../../../../.." + outside.Path(), root / "deep/up");
    VirtualPanel panel(root.Path());

    EXPECT_EQ(panel.KindOf("/bin/tool"), Kind::kFile);
    EXPECT_EQ(panel.KindOf("/absolute/bin/tool"), Kind::kFile);
    EXPECT_EQ(panel.KindOf("/away/secret"), Kind::kNone);
    EXPECT_EQ(panel.KindOf("/file"), Kind::kNone);
    EXPECT_EQ(panel.KindOf("/deep/up/secret"), Kind::kNone);
    EXPECT_EQ(panel.KindOf("/.." + outside.Path()), Kind::kNone);
    EXPECT_EQ(panel.Content("/file", kLimit), nullptr);
    EXPECT_THAT(panel.Names("/away"), IsEmpty());
}

TEST(VirtualPanelOfARoot, OneThingByTwoPathsIsOneThing)
{
    const TempDir root;
    root.MakeDir("usr/bin");
    Link("usr/bin", root / "bin");
    VirtualPanel panel(root.Path());

    ASSERT_TRUE(panel.MakeFile("/bin/new", Bytes("n")));
    EXPECT_EQ(panel.KindOf("/usr/bin/new"), Kind::kFile);
    EXPECT_FALSE(panel.CopyFile("/usr/bin/new", "/bin/new"));
    ASSERT_TRUE(panel.Remove("/usr/bin/new"));
    EXPECT_EQ(panel.KindOf("/bin/new"), Kind::kNone);
    ASSERT_TRUE(panel.Remove("/bin"));
    EXPECT_EQ(panel.KindOf("/usr/bin"), Kind::kFolder);
    EXPECT_EQ(panel.KindOf("/bin/new"), Kind::kNone);
}

TEST(VirtualPanelOfARoot, DoesNotWaitForAFifo)
{
    const TempDir root;
    ASSERT_EQ(mkfifo((root / "fifo").c_str(), 0600), 0);
    const VirtualPanel panel(root.Path());

    EXPECT_EQ(panel.KindOf("/fifo"), Kind::kFile);
    EXPECT_EQ(panel.SizeOf("/fifo"), 0U);
    EXPECT_EQ(panel.Content("/fifo", kLimit), nullptr);
}

TEST(VirtualPanelOfARoot, ReadsNoMoreThanWanted)
{
    const TempDir root;
    root.Write("huge", "x");
    ASSERT_EQ(truncate((root / "huge").c_str(), off_t{1} << 40), 0);
    VirtualPanel panel(root.Path());

    EXPECT_EQ(panel.SizeOf("/huge"), std::uint64_t{1} << 40U);
    EXPECT_TRUE(panel.CopyFile("/huge", "/copy"));
    EXPECT_EQ(Thrown([&panel] { static_cast<void>(panel.Content("/huge", kLimit)); }),
              "3: " + root / "huge" + ": is larger than 1000 bytes");
}

TEST(VirtualPanelOfARoot, WhatCannotBeLookedAtIsAnError)
{
    const TempDir root;
    root.Write("many/file", "x");
    const VirtualPanel panel(root.Path());
    rlimit before = {};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
    const rlimit none = {3, before.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);

    const std::string looked = Thrown([&panel] { static_cast<void>(panel.KindOf("/many")); });
    const std::string made = Thrown([&root] { const VirtualPanel other(root.Path()); });

    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
    EXPECT_EQ(looked, "3: " + root / "many" + ": cannot look at: Too many open files");
    EXPECT_EQ(made, "3: " + root.Path() + ": cannot open: Too many open files");
    EXPECT_EQ(panel.KindOf("/many/file"), Kind::kFile);
}

TEST(VirtualPanelOfARoot, MustBeAFolder)
{
    const TempDir root;
    root.Write("file", "");

    EXPECT_EQ(Thrown([&root] { const VirtualPanel panel(root / "file"); }),
              "1: " + root / "file" + ": cannot open: Not a directory");
}

TEST(VirtualPanelOfARoot, IsLookedAtOnce)
{
    const TempDir root;
    root.Write("opt/file", "x");
    const VirtualPanel panel(root.Path());
    ASSERT_EQ(panel.KindOf("/opt/file"), Kind::kFile);
    const std::uint64_t first = panel.Effort();

    ASSERT_EQ(panel.KindOf("/opt/file"), Kind::kFile);

    EXPECT_LT(panel.Effort() - first, first / 4);
}

} // namespace

} // namespace kx::rehearsal
