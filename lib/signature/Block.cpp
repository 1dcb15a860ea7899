// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "signature/Block.h"

#include "archive/ZipFields.h"
#include "signature/Refusal.h"

#include <algorithm>
#include <utility>

namespace kx::signature
{

namespace
{

constexpr std::string_view kMark = "KX-SIGNATURES 1\n";
static_assert(kMark.size() + 4 == kBlockEndSize);

bool IsBefore(const Signature& one, const Signature& other)
{
    return one.keyId < other.keyId;
}

} // namespace

const char* WrongWith(const Block& block)
{
    if (block.signatures.empty() || block.signatures.size() > kMostSignatures) {
        return "has no signature, or too many";
    }
    const auto isOutOfOrder = [](const Signature& one, const Signature& next) {
        return !IsBefore(one, next);
    };
    if (std::adjacent_find(block.signatures.begin(), block.signatures.end(), isOutOfOrder) !=
        block.signatures.end()) {
        return "has signatures out of order";
    }
    return BytesOf(block).find(kEndRecordMark) != std::string::npos
               ? "holds the mark of an archive's end"
               : nullptr;
}

std::optional<std::uint64_t> ReadBlockSize(std::string_view bytes)
{
    if (bytes.size() != kBlockEndSize || bytes.substr(4) != kMark) {
        return {};
    }
    return archive::ZipFields(bytes).Four();
}

std::string BytesOf(const Block& block)
{
    const std::string statement = TextOf(block.statement);
    std::string bytes(kMark);
    archive::AppendZipNumber(bytes, statement.size(), 2);
    bytes += statement;
    archive::AppendZipNumber(bytes, block.signatures.size(), 1);
    for (const Signature& signature : block.signatures) {
        bytes += signature.keyId;
        bytes += signature.bytes;
    }
    archive::AppendZipNumber(bytes, bytes.size() + kBlockEndSize, 4);
    bytes += kMark;
    return bytes;
}

Block ReadBlock(std::string_view bytes, const std::string& where)
{
    const auto refuse = [&where](const char* why) {
        throw Refusal(Reason::kBlock, where, std::string("its block of signatures ") + why,
                      "get the package again from where it was signed");
    };
    if (bytes.size() > kLargestBlock) {
        refuse("is too large");
    }
    // Behind the end all bytes are 0; what is cut does not come out as it was.
    archive::ZipFields fields(bytes, kMark.size());
    const std::size_t textSize = fields.Two();
    std::optional<Statement> statement = ReadStatement(fields.Text(textSize));
    if (!statement.has_value()) {
        refuse("has no statement that can be read");
    }
    Block block{std::move(*statement), {}};
    const std::string_view count = fields.Text(1);
    const std::size_t told = count.empty() ? 0 : static_cast<unsigned char>(count.front());
    for (std::size_t i = 0; i < std::min(told, kMostSignatures + 1); ++i) {
        const std::string_view keyId = fields.Text(kKeyIdSize);
        block.signatures.push_back({std::string(keyId), std::string(fields.Text(kSignatureSize))});
    }
    if (const char* const why = WrongWith(block); why != nullptr) {
        refuse(why);
    }
    if (BytesOf(block) != bytes) {
        refuse("is damaged");
    }
    return block;
}

} // namespace kx::signature
