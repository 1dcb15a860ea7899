// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

namespace kx::tool
{

/// Returns the full path of the folder in which a panel is to be kept.
/// @param named  as a person names it
/// @param apart  files and folders that it must not lie in; they are there
/// @throws Error with kWrongUse when something is there already or it lies in one of these,
///         otherwise when the folder above it is none that can be looked at
[[nodiscard]] std::string PlaceToKeep(const std::string& named,
                                      const std::vector<std::string>& apart);

/// Makes the folder in which the panel's files lie until they get their place, beside that place.
/// @throws Error "cannot make the folder: …"
[[nodiscard]] std::string MakeFolderBeside(const std::string& place);

/// Gives the panel's files their place, in one step.
/// @param folder  made by MakeFolderBeside
/// @return false when no panel was ever made in it; then nothing is done
/// @throws Error when something else has come there, or that cannot be
[[nodiscard]] bool GivePlace(const std::string& folder, const std::string& place);

} // namespace kx::tool
