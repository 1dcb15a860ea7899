// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "archive/Package.h"

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace kx::tool
{

/// How a package is unpacked.
struct UnpackOptions {
    std::uint64_t mostBytes = 0;                  ///< of all files together
    std::function<void(std::uint64_t done)> tell; ///< told how many bytes are written
};

/// What was unpacked.
struct UnpackedSources {
    std::string description; ///< what build makes of it: the package's own, but for what no panel
                             ///< reads
    std::size_t files = 0;   ///< of the payload
    std::uint64_t bytes = 0; ///< of everything that was written
    std::vector<std::size_t> verbatim; ///< steps that a manifest has no words for, counted from 1
    std::vector<std::string> remarks;  ///< what is not as in the package
};

/// Makes manifest and payload of a package.
/// @param folder  an empty one; what is in it after an error is worth nothing
/// @throws Error where the package cannot be read, or no manifest can stand for it; also when the
///         program is asked to end
[[nodiscard]] UnpackedSources UnpackSources(const archive::Package& package,
                                            const std::string& folder,
                                            const UnpackOptions& options);

} // namespace kx::tool
