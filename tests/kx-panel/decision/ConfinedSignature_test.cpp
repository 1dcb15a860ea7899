// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT

// The decision about signatures as a panel makes it: with a real process that proposes.
#include "confined/ConfinedProcess.h"
#include "decision/SignatureDecision.h"
#include "reading/ConfinementOf.h"
#include "signature/SignedOf.h"
#include "support/TempDir.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

namespace kx::guard
{

namespace
{

using signature::EdKey;
using signature::SignedBytes;
using signature::SmallZip;

/// Signatures do not depend on these.
class UnaskedFileSystems final : public IFileSystems
{
public:
    [[nodiscard]] FileSystem Of(const std::string& /*path*/) const override { std::abort(); }
    [[nodiscard]] std::optional<StandingFile> Look(const std::string& /*path*/) const override
    {
        std::abort();
    }
};

/// Returns the word of the first reason; "" without one.
std::string WordOf(const std::string& bytes)
{
    const TempDir folder;
    const archive::FileBytes source(folder.Write("on the drive", bytes));
    Policy policy;
    policy.model.models = {"TP-0700"};
    const signature::TrustedKeys keys = signature::Trusting({&EdKey()});
    const UnaskedFileSystems fileSystems;
    ConfinedProcess confinement(ConfinementOf(policy.limits));
    Decision decision;
    const bool goesOn = DecideSignature({policy, keys, fileSystems, {}}, confinement, source,
                                        source.File().Number(), "on the drive", decision);
    EXPECT_EQ(goesOn, decision.IsAccepted());
    return goesOn ? "" : ReasonWord(decision.reasons.front().id);
}

} // namespace

TEST(ConfinedSignature, IsJudgedLikeAnyOther)
{
    const std::string file = SignedBytes(SmallZip(), {&EdKey()});
    std::string damaged = file;
    damaged[file.find("KX-SIGNATURES")] = 'k';
    std::string changed = file;
    changed[file.find("one")] = 'O';

    EXPECT_EQ(WordOf(file), "");
    EXPECT_EQ(WordOf(SignedBytes(signature::WithZip64End(SmallZip()), {&EdKey()})), "");
    EXPECT_EQ(WordOf(SmallZip()), "signature-missing");
    EXPECT_EQ(WordOf(damaged), "signature-damaged");
    EXPECT_EQ(WordOf(changed), "signature-changed");
    EXPECT_EQ(WordOf(SignedBytes(SmallZip(), {&signature::OtherEdKey()})), "signature-untrusted");
    EXPECT_EQ(WordOf("rubbish"), "signature-damaged");
    EXPECT_EQ(WordOf(""), "signature-damaged");
}

} // namespace kx::guard
