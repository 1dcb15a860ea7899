// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace kx::tool
{

// Where a trial finds what it needs. The tool's folder is the one in which this program lies.

/// Returns the folder of the sandboxed device, which holds the program run: the named one, the one
/// of the environment variable KX_DEVICE, ../lib/kx_Updater/device of the tool's folder, or, for a
/// tool in the folder that it was built in, that of its sources.
/// @param named  empty when none was named
/// @throws Error when the place has none; no other place is tried then
[[nodiscard]] std::string FindDevice(const std::string& named, const std::string& toolFolder);

/// Returns the updater that does the installing, one for this machine's processor: the named one,
/// an installed one as for building packages, the one beside the tool, or, for a tool in the folder
/// that it was built in, that of the release build.
/// @param named  empty when none was named
/// @throws Error when there is none, or it is for another processor
[[nodiscard]] std::string FindTrialUpdater(const std::string& named, const std::string& toolFolder);

} // namespace kx::tool
