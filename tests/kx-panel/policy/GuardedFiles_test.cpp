// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "policy/GuardedFiles.h"
#include "support/Emulated.h"
#include "support/TempDir.h"
#include "support/Thrown.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <filesystem>

#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

namespace kx::guard
{

namespace
{

namespace fs = std::filesystem;

/// A panel with one file "/etc/kx/file", in a folder that stands for its root.
class GuardedPanel : public testing::Test
{
protected:
    GuardedPanel()
    {
        m_dir.Write("etc/kx/file", "text");
        for (const char* const folder : {"", "/etc", "/etc/kx"}) {
            SetMode(folder, 0755);
        }
    }

    void SetMode(const std::string& path, mode_t mode) const
    {
        ASSERT_EQ(chmod((m_dir.Path() + path).c_str(), mode), 0);
    }

    /// What looking at a path says, with the user whom everything here belongs to as USER.
    [[nodiscard]] std::string Answer(const std::string& path,
                                     GuardedKind kind = GuardedKind::kEither) const
    {
        const GuardedFiles files(m_dir.Path(), getuid());
        const std::string refused = Thrown([&] { files.RefuseUnguarded(path, kind); });
        const std::string opened = Thrown([&] { static_cast<void>(files.Open(path, kind)); });
        EXPECT_EQ(opened, refused);
        return WithoutUser(refused);
    }

    [[nodiscard]] static std::string WithoutUser(std::string text)
    {
        const std::string user = getuid() == 0 ? "root" : "user " + std::to_string(getuid());
        for (std::size_t at = text.find(user); at != std::string::npos; at = text.find(user)) {
            text.replace(at, user.size(), "USER");
        }
        return text;
    }

