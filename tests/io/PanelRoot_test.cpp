// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "io/PanelRoot.h"
#include "registry/Panel.h"
#include "support/Thrown.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <filesystem>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kx::io
{

using Kind = PanelRoot::Kind;

namespace
{

/// "file 6", "missing: reason", …
std::string Seen(const registry::Panel& panel, const std::string& path)
{
    const PanelRoot::Place place = PanelRoot(panel.Root()).Look(path);
    switch (place.kind) {
    case Kind::kFile:
        return "file " + std::to_string(place.size);
    case Kind::kFolder:
        return "folder";
    case Kind::kOther:
        return "other";
    case Kind::kMissing:
        return "missing " + std::to_string(place.error);
    case Kind::kUnknown:
        break;
    }
    return "unknown " + std::to_string(place.error);
}

const std::string kNotThere = "missing " + std::to_string(ENOENT);

std::string ReadAll(const Descriptor& file)
{
    std::array<char, 100> text{};
    const ssize_t length = read(file.Number(), text.data(), text.size());
    return length < 0 ? "cannot be read"
                      : std::string(text.data(), static_cast<std::size_t>(length));
}

TEST(PanelRoot, TellsFilesFoldersAndOthers)
{
    const registry::Panel panel;
    ASSERT_EQ(mkfifo((panel.Root() + "/pipe").c_str(), 0600), 0);

    EXPECT_EQ(Seen(panel, "/mnt/user/bin/hello"), "file 5");
    EXPECT_EQ(Seen(panel, "/mnt/user/bin"), "folder");
    EXPECT_EQ(Seen(panel, "/mnt/user/bin/"), "folder");
    EXPECT_EQ(Seen(panel, "//mnt/./user///bin/../bin/hello"), "file 5");
    EXPECT_EQ(Seen(panel, "/pipe"), "other");
    EXPECT_EQ(Seen(panel, "/"), "folder");
    EXPECT_EQ(Seen(panel, ""), "folder");
    EXPECT_EQ(Seen(panel, "/mnt/none"), kNotThere);
    EXPECT_EQ(Seen(panel, "/none/none"), kNotThere);
    EXPECT_EQ(Seen(panel, "/mnt/user/bin/hello/x"), "missing " + std::to_string(ENOTDIR));
    EXPECT_EQ(Seen(panel, "/mnt/user/bin/hello/.."), "missing " + std::to_string(ENOTDIR));
}

TEST(PanelRoot, NeverLeavesTheFolder)
{
    const registry::Panel panel;
    panel.Link("/out", panel.Outside());
    panel.Link("/up", "../outside/secret");
    panel.Link("/far", "../../../../../../../../../../etc/passwd");
    panel.Link("/root", "/");

    EXPECT_EQ(Seen(panel, "/../outside/secret"), kNotThere);
    EXPECT_EQ(Seen(panel, "/mnt/../../outside/secret"), kNotThere);
    EXPECT_EQ(Seen(panel, "/out/secret"), kNotThere);
    EXPECT_EQ(Seen(panel, "/up"), kNotThere);
    EXPECT_EQ(Seen(panel, "/far"), kNotThere);
    EXPECT_EQ(Seen(panel, "/root/../../outside/secret"), kNotThere);
    EXPECT_EQ(Seen(panel, "/root/mnt/user/bin/hello"), "file 5");
    EXPECT_EQ(Seen(panel, "/.."), "folder");
}

TEST(PanelRoot, FollowsLinksAsThePanelDoes)
{
    const registry::Panel panel;
    panel.Link("/opt", "/mnt/user");
    panel.Link("/mnt/relative", "user/bin/hello");
    panel.Link("/mnt/user/back", "../user/bin/");
    panel.Link("/chain", "/opt/back/../../relative");
    panel.Link("/nowhere", "/none");
    panel.Link("/loop", "/loop");
    panel.Link("/deep/a", "/deep/b/x");
    panel.Link("/deep/b", "/deep/a/x");

    EXPECT_EQ(Seen(panel, "/opt/bin/hello"), "file 5");
    EXPECT_EQ(Seen(panel, "/mnt/relative"), "file 5");
    EXPECT_EQ(Seen(panel, "/mnt/user/back/hello"), "file 5");
    EXPECT_EQ(Seen(panel, "/mnt/user/back"), "folder");
    // ".." of a link to a folder is the folder above where it leads.
    EXPECT_EQ(Seen(panel, "/opt/back/../back/hello"), "file 5");
    EXPECT_EQ(Seen(panel, "/nowhere"), kNotThere);
    EXPECT_EQ(Seen(panel, "/chain"), "file 5");
    EXPECT_EQ(Seen(panel, "/loop"), "missing " + std::to_string(ELOOP));
    EXPECT_EQ(Seen(panel, "/deep/a"), "missing " + std::to_string(ELOOP));
}

TEST(PanelRoot, TakesNamesOfAnyBytesAndLength)
{
    const registry::Panel panel;
    panel.Write("/odd/two words \"$`\\'", "1");
    panel.Write("/odd/\xff\x01\n", "22");

    EXPECT_EQ(Seen(panel, "/odd/two words \"$`\\'"), "file 1");
    EXPECT_EQ(Seen(panel, "/odd/\xff\x01\n"), "file 2");
    EXPECT_EQ(Seen(panel, "/" + std::string(300, 'x')), "missing " + std::to_string(ENAMETOOLONG));
    EXPECT_EQ(Seen(panel, std::string("/mnt\0/user", 10)), kNotThere);
    std::string deep;
    for (int i = 0; i < 2000; ++i) {
        deep += "/mnt/..";
    }
    EXPECT_EQ(Seen(panel, deep + "/mnt/user/bin/hello"), "file 5");
}

TEST(PanelRoot, ClosesWhatItOpens)
{
    const registry::Panel panel;
    panel.Link("/opt", "/mnt/user");
    const PanelRoot root(panel.Root());
    const int before = dup(0);
    close(before);
    for (const char* path : {"/opt/bin/hello", "/none", "/mnt/../../x", "/mnt/user/bin/hello/x"}) {
        static_cast<void>(root.Look(path));
    }
    static_cast<void>(root.Open("/opt/bin/hello", Kind::kFile));

    const int after = dup(0);
    close(after);
    EXPECT_EQ(after, before);
}

TEST(PanelRoot, OpensWhatIsOfTheRightKind)
{
    const registry::Panel panel;
    panel.Link("/link", "/mnt/user/bin/hello");
    panel.Link("/out", panel.Outside() + "/secret");
    ASSERT_EQ(mkfifo((panel.Root() + "/pipe").c_str(), 0600), 0);
    const PanelRoot root(panel.Root());

    EXPECT_EQ(ReadAll(root.Open("/link", Kind::kFile)), "hello");
    EXPECT_TRUE(root.Open("/mnt", Kind::kFolder).IsOpen());
    EXPECT_EQ(Thrown([&] { static_cast<void>(root.Open("/mnt", Kind::kFile)); }),
              "3: " + panel.Root() + "/mnt: is no file");
    EXPECT_EQ(Thrown([&] { static_cast<void>(root.Open("/link", Kind::kFolder)); }),
              "3: " + panel.Root() + "/link: is no folder");
    EXPECT_EQ(Thrown([&] { static_cast<void>(root.Open("/pipe", Kind::kFile)); }),
              "3: " + panel.Root() + "/pipe: is no file");
    EXPECT_EQ(Thrown([&] { static_cast<void>(root.Open("/out", Kind::kFile)); }),
              "3: " + panel.Root() + "/out: cannot open: No such file or directory");
}

TEST(PanelRoot, RefusesWhatIsNoFolder)
{
    const registry::Panel panel;

    EXPECT_EQ(Thrown([&] { const PanelRoot root(panel.Root() + "/none"); }),
              "3: " + panel.Root() + "/none: cannot open: No such file or directory");
    EXPECT_EQ(Thrown([&] { const PanelRoot root(panel.Root() + "/mnt/user/bin/hello"); }),
              "3: " + panel.Root() + "/mnt/user/bin/hello: cannot open: Not a directory");
    EXPECT_EQ(Thrown([] { const PanelRoot root(""); }), "2: --root: names no folder");
}

TEST(PanelRoot, ShowsPathsWithTheFolderInFront)
{
    const registry::Panel panel;

    EXPECT_EQ(PanelRoot("/").Shown("/var"), "/var");
    EXPECT_EQ(PanelRoot(panel.Root() + "//").Shown("/var"), panel.Root() + "/var");
    EXPECT_EQ(PanelRoot(panel.Root() + "//").Folder(), panel.Root() + "//");
}

} // namespace

} // namespace kx::io
