// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "io/Faults.h"
#include "io/RootedFolder.h"
#include "io/Transfer.h"
#include "registry/Panel.h"
#include "support/Thrown.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace kx::io
{

using ::testing::UnorderedElementsAre;
using Kind = RootedFolder::Kind;

namespace
{

/// "file 6", "missing: reason", …
std::string Told(const RootedFolder::Standing& standing)
{
    switch (standing.kind) {
    case Kind::kFile:
        return "file " + std::to_string(standing.size);
    case Kind::kFolder:
        return "folder";
    case Kind::kOther:
        return standing.target.empty() ? "other" : "link to " + standing.target;
    case Kind::kMissing:
        return "missing " + std::to_string(standing.error);
    case Kind::kUnknown:
        break;
    }
    return "unknown " + std::to_string(standing.error);
}

const std::string kNotThere = "missing " + std::to_string(ENOENT);

/// Tells whether the kernel, or what stands for one, has the call that looks names up below a
/// folder.
bool KernelLooksUp()
{
    return syscall(SYS_openat2, AT_FDCWD, "", nullptr, 0) == 0 || errno != ENOSYS;
}

constexpr const char* kNoCall = "there is no openat2 here";

} // namespace

/// Everything is looked at both ways.
class RootedFolders : public ::testing::TestWithParam<RootedFolder::Way>
{
protected:
    void SetUp() override
    {
        if (GetParam() == RootedFolder::Way::kKernel && !KernelLooksUp()) {
            GTEST_SKIP() << kNoCall;
        }
    }

    [[nodiscard]] std::string Seen(const std::string& path) const
    {
        return Told(Opened().Look(path));
    }

    [[nodiscard]] std::string SeenItself(const std::string& path) const
    {
        return Told(Opened().LookAtLink(path));
    }

    [[nodiscard]] RootedFolder Opened() const { return RootedFolder(m_panel.Root(), GetParam()); }

    registry::Panel m_panel;
};

INSTANTIATE_TEST_SUITE_P(Ways, RootedFolders,
                         ::testing::Values(RootedFolder::Way::kKernel, RootedFolder::Way::kWalk),
                         [](const auto& param) {
                             return param.param == RootedFolder::Way::kKernel ? "ByTheKernel"
                                                                              : "NameByName";
                         });

TEST_P(RootedFolders, TellsFilesFoldersAndOthers)
{
    ASSERT_EQ(mkfifo((m_panel.Root() + "/pipe").c_str(), 0600), 0);

    EXPECT_EQ(Seen("/mnt/user/bin/hello"), "file 5");
    EXPECT_EQ(Seen("/mnt/user/bin"), "folder");
    EXPECT_EQ(Seen("/mnt/user/bin/"), "folder");
    EXPECT_EQ(Seen("//mnt/./user///bin/../bin/hello"), "file 5");
    EXPECT_EQ(Seen("/pipe"), "other");
    EXPECT_EQ(Seen("/"), "folder");
    EXPECT_EQ(Seen(""), "folder");
    EXPECT_EQ(Seen("/mnt/none"), kNotThere);
    EXPECT_EQ(Seen("/none/none"), kNotThere);
    EXPECT_EQ(Seen("/mnt/user/bin/hello/x"), "missing " + std::to_string(ENOTDIR));
    EXPECT_EQ(Seen("/mnt/user/bin/hello/.."), "missing " + std::to_string(ENOTDIR));
}

TEST_P(RootedFolders, NeverLeavesTheFolder)
{
    m_panel.Link("/out", m_panel.Outside());
    m_panel.Link("/up", "../outside/secret");
    m_panel.Link("/far", "../../../../../../../../../../etc/passwd");
    m_panel.Link("/root", "/");

    EXPECT_EQ(Seen("/../outside/secret"), kNotThere);
    EXPECT_EQ(Seen("/mnt/../../outside/secret"), kNotThere);
    EXPECT_EQ(Seen("/out/secret"), kNotThere);
    EXPECT_EQ(Seen("/up"), kNotThere);
    EXPECT_EQ(Seen("/far"), kNotThere);
    EXPECT_EQ(Seen("/root/../../outside/secret"), kNotThere);
    EXPECT_EQ(Seen("/root/mnt/user/bin/hello"), "file 5");
    EXPECT_EQ(Seen("/.."), "folder");
}

TEST_P(RootedFolders, FollowsLinksAsThePanelDoes)
{
    m_panel.Link("/opt", "/mnt/user");
    m_panel.Link("/mnt/relative", "user/bin/hello");
    m_panel.Link("/mnt/user/back", "../user/bin/");
    m_panel.Link("/chain", "/opt/back/../../relative");
    m_panel.Link("/nowhere", "/none");
    m_panel.Link("/loop", "/loop");
    m_panel.Link("/deep/a", "/deep/b/x");
    m_panel.Link("/deep/b", "/deep/a/x");

    EXPECT_EQ(Seen("/opt/bin/hello"), "file 5");
    EXPECT_EQ(Seen("/mnt/relative"), "file 5");
    EXPECT_EQ(Seen("/mnt/user/back/hello"), "file 5");
    EXPECT_EQ(Seen("/mnt/user/back"), "folder");
    // ".." of a link to a folder is the folder above where it leads.
    EXPECT_EQ(Seen("/opt/back/../back/hello"), "file 5");
    EXPECT_EQ(Seen("/nowhere"), kNotThere);
    EXPECT_EQ(Seen("/chain"), "file 5");
    EXPECT_EQ(Seen("/loop"), "missing " + std::to_string(ELOOP));
    EXPECT_EQ(Seen("/deep/a"), "missing " + std::to_string(ELOOP));
}

TEST_P(RootedFolders, FollowFortyLinksAndNoMore)
{
    m_panel.Link("/1", "/mnt/user/bin/hello");
    for (int i = 2; i <= 41; ++i) {
        m_panel.Link("/" + std::to_string(i), std::to_string(i - 1));
    }

    EXPECT_EQ(Seen("/40"), "file 5");
    EXPECT_EQ(Seen("/41"), "missing " + std::to_string(ELOOP));
    EXPECT_EQ(SeenItself("/41"), "link to 40");
}

TEST_P(RootedFolders, TakeALinkThatEndsInASlashForAFolders)
{
    m_panel.Link("/folder", "mnt/user//");
    m_panel.Link("/file", "mnt/user/bin/hello/");
    m_panel.Link("/dot", "mnt/user/bin/hello/.");

    EXPECT_EQ(Seen("/folder"), "folder");
    EXPECT_EQ(Seen("/file"), "missing " + std::to_string(ENOTDIR));
    EXPECT_EQ(Seen("/dot"), "missing " + std::to_string(ENOTDIR));
}

TEST_P(RootedFolders, LookAtALinkItself)
{
    m_panel.Link("/opt", "/mnt/user");
    m_panel.Link("/mnt/user/nowhere", "../none");

    EXPECT_EQ(SeenItself("/opt"), "link to /mnt/user");
    EXPECT_EQ(SeenItself("/opt/"), "link to /mnt/user");
    EXPECT_EQ(SeenItself("/opt/nowhere"), "link to ../none");
    EXPECT_EQ(SeenItself("/opt/bin/hello"), "file 5");
    EXPECT_EQ(SeenItself("/opt/bin/."), "folder");
    EXPECT_EQ(SeenItself("/opt/none"), kNotThere);
}

TEST_P(RootedFolders, TellWhatCannotBeLookedAt)
{
    const RootedFolder root = Opened();
    const Faults byKernel(Call::kOpenInRoot, EACCES);
    const Faults byWalk(Call::kOpenAt, EACCES);

    EXPECT_EQ(Told(root.Look("/mnt")), "unknown " + std::to_string(EACCES));
    EXPECT_EQ(Thrown([&] { root.Open("/mnt", Kind::kFolder).Close(); }),
              "3: " + m_panel.Root() + "/mnt: cannot open: Permission denied");
}

TEST_P(RootedFolders, TellWhatCannotBeOpened)
{
    const RootedFolder root = Opened();
    const Faults faults(Call::kOpen, EIO);

    EXPECT_EQ(Thrown([&] { root.Open("/mnt", Kind::kFolder).Close(); }),
              "3: " + m_panel.Root() + "/mnt: cannot open: Input/output error");
    EXPECT_EQ(Thrown([&] { static_cast<void>(root.Names("/mnt")); }),
              "3: " + m_panel.Root() + "/mnt: cannot list: Input/output error");
}

TEST_P(RootedFolders, TakesNamesOfAnyBytesAndLength)
{
    m_panel.Write("/odd/two words \"$`\\'", "1");
    m_panel.Write("/odd/\xff\x01\n", "22");

    EXPECT_EQ(Seen("/odd/two words \"$`\\'"), "file 1");
    EXPECT_EQ(Seen("/odd/\xff\x01\n"), "file 2");
    EXPECT_EQ(Seen("/" + std::string(300, 'x')), "missing " + std::to_string(ENAMETOOLONG));
    EXPECT_EQ(Seen(std::string("/mnt\0/user", 10)), kNotThere);
    std::string deep = "/mnt/user/bin/hello";
    while (deep.size() + 7 <= 4095) {
        deep.insert(0, "/mnt/..");
    }
    EXPECT_EQ(Seen(std::string(4095 - deep.size(), '/') + deep), "file 5");
    // A program on the panel could not name it, either.
    EXPECT_EQ(Seen(std::string(4096 - deep.size(), '/') + deep),
              "missing " + std::to_string(ENAMETOOLONG));
}

TEST_P(RootedFolders, ClosesWhatItOpens)
{
    m_panel.Link("/opt", "/mnt/user");
    const RootedFolder root = Opened();
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

TEST_P(RootedFolders, ClosesTheFoldersItLists)
{
    const RootedFolder root = Opened();
    const int before = dup(0);
    close(before);

    EXPECT_THAT(root.Names("/mnt"), UnorderedElementsAre("user"));
    EXPECT_NE(Thrown([&] { static_cast<void>(root.Names("/mnt/user/bin/hello")); }), "");

    const int after = dup(0);
    close(after);
    EXPECT_EQ(after, before);
}

TEST_P(RootedFolders, KeepsWhatItOpensFromProgramsThatAreStarted)
{
    const Descriptor file = Opened().Open("/mnt/user/bin/hello", Kind::kFile);

    EXPECT_NE(fcntl(file.Number(), F_GETFD) & FD_CLOEXEC, 0);
}

TEST_P(RootedFolders, TellsThatAListingBrokeOff)
{
    const RootedFolder root = Opened();
    const Faults faults(Call::kList, {{}, {EIO}});

    EXPECT_EQ(Thrown([&] { static_cast<void>(root.Names("/mnt")); }),
              "3: " + m_panel.Root() + "/mnt: cannot list: Input/output error");
}

TEST_P(RootedFolders, OpensWhatIsOfTheRightKind)
{
    m_panel.Link("/link", "/mnt/user/bin/hello");
    m_panel.Link("/out", m_panel.Outside() + "/secret");
    ASSERT_EQ(mkfifo((m_panel.Root() + "/pipe").c_str(), 0600), 0);
    const RootedFolder root = Opened();

    EXPECT_EQ(ReadAll(root.Open("/link", Kind::kFile).Number(), 9, "it"), "hello");
    EXPECT_TRUE(root.Open("/mnt", Kind::kFolder).IsOpen());
    EXPECT_EQ(Thrown([&] { static_cast<void>(root.Open("/mnt", Kind::kFile)); }),
              "1: " + m_panel.Root() + "/mnt: is not a file");
    EXPECT_EQ(Thrown([&] { static_cast<void>(root.Open("/link", Kind::kFolder)); }),
              "1: " + m_panel.Root() + "/link: is not a folder");
    EXPECT_EQ(Thrown([&] { static_cast<void>(root.Open("/pipe", Kind::kFile)); }),
              "1: " + m_panel.Root() + "/pipe: is not a file");
    EXPECT_EQ(Thrown([&] { static_cast<void>(root.Open("/out", Kind::kFile)); }),
              "3: " + m_panel.Root() + "/out: cannot open: No such file or directory");
}

TEST_P(RootedFolders, RefusesWhatIsNoFolder)
{

    EXPECT_EQ(Thrown([&] { const RootedFolder root(m_panel.Root() + "/none", GetParam()); }),
              "1: " + m_panel.Root() + "/none: cannot open: No such file or directory");
    EXPECT_EQ(Thrown([&] {
                  const RootedFolder root(m_panel.Root() + "/mnt/user/bin/hello", GetParam());
              }),
              "1: " + m_panel.Root() + "/mnt/user/bin/hello: cannot open: Not a directory");
    EXPECT_EQ(Thrown([] { const RootedFolder root("", GetParam()); }),
              "1: cannot open: No such file or directory");
}

TEST_P(RootedFolders, ShowsPathsWithTheFolderInFront)
{

    EXPECT_EQ(RootedFolder("/", GetParam()).Shown("/var"), "/var");
    EXPECT_EQ(RootedFolder(m_panel.Root() + "//", GetParam()).Shown("/var"),
              m_panel.Root() + "/var");
    EXPECT_EQ(RootedFolder(m_panel.Root() + "//", GetParam()).Folder(), m_panel.Root() + "//");
}

TEST_P(RootedFolders, ListTheNamesOfAFolder)
{
    m_panel.Link("/opt", "/mnt");
    m_panel.Link("/mnt/nowhere", "/none");
    m_panel.Write("/mnt/.hidden", "");

    EXPECT_THAT(Opened().Names("/opt"), UnorderedElementsAre("user", "nowhere", ".hidden"));
    EXPECT_EQ(Thrown([&] { static_cast<void>(Opened().Names("/none")); }),
              "3: " + m_panel.Root() + "/none: cannot list: No such file or directory");
    EXPECT_EQ(Thrown([&] { static_cast<void>(Opened().Names("/opt/user/bin/hello")); }),
              "3: " + m_panel.Root() + "/opt/user/bin/hello: cannot list: Not a directory");
}

TEST(RootedFolder, FindsTheSameBothWays)
{
    if (!KernelLooksUp()) {
        GTEST_SKIP() << kNoCall;
    }
    const registry::Panel panel;
    const std::vector<std::string> parts = {"a", "b", "l", "m", "f", ".", "..", "", "x"};
    panel.Write("/a/b/f", "1");
    panel.Write("/a/f", "22");
    panel.Link("/a/l", "b");
    panel.Link("/a/b/l", "/a/l/../l");
    panel.Link("/l", "a/b/../b/.");
    panel.Link("/a/m", "../../../a/f");
    panel.Link("/m", "m");
    panel.Link("/a/b/m", "f/");
    const RootedFolder byKernel(panel.Root(), RootedFolder::Way::kKernel);
    const RootedFolder byWalk(panel.Root(), RootedFolder::Way::kWalk);
    constexpr std::size_t kLongest = 4;

    std::vector<std::string> paths = {""};
    for (std::size_t at = 0; at < paths.size(); ++at) {
        const std::string path = paths[at];
        ASSERT_EQ(Told(byKernel.Look(path)), Told(byWalk.Look(path))) << path;
        ASSERT_EQ(Told(byKernel.LookAtLink(path)), Told(byWalk.LookAtLink(path))) << path;
        if (std::count(path.begin(), path.end(), '/') < static_cast<std::ptrdiff_t>(kLongest)) {
            for (const std::string& part : parts) {
                paths.push_back(path);
                paths.back().append("/").append(part);
            }
        }
    }
    EXPECT_EQ(paths.size(), 1U + 9 + 81 + 729 + 6561);
}

TEST(RootedFolder, AsksTheKernelWhichWayItKnows)
{
    if (!KernelLooksUp()) {
        GTEST_SKIP() << kNoCall;
    }
    EXPECT_EQ(RootedFolder::AskForWay(), RootedFolder::Way::kKernel);
    for (const int error : {ENOSYS, EPERM}) {
        const Faults faults(Call::kOpenInRoot, {{error}});
        EXPECT_EQ(RootedFolder::AskForWay(), RootedFolder::Way::kWalk);
    }
    const Faults faults(Call::kOpenInRoot, {{EMFILE}});
    EXPECT_EQ(RootedFolder::AskForWay(), RootedFolder::Way::kKernel);
}

TEST(RootedFolder, AsksOnceInAProcess)
{
    const RootedFolder::Way way = RootedFolder::BestWay();
    const Faults faults(Call::kOpenInRoot, ENOSYS);

    EXPECT_EQ(RootedFolder::BestWay(), way);
}

TEST(RootedFolder, NeedsNothingOfTheKernelToWalk)
{
    const registry::Panel panel;
    const Faults faults(Call::kOpenInRoot, ENOSYS);

    EXPECT_EQ(Told(RootedFolder(panel.Root(), RootedFolder::Way::kWalk).Look("/mnt/../mnt")),
              "folder");
}

TEST(RootedFolder, GoesOnWhereThingsAreRenamedMeanwhile)
{
    if (!KernelLooksUp()) {
        GTEST_SKIP() << kNoCall;
    }
    const registry::Panel panel;
    const RootedFolder root(panel.Root(), RootedFolder::Way::kKernel);
    {
        const Faults faults(Call::kOpenInRoot, {{EAGAIN}, {EINTR}, {EAGAIN}});
        EXPECT_EQ(Told(root.Look("/mnt/../mnt")), "folder");
    }
    const Faults faults(Call::kOpenInRoot, EAGAIN);
    EXPECT_EQ(Told(root.Look("/mnt/../mnt/user/bin/hello")), "file 5");
}

TEST(RootedFolder, TellsWhereAWalkIsStopped)
{
    const registry::Panel panel;
    const RootedFolder root(panel.Root(), RootedFolder::Way::kWalk);
    const Faults faults(Call::kOpenAt, {{}, {}, {}, {EACCES}});

    EXPECT_EQ(Told(root.Look("/mnt/user/bin/hello")), "unknown " + std::to_string(EACCES));
}

} // namespace kx::io
