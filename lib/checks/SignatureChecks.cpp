// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "checks/SignatureChecks.h"

#include "io/Hex.h"
#include "signature/Judgement.h"
#include "signature/Refusal.h"
#include "signature/SignedFile.h"

namespace kx::checks
{

namespace
{

using signature::Judgement;
using signature::SignedFile;
using signature::Signer;
using signature::SignerState;

std::string KeyText(const Signer& signer)
{
    const std::string id = io::Hex(signer.keyId);
    return signer.name.empty() ? "the unknown key " + id
                               : "the key '" + signer.name + "' (" + id + ")";
}

/// Tells about the signatures what the keys say to them.
class SignerCheck
{
public:
    SignerCheck(const Expected& expected, Findings& findings)
        : m_expected(expected), m_findings(findings)
    {
    }

    void Check(const signature::Block& block)
    {
        const Judgement judgement =
            signature::Judge(block, *m_expected.keys, m_expected.panel.models);
        std::string others;
        for (const Signer& signer : judgement.signers) {
            if (signer.state == SignerState::kBad) {
                Add(RuleId::kSignatureBad, "its signature by " + KeyText(signer) + " is not good");
            } else if (signer.state != SignerState::kGood) {
                others += (others.empty() ? "" : ", ") + KeyText(signer) + " is " +
                          SignerStateName(signer.state);
            } else if (signer.needsModel) {
                Add(RuleId::kSignatureModels,
                    KeyText(signer) + " counts on some models of panel only");
            }
        }
        if (!judgement.Has(SignerState::kGood) && !judgement.Has(SignerState::kBad)) {
            m_findings.AddAs(m_expected.requiresSignature ? Severity::kError : Severity::kWarning,
                             RuleId::kSignatureUntrusted, Location::Whole(),
                             "has no signature by a trusted key: " + others);
        }
    }

private:
    void Add(RuleId rule, const std::string& what)
    {
        m_findings.Add(rule, Location::Whole(), what);
    }

    const Expected& m_expected;
    Findings& m_findings;
};

RuleId RuleFor(signature::Reason reason)
{
    switch (reason) {
    case signature::Reason::kChanged:
        return RuleId::kSignatureChanged;
    case signature::Reason::kHidden:
        return RuleId::kSignatureHidden;
    case signature::Reason::kEnd:
        return RuleId::kSignatureMissing;
    case signature::Reason::kBlock:
    case signature::Reason::kLimit:
        break;
    }
    return RuleId::kSignatureDamaged;
}

/// Checks a package that has a block.
void CheckSigned(const SignedFile& file, const archive::ZipStructure& zip,
                 const std::string& record, const Expected& expected, Findings& findings)
{
    file.RefuseChanged();
    if (expected.keys != nullptr) {
        SignerCheck(expected, findings).Check(*file.Signatures());
    }
    const std::string& name = file.Signatures()->statement.name;
    if (!record.empty() && record != name) {
        findings.Add(RuleId::kSignatureName, Location::Whole(),
                     "is signed as '" + name + "', and recorded as '" + record + "' elsewhere");
    }
    file.RefuseHidden(zip);
}

} // namespace

std::optional<std::size_t> CheckSignatures(const archive::ByteSource& source,
                                           const archive::ZipStructure& zip,
                                           const std::string& record, const Expected& expected,
                                           Findings& findings)
{
    const auto tell = [&findings](const signature::Refusal& refusal) {
        findings.Add(RuleFor(refusal.Why()), Location::Whole(), refusal.what());
    };
    try {
        const SignedFile file(source, "");
        if (!file.Signatures().has_value()) {
            CheckUnsignable(expected, findings);
            return {};
        }
        try {
            CheckSigned(file, zip, record, expected, findings);
        } catch (const signature::Refusal& refusal) {
            tell(refusal);
            if (refusal.Why() == signature::Reason::kChanged) {
                return {};
            }
        }
        return file.BlockFault(zip);
    } catch (const signature::Refusal& refusal) {
        // An archive that ends otherwise has no place for signatures, and needs none everywhere.
        if (refusal.Why() != signature::Reason::kEnd || expected.requiresSignature) {
            tell(refusal);
        }
        return {};
    }
}

void CheckUnsignable(const Expected& expected, Findings& findings)
{
    if (expected.requiresSignature) {
        findings.Add(RuleId::kSignatureMissing, Location::Whole(), "is not signed");
    }
}

void CheckKeys(const Expected& expected, Findings& findings)
{
    if (expected.keys == nullptr) {
        return;
    }
    for (const io::Error& problem : expected.keys->problems) {
        findings.Add(RuleId::kSignatureKey, Location::Whole(), problem.Line());
    }
}

} // namespace kx::checks
