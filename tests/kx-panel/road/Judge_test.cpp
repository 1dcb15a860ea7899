// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "InProcess.h"
#include "archive/ZipOf.h"
#include "road/Judge.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace kx::guard
{

namespace
{

/// One file system of blocks of 1000 bytes.
class OneFileSystem final : public IFileSystems
{
public:
    [[nodiscard]] FileSystem Of(const std::string& /*path*/) const override
    {
        return {1, "/data", 1000, freeBlocks, freeInodes, true};
    }

    [[nodiscard]] std::optional<StandingFile> Look(const std::string& path) const override
    {
        return path == "/data" || path == "/data/state" ? std::optional(StandingFile{true, 1})
                                                        : std::nullopt;
    }

    std::uint64_t freeBlocks = 100;
    std::uint64_t freeInodes = 100;
};

class PanelJudgeTest : public testing::Test
{
protected:
    PanelJudgeTest()
    {
        m_policy.state = "/data/state";
        m_policy.signatures = SignatureRule::kOptional;
    }

    /// The words of the reasons that are told before the copy.
    std::vector<std::string> Early(const std::string& name = "Hello.kx-update")
    {
        const archive::MemoryBytes bytes(m_zip);
        PanelJudge judge(m_policy, m_keys, m_fileSystems, m_confinement);
        std::vector<std::string> words;
        for (const Reason& reason : judge.BeforeCopy({bytes, -1, name}).reasons) {
            words.emplace_back(ReasonWord(reason.id));
        }
        return words;
    }

    Policy m_policy;
    signature::TrustedKeys m_keys;
    OneFileSystem m_fileSystems;
    InProcess m_confinement;
    std::string m_zip = archive::ZipOf({{"file", std::string(2000, 'x')}});
};

} // namespace

TEST_F(PanelJudgeTest, LetsAPackageBeCopied)
{
    EXPECT_THAT(Early(), testing::IsEmpty());
}

TEST_F(PanelJudgeTest, RefusesBeforeTheCopyWhatIsTooLarge)
{
    m_policy.limits.packageBytes = m_zip.size() - 1;

    EXPECT_THAT(Early(), testing::ElementsAre(ReasonWord(ReasonId::kSize)));
}

TEST_F(PanelJudgeTest, RefusesBeforeTheCopyWhatIsNotSigned)
{
    m_policy.signatures = SignatureRule::kRequired;

    EXPECT_THAT(Early(), testing::ElementsAre(ReasonWord(ReasonId::kSignatureMissing)));
}

TEST_F(PanelJudgeTest, RefusesBeforeTheCopyANameThatIsNone)
{
    EXPECT_THAT(Early("$(reboot).kx-update"), testing::ElementsAre(ReasonWord(ReasonId::kName)));
}

TEST_F(PanelJudgeTest, RefusesBeforeTheCopyWhatThereIsNoRoomFor)
{
    m_fileSystems.freeBlocks = 1;
    EXPECT_THAT(Early(), testing::ElementsAre(ReasonWord(ReasonId::kRoom)));

    m_fileSystems.freeBlocks = 100;
    m_fileSystems.freeInodes = 0;
    EXPECT_THAT(Early(), testing::ElementsAre(ReasonWord(ReasonId::kInodes)));
}

} // namespace kx::guard
