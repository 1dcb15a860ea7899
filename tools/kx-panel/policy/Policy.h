// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "format/PanelFile.h"
#include "signature/TrustedKeys.h"

#include <cstdint>
#include <string>

namespace kx::guard
{

/// Whether a panel installs packages that are not signed.
enum class SignatureRule {
    kRequired,
    kOptional, ///< unsigned packages are installed; a bad signature refuses all the same
};

/// Whether a panel installs an older version than it had.
enum class DowngradeRule { kRefuse, kAllow };

/// How much of a package a panel looks at, takes, and remembers.
struct Limits {
    std::uint64_t packageBytes = std::uint64_t{1} << 30;
    std::uint64_t unpackedBytes = std::uint64_t{2} << 30;
    std::uint64_t entries = 20000;
    std::uint64_t descriptionBytes = std::uint64_t{1} << 20;
    /// Bytes of memory of the process that reads packages.
    std::uint64_t readerMemory = std::uint64_t{64} << 20;
    /// Seconds that it may take for one package.
    std::uint64_t readerSeconds = 300;
    std::uint64_t historyEntries = 50;
    std::uint64_t historyBytes = std::uint64_t{4} << 20;
};

/// What a panel is, and what it lets in.
struct Policy {
    format::PanelModel model; ///< with models, system versions and a processor
    SignatureRule signatures = SignatureRule::kRequired;
    DowngradeRule downgrade = DowngradeRule::kRefuse;
    std::string state;   ///< plain full path of the folder of what is remembered
    std::string updater; ///< plain full path of the program that installs
    Limits limits;
};

} // namespace kx::guard
