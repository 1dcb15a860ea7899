// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "signature/SignedOf.h"
#include "signature/TrustedKeys.h"
#include "support/TempDir.h"
#include "support/Thrown.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

namespace kx::signature
{

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Optional;

namespace
{

std::vector<std::string> ProblemsOf(const TrustedKeys& trusted)
{
    std::vector<std::string> lines;
    for (const io::Error& problem : trusted.problems) {
        lines.push_back(problem.Line());
    }
    return lines;
}

} // namespace

TEST(TrustedKeys, AreTheFilesOfAFolderWithWhatStandsBesideThem)
{
    const TempDir dir;
    dir.Write("b.pub.pem", EdKey().Public().Pem());
    dir.Write("b.toml", "models = [\"TP-0700\"]\npackages = [\"demo\", \"other\"]\n");
    dir.Write("a.pem", P256Key().Public().Pem());
    dir.Write("a.toml", "revoked = true\ncomment = \"lost\"\n");
    dir.Write("c.pem", OtherEdKey().Public().Pem());
    dir.Write(".hidden.pem", "no key");
    dir.Write("README", "no key");

    const TrustedKeys trusted = ReadTrustedKeys(dir.Path());

    EXPECT_THAT(ProblemsOf(trusted), IsEmpty());
    ASSERT_EQ(trusted.keys.size(), 3U);
    EXPECT_EQ(trusted.keys[0].name, "a");
    EXPECT_TRUE(trusted.keys[0].isRevoked);
    EXPECT_FALSE(trusted.keys[0].models.has_value());
    EXPECT_EQ(trusted.keys[1].name, "b");
    EXPECT_EQ(trusted.keys[1].key.Id(), EdKey().Public().Id());
    EXPECT_THAT(trusted.keys[1].models, Optional(ElementsAre("TP-0700")));
    EXPECT_THAT(trusted.keys[1].packages, Optional(ElementsAre("demo", "other")));
    EXPECT_FALSE(trusted.keys[2].isRevoked);
}

TEST(TrustedKeys, AreNotTrustedWithADamagedFileBesideThem)
{
    for (const std::string text :
         {"revoked", "revoked = 1", "models = \"TP-0700\"", "packages = [1]", "rewoked = true",
          "revoked = false\nrevoked = true", "comment = 1", "", "# revoked = true\n"}) {
        const TempDir dir;
        dir.Write("k.pem", EdKey().Public().Pem());
        dir.Write("k.toml", text);

        const TrustedKeys trusted = ReadTrustedKeys(dir.Path());

        ASSERT_EQ(trusted.keys.size(), 1U);
        EXPECT_TRUE(trusted.keys[0].isDamaged) << text;
        EXPECT_EQ(trusted.problems.size(), 1U) << text;
    }
}

TEST(TrustedKeys, TellWhatIsNoKeyAndWhatLimitsNone)
{
    const TempDir dir;
    dir.Write("a.pem", "no key");
    dir.Write("b.pem", EdKey().Pem({}));
    dir.Write("c.toml", "revoked = true\n");
    dir.MakeDir("d.pem");
    dir.Write("e.pub.pem", EdKey().Public().Pem());
    dir.Write("e.pub.toml", "revoked = true\n");
    dir.Write("f.pem", std::string(20000, 'x'));

    const TrustedKeys trusted = ReadTrustedKeys(dir.Path());

    EXPECT_EQ(trusted.keys.size(), 1U);
    EXPECT_THAT(
        ProblemsOf(trusted),
        ElementsAre(
            dir / "a.pem: is not the PEM text of one public key; take the file NAME.pub.pem that "
                  "kx-package key new has made",
            dir / "b.pem: holds a private key, which belongs to whoever signs and nowhere else; "
                  "name the public key",
            dir / "d.pem: is not a file", dir / "f.pem: is larger than 16.0 KiB",
            dir / "c.toml: stands beside no key; call it as the key beside it: NAME.toml for "
                  "NAME.pem or NAME.pub.pem",
            dir / "e.pub.toml: stands beside no key; call it as the key beside it: NAME.toml for "
                  "NAME.pem or NAME.pub.pem"));
}

TEST(TrustedKeys, AreReadByTheReaderThatIsHandedIn)
{
    const TempDir dir;
    dir.Write("a.pem", EdKey().Public().Pem());
    dir.Write("b.pem", EdKey().Public().Pem());
    dir.Write("b.toml", "comment = \"b\"");
    std::vector<std::string> paths;
    const auto read = [&paths](const std::string& path, std::uint64_t limit) {
        paths.push_back(path + " " + std::to_string(limit));
        if (path.find(".toml") != std::string::npos) {
            throw io::Error(io::ExitCode::kProblems, path, "belongs to user 5");
        }
        return P256Key().Public().Pem();
    };

    const TrustedKeys trusted = ReadTrustedKeys(dir.Path(), read);

    EXPECT_THAT(paths, ElementsAre(dir / "a.pem 16384", dir / "b.pem 16384", dir / "b.toml 16384"));
    ASSERT_EQ(trusted.keys.size(), 2U);
    EXPECT_EQ(trusted.keys[0].key.Id(), P256Key().Public().Id());
    EXPECT_FALSE(trusted.keys[0].isDamaged);
    EXPECT_TRUE(trusted.keys[1].isDamaged);
    EXPECT_THAT(ProblemsOf(trusted), ElementsAre(dir / "b.toml: belongs to user 5"));
}

TEST(TrustedKeys, NeedAFolderThatCanBeListed)
{
    const TempDir dir;

    EXPECT_EQ(Thrown([&] { static_cast<void>(ReadTrustedKeys(dir / "none")); }),
              "1: " + (dir / "none") + ": cannot list the keys in: No such file or directory");
    EXPECT_THAT(ReadTrustedKeys(dir.Path()).keys, IsEmpty());
}

TEST(TrustedKeys, AreNotTooMany)
{
    const TempDir dir;
    for (int i = 0; i < 600; ++i) {
        dir.Write(std::to_string(i) + ".pem", "");
    }

    EXPECT_EQ(Thrown([&] { static_cast<void>(ReadTrustedKeys(dir.Path())); }),
              "1: " + dir.Path() + ": holds more than 256 keys; remove those that are not needed");
}

} // namespace kx::signature
