// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace kx::tool
{

/// A file, folder or link that a run changed.
struct FileChange {
    std::string change; ///< "added", "changed", "removed"
    std::string path;
    std::string mode;  ///< "-rwxr-xr-x"; empty, like the rest, when nothing is known of what went
    std::string octal; ///< "0755"
    std::string owner;
    std::string group;
    std::optional<std::uint64_t> size; ///< absent for folders
    std::string target;                ///< of a link
};

/// A hardware setting that a run changed.
struct SettingChange {
    std::string name;
    std::optional<std::string> before; ///< absent when it was not set
    std::optional<std::string> after;
};

/// Something that happened to a thing with a name: a user, or the record of a package.
struct NamedChange {
    std::string name;
    std::string change;
};

/// What a run changed on the panel.
struct PanelChanges {
    std::vector<FileChange> files;
    std::vector<SettingChange> settings;
    std::vector<NamedChange> users;
    std::vector<NamedChange> packages; ///< their records
    bool isRebootAsked = false;
};

/// Reads the device's summary of a run (--summary-json). Names may hold any bytes.
/// @throws std::runtime_error when it is none
[[nodiscard]] PanelChanges ReadPanelChanges(const std::string& json);

} // namespace kx::tool
