// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "checks/Findings.h"
#include "format/Description.h"
#include "format/PanelFile.h"

#include <string>

namespace kx::checks
{

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
