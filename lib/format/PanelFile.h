// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "format/PanelRules.h"
#include "format/Processor.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace kx::format
{

/// The name that a panel's file has by custom.
constexpr const char* kPanelFileName = "panel.toml";

/// The version of the file's format that is written and read.
constexpr int kPanelFormat = 1;

/// A folder of the panel on a file system of its own, or of limited room.
struct PanelPlace {
    std::string path; ///< plain, from the root
    std::uint64_t bytes = 0;
};

/// What the panel's setting tool takes for one name. Without values and range it takes any.
struct PanelSetting {
    struct Range {
        std::int64_t least = 0;
        std::int64_t most = 0;
    };

    std::string name;
    std::vector<std::string> values;
    std::optional<Range> range;

    /// Tells whether the tool takes the value: one of the values, or a whole number of the range.
    [[nodiscard]] bool Takes(const std::string& value) const;

    /// Returns what it takes, for people: "'on' or 'off'", "a number from 0 to 15".
    [[nodiscard]] std::string Taken() const;
};

/// What is known about a model of panel. What is absent is not known, and nothing is judged by it;
/// a list that is there is complete, also when it is empty.
struct PanelModel {
    std::string file; ///< the file that said so; empty when nothing is known
    std::optional<std::vector<std::string>> models;
    std::optional<std::vector<std::string>> osVersions;
    const Processor* processor = nullptr;
    FloatAbi floatAbi = FloatAbi::kUnknown;
    std::string cLibrary; ///< version of the GNU C library: "2.31"; empty when not known
    std::string root;     ///< folder with a copy of the panel's files, to be opened as it stands
    std::optional<std::vector<std::string>> libraries;    ///< names of shared libraries
    std::optional<std::vector<std::string>> interpreters; ///< full paths
    std::string shell; ///< program that /bin/sh is: one of PanelShells(); empty when not known
    std::optional<std::vector<std::string>> users;
    std::vector<std::string> protectedPlaces; ///< plain paths; packages should not write there
    std::vector<PanelPlace> places;
    std::optional<std::vector<PanelSetting>> settings;
    PanelRules rules; ///< for the panel itself; packages are not judged by them elsewhere
};

/// The shells that a panel's /bin/sh may be.
[[nodiscard]] const std::vector<std::string>& PanelShells();

/// How large the file may be, in bytes.
constexpr std::uint64_t kLargestPanelFile = std::uint64_t{4} << 20;

/// Reads the file that describes a model of panel (panel.toml).
/// @throws Error when it cannot be read; Errors for all that is wrong in it, with places and
///         remedies: what is not known to this version of the format, and what is said twice, too
[[nodiscard]] PanelModel ReadPanelFile(const std::string& path);

/// Reads the text of a panel's own description, which says more: models, system versions and the
/// processor. The folder with a copy of a panel's files, which an author may have named, is not
/// looked at, and not told.
/// @param path  of the file, for messages
/// @throws Errors as ReadPanelFile, and for what is missing
[[nodiscard]] PanelModel ParseOwnPanelFile(const std::string& text, const std::string& path);

} // namespace kx::format
