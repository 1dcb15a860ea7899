// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "archive/Package.h"
#include "checks/Findings.h"
#include "format/Description.h"
#include "format/PanelFile.h"

#include <cstdint>
#include <optional>
#include <string>

namespace kx::checks
{

/// Returns the bytes of a package's description, through links; nothing when that is told to be
/// impossible.
/// @param most  how many bytes one should have; of more the first that are too many are returned
/// @throws Error when the package cannot be read
[[nodiscard]] std::optional<std::string> DescriptionBytes(const archive::Package& package,
                                                          std::uint64_t most, Findings& findings);

/// Checks the bytes of a description file and everything in it that the reader refuses.
/// @return the description; its root is absent when there is nothing to look into
[[nodiscard]] format::Description CheckDescription(std::string bytes, Findings& findings);

/// Compares for which panels a package says that it is with a panel.
/// @param root  the description's root, an object
void CheckIdentityFor(const format::JsonNode& root, const format::PanelModel& panel,
                      Findings& findings);

/// How many bytes of a description are looked at.
constexpr std::uint64_t kLargestChecked = std::uint64_t{64} << 20;

} // namespace kx::checks
