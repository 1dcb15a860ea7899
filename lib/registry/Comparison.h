// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "registry/Registry.h"

#include <cstdint>
#include <string>
#include <vector>

namespace kx::registry
{

/// An entry of a record that is not as it was recorded.
struct Deviation {
    ListEntry entry;
    io::RootedFolder::Standing standing; ///< what is there instead
};

/// How the recorded folders, or the recorded files, are found.
struct Tally {
    std::uint64_t present = 0;
    std::uint64_t missing = 0;
    std::uint64_t otherKind = 0; ///< a folder instead of a file, or such
    std::uint64_t unknown = 0;   ///< cannot be looked at

    [[nodiscard]] std::uint64_t Sum() const { return present + missing + otherKind + unknown; }
};

/// A record compared with what is there.
struct Comparison {
    Record record;
    Tally folders;
    Tally files;
    std::vector<Deviation> deviations; ///< in the order of the record, at most kMostDeviations
    std::uint64_t omitted = 0;         ///< those beyond

    [[nodiscard]] std::uint64_t Missing() const { return folders.missing + files.missing; }
    [[nodiscard]] std::uint64_t OtherKind() const { return folders.otherKind + files.otherKind; }
    [[nodiscard]] std::uint64_t Unknown() const { return folders.unknown + files.unknown; }

    /// Tells whether something is known to be wrong with the record or with what it names.
    [[nodiscard]] bool HasProblems() const;
};

constexpr std::size_t kMostDeviations = 10'000;

/// Compares a record with what is there.
/// @throws Error when there is no record of that name; the remedy tells the nearest ones
[[nodiscard]] Comparison CompareRecord(const io::RootedFolder& root, const std::string& name);

} // namespace kx::registry
