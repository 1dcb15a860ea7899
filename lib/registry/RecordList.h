// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "io/Descriptor.h"

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace kx::registry
{

/// Something that is wrong with a record.
struct RecordProblem {
    const char* id;   ///< stable, for programs
    std::string what; ///< a sentence without its capital and full stop
};

/// One entry of a list of installed files.
struct ListEntry {
    bool isFolder = false;
    std::string path;       ///< full, on the panel
    std::uint64_t line = 0; ///< counts from 1; 0 of what only a script of the record names
};

/// What a whole list says.
struct ListSummary {
    std::uint64_t folders = 0;
    std::uint64_t files = 0;
    std::vector<RecordProblem> problems; ///< at most kMostListProblems
    std::uint64_t omittedProblems = 0;   ///< those beyond
};

constexpr std::size_t kMostListProblems = 20;

/// How long a path can be on the panel.
constexpr std::size_t kLongestPath = 4095;

/// How large a list may be; a path of 50 bytes needs 51 of them.
constexpr std::uint64_t kLargestList = std::uint64_t{256} << 20;

/// Reads a list of installed files piece by piece, and tells its entries in their order. Lines that
/// are no entries are problems, and the reading goes on behind them.
///
/// @param self  the path of the list on the panel: the updater notes it in every list
/// @throws Error when it cannot be read; the place is @p shown
[[nodiscard]] ListSummary ReadRecordList(const io::Descriptor& file, const std::string& shown,
                                         const std::string& self,
                                         const std::function<void(const ListEntry&)>& tell);

} // namespace kx::registry
