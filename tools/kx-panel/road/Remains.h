// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "io/RootedFolder.h"
#include "journal/State.h"

#include <string>

namespace kx::guard
{

/// The name that the copy of a package has in the state folder.
constexpr const char* kCopyName = "package";
/// The folder in the state folder in which a package is unpacked.
constexpr const char* kWorkName = "unpacked";

/// Removes the copy of a package, and what was unpacked.
/// @throws Error for what cannot be removed
void ClearWork(const StateFolder& state);

/// Clears what an installation left that did not come to its end, by a power cut or because its
/// kx-panel was killed: the copy, what was unpacked, the folder of its scripts, files half written.
/// An installation that the panel's records show to be done counts for the highest version. The
/// history gets its ending.
///
/// The lock of the state tells that nothing of that installation runs any more.
/// @param stepFolder  the folder of the updater's scripts
/// @param panel       the panel's files
/// @return a sentence for people about what was found; empty when nothing was
/// @throws Error when something cannot be read, written or removed
std::string ClearRemains(const State& state, const std::string& stepFolder,
                         const io::RootedFolder& panel);

} // namespace kx::guard
