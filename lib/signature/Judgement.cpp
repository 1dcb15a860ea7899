// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "signature/Judgement.h"

#include <algorithm>

namespace kx::signature
{

namespace
{

using Texts = std::vector<std::string>;

bool Holds(const Texts& texts, const std::string& text)
{
    return std::find(texts.begin(), texts.end(), text) != texts.end();
}

bool IsForPanel(const TrustedKey& key, const std::optional<Texts>& models)
{
    return !key.models.has_value() || !models.has_value() ||
           std::any_of(models->begin(), models->end(),
                       [&key](const std::string& model) { return Holds(*key.models, model); });
}

bool IsForPackage(const TrustedKey& key, const std::string& package)
{
    return !key.packages.has_value() || Holds(*key.packages, package);
}

/// What one key has to say about a signature by it.
SignerState StateOf(const TrustedKey& key, const Signature& signature, const Block& block,
                    const std::optional<Texts>& models, const Verifier& verify)
{
    if (key.isRevoked || key.isDamaged) {
        return key.isRevoked ? SignerState::kRevoked : SignerState::kDamaged;
    }
    if (!verify(key.key, signature.bytes, TextOf(block.statement))) {
        return SignerState::kBad;
    }
    const bool counts = IsForPanel(key, models) && IsForPackage(key, block.statement.name);
    return counts ? SignerState::kGood : SignerState::kLimited;
}

/// Of a key that lies in the folder several times the strictest file counts.
int Strictness(SignerState state)
{
    switch (state) {
    case SignerState::kUnknown:
        return 0;
    case SignerState::kGood:
        return 1;
    case SignerState::kLimited:
        return 2;
    case SignerState::kBad:
        return 3;
    case SignerState::kDamaged:
        return 4;
    case SignerState::kRevoked:
        break;
    }
    return 5;
}

} // namespace

bool Judgement::Has(SignerState state) const
{
    return std::any_of(signers.begin(), signers.end(),
                       [state](const Signer& signer) { return signer.state == state; });
}

bool Judgement::IsTrusted() const
{
    return Has(SignerState::kGood) && !Has(SignerState::kBad);
}

bool IsGoodSignature(const PublicKey& key, std::string_view signature, std::string_view bytes)
{
    return key.IsGood(signature, bytes);
}

Judgement Judge(const Block& block, const TrustedKeys& trusted, const std::optional<Texts>& models,
                const Verifier& verify)
{
    Judgement judgement;
    for (const Signature& signature : block.signatures) {
        Signer signer;
        signer.keyId = signature.keyId;
        for (const TrustedKey& key : trusted.keys) {
            if (key.key.Id() != signature.keyId) {
                continue;
            }
            const SignerState state = StateOf(key, signature, block, models, verify);
            if (Strictness(state) > Strictness(signer.state)) {
                signer.name = key.name;
                signer.state = state;
            }
            signer.needsModel =
                signer.needsModel || (key.models.has_value() && !models.has_value());
        }
        judgement.signers.push_back(std::move(signer));
    }
    return judgement;
}

const char* SignerStateName(SignerState state)
{
    switch (state) {
    case SignerState::kGood:
        return "good";
    case SignerState::kLimited:
        return "limited";
    case SignerState::kUnknown:
        return "unknown";
    case SignerState::kRevoked:
        return "revoked";
    case SignerState::kDamaged:
        return "damaged";
    case SignerState::kBad:
        break;
    }
    return "bad";
}

} // namespace kx::signature
