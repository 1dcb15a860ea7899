// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "archive/Links.h"
#include "archive/Package.h"
#include "support/TempDir.h"
#include "support/Thrown.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include <sys/stat.h>

namespace kx::archive
{

namespace
{

namespace fs = std::filesystem;
using testing::ElementsAre;

/// "kind name size mode" of everything in a package.
std::vector<std::string> Told(const Package& package)
{
    std::vector<std::string> told;
    for (const PackageEntry& entry : package.Entries()) {
        told.push_back(std::string(1, "fdlo"[static_cast<std::size_t>(entry.kind)]) + " " +
                       entry.name + " " + std::to_string(entry.size) + " " +
                       std::to_string(entry.mode) + (entry.hasMode ? "" : " no mode"));
    }
    return told;
}

TEST(FolderPackage, TellsWhatIsInTheFolder)
{
    const TempDir dir;
    dir.Write("b/x", "123", 0640);
    dir.Write("a", "", 0755);
    fs::permissions(dir / "b", fs::perms::owner_all);
    fs::create_symlink("b/x", dir / "c");
    ASSERT_EQ(mkfifo((dir / "d").c_str(), 0600), 0);

    const std::unique_ptr<Package> package = OpenPackage(dir.Path());

    EXPECT_EQ(package->Path(), dir.Path());
    EXPECT_FALSE(package->IsArchive());
    EXPECT_THAT(Told(*package),
                ElementsAre("f a 0 493", "d b 0 448", "f b/x 3 416", "l c 3 511", "o d 0 384"));
    EXPECT_EQ(package->Read("b/x", 2), "12");
    EXPECT_EQ(package->Read("b/x", 9), "123");
    EXPECT_EQ(package->LinkTarget("c"), "b/x");
    EXPECT_EQ(package->LinkTarget("a"), "");
}

TEST(FolderPackage, IsNotTheSourceOfOne)
{
    const TempDir dir;
    dir.Write("package.toml", "");

    EXPECT_EQ(Thrown([&dir] { static_cast<void>(OpenPackage(dir.Path())); }),
              "2: " + dir.Path() +
                  ": is the source of a package; build it first: kx-package build " + dir.Path());
    // Such a file may be a package's own, too.
    dir.Write("UserPackage.kx-project", "");
    EXPECT_EQ(OpenPackage(dir.Path())->Entries().size(), 2U);
}

class LinksOfAPackage : public testing::Test
{
protected:
    LinksOfAPackage()
    {
        m_dir.Write("pkg/b", "");
        m_dir.Write("pkg/d/x", "");
        m_dir.Write("b", "");
    }

    /// What a link in the package leads to, empty for nothing.
    [[nodiscard]] std::string EndOf(const std::string& link, const std::string& target) const
    {
        const std::string path = m_dir / "pkg/" + link;
        fs::create_symlink(target, path);
        const std::unique_ptr<Package> package = OpenPackage(m_dir / "pkg");
        const LinkEnd end = FollowLink(*package, *package->Find(link));
        EXPECT_EQ(end.target, target);
        std::string name = end.entry == nullptr ? "" : end.entry->name;
        fs::remove(path);
        return name;
    }

    TempDir m_dir;
};

TEST_F(LinksOfAPackage, LeadToWhatIsInIt)
{
    EXPECT_EQ(EndOf("l", "b"), "b");
    EXPECT_EQ(EndOf("l", "./d//x"), "d/x");
    EXPECT_EQ(EndOf("l", "d/"), "d");
    EXPECT_EQ(EndOf("d/l", "x"), "d/x");
    EXPECT_EQ(EndOf("d/l", "../b"), "b");
    EXPECT_EQ(EndOf("d/l", "../d/../b"), "b");
}

TEST_F(LinksOfAPackage, LeadNowhereWhereTheyLeaveIt)
{
    EXPECT_EQ(EndOf("l", "/b"), "");
    EXPECT_EQ(EndOf("l", "../b"), "");
    EXPECT_EQ(EndOf("l", "../pkg/b"), "");
    EXPECT_EQ(EndOf("d/l", "../../b"), "");
    EXPECT_EQ(EndOf("d/l", "../../pkg/b"), "");
    EXPECT_EQ(EndOf("l", "none"), "");
    EXPECT_EQ(EndOf("l", "."), "");
}

TEST_F(LinksOfAPackage, AreFollowedEightTimes)
{
    fs::create_symlink("b", m_dir / "pkg/l1");
    for (int i = 2; i <= 7; ++i) {
        fs::create_symlink("l" + std::to_string(i - 1), m_dir / "pkg/l" + std::to_string(i));
    }

    EXPECT_EQ(EndOf("l8", "l7"), "b");
    fs::create_symlink("l7", m_dir / "pkg/l8");
    EXPECT_EQ(EndOf("l9", "l8"), "");
    EXPECT_EQ(EndOf("loop", "loop"), "");
}

} // namespace

} // namespace kx::archive
