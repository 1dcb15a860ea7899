// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "archive/ArchiveWriter.h"
#include "compose/Model.h"
#include "io/Descriptor.h"
#include "manifest/Manifest.h"

#include <map>
#include <memory>
#include <string>
#include <vector>

namespace kx::tool
{

/// What the author may have meant otherwise.
struct Remark {
    std::string where; ///< file, line and column
    std::string what;
};

/// Where in the manifest an item of a copy step stands: file, line and column.
struct ItemOrigin {
    std::string source;
    std::string target;
    std::string mode;
};

/// What a manifest becomes: the description, and the payload under the numbers of its steps and
/// items.
struct Layout {
    std::vector<ManifestStep> steps; ///< those of the description, in its order: a fast folder is
                                     ///< two of them, its copy and its script
    std::unique_ptr<ProjectModel> model;
    std::vector<archive::ArchiveItem> payload;
    std::vector<Remark> remarks;
    std::vector<std::vector<ItemOrigin>> origins; ///< of each copy step's items
    /// Of the files in the archives of fast folders, by the names that they would have in the
    /// package one by one.
    std::map<std::string, std::string> sourcesInArchives;
    /// Those of fast folders: their names in the payload are good as long as somebody holds them.
    std::vector<std::shared_ptr<const io::Descriptor>> archives;
};

/// Finds the files that a manifest names and gives them their places.
/// @param output  the package that is being made; an older one under this path is never part of it
/// @throws Errors for what is not there or cannot be packed, with the manifest's place
[[nodiscard]] Layout MakeLayout(const Manifest& manifest, const std::string& output);

/// Does the same as far as that is possible.
/// @param mistakes  gets all that is wrong; items with a mistake are left out
[[nodiscard]] Layout MakeLayout(const Manifest& manifest, const std::string& output,
                                Mistakes& mistakes);

} // namespace kx::tool