    const TempDir m_dir;
};

using GuardedFilesOf = GuardedPanel;

constexpr const char* kFine = "nothing thrown";

} // namespace

TEST_F(GuardedFilesOf, APanelAreReadWhenOnlyTheirOwnerCanChangeThem)
{
    const GuardedFiles files(m_dir.Path(), getuid());

    EXPECT_EQ(files.Read("/etc/kx/file", 4), "text");
    EXPECT_EQ(Answer("/etc/kx/file"), kFine);
    EXPECT_EQ(Answer("/etc/kx/file", GuardedKind::kFile), kFine);
    EXPECT_EQ(Answer("/etc/kx"), kFine);
    EXPECT_EQ(Answer("/etc/kx", GuardedKind::kFolder), kFine);
    EXPECT_EQ(Answer("/", GuardedKind::kFolder), kFine);
    EXPECT_EQ(Thrown([&] { static_cast<void>(files.Read("/etc/kx/file", 3)); }),
              "3: /etc/kx/file: is larger than 3 bytes");
    EXPECT_EQ(Thrown([&] { static_cast<void>(files.Read("/etc/kx", 3)); }),
              "1: /etc/kx: is not a file; put one in its place");
}

TEST_F(GuardedFilesOf, APanelAreRootsAndBeginAtTheRoot)
{
    // The folder of this test is below one where everybody may make files.
    EXPECT_EQ(GuardedFiles().Root(), "");
    EXPECT_NE(Thrown([&] { RefuseUnguarded(m_dir / "etc/kx/file"); }), kFine);
    EXPECT_NE(Thrown([&] { RefuseUnguarded("/tmp"); }), kFine);
    EXPECT_NE(Thrown([&] { RefuseUnguarded(""); }), kFine);
    if (!IsEmulated()) {
        EXPECT_EQ(
            Thrown([&] { static_cast<void>(ReadGuarded("/proc/self/none", 1)); }).substr(0, 9),
            "1: /proc/");
    }
}

TEST_F(GuardedFilesOf, AnotherUserAreRefused)
{
    const GuardedFiles files(m_dir.Path(), getuid() + 1);
    const std::string other = std::to_string(getuid() + 1);

    EXPECT_EQ(WithoutUser(Thrown([&] { files.RefuseUnguarded("/etc", GuardedKind::kEither); })),
              "1: /: belongs to USER, not to user " + other + "; chown " + other + " /");
}

TEST_F(GuardedFilesOf, SomeoneElseBelowAreTold)
{
    const std::string file = m_dir / "etc/kx/file";
    if (chown(file.c_str(), 4711, 0) != 0) {
        GTEST_SKIP() << "only root gives files away; tests on the sandboxed device do";
    }
    EXPECT_EQ(Answer("/etc/kx/file"), "1: /etc/kx/file: belongs to user 4711, not to USER; "
                                      "chown USER:USER /etc/kx/file");

    ASSERT_EQ(chown((m_dir / "etc").c_str(), 4711, 0), 0);
    EXPECT_EQ(Answer("/etc/kx/file"),
              "1: /etc: belongs to user 4711, not to USER; chown USER:USER /etc");
}

TEST_F(GuardedFilesOf, APanelMayNotBeWritableByOthersNorAnythingAbove)
{
    struct Row {
        const char* path;
        mode_t mode;
        const char* text;
    };
    for (const Row& row :
         {Row{"", 0775, "(mode 775)"}, Row{"", 01777, "(mode 1777)"},
          Row{"/etc", 0757, "(mode 757)"}, Row{"/etc", 01777, "(mode 1777)"},
          Row{"/etc/kx", 0720, "(mode 720)"}, Row{"/etc/kx", 01777, "(mode 1777)"},
          Row{"/etc/kx/file", 0646, "(mode 646)"}, Row{"/etc/kx/file", 0664, "(mode 664)"},
          Row{"/etc/kx/file", 0602, "(mode 602)"}}) {
        SetMode(row.path, row.mode);

        const std::string shown = *row.path == '\0' ? "/" : row.path;
        std::string answer = "1: SHOWN: can be changed by others than USER MODE; chmod go-w SHOWN";
        answer.replace(answer.find("MODE"), 4, row.text);
        for (int i = 0; i < 2; ++i) {
            answer.replace(answer.find("SHOWN"), 5, shown);
        }
        EXPECT_EQ(Answer("/etc/kx/file"), answer);

        SetMode(row.path, 0755);
        EXPECT_EQ(Answer("/etc/kx/file"), kFine);
    }
}

TEST_F(GuardedFilesOf, APanelAreNoLinksAndLieBehindNone)
{
    fs::create_symlink("file", m_dir / "etc/kx/link");
    fs::create_symlink("none", m_dir / "etc/kx/dangling");
    fs::create_directory_symlink("kx", m_dir / "etc/also");
    fs::create_directory_symlink(m_dir / "etc", m_dir / "all");

    EXPECT_EQ(Answer("/etc/kx/link"),
              "1: /etc/kx/link: is a link; put in its place what it leads to");
    EXPECT_EQ(Answer("/etc/kx/dangling"),
              "1: /etc/kx/dangling: is a link; put in its place what it leads to");
    EXPECT_EQ(Answer("/etc/also/file"),
              "1: /etc/also: is a link; put in its place what it leads to");
    EXPECT_EQ(Answer("/etc/also"), "1: /etc/also: is a link; put in its place what it leads to");
    EXPECT_EQ(Answer("/all/kx/file"), "1: /all: is a link; put in its place what it leads to");
}

TEST_F(GuardedFilesOf, APanelAreWhatIsWanted)
{
    ASSERT_EQ(mkfifo((m_dir / "etc/pipe").c_str(), 0600), 0);

    EXPECT_EQ(Answer("/etc/kx/none"), "1: /etc/kx/none: is missing; put it there");
    EXPECT_EQ(Answer("/none/file"), "1: /none: is missing; put it there");
    EXPECT_EQ(Answer("/etc/kx/file/x"), "1: /etc/kx/file: is not a folder; put one in its place");
    EXPECT_EQ(Answer("/etc/kx/file", GuardedKind::kFolder),
              "1: /etc/kx/file: is not a folder; put one in its place");
    EXPECT_EQ(Answer("/etc/kx", GuardedKind::kFile),
              "1: /etc/kx: is not a file; put one in its place");
    EXPECT_EQ(Answer("/etc/kx", GuardedKind::kProgram),
              "1: /etc/kx: is not a file; put one in its place");
    EXPECT_EQ(Answer("/etc/pipe"),
              "1: /etc/pipe: is neither a file nor a folder; put one in its place");
    EXPECT_EQ(Answer("/etc/pipe", GuardedKind::kFile),
              "1: /etc/pipe: is not a file; put one in its place");
    EXPECT_EQ(Answer("/etc/" + std::string(300, 'x')),
              "3: /etc/" + std::string(300, 'x') + ": cannot open: File name too long");
}

TEST_F(GuardedFilesOf, APanelAreProgramsWhenTheyMayBeStarted)
{
    EXPECT_EQ(Answer("/etc/kx/file", GuardedKind::kProgram),
              "1: /etc/kx/file: cannot be started (mode 644); chmod 755 /etc/kx/file");
    SetMode("/etc/kx/file", 0744);
    EXPECT_EQ(Answer("/etc/kx/file", GuardedKind::kProgram), kFine);
    SetMode("/etc/kx/file", 0777);
    EXPECT_EQ(Answer("/etc/kx/file", GuardedKind::kProgram),
              "1: /etc/kx/file: can be changed by others than USER (mode 777); "
              "chmod go-w /etc/kx/file");
}

TEST_F(GuardedFilesOf, APanelHavePlainPaths)
{
    using namespace std::string_literals;
    for (const std::string& path : {"etc"s, "etc/kx/file"s, "/etc/"s, "/etc//kx"s, "/etc/./kx"s,
                                    "/etc/../etc"s, "//etc"s, ".."s, "/.."s, "/etc/kx/file\0x"s}) {
        EXPECT_EQ(Answer(path), "1: " + path +
                                    ": is not a plain full path; begin it with '/', and leave out "
                                    "'.', '..' and marks behind others");
    }
}

TEST_F(GuardedFilesOf, APanelAreRefusedWhenAListOfRightsLetsAnotherUserWrite)
{
    // Version 2; the owner rw-, user 4711 rw-, the group r--, the mask rw-, others r--.
    constexpr std::array<unsigned char, 44> kRights = {
        2, 0,    0,    0,    0x01, 0,    6,    0, 0xff, 0xff, 0xff, 0xff, 0x02, 0,    6,
        0, 0x67, 0x12, 0,    0,    0x04, 0,    4, 0,    0xff, 0xff, 0xff, 0xff, 0x10, 0,
        6, 0,    0xff, 0xff, 0xff, 0xff, 0x20, 0, 4,    0,    0xff, 0xff, 0xff, 0xff};
    const std::string file = m_dir / "etc/kx/file";
    if (setxattr(file.c_str(), "system.posix_acl_access", kRights.data(), kRights.size(), 0) != 0) {
        GTEST_SKIP() << "the file system of temporary files keeps no lists of rights: " << errno;
    }

    EXPECT_EQ(Answer("/etc/kx/file"), "1: /etc/kx/file: can be changed by others than USER (mode "
                                      "664); chmod go-w /etc/kx/file");
    SetMode("/etc/kx/file", 0644); // the remedy takes the right to write out of the mask
    EXPECT_EQ(Answer("/etc/kx/file"), kFine);
}

} // namespace kx::guard
