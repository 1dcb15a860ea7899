// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "io/Mistakes.h"
#include "panel/Names.h"

#include <cstdint>
#include <string>
#include <vector>

namespace kx::format
{

class TomlTable;

/// Whether a panel installs packages that are not signed.
enum class SignatureRule {
    kRequired,
    kOptional, ///< unsigned packages are installed; a bad signature refuses all the same
};

/// Whether a panel installs an older version than it had.
enum class DowngradeRule { kRefuse, kAllow };

/// How much of a package a panel looks at, takes, and remembers.
struct PanelLimits {
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

/// One of these limits: its key in the table "limits", and from where to where it may go.
struct PanelLimit {
    const char* key;
    std::uint64_t PanelLimits::*value;
    std::uint64_t least;
    std::uint64_t most;
    const char* about; ///< for people, a sentence
};

/// All of them, in the order in which they are written.
[[nodiscard]] const std::vector<PanelLimit>& PanelLimitKeys();

/// What a panel lets in, as its own file says it. What is left out is as here.
struct PanelRules {
    SignatureRule signatures = SignatureRule::kRequired;
    DowngradeRule downgrade = DowngradeRule::kRefuse;
    /// The folder of what the panel remembers. This path and the next one come into commands: they
    /// are plain, full, of letters, digits, '.', '_' and '-', and neither is in the other.
    std::string state = panel::kPanelState;
    std::string updater = panel::kPanelUpdater; ///< the program that installs
    PanelLimits limits;
};

/// How long such a path may be, in bytes.
constexpr std::size_t kLongestPanelPath = 200;

/// The folders below which neither of these paths may lie: what is there is gone with the next
/// start, comes on a drive, or is no storage.
[[nodiscard]] const std::vector<std::string>& UnkeptFolders();

/// Reads these keys of a panel's description.
/// @param mistakes  gets what is wrong, with place and remedy
void ReadPanelRules(const TomlTable& table, PanelRules& rules, io::Mistakes& mistakes);

} // namespace kx::format
