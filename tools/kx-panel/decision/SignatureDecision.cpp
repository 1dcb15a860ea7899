// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "decision/SignatureDecision.h"

#include "confined/Unread.h"
#include "io/Hex.h"
#include "panel/Names.h"
#include "reading/Proposal.h"
#include "signature/CoveredBytes.h"
#include "signature/Judgement.h"
#include "signature/PackageName.h"
#include "signature/Refusal.h"

#include <algorithm>
#include <optional>
#include <string_view>

namespace kx::guard
{

namespace
{

using signature::EndRecords;
using signature::Judgement;
using signature::Refusal;
using signature::Signer;
using signature::SignerState;

std::string KeyText(const Signer& signer)
{
    const std::string id = io::Hex(signer.keyId);
    return signer.name.empty() ? id : "'" + signer.name + "' (" + id + ")";
}

/// Lists who signed, and why that does not count.
std::string SignersText(const Judgement& judgement)
{
    std::string text;
    for (const Signer& signer : judgement.signers) {
        text +=
            (text.empty() ? "" : ", ") + KeyText(signer) + " is " + SignerStateName(signer.state);
    }
    return text;
}

/// Judges one package.
class SignatureDecision
{
public:
    SignatureDecision(const Panel& panel, const archive::ByteSource& source, Decision& decision)
        : m_panel(panel), m_source(source), m_decision(decision)
    {
    }

    /// Judges who signed.
    bool DecideSigner(IConfinement& confinement, int descriptor, const std::string& fileName)
    {
        try {
            m_proposal = ReadProposal(confinement, m_source, descriptor);
            if (m_proposal.has_value()) {
                return TakeSigned();
            }
        } catch (const Refusal& refusal) {
            // An archive that ends otherwise has no place for signatures; it need not have one.
            if (refusal.Why() != signature::Reason::kEnd || IsRequired()) {
                return Refuse(refusal);
            }
        }
        return TakeUnsigned(fileName);
    }

    /// Judges whether the file is the one that was signed.
    bool DecideBytes()
    {
        if (!m_proposal.has_value()) {
            return true;
        }
        const signature::CoveredBytes bytes(m_source, *m_end, m_proposal->blockSize, "");
        return bytes.Digest() == m_proposal->block.statement.digest ||
               Refuse(ReasonId::kSignatureChanged);
    }

private:
    [[nodiscard]] bool IsRequired() const
    {
        return m_panel.policy.signatures == SignatureRule::kRequired;
    }

    bool Refuse(ReasonId id, std::vector<std::string> values = {})
    {
        m_decision.reasons.push_back({id, std::move(values)});
        return false;
    }

    bool Refuse(const Refusal& refusal)
    {
        return refusal.Why() == signature::Reason::kChanged
                   ? Refuse(ReasonId::kSignatureChanged)
                   : Refuse(ReasonId::kSignatureDamaged, {refusal.what()});
    }

    /// Looks itself whether the block is there that the confinement told of, without taking
    /// anything apart: its place follows from the end records, its bytes from what was told.
    void RequireBlock()
    {
        m_end.emplace(m_source, "");
        const std::string bytes = BytesOf(m_proposal->block);
        if (bytes.size() > m_end->DirectoryAt() ||
            m_source.Read(m_end->DirectoryAt() - bytes.size(), bytes.size()) != bytes) {
            throw Unread("what reads the package told of a block that is not there");
        }
    }

    bool TakeSigned()
    {
        RequireBlock();
        const Judgement judgement = signature::Judge(m_proposal->block, m_panel.keys,
                                                     m_panel.policy.model.models, m_panel.verify);
        for (const Signer& signer : judgement.signers) {
            if (signer.state == SignerState::kBad) {
                Refuse(ReasonId::kSignatureBad, {KeyText(signer)});
            }
        }
        if (judgement.Has(SignerState::kBad)) {
            return false;
        }
        if (!judgement.IsTrusted()) {
            return Refuse(ReasonId::kSignatureUntrusted, {SignersText(judgement)});
        }
        const auto counts = [](const Signer& signer) { return signer.state == SignerState::kGood; };
        PackageFacts& facts = m_decision.facts;
        facts.signer =
            std::find_if(judgement.signers.begin(), judgement.signers.end(), counts)->name;
        facts.name = m_proposal->block.statement.name;
        facts.blockSize = m_proposal->blockSize;
        return true;
    }

    bool TakeUnsigned(const std::string& fileName)
    {
        if (IsRequired()) {
            return Refuse(ReasonId::kSignatureMissing);
        }
        const std::string_view extension = panel::kPackageExtension;
        const std::size_t size = fileName.size() - std::min(fileName.size(), extension.size());
        const std::string name = fileName.substr(0, size);
        if (fileName.substr(size) != extension || !signature::IsSafePackageName(name)) {
            return Refuse(ReasonId::kName, {fileName});
        }
        m_decision.facts.name = name;
        return true;
    }

    const Panel& m_panel;
    const archive::ByteSource& m_source;
    Decision& m_decision;
    std::optional<Proposal> m_proposal;
    std::optional<EndRecords> m_end;
};

} // namespace

bool DecideSigner(const Panel& panel, IConfinement& confinement, const archive::ByteSource& source,
                  int descriptor, const std::string& fileName, Decision& decision)
{
    return SignatureDecision(panel, source, decision)
        .DecideSigner(confinement, descriptor, fileName);
}

bool DecideSignature(const Panel& panel, IConfinement& confinement,
                     const archive::ByteSource& source, int descriptor, const std::string& fileName,
                     Decision& decision)
{
    SignatureDecision signatures(panel, source, decision);
    return signatures.DecideSigner(confinement, descriptor, fileName) && signatures.DecideBytes();
}

} // namespace kx::guard
