// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "reading/Proposal.h"

#include "confined/Unread.h"
#include "io/Text.h"
#include "reading/Fields.h"
#include "signature/PackageName.h"
#include "signature/Refusal.h"
#include "signature/SignedFile.h"

#include <string>
#include <utility>

namespace kx::guard
{

namespace
{

/// What is told, in one message.
enum class ProposalKind : std::uint8_t {
    kUnsigned = 1, ///< nothing
    kRefused,      ///< the reason, a text
    kSigned,       ///< the block's size, the statement's parts, how many signatures, these
};

constexpr std::size_t kLongestRefusal = 300; ///< bytes of the text

[[noreturn]] void RefuseProposal()
{
    throw Unread("what reads the package told of a block that cannot be");
}

std::uint8_t KindOf(ProposalKind kind)
{
    return static_cast<std::uint8_t>(kind);
}

void TellBlock(const signature::SignedFile& file, IMessages& messages)
{
    const signature::Block& block = *file.Signatures();
    FieldsWriter fields;
    fields.Number(file.BlockSize()).Text(block.statement.name).Number(block.statement.length);
    fields.Text(block.statement.digest).Number(block.signatures.size());
    for (const signature::Signature& signature : block.signatures) {
        fields.Text(signature.keyId).Text(signature.bytes);
    }
    messages.Send(KindOf(ProposalKind::kSigned), fields.Bytes());
}

/// What is done in the confinement.
void Propose(const archive::ByteSource& source, IMessages& messages)
{
    try {
        const signature::SignedFile file(source, "");
        if (file.Signatures().has_value()) {
            TellBlock(file, messages);
        } else {
            messages.Send(KindOf(ProposalKind::kUnsigned), {});
        }
    } catch (const signature::Refusal& refusal) {
        const std::string what = refusal.what();
        FieldsWriter fields;
        fields.Number(static_cast<std::uint64_t>(refusal.Why()));
        fields.Text(what.substr(0, kLongestRefusal));
        messages.Send(KindOf(ProposalKind::kRefused), fields.Bytes());
    }
}

/// Returns bytes of which the number is known.
std::string Exactly(FieldsReader& fields, std::size_t size)
{
    const std::string_view bytes = fields.Text(size);
    if (bytes.size() != size) {
        RefuseProposal();
    }
    return std::string(bytes);
}

Proposal TakeBlock(FieldsReader& fields, std::uint64_t fileSize)
{
    Proposal proposal;
    signature::Statement& statement = proposal.block.statement;
    proposal.blockSize = fields.Number(signature::kLargestBlock);
    statement.name = fields.Text(signature::kLongestPackageName);
    statement.length = fields.Number();
    statement.digest = Exactly(fields, signature::kDigestSize);
    const std::uint64_t count = fields.Number(signature::kMostSignatures);
    for (std::uint64_t i = 0; i < count; ++i) {
        std::string keyId = Exactly(fields, signature::kKeyIdSize);
        proposal.block.signatures.push_back(
            {std::move(keyId), Exactly(fields, signature::kSignatureSize)});
    }
    fields.End();
    if (!signature::IsSafePackageName(statement.name) || WrongWith(proposal.block) != nullptr ||
        BytesOf(proposal.block).size() != proposal.blockSize || proposal.blockSize > fileSize ||
        statement.length != fileSize - proposal.blockSize) {
        RefuseProposal();
    }
    return proposal;
}

[[noreturn]] void TakeRefusal(FieldsReader& fields)
{
    using signature::Reason;
    const auto reason = static_cast<Reason>(fields.Number(static_cast<int>(Reason::kLimit)));
    const std::string what = io::Printable(fields.Text(kLongestRefusal));
    fields.End();
    if (reason != Reason::kEnd && reason != Reason::kBlock && reason != Reason::kChanged) {
        RefuseProposal();
    }
    throw signature::Refusal(reason, "", what);
}

} // namespace

std::optional<Proposal> ReadProposal(IConfinement& confinement, const archive::ByteSource& source,
                                     int descriptor)
{
    std::optional<Proposal> proposal;
    bool isTold = false;
    const auto take = [&](const Message& message) {
        if (std::exchange(isTold, true)) {
            RefuseProposal();
        }
        FieldsReader fields(message.bytes);
        switch (static_cast<ProposalKind>(message.kind)) {
        case ProposalKind::kUnsigned:
            fields.End();
            return;
        case ProposalKind::kRefused:
            TakeRefusal(fields);
        case ProposalKind::kSigned:
            proposal = TakeBlock(fields, source.Size());
            return;
        }
        RefuseProposal();
    };
    confinement.Run(
        descriptor, [&source](IMessages& messages) { Propose(source, messages); }, take);
    if (!isTold) {
        RefuseProposal();
    }
    return proposal;
}

} // namespace kx::guard
