// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace kx::tool
{

// Patterns for paths. `*` stands for any characters of a name, `?` for one, and a part that is
// `**` for any number of folders, none included. `*`, `?` and `**` do not match names that begin
// with a dot unless the pattern's part does, too.

/// Tells whether the text holds a wildcard.
[[nodiscard]] bool HasWildcard(std::string_view text);

/// Tells whether the pattern fits the whole path; both are split at '/'. The time it takes grows
/// with the product of the lengths, never faster.
[[nodiscard]] bool MatchesPath(std::string_view pattern, std::string_view path);

/// Returns the folder before the first part with a wildcard (or before the last part), without a
/// '/' at its end; empty when there is none. "data/*/x" gives "data", "/x" gives "/".
[[nodiscard]] std::string FixedFolder(std::string_view pattern);

/// Returns the patterns that fit nothing below a folder. What is in folders that cannot be entered
/// is not looked at.
[[nodiscard]] std::vector<std::string> IdlePatterns(const std::string& folder,
                                                    std::vector<std::string> patterns);

/// A file or folder below a folder.
struct FoundFile {
    std::string name; ///< path below the folder that was searched
    std::string path; ///< path to open it by
    bool isFolder = false;
};

/// What of a tree is wanted; both get a path below the folder that is searched.
struct TreeFilter {
    std::function<bool(const std::string& name)> isWanted;
    std::function<bool(const std::string& folder)> isEntered; ///< asked for folders
};

/// Makes the filter that finds what a pattern fits; it enters only folders that may hold such.
[[nodiscard]] TreeFilter FilterOf(const std::string& pattern);

/// Makes the filter that finds everything but what one of the patterns fits, and what is in such
/// folders.
[[nodiscard]] TreeFilter FilterWithout(const std::vector<std::string>& patterns);

/// Lists what is wanted below a folder, sorted by name, byte by byte. Links to files count as
/// files.
/// @throws Error for what cannot be listed, and for wanted links to folders, links to nothing, and
///         things that are neither file nor folder
[[nodiscard]] std::vector<FoundFile> ListTree(const std::string& folder, const TreeFilter& filter);

} // namespace kx::tool
