// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include <algorithm>
#include <cstdint>

namespace kx::guard
{

// Amounts that a package may name as it likes: what is too much for a number stays the largest one.

[[nodiscard]] constexpr std::uint64_t SaturatedSum(std::uint64_t one, std::uint64_t other)
{
    return one > UINT64_MAX - other ? UINT64_MAX : one + other;
}

[[nodiscard]] constexpr std::uint64_t SaturatedProduct(std::uint64_t one, std::uint64_t other)
{
    return other != 0 && one > UINT64_MAX / other ? UINT64_MAX : one * other;
}

/// Returns what is left of an amount, 0 when more is taken off than there is.
[[nodiscard]] constexpr std::uint64_t SaturatedDifference(std::uint64_t one, std::uint64_t other)
{
    return one > other ? one - other : 0;
}

/// Returns how many blocks a number of bytes takes.
/// @param block  bytes of one; 0 counts as 1
[[nodiscard]] constexpr std::uint64_t BlocksOf(std::uint64_t bytes, std::uint64_t block)
{
    const std::uint64_t size = std::max<std::uint64_t>(block, 1);
    return bytes / size + (bytes % size == 0 ? 0 : 1);
}

} // namespace kx::guard
