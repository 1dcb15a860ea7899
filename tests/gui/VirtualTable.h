// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstring>

/// Returns the place of a virtual function in its class's table, in entries from the table's start.
/// A pointer to such a member function holds its offset in the first word.
template <typename Member>
std::ptrdiff_t PlaceInVirtualTable(Member member)
{
    static_assert(sizeof(member) >= sizeof(std::ptrdiff_t));
    std::ptrdiff_t offset = 0;
    std::memcpy(&offset, &member, sizeof(offset));
    return offset / static_cast<std::ptrdiff_t>(sizeof(void*));
}
