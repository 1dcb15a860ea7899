// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include <set>

namespace kx::guard
{

/// Closes all of the process's descriptors but some.
/// @throws Error when it cannot find out which are open
void CloseAllBut(const std::set<int>& kept);

/// Does the same by the list in /proc, for kernels before Linux 5.9.
/// @throws Error when there is no such list
void CloseListedBut(const std::set<int>& kept);

} // namespace kx::guard
