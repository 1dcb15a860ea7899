// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT

// The decision as a panel makes it: what reads the package does so in a process without rights, and
// comes to what it comes to without.
#include "archive/ZipOf.h"
#include "confined/ConfinedProcess.h"
#include "decision/Decision.h"
#include "kx-panel/FakeFileSystems.h"
#include "kx-panel/InProcess.h"
#include "reading/ConfinementOf.h"
#include "reading/Contents.h"
#include "signature/SignedOf.h"
#include "support/ElfOf.h"
#include "support/ProjectBuilder.h"
#include "support/TempDir.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

namespace kx::guard
{

namespace
{

using archive::ZipPart;
using signature::EdKey;
using signature::SignedBytes;
using ::testing::IsEmpty;

constexpr const char* kFileName = "demo.kx-update";

/// A panel that takes everything that is signed by its key, or that need not be signed.
class OpenPanel
{
public:
    explicit OpenPanel(SignatureRule rule)
    {
        m_policy.signatures = rule;
        m_policy.model.models = {"TP-0700", "TP-1000"};
        m_policy.model.osVersions = {"2.1.0"};
        m_policy.model.processor = format::FindProcessor("armhf");
        m_policy.state = "/var/lib/kx-panel";
    }

    /// Decides about a package.
    /// @return each reason's word and values
    std::vector<std::string> Decides(const archive::FileBytes& source,
                                     IConfinement& confinement) const
    {
        const auto none = [](const std::string&) { return std::optional<std::string>(); };
        const Decision decision = Decide({m_policy, m_keys, m_systems, none}, confinement, source,
                                         source.File().Number(), kFileName, Place::kElsewhere);
        std::vector<std::string> reasons;
        for (const Reason& reason : decision.reasons) {
            std::string text = ReasonWord(reason.id);
            for (const std::string& value : reason.values) {
                text += " " + value;
            }
            reasons.push_back(text);
        }
        return reasons;
    }

    [[nodiscard]] ConfinedProcess Confinement() const
    {
        return ConfinedProcess(ConfinementOf(m_policy.limits));
    }

private:
    Policy m_policy;
    signature::TrustedKeys m_keys = signature::Trusting({&EdKey()});
    FakeFileSystems m_systems;
};

/// Decides twice, the second time in the test's own process.
std::vector<std::string> Decided(const std::string& bytes, SignatureRule rule)
{
    const TempDir folder;
    const archive::FileBytes source(folder.Write(kFileName, bytes));
    const OpenPanel panel(rule);
    ConfinedProcess confined = panel.Confinement();
    InProcess open;
    std::vector<std::string> reasons = panel.Decides(source, confined);
    EXPECT_EQ(reasons, panel.Decides(source, open));
    return reasons;
}

/// A package with one step that copies a file.
std::string ConfinedPackage(const std::string& content, const std::vector<ZipPart>& more = {})
{
    const ProjectBuilder::Object root = ProjectBuilder::Root({ProjectBuilder::CopyFileStep(
        {ProjectBuilder::CopyItem("C:\\demo\\run", "/opt/demo/run", "755")})});
    std::vector<ZipPart> parts = {{"UserPackage.kx-project", ProjectBuilder::File(root)},
                                  {"0/0/run", content}};
    parts.insert(parts.end(), more.begin(), more.end());
    return archive::ZipOf(parts);
}

/// Writes down what it is told.
class Listing final : public IContentsTaker
{
public:
    void TakeFolder(const UnpackedEntry& folder) override { Tell("folder", folder); }
    void TakeFile(const UnpackedEntry& file) override { Tell("file", file); }
    void TakeBytes(std::string_view bytes) override { m_told += bytes; }
    void TakeLink(const std::string& name, const std::string& target) override
    {
        m_told += "link " + name + " " + target + "\n";
    }

    [[nodiscard]] const std::string& Told() const { return m_told; }

private:
    void Tell(const char* kind, const UnpackedEntry& entry)
    {
        m_told += std::string(kind) + " " + entry.name + " " + std::to_string(entry.mode) + " " +
                  std::to_string(entry.moment.value_or(0)) + "\n";
    }

    std::string m_told;
};

/// The word of the first reason; "" without one.
std::string FirstWord(const std::string& bytes, SignatureRule rule = SignatureRule::kRequired)
{
    const std::vector<std::string> reasons = Decided(bytes, rule);
    return reasons.empty() ? "" : reasons.front().substr(0, reasons.front().find(' '));
}

} // namespace

TEST(ConfinedDecision, AGoodPackageIsTaken)
{
    const std::string package = ConfinedPackage("content");

    EXPECT_THAT(Decided(SignedBytes(package, {&EdKey()}), SignatureRule::kRequired), IsEmpty());
    EXPECT_THAT(Decided(package, SignatureRule::kOptional), IsEmpty());
}

TEST(ConfinedDecision, SignaturesAreJudgedLikeAnywhereElse)
{
    const std::string zip = ConfinedPackage("content");
    const std::string file = SignedBytes(zip, {&EdKey()});
    std::string damaged = file;
    damaged[file.find("KX-SIGNATURES")] = 'k';
    std::string changed = file;
    changed[file.find("content")] = 'C';

    EXPECT_EQ(FirstWord(SignedBytes(signature::WithZip64End(zip), {&EdKey()})), "");
    EXPECT_EQ(FirstWord(zip), "signature-missing");
    EXPECT_EQ(FirstWord(damaged), "signature-damaged");
    EXPECT_EQ(FirstWord(changed), "signature-changed");
    EXPECT_EQ(FirstWord(SignedBytes(zip, {&signature::OtherEdKey()})), "signature-untrusted");
    EXPECT_EQ(FirstWord("rubbish"), "signature-damaged");
    EXPECT_EQ(FirstWord(""), "signature-damaged");
}

TEST(ConfinedDecision, ContentsAreJudgedLikeAnywhereElse)
{
    std::string damaged = ConfinedPackage("content");
    damaged[damaged.find("content")] = 'C';
    const std::string program = ConfinedPackage(ArmProgram().Bytes());

    EXPECT_EQ(FirstWord(damaged, SignatureRule::kOptional), "structure");
    EXPECT_EQ(FirstWord(archive::ZipOf({{"a", "b"}}), SignatureRule::kOptional), "description");
    EXPECT_EQ(FirstWord(archive::ZipOf({{"UserPackage.kx-project", "{\"Title\":"}}),
                        SignatureRule::kOptional),
              "description");
    EXPECT_EQ(FirstWord(ConfinedPackage("content", {{"../../etc/passwd", "x"}}),
                        SignatureRule::kOptional),
              "structure");
    EXPECT_EQ(FirstWord(SignedBytes(program, {&EdKey()})), "");
}

TEST(ConfinedDecision, ContentsAreUnpackedLikeAnywhereElse)
{
    const TempDir folder;
    const std::string large(std::size_t{3} << 20, 'x');
    const archive::FileBytes source(
        folder.Write(kFileName, ConfinedPackage(large, {{"0/0/b", "b"}})));
    ConfinedProcess confined = OpenPanel(SignatureRule::kOptional).Confinement();
    InProcess open;
    Listing told;
    Listing expected;

    StreamContents(confined, source, source.File().Number(), {}, told);
    StreamContents(open, source, source.File().Number(), {}, expected);

    EXPECT_GT(told.Told().size(), large.size());
    EXPECT_TRUE(told.Told() == expected.Told());
}

} // namespace kx::guard
