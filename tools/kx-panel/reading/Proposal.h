// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "archive/ByteSource.h"
#include "confined/Confinement.h"
#include "signature/Block.h"

#include <cstdint>
#include <optional>

namespace kx::guard
{

/// What a package says about its signatures. Nothing of it has been believed yet, but it has the
/// form of a block, and the file's length fits.
struct Proposal {
    signature::Block block;
    std::uint64_t blockSize = 0; ///< bytes
};

/// Reads in a confinement what a package says about its signatures: the end records and the block,
/// and nothing else.
/// @return nothing when it has no block
/// @throws Refusal  kEnd, kBlock, kChanged, as the confinement tells
/// @throws Unread   also when that tells what no block can hold
/// @throws Error    as the confinement
[[nodiscard]] std::optional<Proposal>
ReadProposal(IConfinement& confinement, const archive::ByteSource& source, int descriptor);

} // namespace kx::guard
