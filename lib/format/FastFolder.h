// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace kx::format
{

/// The uninstall script of a step that leaves nothing to remove.
constexpr const char* kNoUninstall = "#!/bin/sh\n";

/// The archive of a fast folder in the package; in the description this follows the folder's path.
constexpr const char* kFastArchiveName = "files.tar";

/// A folder whose files travel to the panel in one archive: one step copies that, the script of the
/// next one unpacks and removes it. All that is known of it on the panel stands in its two scripts.
struct FastFolder {
    std::string target;          ///< on the panel, without a '/' at its end but for "/" itself
    std::string archive;         ///< path of the archive on the panel
    std::uint64_t size = 0;      ///< bytes of the archive
    std::uint64_t fileCount = 0; ///< in the archive
    std::uint64_t kib = 0;       ///< room for the files, each rounded up to whole KiB
    unsigned modes = 0;          ///< all permission bits that any of the files has
    std::vector<std::string> emptyFolders; ///< below the target, sorted
    bool isRecorded = true;                ///< its uninstall script removes the files
    std::vector<std::string> files;        ///< below the target, sorted; of a recorded folder only
};

/// Returns how many KiB of room a file takes.
/// @param size  in bytes
[[nodiscard]] std::uint64_t KibOf(std::uint64_t size);

/// Returns the path of the archive on the panel where the author names none: beside the target.
[[nodiscard]] std::string DefaultFastArchive(const std::string& target);

/// Writes the script that unpacks the archive. It needs `sh` and `tar`, and `rm`, `mkdir`, `wc`,
/// which every system with these has; `df` and `du` where they are there. It ends with 1, a line
/// that says why, and without the archive, when there is no tar, when the archive is not whole,
/// when there is no room, and when something cannot be made.
[[nodiscard]] std::string FastInstallScript(const FastFolder& folder);

/// Writes its counterpart: it removes the files, and the folders below the target in which there is
/// nothing else. kNoUninstall for a folder that is not recorded.
[[nodiscard]] std::string FastUninstallScript(const FastFolder& folder);

/// Reads the two scripts of a step.
/// @return nothing where they are not, byte by byte, what the two functions above write
[[nodiscard]] std::optional<FastFolder> ReadFastScripts(const std::string& install,
                                                        const std::string& uninstall);

/// Returns the folders below the target that hold the files of a recorded folder, and its empty
/// ones, sorted.
[[nodiscard]] std::vector<std::string> FoldersOf(const FastFolder& folder);

} // namespace kx::format
