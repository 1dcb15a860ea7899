// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "policy/PolicyFile.h"
#include "signature/SignedOf.h"
#include "support/TempDir.h"
#include "support/Thrown.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include <sys/stat.h>
#include <unistd.h>

namespace kx::guard
{

namespace
{

namespace fs = std::filesystem;

using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* kPath = "/etc/kx_Updater/panel.toml";
constexpr const char* kKeys = "/etc/kx_Updater/keys";
constexpr const char* kLeast =
    "models = [\"TP-0700\"]\nos-versions = [\"2.1.0\"]\nprocessor = \"arm\"\n";

/// A panel with an updater, in a folder that stands for its root.
class PolicyOf : public testing::Test
{
protected:
    PolicyOf()
    {
        m_dir.Write("usr/bin/kx_Updater", "", 0755);
        m_dir.MakeDir("etc/kx_Updater/keys");
        for (const char* const folder :
             {"", "usr", "usr/bin", "etc", "etc/kx_Updater", "etc/kx_Updater/keys"}) {
            chmod((m_dir / folder).c_str(), 0755);
        }
    }

    void WriteKey(const std::string& name, const signature::PrivateKey& key) const
    {
        m_dir.Write("etc/kx_Updater/keys/" + name, key.Public().Pem());
    }

    [[nodiscard]] Policy Read(const std::string& text) const
    {
        m_dir.Write("etc/kx_Updater/panel.toml", text);
        return ReadPolicy(kPath, m_files);
    }

    [[nodiscard]] std::string Answer(const std::string& text) const
    {
        return Thrown([&] { static_cast<void>(Read(text)); });
    }

    [[nodiscard]] signature::TrustedKeys Keys(SignatureRule rule = SignatureRule::kRequired) const
    {
        return ReadPanelKeys(kKeys, rule, m_files);
    }

