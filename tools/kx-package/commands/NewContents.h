// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

namespace kx::tool
{

/// What an author has in the folder of a new package already.
struct NewContents {
    /// A folder, and the paths below it of what is to be started.
    struct Folder {
        std::string name;
        std::vector<std::string> programs;
        std::size_t files = 0;
    };

    std::vector<std::string> files;    ///< names of those that are not to be started
    std::vector<std::string> programs; ///< names of those that are
    std::vector<Folder> folders;
    std::vector<std::string> remarks; ///< what is left out, and why

    [[nodiscard]] bool IsEmpty() const
    {
        return files.empty() && programs.empty() && folders.empty();
    }
};

/// Looks into the folder of a new package. Hidden things, packages, and what no panel would get as
/// it is, are left out.
/// @throws Error when something may not be looked at
[[nodiscard]] NewContents ReadNewContents(const std::string& folder);

/// Writes the steps of a manifest that copy all of it.
/// @param target  the folder on the panel, without a '/' at its end
[[nodiscard]] std::string StepsForContents(const NewContents& contents, const std::string& target);

} // namespace kx::tool
