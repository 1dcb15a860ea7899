// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "reading/ConfinementOf.h"

namespace kx::guard
{

ConfinementLimits ConfinementOf(const Limits& limits)
{
    // What is told about each entry besides its bytes, and about the package.
    constexpr std::uint64_t kMessagesOfEntry = 16;
    constexpr std::uint64_t kBytesOfEntry = std::uint64_t{16} << 10;
    // Contents come in pieces of at least this size, but for the last one of each.
    constexpr std::uint64_t kLeastPiece = 512;
    constexpr std::uint64_t kMore = 1000;
    const std::uint64_t entries = limits.entries + kMore;
    const std::uint64_t contents = limits.unpackedBytes + limits.descriptionBytes;
    return {
        {limits.readerMemory, limits.readerSeconds},
        {entries * kMessagesOfEntry + contents / kLeastPiece, entries * kBytesOfEntry + contents}};
}

} // namespace kx::guard