    const TempDir m_dir;
    const GuardedFiles m_files{m_dir.Path(), getuid()};
};

using ReadPolicyOf = PolicyOf;
using ReadPanelKeysOf = PolicyOf;

std::vector<std::string> ErrorLines(const std::vector<io::Error>& errors)
{
    std::vector<std::string> lines;
    lines.reserve(errors.size());
    for (const io::Error& error : errors) {
        lines.push_back(error.Line());
    }
    return lines;
}

std::vector<std::string> NamesOf(const signature::TrustedKeys& trusted)
{
    std::vector<std::string> names;
    names.reserve(trusted.keys.size());
    for (const signature::TrustedKey& key : trusted.keys) {
        names.push_back(key.name + (key.isDamaged ? " damaged" : key.isRevoked ? " revoked" : ""));
    }
    return names;
}

constexpr const char* kNoKey =
    "/etc/kx_Updater/keys: holds no key that is trusted; put the public key of who signs packages "
    "there, as NAME.pem; until then no package is installed";

} // namespace

TEST_F(ReadPolicyOf, APanelThatSaysTheLeastIsStrict)
{
    const Policy policy = Read(kLeast);

    EXPECT_THAT(policy.model.models.value(), ElementsAre("TP-0700"));
    EXPECT_THAT(policy.model.osVersions.value(), ElementsAre("2.1.0"));
    EXPECT_EQ(policy.model.processor, format::FindProcessor("arm"));
    EXPECT_EQ(policy.model.file, kPath);
    EXPECT_EQ(policy.signatures, SignatureRule::kRequired);
    EXPECT_EQ(policy.downgrade, DowngradeRule::kRefuse);
    EXPECT_EQ(policy.state, "/var/lib/kx-panel");
    EXPECT_EQ(policy.updater, "/usr/bin/kx_Updater");
    EXPECT_EQ(policy.limits.packageBytes, std::uint64_t{1} << 30U);
}

TEST_F(ReadPolicyOf, APanelTakesWhatItSays)
{
    m_dir.Write("opt/kx_Updater", "", 0755);
    ASSERT_EQ(chmod((m_dir / "opt").c_str(), 0755), 0);

    const Policy policy =
        Read(std::string(kLeast) + "signatures = \"optional\"\ndowngrade = \"allow\"\n"
                                   "state = \"/mnt/user/state\"\nupdater = \"/opt/kx_Updater\"\n"
                                   "[limits]\nhistory-entries = 7\n");

    EXPECT_EQ(policy.signatures, SignatureRule::kOptional);
    EXPECT_EQ(policy.downgrade, DowngradeRule::kAllow);
    EXPECT_EQ(policy.state, "/mnt/user/state");
    EXPECT_EQ(policy.updater, "/opt/kx_Updater");
    EXPECT_EQ(policy.limits.historyEntries, 7U);
    EXPECT_EQ(policy.limits.entries, 20000U);
}

TEST_F(ReadPolicyOf, APanelDoesNotLookForTheCopyOfAPanelThatItsAuthorHad)
{
    EXPECT_EQ(Read(std::string(kLeast) + "root = \"panel-root\"\n").model.root, "");
}

TEST_F(ReadPolicyOf, APanelWithoutAFileIsRefused)
{
    EXPECT_EQ(Thrown([&] { static_cast<void>(ReadPolicy(kPath, m_files)); }),
              "1: /etc/kx_Updater/panel.toml: is missing; put it there");
}

TEST_F(ReadPolicyOf, APanelTellsAllThatIsWrong)
{
    m_dir.Write("etc/kx_Updater/panel.toml", "models = [\"TP-0700\"]\nsignature = \"optional\"\n"
                                             "[limits]\nentries = 0\n");
    try {
        static_cast<void>(ReadPolicy(kPath, m_files));
        FAIL();
    } catch (const io::Errors& errors) {
        EXPECT_THAT(
            ErrorLines(errors.All()),
            ElementsAre("/etc/kx_Updater/panel.toml:2:1: 'signature' is not known here; did "
                        "you mean 'signatures'?",
                        "/etc/kx_Updater/panel.toml:4:11: 'limits.entries' is 0; write a "
                        "number from 1 to 1000000",
                        "/etc/kx_Updater/panel.toml: 'os-versions' is missing; write the "
                        "version of its system, like os-versions = [\"2.1.0\"]",
                        "/etc/kx_Updater/panel.toml: 'processor' is missing; write this "
                        "panel's processor, like processor = \"arm\""));
    }
}

TEST_F(ReadPolicyOf, APanelClosesTheDoorForAFileThatIsNotAsItMustBe)
{
    const std::string file = "1: /etc/kx_Updater/panel.toml";
    EXPECT_EQ(Answer("format = 2\n" + std::string(kLeast)),
              file + ":1:10: 'format' is 2, and this program knows 1 only; use a newer program");
    EXPECT_EQ(Answer(std::string(kLeast) + "downgrade = \"refuse\"\ndowngrade = \"refuse\"\n"),
              file +
                  ":5:13: is not valid TOML: Error while parsing key-value pair: cannot redefine "
                  "existing string 'downgrade'");
    EXPECT_EQ(Answer(std::string(kLeast).substr(0, 40)).substr(0, file.size() + 24),
              file + ":2:20: is not valid TOML");
    EXPECT_EQ(Answer(std::string(kLeast) + std::string(5U << 20U, '#')),
              "3: /etc/kx_Updater/panel.toml: is larger than 4.0 MiB");
}

TEST_F(ReadPolicyOf, APanelMustBeRootsAlone)
{
    const std::string path = m_dir.Write("etc/kx_Updater/panel.toml", kLeast, 0664);
    ASSERT_EQ(chmod(path.c_str(), 0664), 0);
    const auto answer = [this] {
        return Thrown([this] { static_cast<void>(ReadPolicy(kPath, m_files)); }).substr(0, 60);
    };
    EXPECT_EQ(answer().find("1: /etc/kx_Updater/panel.toml: can be changed by others than"), 0U);

    ASSERT_EQ(chmod(path.c_str(), 0644), 0);
    ASSERT_EQ(chmod((m_dir / "etc/kx_Updater").c_str(), 0775), 0);
    EXPECT_EQ(answer().find("1: /etc/kx_Updater: can be changed by others than"), 0U);

    ASSERT_EQ(chmod((m_dir / "etc/kx_Updater").c_str(), 0755), 0);
    EXPECT_EQ(answer(), "nothing thrown");
}

TEST_F(ReadPolicyOf, APanelNeedsItsOwnUpdater)
{
    const std::string updater = m_dir / "usr/bin/kx_Updater";
    ASSERT_EQ(chmod(updater.c_str(), 0644), 0);
    EXPECT_EQ(Answer(kLeast), "1: /usr/bin/kx_Updater: cannot be started (mode 644); chmod 755 "
                              "/usr/bin/kx_Updater");

    ASSERT_EQ(chmod(updater.c_str(), 0757), 0);
    EXPECT_EQ(Answer(kLeast).find("1: /usr/bin/kx_Updater: can be changed by others than"), 0U);

    fs::rename(updater, m_dir / "usr/bin/other");
    EXPECT_EQ(Answer(kLeast), "1: /usr/bin/kx_Updater: is missing; put it there");

    fs::create_symlink("other", updater);
    EXPECT_EQ(Answer(kLeast),
              "1: /usr/bin/kx_Updater: is a link; put in its place what it leads to");
}

TEST_F(ReadPanelKeysOf, APanelAreThoseOfItsFolder)
{
    WriteKey("a.pub.pem", signature::EdKey());
    m_dir.Write("etc/kx_Updater/keys/a.toml", "models = [\"TP-0700\"]\n");
    WriteKey("b.pem", signature::P256Key());
    m_dir.Write("etc/kx_Updater/keys/b.toml", "revoked = true\n");

    const signature::TrustedKeys trusted = Keys();

    EXPECT_THAT(NamesOf(trusted), ElementsAre("a", "b revoked"));
    EXPECT_THAT(ErrorLines(trusted.problems), IsEmpty());
    EXPECT_THAT(trusted.keys[0].models.value(), ElementsAre("TP-0700"));
}

TEST_F(ReadPanelKeysOf, APanelAreMissedWhereSignaturesAreRequired)
{
    EXPECT_THAT(ErrorLines(Keys().problems), ElementsAre(kNoKey));
    EXPECT_THAT(ErrorLines(Keys(SignatureRule::kOptional).problems), IsEmpty());

    WriteKey("a.pem", signature::EdKey());
    m_dir.Write("etc/kx_Updater/keys/a.toml", "revoked = true\n");
    EXPECT_THAT(ErrorLines(Keys().problems), ElementsAre(kNoKey));

    m_dir.Write("etc/kx_Updater/keys/a.toml", "");
    EXPECT_THAT(
        ErrorLines(Keys().problems),
        ElementsAre(m_dir /
                        "etc/kx_Updater/keys/a.toml: says nothing; write what limits the key, or "
                        "remove the file",
                    kNoKey));

    WriteKey("b.pem", signature::P256Key());
    EXPECT_EQ(Keys().problems.size(), 1U);
    m_dir.Write("etc/kx_Updater/keys/a.toml", "revoked = true\n");
    EXPECT_THAT(ErrorLines(Keys().problems), IsEmpty());
}

TEST_F(ReadPanelKeysOf, APanelAreNotTrustedWhereOthersCouldHaveWrittenThem)
{
    WriteKey("a.pem", signature::EdKey());
    WriteKey("b.pem", signature::P256Key());
    m_dir.Write("etc/kx_Updater/keys/b.toml", "comment = \"b\"\n");
    WriteKey("c.pem", signature::OtherEdKey());
    fs::create_symlink("c.pem", m_dir / "etc/kx_Updater/keys/d.pem");
    WriteKey("e.pem", signature::OtherEdKey());
    fs::create_symlink("b.toml", m_dir / "etc/kx_Updater/keys/e.toml");
    ASSERT_EQ(chmod((m_dir / "etc/kx_Updater/keys/a.pem").c_str(), 0666), 0);
    ASSERT_EQ(chmod((m_dir / "etc/kx_Updater/keys/b.toml").c_str(), 0664), 0);

    const signature::TrustedKeys trusted = Keys();

    const std::string user = getuid() == 0 ? "root" : "user " + std::to_string(getuid());
    EXPECT_THAT(NamesOf(trusted), ElementsAre("b damaged", "c", "e damaged"));
    EXPECT_THAT(ErrorLines(trusted.problems),
                ElementsAre("/etc/kx_Updater/keys/a.pem: can be changed by others than " + user +
                                " (mode 666); chmod go-w /etc/kx_Updater/keys/a.pem",
                            "/etc/kx_Updater/keys/b.toml: can be changed by others than " + user +
                                " (mode 664); chmod go-w /etc/kx_Updater/keys/b.toml",
                            "/etc/kx_Updater/keys/d.pem: is a link; put in its place what it leads "
                            "to",
                            "/etc/kx_Updater/keys/e.toml: is a link; put in its place what it "
                            "leads to"));
}

TEST_F(ReadPanelKeysOf, APanelLieInAFolderOfRootsAlone)
{
    WriteKey("a.pem", signature::EdKey());
    const auto answer = [this] { return Thrown([this] { static_cast<void>(Keys()); }); };

    ASSERT_EQ(chmod((m_dir / "etc/kx_Updater/keys").c_str(), 01777), 0);
    EXPECT_EQ(answer().find("1: /etc/kx_Updater/keys: can be changed by others than"), 0U);

    fs::rename(m_dir / "etc/kx_Updater/keys", m_dir / "etc/kx_Updater/real");
    EXPECT_EQ(answer(), "1: /etc/kx_Updater/keys: is missing; put it there");

    fs::create_directory_symlink("real", m_dir / "etc/kx_Updater/keys");
    EXPECT_EQ(answer(), "1: /etc/kx_Updater/keys: is a link; put in its place what it leads to");

    fs::remove(m_dir / "etc/kx_Updater/keys");
    m_dir.Write("etc/kx_Updater/keys", "");
    EXPECT_EQ(answer(), "1: /etc/kx_Updater/keys: is not a folder; put one in its place");
}

} // namespace kx::guard
