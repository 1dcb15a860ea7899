// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT

// Reads the input as the end of a signed package: end records and block, and the block alone. What
// is accepted comes out byte for byte as it was, and a panel's parent process takes the same of it.
#include "Require.h"
#include "confined/Unread.h"
#include "kx-panel/InProcess.h"
#include "reading/Proposal.h"
#include "signature/Refusal.h"
#include "signature/SignedFile.h"

#include <algorithm>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace
{

using kx::guard::Proposal;
using kx::signature::Block;
using kx::signature::Refusal;
using kx::signature::SignedFile;

/// What holds for every block that was read.
void RequireBlock(const Block& block, std::string_view bytes)
{
    Require(BytesOf(block) == bytes && bytes.size() <= kx::signature::kLargestBlock);
    Require(!block.signatures.empty() && block.signatures.size() <= kx::signature::kMostSignatures);
    const std::string text = TextOf(block.statement);
    Require(kx::signature::ReadStatement(text) == block.statement);
    Require(bytes.find(kx::signature::kEndRecordMark) == std::string_view::npos);
}

/// The input as a block, and as a statement.
void ReadAlone(std::string_view text)
{
    const auto statement = kx::signature::ReadStatement(text);
    Require(!statement.has_value() || TextOf(*statement) == text);
    const auto size = kx::signature::ReadBlockSize(text.substr(
        text.size() - std::min<std::size_t>(text.size(), kx::signature::kBlockEndSize)));
    try {
        RequireBlock(kx::signature::ReadBlock(text, "fuzz"), text);
        Require(size == text.size());
    } catch (const Refusal& refusal) {
        Require(refusal.Why() == kx::signature::Reason::kBlock);
    }
}

/// What a parent process takes of the file must be what stands in it.
std::optional<Proposal> ProposalOf(const kx::archive::ByteSource& source)
{
    kx::guard::InProcess confinement;
    return kx::guard::ReadProposal(confinement, source, -1);
}

/// Writes the file with a block, or without one.
std::string Written(const SignedFile& file, const kx::archive::ByteSource& source,
                    const std::optional<Block>& block)
{
    const kx::signature::EndRecords end(source, "fuzz");
    std::string written;
    kx::signature::CoveredBytes(source, end, file.BlockSize(), "fuzz")
        .Stream(block.has_value() ? BytesOf(*block) : "",
                [&written](std::string_view piece) { written += piece; });
    return written;
}

/// The input as a file.
void ReadFile(std::string_view text)
{
    const kx::archive::MemoryBytes source(text);
    try {
        const SignedFile file(source, "fuzz");
        Require(Written(file, source, file.Signatures()) == text);
        const std::optional<Proposal> proposal = ProposalOf(source);
        Require(proposal.has_value() == file.Signatures().has_value());
        if (!proposal.has_value()) {
            return;
        }
        RequireBlock(*file.Signatures(), BytesOf(proposal->block));
        Require(proposal->blockSize == file.BlockSize());
        const std::string plain = Written(file, source, {});
        Require(plain.size() == file.Length() && file.Length() == proposal->block.statement.length);
        const kx::archive::MemoryBytes without(plain);
        const SignedFile unsignedFile(without, "fuzz");
        Require(unsignedFile.Digest() == file.Digest());
        Require(unsignedFile.Signatures().has_value() ||
                Written(unsignedFile, without, file.Signatures()) == text);
    } catch (const Refusal& refusal) {
        Require(!refusal.Line().empty());
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    ReadAlone(text);
    ReadFile(text);
    return 0;
}
