// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT

// Decides about the input as a panel does, all in one process: once as it is, on a panel that needs
// no signatures, and once with a block of its own, on a panel that needs them. The verifier that is
// handed in takes every signature for good, so that what comes behind signatures is reached.
#include "decision/Decision.h"

#include "FuzzPanel.h"
#include "Require.h"
#include "archive/UnpackVerdict.h"
#include "archive/ZipStructure.h"
#include "confined/Unread.h"
#include "kx-panel/InProcess.h"
#include "signature/PackageName.h"
#include "signature/Refusal.h"
#include "signature/SignedFile.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace
{

using kx::guard::Decision;
using kx::guard::ReasonId;
using kx::guard::SignatureRule;

bool IsTaken(const kx::signature::PublicKey& /*key*/, std::string_view /*signature*/,
             std::string_view /*bytes*/)
{
    return true;
}

bool IsNotTaken(const kx::signature::PublicKey& /*key*/, std::string_view /*signature*/,
                std::string_view /*bytes*/)
{
    return false;
}

Decision Decided(const FuzzPanel& panel, std::string_view bytes, SignatureRule rule,
                 const kx::signature::Verifier& verify)
{
    kx::guard::InProcess confinement;
    const kx::archive::MemoryBytes source(bytes);
    return kx::guard::Decide(panel.With(rule, verify), confinement, source, -1, "fuzz.kx-update",
                             kx::guard::Place::kElsewhere);
}

/// What holds for every decision.
void RequireDecision(const FuzzPanel& panel, const Decision& decision)
{
    for (const kx::guard::Reason& reason : decision.reasons) {
        for (const auto language :
             {kx::guard::Language::kEnglish, kx::guard::Language::kJapanese}) {
            Require(!WhatText(reason, language).empty() && !RemedyText(reason, language).empty());
        }
    }
    if (decision.IsAccepted()) {
        const kx::guard::Limits& limits = panel.TheLimits();
        Require(kx::signature::IsSafePackageName(decision.facts.name));
        Require(decision.facts.entries <= limits.entries);
        Require(decision.facts.unpackedBytes <= limits.unpackedBytes);
        Require(decision.facts.model == FuzzPanel::kModel);
        Require(decision.facts.osVersion == FuzzPanel::kOsVersion);
    }
}

/// Signs the input in the place of whoever signed it before.
/// @return nothing when it cannot be signed
std::optional<std::string> Signed(std::string_view bytes)
{
    const kx::archive::MemoryBytes source(bytes);
    try {
        const kx::signature::SignedFile file(source, "fuzz");
        const kx::signature::EndRecords end(source, "fuzz");
        const kx::signature::Block block{
            {"signed", file.Length(), file.Digest()},
            {{FuzzPanel::KeyId(), std::string(kx::signature::kSignatureSize, '\1')}}};
        std::string whole;
        kx::signature::CoveredBytes(source, end, file.BlockSize(), "fuzz")
            .Stream(BytesOf(block), [&whole](std::string_view piece) { whole += piece; });
        return whole;
    } catch (const kx::signature::Refusal&) {
        return {};
    }
}

void DecideSigned(const FuzzPanel& panel, const std::string& bytes)
{
    const Decision decision = Decided(panel, bytes, SignatureRule::kRequired, IsTaken);
    RequireDecision(panel, decision);
    Require(decision.facts.name == "signed" && decision.facts.signer == FuzzPanel::kSigner);
    const Decision refused = Decided(panel, bytes, SignatureRule::kOptional, IsNotTaken);
    Require(refused.reasons.size() == 1 && refused.reasons[0].id == ReasonId::kSignatureBad);
}

/// Nothing is taken that the device's unzip would not unpack.
void DecideUnsigned(const FuzzPanel& panel, std::string_view bytes)
{
    const Decision decision = Decided(panel, bytes, SignatureRule::kOptional, IsNotTaken);
    RequireDecision(panel, decision);
    if (decision.IsAccepted()) {
        const kx::archive::MemoryBytes source(bytes);
        const auto zip = kx::archive::ReadZipStructure(source);
        Require(kx::archive::JudgeUnpacking(source, zip).status == 0);
        Require(decision.facts.name == "fuzz" && decision.facts.signer.empty());
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const FuzzPanel panel;
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    DecideUnsigned(panel, bytes);
    const std::optional<std::string> whole = Signed(bytes);
    if (whole.has_value()) {
        DecideSigned(panel, *whole);
    }
    return 0;
}
