// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "archive/UnpackVerdict.h"
#include "checks/Findings.h"

#include <cstddef>
#include <cstdint>
#include <optional>

namespace kx::checks
{

/// Tells what the device's unzip makes of an archive, by its verdict and its entries' names.
/// @param verdict  JudgeUnpacking of the structure
/// @param block    index of the structure's fault that is but the block of signatures
void CheckArchive(const archive::ZipStructure& zip, const archive::UnpackVerdict& verdict,
                  std::optional<std::size_t> block, Findings& findings);

/// Tells whether the names of an archive, with those of all folders above them, have more bytes
/// together than memory should.
[[nodiscard]] bool HasTooManyNames(const archive::ZipStructure& zip, std::uint64_t most);

} // namespace kx::checks
