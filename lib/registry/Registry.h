// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "format/FastSteps.h"
#include "io/RootedFolder.h"
#include "panel/Names.h"
#include "registry/RecordList.h"

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace kx::registry
{

/// Where a panel keeps its records, one folder each.
constexpr const char* kRegistryPath = panel::kRegistry;

/// The list in a record.
constexpr const char* kListName = panel::kInstalledList;

/// How large the description in a record may be; real ones have some kilobytes.
constexpr std::uint64_t kLargestRecordedDescription = std::uint64_t{16} << 20;

/// What the description in a record says about the package.
struct Identity {
    std::string title;
    std::string version;
    std::string comment;
    std::string model;
    std::string osVersion;
    std::string date;
};

/// How many folders and files a record names.
struct RecordedCounts {
    std::uint64_t folders = 0;
    std::uint64_t files = 0;
};

/// One entry of the registry.
struct Record {
    std::string name;
    bool isRecord = false;             ///< false: something else lies among the records
    std::optional<Identity> identity;  ///< absent when the updater's own list leaves it out
    std::optional<RecordedCounts> has; ///< absent when there is no list that can be read
    /// What its list leaves out: scripts unpacked these files, and have their names.
    std::vector<format::FastSteps> fastFolders;
    std::vector<RecordProblem> problems;
    std::uint64_t omittedProblems = 0; ///< those of the list beyond kMostListProblems
};

/// Returns the path of a record on the panel.
[[nodiscard]] std::string RecordPath(const std::string& name);

/// Returns the names of everything in the registry, in the order of their bytes, as the updater's
/// own list finds them; none when there is no registry.
/// @throws Error when it cannot be read
[[nodiscard]] std::vector<std::string> RegistryNames(const io::RootedFolder& root);

/// Reads a record. What is wrong with it stands in the result.
/// @param name  one of RegistryNames
/// @param tell  is told the entries of the list
[[nodiscard]] Record ReadRecord(
    const io::RootedFolder& root, const std::string& name,
    const std::function<void(const ListEntry&)>& tell = [](const ListEntry& /*entry*/) {});

} // namespace kx::registry
